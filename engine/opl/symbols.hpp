#pragma once

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/value.hpp"
#include "opl/data_shape.hpp"
#include "opl/syntax.hpp"

// Resolution: what each declared name of a model is. The symbol table, not
// the spelling, decides how a name is lowered and how its data is read.
namespace kolva::opl {

enum class SymKind : std::uint8_t { kTupleType, kRange, kSet, kParam, kDvar, kDexpr };

struct Symbol {
  SymKind kind;
  const Decl* decl = nullptr;
  std::string name;
  ElemType elem;                          // value type; for sets the member type
  const TupleInfo* tuple_type = nullptr;  // for kTupleType
  bool array_of_sets = false;             // {int} S[I]
  // Data known once the load reaches this declaration.
  bool evaluated = false;
  Value value;
  std::vector<DimInfo> dims;

  bool is_data() const { return kind == SymKind::kRange || kind == SymKind::kSet || kind == SymKind::kParam; }
};

class SymbolTable {
 public:
  const Symbol* find(const std::string& name) const;
  Symbol* find(const std::string& name);
  // Declared names in model order.
  const std::vector<Symbol*>& in_order() const { return order_; }

  Symbol& declare(const Decl& decl, SymKind kind);
  const TupleInfo& add_tuple(TupleInfo info);

 private:
  std::deque<Symbol> symbols_;
  std::deque<TupleInfo> tuples_;
  std::unordered_map<std::string, Symbol*> by_name_;
  std::vector<Symbol*> order_;
};

// Builds the table of a parsed model, checking that every type exists and
// that no name is declared twice.
SymbolTable resolve(const Model& model);

std::string kind_word(SymKind kind);

}  // namespace kolva::opl
