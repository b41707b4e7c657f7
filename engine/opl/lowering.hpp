#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "model/value.hpp"
#include "opl/source.hpp"
#include "opl/symbols.hpp"
#include "opl/syntax.hpp"

// Lowering: the checked syntax tree to the generator's model tree. Parts of
// the model that the generator cannot evaluate itself (data functions, set
// operations, dependent domains, filters over them) are lifted into hidden
// data items named `__opl<N>`; their values are computed once the data is
// known (see derived.hpp), so the tree itself never depends on data.
namespace kolva::opl {

// One level of the iterator scope at some point of the model.
struct Frame {
  enum class Kind : std::uint8_t { kBinding, kAlias, kBarrier };
  Kind kind = Kind::kBinding;
  // kBinding: one binding of an iteration; `filter` is the iteration's filter,
  // set on its last binding only, and is applied once that binding is bound.
  const Binding* binding = nullptr;
  const Expr* filter = nullptr;
  std::string tree_name;  // the iterator's name in the model tree
  // kAlias: a dexpr index bound to the value of `arg` (evaluated below it).
  std::string alias;
  const Expr* arg = nullptr;
};

// A hidden data item and how to compute it.
struct Lifted {
  enum class Kind : std::uint8_t {
    kValue,   // the value of `expr`, keyed by the values of `deps`
    kDomain,  // the union of the members of `expr` over the scope (a plain set)
    kFilter,  // true where the iteration starting at frame `first` admits the combination
  };
  Kind kind = Kind::kValue;
  std::string name;
  const Expr* expr = nullptr;
  std::vector<Frame> frames;
  std::vector<std::size_t> deps;  // frames whose values key the item, in order
  std::size_t first = 0;          // kFilter: first frame of the filtered iteration
  // kFilter: per binding of the iteration, the hidden set it runs over in
  // the tree, or "" when it runs over its own domain.
  std::vector<std::string> static_domains;
};

struct LoweredModel {
  Value tree;
  // Bindings made up for declarations' index iterators, which frames point to.
  std::vector<std::unique_ptr<Binding>> owned_bindings;
  std::vector<Lifted> lifted;
  std::vector<Diagnostic> warnings;
  // Variables whose domains the logical rows need as ground bound rows (the
  // big-M estimates read only `var <= number` rows): once the data is known,
  // the rows at [domain_rows_begin, domain_rows_end) of the tree's
  // constraints are replaced by one such row per element and side.
  std::vector<const Decl*> ground_domains;
  std::size_t domain_rows_begin = 0;
  std::size_t domain_rows_end = 0;
};

LoweredModel lower_model(const Model& model, const SymbolTable& symbols);

// The name under which a data item reaches the generator. Data items become
// variables of the emitted script, so a name that is a Python keyword or
// builtin, or one of the script's own names (time, sense, bounds, ...), gets
// trailing underscores until it is free.
std::string script_data_name(const std::string& name, const SymbolTable& symbols);

// A range declared with a bound that is no integer literal (or read from
// data) gets that bound as a hidden scalar: whether it does, and its name.
bool range_bound_is_hidden(const Decl& range, int which);
std::string range_bound_name(const std::string& range, int which);

}  // namespace kolva::opl
