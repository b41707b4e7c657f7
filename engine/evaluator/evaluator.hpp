#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/error.hpp"
#include "model/nesting_limit.hpp"

#include "evaluator/eval_result.hpp"
#include "generator/generator.hpp"

namespace kolva {

// Reduces an expression node and an Env to a linear part over decision
// variables and a constant part. Holds no state of its own beyond the link to
// its generator and two depth counters.
// Counts nesting on entry and refuses to go deeper than `limit`, so that deep
// input fails cleanly instead of exhausting the C++ stack.
class DepthGuard {
 public:
  DepthGuard(int& depth, int limit) : depth_(depth) {
    if (++depth_ > limit) {
      --depth_;
      std::string message = "expression nested deeper than ";
      message += std::to_string(limit);
      message += " levels";
      raise(ErrorKind::kRecursion, message);
    }
  }
  DepthGuard(const DepthGuard&) = delete;
  DepthGuard& operator=(const DepthGuard&) = delete;
  ~DepthGuard() { --depth_; }

 private:
  int& depth_;
};

// The shape of a subscripted name, worked out once per node: its name, its
// subscripts when they are plain names or literals, and its declaration.
struct IndexedNameShape {
  struct Dim {
    bool literal = false;  // a number_literal_index; else a name_reference_index
    Value value;           // the literal, or the referenced name
  };
  std::string name;
  std::vector<Dim> dims;
  MapPtr decl;
  bool tuple_indexed = false;
  bool parameter = false;
  bool variable_array = false;  // declared as dvar_indexed and not over a tuple set
  // Whether the declaration has a named-set dimension, the only kind where
  // a parameter's string subscript can become a position.
  bool may_remap = false;
};

class ExpressionEvaluator;

// What the evaluator keeps on a node: how to dispatch it, and for a
// subscripted name its shape (absent when the subscripts are not simple).
struct EvalNodeInfo final : NodeAnnotation {
  EvalNodeInfo() : NodeAnnotation(Kind::kEvaluator) {}
  // The record kept on `node` by the evaluator, or null.
  static std::shared_ptr<const EvalNodeInfo> of(const Map& node) {
    const auto& note = node.annotation();
    if (note == nullptr || note->kind != Kind::kEvaluator) return nullptr;
    return std::static_pointer_cast<const EvalNodeInfo>(note);
  }
  static const EvalNodeInfo* borrowed(const Map& node) {
    const auto& note = node.annotation();
    if (note == nullptr || note->kind != Kind::kEvaluator) return nullptr;
    return static_cast<const EvalNodeInfo*>(note.get());
  }
  enum class Route : std::uint8_t { kHandler, kImplies, kConstraint, kFallback };
  std::string type;
  Route route = Route::kFallback;
  EvalResult (ExpressionEvaluator::*handler)(const Value& expr, const Env& env) = nullptr;
  std::shared_ptr<const IndexedNameShape> shape;
};

class ExpressionEvaluator {
 public:
  explicit ExpressionEvaluator(Generator& parent) : parent_(parent) {}

  Generator& parent() const { return parent_; }

  EvalResult eval(const Value& expr, const Env* env);
  EvalResult _eval_index_expr(const Value& dim_expr, const Env& env);

  using Handler = EvalResult (ExpressionEvaluator::*)(const Value& expr, const Env& env);
  // The handler for a node type, or null when the type has none.
  static Handler _get_handler(std::string_view type);
  EvalResult _handle_literal_fallback(const std::string& type, const Value& expr, const Env& env);
  static Value _rewrite_implies(const Value& expr);

  // Frame handlers.
  EvalResult _eval_boolean_literal(const Value& expr, const Env& env);
  EvalResult _eval_number(const Value& expr, const Env& env);
  EvalResult _eval_name(const Value& expr, const Env& env);

  // Arithmetic and comparison.
  EvalResult _eval_binop(const Value& expr, const Env& env);
  EvalResult _eval_uminus(const Value& expr, const Env& env);
  EvalResult _handle_binop_add(const Value& left, const Value& right, const Env& env);
  EvalResult _handle_binop_sub(const Value& left, const Value& right, const Env& env);
  EvalResult _handle_binop_mul(const Value& left, const Value& right, const Env& env);
  EvalResult _handle_binop_div(const Value& left, const Value& right, const Env& env);
  EvalResult _handle_binop_cmp(const Value& left, const Value& right, const std::string& op, const Env& env);

  // Aggregates, conditionals and logic.
  EvalResult _eval_minl(const Value& expr, const Env& env);
  EvalResult _eval_maxl(const Value& expr, const Env& env);
  EvalResult _eval_conditional(const Value& expr, const Env& env);
  EvalResult _eval_parenthesized_expression(const Value& expr, const Env& env);
  EvalResult _eval_not(const Value& expr, const Env& env);
  EvalResult _eval_and(const Value& expr, const Env& env);
  EvalResult _eval_or(const Value& expr, const Env& env);

  // Tuples, fields and name references.
  EvalResult _eval_tuple_literal(const Value& expr, const Env& env);
  EvalResult _eval_field_access(const Value& expr, const Env& env);
  EvalResult _eval_name_reference_index(const Value& expr, const Env& env);

  // Sums and indexed names.
  EvalResult _eval_sum(const Value& expr, const Env& env);
  bool _sum_index_constraint_satisfied(const Value& expr, const Env& env2);
  EvalResult _eval_indexed_name(const Value& expr, const Env& env);
  EvalResult _handle_tuple_indexed(const Value& expr, const ValueVec& indices);
  static Value _extract_index_value(const Value& idx);

 private:
  // Deeper nesting than this is refused instead of exhausting the C++ stack.
  static constexpr int kMaxDepth = kMaxNesting;

  const EvalNodeInfo& node_info(const Map& node);
  std::shared_ptr<const IndexedNameShape> make_indexed_name_shape(const Map& node);
  std::optional<EvalResult> direct_variable_term(const IndexedNameShape& shape, const ValueVec& indices);
  EvalResult eval_aggregate(const Value& expr, const Env& env, bool take_max);
  EvalResult eval_connective(const Value& expr, const Env& env, bool is_and);
  Value tuple_member(const Value& e, const Env& env);
  Value index_tuple_member(const Value& e, const Env& env);
  bool remap_set_members(const Map& decl, const Value& param_data, ValueVec& indices);
  EvalResult eval_equality(const Value& left, const Value& right, const Env& env);
  EvalResult dispatch(const std::string& type, const Value& expr, const Env& env);
  EvalResult checked_result(const std::string& type, EvalResult result);

  Generator& parent_;
  int depth_ = 0;
  int field_access_depth_ = 0;
  std::string name_buffer_;  // reused when forming variable names
};

// True for a Boolean literal or a binop typed Boolean: the operands of `!=`
// that get an auxiliary binary instead of being evaluated.
bool is_bool_expr(const Value& e);

}  // namespace kolva
