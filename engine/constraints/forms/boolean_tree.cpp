// Top-level Boolean tree: `tree op rhs` for ==, >=, <=, != with a tree of
// and/or/not over `x == 0|1` on the left.
// Emits the tree's variable z (with its own rows) and, for `== v`,
// `>= 1` and `!= 0`, one equality row z == value. `== true/1`, `>= 0` and
// `<= 1` are skipped as tautologies; other cases fall through with z kept.
#include "constraints/forms/forms.hpp"
#include "logic/boolean_variables.hpp"
#include "logic/node_tests.hpp"

namespace kolva::forms {
namespace {

using logic::is_number_equal;
using logic::type_of;

bool is_tautology_for_aux(const std::string& op, const Value& rhs) {
  if (op == "==") return logic::is_literal(rhs, true) || is_number_equal(rhs, 1);
  if (op == ">=") return is_number_equal(rhs, 0);
  if (op == "<=") return is_number_equal(rhs, 1);
  return false;
}

void post_equal(ConstraintBuilder& b, const std::string& var, double value) {
  LocalRow row;
  row.add(logic::column_of(b.gen, var), 1.0);
  b.store_eq(row, value);
}

}  // namespace

Claim top_level_boolean_tree(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("type")) != "constraint") return Claim::kPass;
  const std::string op = py_str(constr.get("op"));
  if (op != "==" && op != ">=" && op != "<=" && op != "!=") return Claim::kPass;
  const Value left = constr.at("left");
  if (!logic::is_bool_tree(left)) return Claim::kPass;
  const MapPtr as_leaf = logic::constraint_node(
      Value::str("=="), left,
      Value::map(logic::make_node({{"type", Value::str("number")}, {"value", Value::integer(1)}})));
  if (logic::is_bool_tree(Value::map(as_leaf))) return Claim::kPass;
  const std::string aux = logic::bool_expr_var(b, left, call.env);
  const Log& log = b.gen.log();
  log.debug([&] { return "[DEBUG] Created auxiliary " + aux + " for boolean expr: " + py_str(left); });
  const Value right = constr.at("right");
  if (is_tautology_for_aux(op, right)) {
    log.debug(
        [&] { return "[DEBUG] Skipping tautological constraint: " + aux + " " + op + " " + py_str(right); });
    if (op == "==") b.note_lossy(LossyConstruct::kTautologicalTree);
    return Claim::kDone;
  }
  if (op == "==") {
    if (!right.is_map())
      raise(ErrorKind::kType, "the right side of a Boolean tree comparison must be a node");
    post_equal(b, aux, py_float(right.as_map()->get("value", Value::integer(0))));
    return Claim::kDone;
  }
  if ((op == ">=" && is_number_equal(right, 1)) || (op == "!=" && is_number_equal(right, 0))) {
    post_equal(b, aux, 1.0);
    return Claim::kDone;
  }
  return Claim::kPass;
}

Claim constraint_over_implies(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("type")) != "constraint") return Claim::kPass;
  const Value left = constr.get("left");
  if (type_of(left) != "implies") return Claim::kPass;
  const std::string aux = logic::bool_expr_var(b, left, call.env);
  b.gen.log().debug(
      [&] { return "[DEBUG] Created auxiliary " + aux + " for implies expr: " + py_str(left); });
  const Value right = constr.get("right");
  const bool is_true = type_of(right) == "boolean_literal"
                           ? py_eq(right.as_map()->get("value"), Value::boolean(true))
                           : is_number_equal(right, 1);
  const bool is_false = type_of(right) == "boolean_literal"
                            ? py_eq(right.as_map()->get("value"), Value::boolean(false))
                            : is_number_equal(right, 0);
  if (is_true || is_false) {
    post_equal(b, aux, is_true ? 1.0 : 0.0);
    return Claim::kDone;
  }
  return Claim::kPass;
}

}  // namespace kolva::forms
