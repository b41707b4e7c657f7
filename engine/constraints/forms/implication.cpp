// Implication `antecedent => consequent`, normalised first: `(cmp) == true`
// becomes the bare comparison, and in `(A and B) == true => C` every
// conjunct is posted as a plain constraint with the last one kept as the
// antecedent (the program's rule, not an indicator of the conjunction).
// Then, in this order:
//   y == 0 => x <= r     x - M*y <= r          (M from x's upper bound)
//   y == 0 => x == 0     x - M*y <= 0          (upper side only)
//   x > 0  => y == 1     x - bigM*y <= 0       (fixed-charge link)
//   comparison => comparison                    (implication_comparisons.cpp)
//   b == 1 => y == 1     b - y <= 0
//   b == 1 => y == 0     b + y <= 1
//   b == 1 => lhs <= rhs lhs + M*b <= rhs + M  (>= negated, strict by eps)
// None of the indicator rows adds a variable.
#include <cmath>

#include "constraints/forms/forms.hpp"
#include "constraints/forms/implication_comparisons.hpp"
#include "logic/boolean_variables.hpp"
#include "logic/node_tests.hpp"

namespace kolva::forms {
namespace {

using logic::column_of;
using logic::is_num;
using logic::is_var;
using logic::type_of;

Value var_eq_value(const Value& node, std::int64_t val) {
  if (type_of(node) != "constraint" || logic::op_of(node) != "==") return {};
  Value left = node.as_map()->get("left");
  Value right = node.as_map()->get("right");
  if (is_var(left) && logic::is_number_equal(right, val)) return left;
  if (is_var(right) && logic::is_number_equal(left, val)) return right;
  return {};
}

bool is_zero_number(const Value& node) {
  return is_num(node) && std::fabs(py_float(node.as_map()->get("value"))) < 1e-12;
}

// `x > 0` or `x >= 0`; a number on the left is read the same way whatever
// the direction, so `0 >= x` is also `x > 0`.
Value single_var_gt_zero(const Value& node, bool& number_on_left) {
  const std::string op = logic::op_of(node);
  if (type_of(node) != "constraint" || (op != ">" && op != ">=")) return {};
  Value left = node.as_map()->get("left");
  Value right = node.as_map()->get("right");
  number_on_left = false;
  if (is_var(left) && is_zero_number(right)) return left;
  if (is_var(right) && is_zero_number(left)) {
    number_on_left = true;
    return right;
  }
  return {};
}

Value unwrap_bool_eq_true(const Value& node) {
  if (type_of(node) != "constraint" || logic::op_of(node) != "==") return node;
  const Value left = node.as_map()->get("left");
  const Value right = node.as_map()->get("right");
  Value candidate;
  if (logic::is_literal(left, true)) {
    candidate = right;
  } else if (logic::is_literal(right, true)) {
    candidate = left;
  } else {
    return node;
  }
  candidate = logic::unwrap_paren(candidate);
  if (type_of(candidate) != "binop") return node;
  const Map& c = *candidate.as_map();
  return Value::map(logic::constraint_node(c.get("op"), c.get("left"), c.get("right")));
}

// `(A and B) == true` as an antecedent: each conjunct is posted at once and
// the last one stands for the antecedent; a term that is not a linear
// comparison ends the walk and nothing stands in.
Value post_conjuncts(ConstraintBuilder& b, const Value& ant, const Env& env) {
  if (type_of(ant) != "constraint" || logic::op_of(ant) != "==") return {};
  Value left = logic::unwrap_paren(ant.as_map()->get("left"));
  Value right = logic::unwrap_paren(ant.as_map()->get("right"));
  if (type_of(right) == "and" && logic::is_literal(left, true)) std::swap(left, right);
  if (type_of(left) != "and" || !logic::is_literal(right, true)) return {};
  Value remembered;
  for (const Value& term_in : Generator::_flatten_bool(left, "and")) {
    const Value term = logic::unwrap_paren(term_in);
    if (!Generator::_is_linear_comparison(term)) return {};
    const Map& t = *term.as_map();
    const MapPtr posted = logic::constraint_node(t.get("op"), t.get("left"), t.get("right"));
    b.note_lossy(LossyConstruct::kConjunctionAntecedent);
    b.handle_constraint(posted, env);
    remembered = Value::map(posted);
  }
  return remembered;
}

double inferred_big_m(Generator& gen, const std::string& x) {
  try {
    const Value upper = gen._infer_var_bounds(x).second;
    return upper.is_none() ? kBigMDefault : std::max(py_float(upper), 1.0);
  } catch (const Error&) {
    return kBigMDefault;  // no usable bound
  }
}

// x - M*y <= rhs, each term only if its variable is a column.
void post_zero_indicator(ConstraintBuilder& b, const std::string& x, const std::string& y, double rhs) {
  Generator& gen = b.gen;
  const double big_m = inferred_big_m(gen, x);
  LocalRow row;
  if (const std::optional<std::int64_t> col = gen.var_indices.find(x)) row.add(*col, 1.0);
  if (const std::optional<std::int64_t> col = gen.var_indices.find(y)) row.add(*col, -big_m);
  b.store_ub(row, rhs);
}

// The fallback of a fixed-charge link: a literal of its own, equal to the
// module's default big-M.
constexpr double kNoDataBound = 1000000.0;

// The bound of x in a fixed-charge link: collected bounds of x, then of its
// base symbol, then the model's `demand` list at x's last subscript.
double fixed_charge_big_m(Generator& gen, const Value& x_node, const std::string& x_name, const Env& env) {
  const Value by_name = gen.collected_ubs->get(x_name);
  if (!by_name.is_none()) return py_float(by_name);
  const Value base = type_of(x_node) == "indexed_name" ? x_node.as_map()->get("name") : Value::str(x_name);
  const Value by_base = gen.collected_ubs->get(base);
  if (!by_base.is_none()) return py_float(by_base);
  try {
    const Value demand = gen.data_dict->get("demand");
    const Value dims = x_node.as_map()->get("dimensions");
    if (demand.is_list() && type_of(x_node) == "indexed_name" && dims.is_list() && !dims.items().empty()) {
      const Value t = gen._eval_index_expr(dims.items().back(), env).val;
      const auto size = static_cast<std::int64_t>(demand.items().size());
      // A Boolean subscript counts as the integer it is in Python.
      const std::int64_t position = t.is_int_like() ? py_int(t) : 0;
      if (position >= 1 && position <= size) {
        return py_float(demand.items()[static_cast<std::size_t>(position - 1)]);
      }
    }
    return kNoDataBound;
  } catch (const Error&) {
    return kNoDataBound;  // the data does not give a bound
  }
}

bool indicator_forms(ConstraintBuilder& b, const Value& ant, const Value& cons, const Env& env) {
  Generator& gen = b.gen;
  const Value ant_eq_zero = var_eq_value(ant, 0);
  if (!ant_eq_zero.is_none() && type_of(cons) == "constraint") {
    const Map& c = *cons.as_map();
    const std::string op = py_str(c.get("op"));
    const Value x = c.get("left");
    const Value number = c.get("right");
    if (is_var(x) && is_num(number)) {
      const auto y_name = [&] { return logic::variable_name(gen, ant_eq_zero, env); };
      if (op == "<=") {
        const double r = py_float(number.as_map()->get("value", Value::real(0.0)));
        post_zero_indicator(b, logic::variable_name(gen, x, env), y_name(), r);
        return true;
      }
      if (op == "==" && std::fabs(py_float(number.as_map()->get("value", Value::real(0.0)))) < 1e-12) {
        b.note_lossy(LossyConstruct::kIndicatorUpperSideOnly);
        post_zero_indicator(b, logic::variable_name(gen, x, env), y_name(), 0.0);
        return true;
      }
    }
  }
  bool number_on_left = false;
  const Value x_node = single_var_gt_zero(ant, number_on_left);
  const Value y_node = var_eq_value(cons, 1);
  if (x_node.is_none() || y_node.is_none()) return false;
  const std::string x_name = logic::variable_name(gen, x_node, env);
  const std::string y_name = logic::variable_name(gen, y_node, env);
  if (!gen.var_indices.contains(x_name) || !gen.var_indices.contains(y_name)) {
    raise_semantic("Implication variables not indexed properly");
  }
  if (number_on_left) b.note_lossy(LossyConstruct::kZeroAtLeastReadAsPositive);
  const double big_m = fixed_charge_big_m(gen, x_node, x_name, env);
  LocalRow row;
  row.add(column_of(gen, x_name), 1.0);
  row.add(column_of(gen, y_name), -big_m);
  b.store_ub(row, 0.0);
  return true;
}

// `b == 1 => consequent`.
void boolean_antecedent(ConstraintBuilder& b, const std::string& b_name, const Value& cons, const Env& env) {
  Generator& gen = b.gen;
  if (type_of(cons) != "constraint") raise_semantic("Implication consequent must be a constraint");
  const Map& c = *cons.as_map();
  const std::string op = py_str(c.get("op"));
  const Value lc = c.get("left");
  const Value rc = c.get("right");
  Value y = var_eq_value(cons, 1);
  if (y.is_none() && (op == ">=" || op == "==") && is_var(lc) && logic::is_number_equal(rc, 1)) y = lc;
  if (!y.is_none()) {
    LocalRow row;
    row.add(column_of(gen, b_name), 1.0);
    row.add(column_of(gen, logic::variable_name(gen, y, env)), -1.0);
    b.store_ub(row, 0.0);
    return;
  }
  y = var_eq_value(cons, 0);
  if (y.is_none() && (op == "<=" || op == "==") && is_var(lc) && logic::is_number_equal(rc, 0)) y = lc;
  if (!y.is_none()) {
    LocalRow row;
    row.add(column_of(gen, b_name), 1.0);
    row.add(column_of(gen, logic::variable_name(gen, y, env)), 1.0);
    b.store_ub(row, 1.0);
    return;
  }
  if (op != "<=" && op != "<" && op != ">=" && op != ">")
    raise_semantic("Unsupported implication consequent form");
  const auto [left, left_const] = gen._accumulate_sum_to_dict(lc, env, 1.0);
  const auto [right, right_const] = gen._accumulate_sum_to_dict(rc, env, 1.0);
  const auto [op2, adjusted] = Generator::_strict_adjusted_rhs(op, right_const - left_const);
  const double sign = op2 == ">=" ? -1.0 : 1.0;
  LocalRow row;
  const auto add_side = [&](const KeyedCoefs& side, double factor) {
    for (const KeyedCoefs::Item& item : side.items()) {
      std::optional<std::int64_t> col = item.first.is_column ? std::optional<std::int64_t>(item.first.column)
                                                             : gen.var_indices.find(item.first.name);
      if (col) row.add(*col, sign * factor * item.second);
    }
  };
  add_side(left, 1.0);
  add_side(right, -1.0);
  row.add(column_of(gen, b_name), kBigMDefault);
  b.store_ub(row, sign * adjusted + kBigMDefault);
}

}  // namespace

Claim implication(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("type")) != "implication_constraint") return Claim::kPass;
  const Value ant_in = constr.get("antecedent");
  const Value cons_in = constr.get("consequent");
  Value ant = unwrap_bool_eq_true(ant_in);
  const Value cons = unwrap_bool_eq_true(cons_in);
  if (const Value last = post_conjuncts(b, ant_in, call.env); !last.is_none()) ant = last;
  if (indicator_forms(b, ant, cons, call.env)) return Claim::kDone;
  const Value ant_var = var_eq_value(ant, 1);
  if (ant_var.is_none()) {
    if (type_of(ant) != "constraint" || type_of(cons) != "constraint") {
      raise_semantic("Implication antecedent must be boolean var == 1 or linear constraint");
    }
    implication_between_comparisons(b, ant, cons, call.env);
    return Claim::kDone;
  }
  boolean_antecedent(b, logic::variable_name(b.gen, ant_var, call.env), cons, call.env);
  return Claim::kDone;
}

}  // namespace kolva::forms
