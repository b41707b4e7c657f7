// Pre-registration and bound collection. Recognises `x op number` and
// `number op x` (op >=, <=, ==) and records the bound in _collected_lbs /
// _collected_ubs, also under the base symbol of an indexed variable; and
// makes the variable of a `!=` between Boolean expressions ahead of time.
// Emits no row of its own and never claims the constraint. A failure here
// only means no bound is learnt, so it is swallowed.
#include "constraints/forms/forms.hpp"
#include "logic/boolean_variables.hpp"
#include "logic/node_tests.hpp"

namespace kolva::forms {
namespace {

using logic::is_num;
using logic::is_var;
using logic::type_of;

// Boolean literals, Boolean binops, `x == y` between variables, and/or/not.
bool is_bool_expr_node(const Value& node) {
  const std::string_view type = type_of(node);
  if (type == "boolean_literal" || type == "and" || type == "or" || type == "not") return true;
  if (type == "binop") return py_str(node.as_map()->get("sem_type")) == "boolean";
  if (type == "constraint" && logic::op_of(node) == "==") {
    return is_var(node.as_map()->get("left")) && is_var(node.as_map()->get("right"));
  }
  return false;
}

// The rule under the base symbol: a value passes when no bound is recorded
// or it lies outside the recorded one, and is then offered to the tightening,
// which refuses it. So the first value seen for the symbol stays.
void offer_lower_to_base(Generator& gen, const std::string& base, double val) {
  const Value current = gen.collected_lbs->get(base);
  if (current.is_none() || val < py_float(current)) gen._tighten_lower_bound(base, val);
}

void offer_upper_to_base(Generator& gen, const std::string& base, double val) {
  const Value current = gen.collected_ubs->get(base);
  if (current.is_none() || val > py_float(current)) gen._tighten_upper_bound(base, val);
}

// `var op val` with the variable on the side given; `var_on_left` false
// means `val op var`, whose direction is mirrored.
void collect(Generator& gen, const std::string& op, const Value& var, const Value& number, bool var_on_left,
             const Env& env) {
  const std::string vname = logic::variable_name(gen, var, env);
  const double val = py_float(number.as_map()->get("value"));
  const bool lower = op == "==" || (op == ">=") == var_on_left;
  const bool upper = op == "==" || (op == "<=") == var_on_left;
  if (lower) gen._tighten_lower_bound(vname, val);
  if (upper) gen._tighten_upper_bound(vname, val);
  if (type_of(var) != "indexed_name") return;
  const std::string base = py_str(var.as_map()->get("name"));
  if (lower) offer_lower_to_base(gen, base, val);
  if (upper) offer_upper_to_base(gen, base, val);
}

void preregister_and_collect(ConstraintBuilder& b, const ConstraintCall& call) {
  const Map& constr = *call.constr;
  const std::string op = py_str(constr.get("op"));
  const Value left = constr.get("left");
  const Value right = constr.get("right");
  if (op == "!=" && is_bool_expr_node(left) && is_bool_expr_node(right)) {
    logic::bool_expr_var(b, Value::map(call.constr), call.env);
  }
  if (op != ">=" && op != "<=" && op != "==") return;
  if (is_var(left) && is_num(right)) {
    collect(b.gen, op, left, right, true, call.env);
  } else if (is_var(right) && is_num(left)) {
    collect(b.gen, op, right, left, false, call.env);
  }
}

}  // namespace

Claim preregistration_and_bound_collection(ConstraintBuilder& b, ConstraintCall& call) {
  if (py_str(call.constr->get("type")) != "constraint") return Claim::kPass;
  try {
    preregister_and_collect(b, call);
  } catch (const Error&) {
    return Claim::kPass;  // no bound learnt from this constraint
  }
  return Claim::kPass;
}

}  // namespace kolva::forms
