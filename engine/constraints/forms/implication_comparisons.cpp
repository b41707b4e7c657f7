// Implication between comparisons: `A => B` over linear expressions.
// Emits a binary implication_flag_c<n> (n counts across builds) and:
//   A an equality, D + d its difference:  D + M f <= M - d,
//     -D + M f <= M + d,  D - M f <= -d,  -D - M f <= d   (the four hold
//     D + d at zero for either value of f: the program's rows, kept so)
//   A an inequality D + d >= 0:  -D + M1 f <= M1 (+ d),  D - U f <= -d
// and one consequent row  C + Mc f <= Mc - k  (C + k the consequent's
// `lhs - rhs`, reversed for >=), which f = 1 turns into C + k <= 0.
#include "constraints/forms/implication_comparisons.hpp"

#include <cmath>
#include <optional>

#include "logic/node_tests.hpp"

namespace kolva::forms {
namespace {

constexpr double kFallbackM = 1000000.0;

struct LinearForm {
  CoefDict coefs;
  double constant = 0.0;
};

LinearForm linear_form(Generator& gen, const Value& expr, const Env& env) {
  if (!expr.is_map()) raise_semantic("Unsupported expression in implication linearization");
  EvalResult r;
  try {
    r = gen._eval_expr(expr, &env);
  } catch (const Error&) {
    raise_semantic("Unsupported linear expression form in implication");
  }
  if (r.marker != nullptr || !r.val.is_number())
    raise_semantic("Unsupported linear expression form in implication");
  return {r.coef, py_float(r.val)};
}

LinearForm difference(Generator& gen, const Value& a, const Value& b, const Env& env) {
  LinearForm out = linear_form(gen, a, env);
  const LinearForm other = linear_form(gen, b, env);
  for (const CoefDict::Item& item : other.coefs.items()) out.coefs.add(item.first, -item.second);
  out.constant -= other.constant;
  return out;
}

CoefDict negated(const CoefDict& coefs) { return coefs.scaled(-1.0); }

std::optional<double> opt(const Value& v) {
  if (v.is_none()) return std::nullopt;
  return py_float(v);
}

std::pair<std::optional<double>, std::optional<double>> bounds_of(Generator& gen, const Value& expr) {
  try {
    const auto [lo, up] = gen._linear_bounds_safe(expr);
    return {opt(lo), opt(up)};
  } catch (const Error&) {
    return {std::nullopt, std::nullopt};
  }
}

std::string new_implication_flag(Generator& gen) {
  if (!gen.impl_counter) gen.impl_counter = 0;
  std::string name = "implication_flag_c" + std::to_string(*gen.impl_counter);
  ++*gen.impl_counter;
  gen.add_binary_flag(name);
  return name;
}

// coefs + flag_coef * f <= rhs; every variable must be a column.
void add_row(ConstraintBuilder& b, const CoefDict& coefs, std::int64_t flag, double flag_coef, double rhs) {
  LocalRow row;
  for (const CoefDict::Item& item : coefs.items()) {
    const std::optional<std::int64_t> col = b.gen.var_indices.find(item.first);
    if (!col) raise_semantic("Variable '" + item.first + "' not indexed");
    row.add(*col, item.second);
  }
  row.add(flag, flag_coef);
  b.store_ub(row, rhs);
}

// The consequent as `C + k <= 0`; `with_margin` moves a strict one by BOOL_EPS.
LinearForm consequent_form(ConstraintBuilder& b, const Map& cons, const Env& env, bool with_margin) {
  const std::string op = py_str(cons.get("op"));
  if (op == "==") raise_semantic("Equality consequent not yet supported");
  LinearForm form;
  if (op == "<=" || op == "<") {
    form = difference(b.gen, cons.get("left"), cons.get("right"), env);
  } else if (op == ">=" || op == ">") {
    form = difference(b.gen, cons.get("right"), cons.get("left"), env);
  } else {
    raise_semantic("Unsupported consequent operator");
  }
  if (op == "<" || op == ">") {
    if (with_margin) {
      form.constant += kBoolEps;
    } else {
      b.note_lossy(LossyConstruct::kStrictImplicationWithoutMargin);
    }
  }
  return form;
}

// Calls visit(coefficient, lower, upper) for each term in order while both
// of its variable's bounds are known; false at the first term without them.
template <typename Visit>
bool each_bounded_term(Generator& gen, const CoefDict& coefs, Visit&& visit) {
  for (const CoefDict::Item& item : coefs.items()) {
    const auto [lb, ub] = gen._infer_var_bounds(item.first);
    if (lb.is_none() || ub.is_none()) return false;
    visit(item.second, py_float(lb), py_float(ub));
  }
  return true;
}

void equality_antecedent(ConstraintBuilder& b, const Map& ant, const Map& cons, const Env& env) {
  Generator& gen = b.gen;
  const LinearForm diff = difference(gen, ant.get("left"), ant.get("right"), env);
  double diff_min = 0.0;
  double diff_max = 0.0;
  const bool feasible = each_bounded_term(gen, diff.coefs, [&](double c, double lb, double ub) {
    diff_min += c >= 0 ? c * lb : c * ub;
    diff_max += c >= 0 ? c * ub : c * lb;
  });
  diff_min += diff.constant;
  diff_max += diff.constant;
  const double m = feasible ? std::max({std::fabs(diff_min), std::fabs(diff_max), 1.0}) : kFallbackM;
  const std::int64_t f = logic::column_of(gen, new_implication_flag(gen));
  b.note_lossy(LossyConstruct::kEqualityAntecedent);
  const double d = diff.constant;
  const CoefDict minus = negated(diff.coefs);
  add_row(b, diff.coefs, f, m, m - d);
  add_row(b, minus, f, m, m + d);
  add_row(b, diff.coefs, f, -m, -d);
  add_row(b, minus, f, -m, d);

  const LinearForm consequent = consequent_form(b, cons, env, false);
  double m_c = 0.0;
  const bool bounded = each_bounded_term(gen, consequent.coefs, [&](double c, double lb, double ub) {
    m_c = std::max({m_c, std::fabs(c * ub), std::fabs(c * lb)});
  });
  if (!bounded || m_c == 0.0) m_c = kFallbackM;
  LocalRow row;
  for (const CoefDict::Item& item : consequent.coefs.items())
    row.add(logic::column_of(gen, item.first), item.second);
  row.add(f, m_c);
  b.store_ub(row, m_c - consequent.constant);
}

void inequality_antecedent(ConstraintBuilder& b, const Map& ant, const Map& cons, const Env& env) {
  Generator& gen = b.gen;
  const std::string ant_op = py_str(ant.get("op"));
  const bool at_least = ant_op == ">=" || ant_op == ">";
  if (!at_least && ant_op != "<=" && ant_op != "<") raise_semantic("Unsupported antecedent operator");
  if (ant_op == ">" || ant_op == "<") b.note_lossy(LossyConstruct::kStrictImplicationWithoutMargin);
  const LinearForm diff = at_least ? difference(gen, ant.get("left"), ant.get("right"), env)
                                   : difference(gen, ant.get("right"), ant.get("left"), env);
  const auto [l_lo, l_up] = bounds_of(gen, ant.get("left"));
  const auto [r_lo, r_up] = bounds_of(gen, ant.get("right"));
  std::optional<double> diff_min;
  std::optional<double> diff_max;
  if (l_lo && l_up && r_lo && r_up) {
    diff_min = at_least ? *l_lo - *r_up : *r_lo - *l_up;
    diff_max = at_least ? *l_up - *r_lo : *r_up - *l_lo;
  }
  const std::int64_t f = logic::column_of(gen, new_implication_flag(gen));
  const double lower = diff_min.value_or(-kFallbackM);
  const double m1 = std::max(-lower, 0.0);
  const double upper = diff_max.value_or(kFallbackM);
  const double d = diff.constant;
  add_row(b, negated(diff.coefs), f, m1, std::fabs(d) > 1e-12 ? m1 + d : m1);
  add_row(b, diff.coefs, f, -upper, -d);

  const LinearForm consequent = consequent_form(b, cons, env, true);
  const std::string cons_op = py_str(cons.get("op"));
  const auto [c_lo, c_up] = bounds_of(gen, cons.get("left"));
  const auto [d_lo, d_up] = bounds_of(gen, cons.get("right"));
  std::optional<double> diff_c_max;
  if (c_lo && c_up && d_lo && d_up) {
    diff_c_max = (cons_op == "<=" || cons_op == "<") ? *c_up - *d_lo : *d_up - *c_lo;
  }
  const double m_c = diff_c_max.value_or(kFallbackM);
  add_row(b, consequent.coefs, f, m_c, m_c - consequent.constant);
}

bool is_implication_op(const std::string& op) {
  return op == ">=" || op == ">" || op == "<=" || op == "<" || op == "==";
}

}  // namespace

void implication_between_comparisons(ConstraintBuilder& b, const Value& ant, const Value& cons,
                                     const Env& env) {
  const Map& a = *ant.as_map();
  const Map& c = *cons.as_map();
  if (!is_implication_op(py_str(a.get("op"))) || !is_implication_op(py_str(c.get("op")))) {
    raise_semantic("Unsupported implication comparison operator");
  }
  if (py_str(a.get("op")) == "==") {
    equality_antecedent(b, a, c, env);
  } else {
    inequality_antecedent(b, a, c, env);
  }
}

}  // namespace kolva::forms
