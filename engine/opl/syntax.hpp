#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "opl/source.hpp"

// The front end's own syntax tree of an OPL model: what was written, with
// places, before any name is resolved. Only the lowering knows the
// generator's record kinds.
namespace kolva::opl {

struct Expr;
using ExprPtr = std::unique_ptr<Expr>;

// `i in I`, `<i, j> in Arcs`, `i in 1..n`; `names` holds one name, or the
// names of a tuple pattern (then `pattern` is set).
struct Binding {
  Place place;
  std::vector<std::string> names;
  bool pattern = false;
  ExprPtr domain;
};

// Iterators of sum, forall, aggregates and comprehensions, with their
// optional filter after `:`.
struct Iteration {
  std::vector<Binding> bindings;
  ExprPtr filter;
};

enum class ExprKind : std::uint8_t {
  kInt,            // int_value
  kFloat,          // float_value
  kString,         // text
  kBool,           // int_value 0 or 1
  kInfinity,       // `infinity`
  kName,           // text
  kIndex,          // args[0][args[1]]...[args[n]]: one subscript list per bracket pair
  kField,          // args[0].text
  kCall,           // text(args...): card, ord, abs, minl, ...
  kUnary,          // text is "-", "!" or "+"; args[0]
  kBinary,         // text is the operator; args[0] op args[1]
  kConditional,    // args[0] ? args[1] : args[2]
  kAggregate,      // text is sum, min, max, prod, or, and; iteration; args[0] is the body
  kSetLiteral,     // {args...}
  kRange,          // args[0]..args[1]
  kTuple,          // <args...>
  kArray,          // [args...]
  kComprehension,  // {args[0] | iteration}
};

struct Expr {
  ExprKind kind;
  Place place;
  std::string text;
  std::int64_t int_value = 0;
  double float_value = 0.0;
  std::vector<ExprPtr> args;
  // For kIndex: the number of subscripts inside each bracket pair, so that
  // x[i][j] and x[i, j] both read as subscripts args[1..].
  std::vector<std::uint32_t> brackets;
  std::unique_ptr<Iteration> iteration;
  // Height of this subtree, so that depth limits hold for operator chains
  // built by loops as well as for recursion.
  std::uint32_t depth = 1;

  Expr(ExprKind k, Place p) : kind(k), place(p) {}
};

// A written type: int, float, string, boolean, a tuple type name; `plus` for
// int+ and float+; `set_depth` counts the set braces ({int} is 1).
struct TypeRef {
  Place place;
  std::string name;
  bool plus = false;
  int set_depth = 0;
};

// One index of a declared array: `[I]`, `[1..3]`, `[i in I]`.
struct DimSpec {
  Place place;
  std::string iterator;  // empty unless written as `i in I`
  ExprPtr domain;
};

struct FieldSpec {
  Place place;
  TypeRef type;
  std::string name;
  bool key = false;
};

enum class DeclKind : std::uint8_t {
  kTupleType,  // tuple T { fields }
  kRange,      // range R = a..b; or = ...;
  kData,       // a parameter or a set: `type name dims = value;` or `= ...;`
  kDvar,       // dvar type name dims [in lo..hi];
  kDexpr,      // dexpr type name dims = expr;
};

struct Decl {
  DeclKind kind;
  Place place;
  TypeRef type;
  std::string name;
  std::vector<DimSpec> dims;
  ExprPtr value;  // the written value; null when external (= ...) or absent
  bool external = false;
  ExprPtr lower;  // dvar domain `in lower..upper`
  ExprPtr upper;
  std::vector<FieldSpec> fields;  // tuple types

  Decl(DeclKind k, Place p) : kind(k), place(p) {}
};

enum class StmtKind : std::uint8_t {
  kConstraint,  // [label:] expr;
  kForall,      // forall(iteration) body
  kBlock,       // { body }
};

struct Stmt {
  StmtKind kind;
  Place place;
  std::string label;
  ExprPtr expr;
  std::unique_ptr<Iteration> iteration;
  std::vector<Stmt> body;

  Stmt(StmtKind k, Place p) : kind(k), place(p) {}
};

struct Objective {
  Place place;
  bool maximize = false;
  ExprPtr expr;
};

// A whole model in source order.
struct Model {
  std::vector<Decl> decls;
  std::unique_ptr<Objective> objective;
  std::vector<Stmt> constraints;
  Place constraints_place;
  std::vector<Place> skipped_blocks;  // execute blocks, for their warnings
};

}  // namespace kolva::opl
