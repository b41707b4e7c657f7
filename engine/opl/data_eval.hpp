#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "model/value.hpp"
#include "opl/symbols.hpp"
#include "opl/syntax.hpp"

// Evaluation of OPL expressions over data: derived declarations, filters,
// domains and the data-only parts of constraints. Values follow the engine's
// Python-faithful semantics; sets are lists of distinct members in order, and
// ranges are {"type": "range_data", "start": a, "end": b} maps.
namespace kolva::opl {

class DataEval {
 public:
  explicit DataEval(const SymbolTable& symbols) : symbols_(symbols) {}

  Value eval(const Expr& e);
  bool truth(const Expr& e);

  // Iterator bindings, innermost last; `tuple` is the member's tuple type.
  void bind(const std::string& name, Value v, const TupleInfo* tuple = nullptr) {
    bound_.push_back(Bound{name, std::move(v), tuple});
  }
  void unbind(std::size_t count) { bound_.resize(bound_.size() - count); }
  // Binds a binding's names to one member (tuple patterns take it apart).
  std::size_t bind_member(const Binding& b, const Value& member);

  // The tuple type of what an expression gives, when it gives a tuple (or a
  // set of tuples); null when unknown.
  const TupleInfo* tuple_type_of(const Expr& e) const;

  // Members of a set or range value, in order.
  std::vector<Value> members(const Value& domain, const Place& at) const;
  // Runs `body` once per combination of the iteration that passes its filter.
  void for_each(const Iteration& it, const std::function<void()>& body);

  // The value of array `sym` at `keys` (one key per dimension).
  Value element(const Symbol& sym, const std::vector<Value>& keys, const Place& at) const;

 private:
  struct Bound {
    std::string name;
    Value value;
    const TupleInfo* tuple;
  };
  const Bound* bound(const std::string& name) const;
  Value eval_node(const Expr& e);
  Value name_value(const Expr& e);
  Value index_value(const Expr& e);
  Value field_value(const Expr& e);
  Value call_value(const Expr& e);
  Value unary_value(const Expr& e);
  Value binary_value(const Expr& e);
  Value aggregate_value(const Expr& e);
  Value set_value(const Expr& e);
  Value comprehension_value(const Expr& e);
  void for_each_from(const Iteration& it, std::size_t k, const std::function<void()>& body);

  const SymbolTable& symbols_;
  std::vector<Bound> bound_;
};

// A range value and its parts.
Value range_value(std::int64_t start, std::int64_t end);
bool is_range_value(const Value& v);
std::int64_t range_start(const Value& v);
std::int64_t range_end(const Value& v);

// A value converted to a declared element type (ints widen to float; a float
// for an int must be integral); an error at `at` naming `what` otherwise.
Value coerce_to(const ElemType& type, const Value& v, const Place& at, const std::string& what);

}  // namespace kolva::opl
