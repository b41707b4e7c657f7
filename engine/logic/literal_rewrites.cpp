// Comparisons against Boolean literals and every `!=` constraint.
//   (A) stripping:      one level of parentheses off each side, in place
//   cmp == true:        the constraint becomes cmp itself
//   cmp == false:       the constraint becomes not(cmp) == true
//   a != b (Booleans):  a + b == 1             "# encoded != (boolean xor)"
//   a != 0|1:           a == 1 - literal       "# encoded != (boolean var vs literal)"
//   other !=:           truth flag z == 1      "# encoded != via truth var fallback"
//   not(cmp) == lit:    the opposite comparison (<= becomes >= rhs + eps)
//   b == expr:          b - z == 0 with z the expression's variable
// The rewriting forms change the constraint node and let the chain go on.
#include "constraints/forms/forms.hpp"
#include "logic/boolean_variables.hpp"
#include "logic/node_tests.hpp"
#include "logic/truth_variables.hpp"

namespace kolva::forms {
namespace {

using logic::column_of;
using logic::type_of;

bool is_bool_comparison(const Value& node) {
  if (type_of(node) != "binop" || py_str(node.as_map()->get("sem_type")) != "boolean") return false;
  const std::string op = logic::op_of(node);
  return op == "<=" || op == ">=" || op == "==" || op == "!=";
}

// `cmp == true` (or false) with cmp a Boolean comparison other than < and >.
bool is_comparison_against(const Map& constr, bool literal) {
  return py_str(constr.get("op")) == "==" && logic::is_literal(constr.at("right"), literal) &&
         is_bool_comparison(constr.at("left"));
}

void post_eq(ConstraintBuilder& b, const std::vector<std::pair<std::int64_t, double>>& assigned, double rhs) {
  LocalRow row;
  for (const auto& [col, value] : assigned) row.set(col, value);
  b.store_eq(row, rhs);
}

Value with_margin(const Value& side, const char* op) {
  const Value sem = side.is_map() ? side.as_map()->get("sem_type", Value::str("float")) : Value::str("float");
  const MapPtr eps = logic::make_node(
      {{"type", Value::str("number")}, {"value", Value::real(kBoolEps)}, {"sem_type", Value::str("float")}});
  return Value::map(logic::make_node({{"type", Value::str("binop")},
                                      {"op", Value::str(op)},
                                      {"left", side},
                                      {"right", Value::map(eps)},
                                      {"sem_type", sem}}));
}

}  // namespace

Claim parenthesis_stripping(ConstraintBuilder& /*b*/, ConstraintCall& call) {
  Map& constr = *call.constr;
  for (const char* side : {"left", "right"}) {
    const Value node = constr.at(side);
    if (type_of(node) != "parenthesized_expression") continue;
    const Value inner = node.as_map()->get("expression");
    if (inner.is_map()) constr.set(side, inner);
  }
  return Claim::kPass;
}

Claim comparison_equals_true(ConstraintBuilder& /*b*/, ConstraintCall& call) {
  Map& constr = *call.constr;
  const Value left = constr.at("left");
  if (!is_comparison_against(constr, true)) return Claim::kPass;
  const Map& cmp = *left.as_map();
  constr.set("op", cmp.get("op"));
  constr.set("left", cmp.get("left"));
  constr.set("right", cmp.get("right"));
  return Claim::kPass;
}

Claim comparison_equals_false(ConstraintBuilder& /*b*/, ConstraintCall& call) {
  Map& constr = *call.constr;
  const Value left = constr.at("left");
  if (!is_comparison_against(constr, false)) return Claim::kPass;
  const Map& cmp = *left.as_map();
  const MapPtr inner = logic::constraint_node(cmp.get("op"), cmp.get("left"), cmp.get("right"));
  constr.set("left", Value::map(logic::make_node({{"type", Value::str("not")},
                                                  {"value", Value::map(inner)},
                                                  {"sem_type", Value::str("boolean")}})));
  constr.set("right", logic::true_literal());
  return Claim::kPass;
}

Claim not_equal(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("op")) != "!=") return Claim::kPass;
  Generator& gen = b.gen;
  const Value left = constr.at("left");
  const Value right = constr.at("right");
  const bool left_bool = logic::is_declared_bool_var(gen, left);
  const bool right_bool = logic::is_declared_bool_var(gen, right);
  if (left_bool && right_bool) {
    post_eq(b,
            {{column_of(gen, logic::variable_name(gen, left, call.env)), 1.0},
             {column_of(gen, logic::variable_name(gen, right, call.env)), 1.0}},
            1.0);
    gen._add_code_line("# encoded != (boolean xor)");
    return Claim::kDone;
  }
  const auto var_vs_literal = [&](const Value& var, const Value& literal) {
    const double v = 1.0 - py_float(literal.as_map()->get("value"));
    post_eq(b, {{column_of(gen, logic::variable_name(gen, var, call.env)), 1.0}}, v);
    gen._add_code_line("# encoded != (boolean var vs literal)");
  };
  if (left_bool && logic::is_number_01(right)) {
    var_vs_literal(left, right);
    return Claim::kDone;
  }
  if (right_bool && logic::is_number_01(left)) {
    var_vs_literal(right, left);
    return Claim::kDone;
  }
  const MapPtr cmp = logic::make_node({{"type", Value::str("binop")},
                                       {"op", Value::str("!=")},
                                       {"left", left},
                                       {"right", right},
                                       {"sem_type", Value::str("boolean")}});
  const std::string z = logic::comparison_truth_var(b, Value::map(cmp), call.env);
  post_eq(b, {{column_of(gen, z), 1.0}}, 1.0);
  gen._add_code_line("# encoded != via truth var fallback");
  return Claim::kDone;
}

Claim not_of_comparison(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  const Value left = constr.at("left");
  const Value right = constr.at("right");
  if (py_str(constr.get("op")) != "==" || type_of(left) != "not" || !logic::is_bool_literal(right)) {
    return Claim::kPass;
  }
  const Value lit_node = logic::unwrap_paren(left.as_map()->get("value"));
  const Value value = right.as_map()->get("value");
  const auto handle = [&](const Value& op, const Value& l, const Value& r) {
    b.handle_constraint(logic::constraint_node(op, l, r), call.env);
  };
  if (value.is_bool() && !value.as_bool()) {
    handle(Value::str("=="), lit_node, logic::true_literal());
    return Claim::kDone;
  }
  if (value.is_bool() && value.as_bool() && type_of(lit_node) == "constraint") {
    const Map& inner = *lit_node.as_map();
    const std::string op = py_str(inner.get("op"));
    const Value l = inner.get("left");
    const Value r = inner.get("right");
    if (op == "<=") {
      handle(Value::str(">="), l, with_margin(r, "+"));
      return Claim::kDone;
    }
    if (op == ">=") {
      handle(Value::str("<="), l, with_margin(r, "-"));
      return Claim::kDone;
    }
    if (op == "==") {
      b.gen._add_code_line("# encoded != (NOT of ==)");
      handle(Value::str("!="), l, r);
      return Claim::kDone;
    }
    if (op == "!=") {
      handle(Value::str("=="), l, r);
      return Claim::kDone;
    }
  }
  handle(Value::str("=="), lit_node, logic::false_literal());
  return Claim::kDone;
}

Claim declared_bool_equals_expression(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  Value var = constr.at("left");
  Value other = constr.at("right");
  if (py_str(constr.get("op")) != "==" || !var.is_map() || !other.is_map()) return Claim::kPass;
  Generator& gen = b.gen;
  if (!logic::is_declared_bool_var(gen, var)) std::swap(var, other);
  if (!logic::is_declared_bool_var(gen, var)) return Claim::kPass;
  std::optional<std::string> expr_var;
  try {
    expr_var = logic::bool_expr_var(b, other, call.env);
  } catch (const Error& e) {
    if (e.kind() != ErrorKind::kSemantic) throw;
  }
  if (!expr_var) return Claim::kPass;
  const std::string name = logic::variable_name(gen, var, call.env);
  if (*expr_var != name) {
    post_eq(b, {{column_of(gen, name), 1.0}, {column_of(gen, *expr_var), -1.0}}, 0.0);
  }
  return Claim::kDone;
}

}  // namespace kolva::forms
