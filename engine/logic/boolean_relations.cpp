// Boolean tree against a literal: `tree op lit` for ==, !=, <=, >= (either
// side order). Emits the tree's variable z and one equality row z == target
// (== lit, != 1 - lit, >= 1 gives 1, <= 0 gives 0); `tree >= 0` and
// `tree <= 1` hold always and post nothing.
// Boolean variable against Boolean expression: `x op expr` for ==, <=, >=
// with x a declared Boolean. Emits one row between x and the expression's
// variable z: x - z == 0, x - z <= 0, or -x + z <= 0 (the expression keeps
// its side).
#include "constraints/forms/forms.hpp"
#include "logic/boolean_variables.hpp"
#include "logic/node_tests.hpp"

namespace kolva::forms {
namespace {

using logic::column_of;
using logic::type_of;

bool is_literal_side(const Value& node) { return logic::is_bool_literal(node) || logic::is_number_01(node); }

std::int64_t literal_value(const Value& node) {
  if (logic::is_bool_literal(node)) {
    const Value v = node.as_map()->get("value");
    return v.is_bool() && v.as_bool() ? 1 : 0;
  }
  const std::int64_t value = py_int(node.as_map()->get("value"));
  if (value != 0 && value != 1) raise_semantic("Boolean comparison literal must be 0/1 or True/False");
  return value;
}

// a rel b as one row: == gives a - b == 0, <= gives a - b <= 0, >= gives
// -a + b <= 0.
void emit_bool_relation(ConstraintBuilder& b, const std::string& rel_op, const std::string& a,
                        const std::string& other) {
  Generator& gen = b.gen;
  LocalRow row;
  if (rel_op == "==" || rel_op == "<=") {
    row.set(column_of(gen, a), 1.0);
    row.add(column_of(gen, other), -1.0);
  } else {
    row.set(column_of(gen, a), -1.0);
    row.add(column_of(gen, other), 1.0);
  }
  if (rel_op == "==") {
    b.store_eq(row, 0.0);
  } else {
    b.store_ub(row, 0.0);
  }
}

}  // namespace

Claim boolean_tree_against_literal(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  const std::string op = py_str(constr.get("op"));
  if (op != "==" && op != "!=" && op != "<=" && op != ">=") return Claim::kPass;
  Value left = constr.at("left");
  Value right = constr.at("right");
  const bool tree_left = logic::is_bool_tree(left) && is_literal_side(right);
  const bool tree_right = logic::is_bool_tree(right) && is_literal_side(left);
  if (!tree_left && !tree_right) return Claim::kPass;
  if (!tree_left) std::swap(left, right);
  const std::int64_t lit = literal_value(right);
  const bool connective = type_of(left) == "and" || type_of(left) == "or";
  std::optional<std::int64_t> target;
  if (op == "==" && !connective) target = lit;
  if (op == "!=") target = 1 - lit;
  if (op == ">=" && lit == 1) target = 1;
  if (op == "<=" && lit == 0) target = 0;
  if (target) {
    const std::string z = logic::bool_expr_var(b, left, call.env);
    LocalRow row;
    row.add(column_of(b.gen, z), 1.0);
    b.store_eq(row, static_cast<double>(*target));
    return Claim::kDone;
  }
  return op == "==" && connective ? Claim::kPass : Claim::kDone;
}

Claim boolean_variable_against_expression(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  const std::string rel_op = py_str(constr.get("op"));
  if (rel_op != "==" && rel_op != "<=" && rel_op != ">=") return Claim::kPass;
  Generator& gen = b.gen;
  const Value left = constr.at("left");
  const Value right = constr.at("right");
  const bool left_is_bool = logic::is_declared_bool_var(gen, left);
  const bool right_is_bool = logic::is_declared_bool_var(gen, right);
  const auto relate = [&](const Value& var, const Value& expr, bool var_on_left) -> bool {
    try {
      const std::string z = logic::bool_expr_var(b, logic::unwrap_paren(expr), call.env);
      const std::string vname = type_of(var) == "name" ? py_str(var.as_map()->get("value"))
                                                       : gen._multi_indexed_var_name(var, call.env, nullptr);
      if (z != vname) {
        if (var_on_left) {
          emit_bool_relation(b, rel_op, vname, z);
        } else {
          emit_bool_relation(b, rel_op, z, vname);
        }
      }
      return true;
    } catch (const Error& e) {
      if (e.kind() != ErrorKind::kSemantic) throw;
      return false;
    }
  };
  if (left_is_bool && !right_is_bool && relate(left, right, true)) return Claim::kDone;
  if (right_is_bool && !left_is_bool && relate(right, left, false)) return Claim::kDone;
  return Claim::kPass;
}

}  // namespace kolva::forms
