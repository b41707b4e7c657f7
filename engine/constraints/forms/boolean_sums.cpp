// Sums whose terms are Boolean in the model, expanded term by term:
//   weighted:  sum(w * boolexpr) op k   one row over the terms' variables
//              (>, < moved by the literal 1e-09)
//   count:     sum(cmp) op k           one binary cmp_sum per term with
//              -D + M z <= M - d and D - M z <= -d, then the count row
//   threshold: y == (sum(cmp) >= k)    the per-term binaries and
//              k y - sum z <= 0,  sum z - (N - k + 1) y <= k - 1
// The per-term rows do not look at the comparison's operator, and d enters
// them with opposite signs: the program's rows, kept so.
#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "constraints/forms/forms.hpp"
#include "expansion/product.hpp"
#include "logic/boolean_variables.hpp"
#include "logic/node_tests.hpp"

namespace kolva::forms {
namespace {

using logic::type_of;
using logic::unwrap_paren;

constexpr double kWeightedEps = 1e-09;

struct WeightedSum {
  Value sum;
  Value weight;
  Value factor;
};

std::optional<WeightedSum> weighted_bool_sum(const Value& expr) {
  const Value s = unwrap_paren(expr);
  if (type_of(s) != "sum") return std::nullopt;
  const Value body = unwrap_paren(s.as_map()->get("expression"));
  if (type_of(body) != "binop" || logic::op_of(body) != "*") return std::nullopt;
  const std::array<Value, 2> sides = {body.as_map()->get("left"), body.as_map()->get("right")};
  for (std::size_t k = 0; k < 2; ++k) {
    const Value factor = unwrap_paren(sides[1 - k]);
    if (!factor.is_map() || py_str(factor.as_map()->get("sem_type")) != "boolean" || logic::is_var(factor)) {
      continue;
    }
    return WeightedSum{s, sides[k], factor};
  }
  return std::nullopt;
}

// Visits each combination of a sum's iterators with the Env extended.
template <typename Visit>
void for_each_term(Generator& gen, const Map& sum, const Env& env, Visit&& visit) {
  const Value iterators = sum.get("iterators", Value::list(ValueVec{}));
  const auto [names, ranges] = gen._unroll_iterators(iterators.items(), nullptr);
  for_each_product(ranges, [&](const std::vector<std::size_t>& pos) {
    Env env2 = env;
    for (std::size_t i = 0; i < names.size(); ++i) env2.set(names[i], ranges[i][pos[i]]);
    visit(env2);
  });
}

std::optional<double> pure_constant(Generator& gen, const Value& expr, const Env& env) {
  try {
    const EvalResult r = gen._eval_expr(expr, &env);
    if (r.marker != nullptr || !r.coef.empty() || !r.val.is_number()) return std::nullopt;
    return py_float(r.val);
  } catch (const Error&) {
    return std::nullopt;
  }
}

void store_count_row(ConstraintBuilder& b, LocalRow& row, const std::string& op, double k) {
  if (op == ">=" || op == ">") {
    row.negate();
    b.store_ub(row, -k);
  } else if (op == "<=" || op == "<") {
    b.store_ub(row, k);
  } else {
    b.store_eq(row, k);
  }
}

Claim weighted_sum_rows(ConstraintBuilder& b, const WeightedSum& ws, const std::string& op, double k_in,
                        const Env& env) {
  Generator& gen = b.gen;
  double k = k_in;
  if (op == ">") k += kWeightedEps;
  if (op == "<") k -= kWeightedEps;
  const Map& sum = *ws.sum.as_map();
  LocalRow row;
  for_each_term(gen, sum, env, [&](const Env& env2) {
    if (!gen.index_filter_keeps(sum.get("index_constraint"), env2)) return;
    const EvalResult weight = gen._eval_expr(ws.weight, &env2);
    if (weight.marker != nullptr || !weight.coef.empty()) {
      raise_semantic("Weighted boolean sums require numeric weights");
    }
    const std::string z = logic::bool_expr_var(b, ws.factor, env2);
    row.add(logic::column_of(gen, z), py_float(weight.val));
  });
  store_count_row(b, row, op, k);
  return Claim::kDone;
}

bool is_count_op(const std::string& op) {
  return op == ">=" || op == "==" || op == "<=" || op == ">" || op == "<";
}

// One binary per instance of the comparison, with its two rows; returns
// its column.
std::int64_t term_binary(ConstraintBuilder& b, const Map& cmp, const Env& env2) {
  Generator& gen = b.gen;
  const MapPtr instance = logic::make_node({{"type", Value::str("binop")},
                                            {"op", cmp.get("op")},
                                            {"left", cmp.get("left")},
                                            {"right", cmp.get("right")},
                                            {"sem_type", Value::str("boolean")}});
  const std::string z = gen._ensure_aux_binary("cmp_sum");
  const std::int64_t z_col = logic::column_of(gen, z);
  const double big_m = gen._big_m_for_comparison(Value::map(instance), &env2);
  const EvalResult lhs = gen._eval_expr(cmp.get("left"), &env2);
  EvalResult rhs;
  try {
    rhs = gen._eval_expr(cmp.get("right"), &env2);
  } catch (const Error&) {
    rhs = EvalResult::constant(Value::real(0.0));
  }
  if (lhs.marker != nullptr || rhs.marker != nullptr) {
    raise(ErrorKind::kType, "an inequality between Boolean expressions cannot be counted as a comparison");
  }
  CoefDict diff = lhs.coef;
  for (const CoefDict::Item& item : rhs.coef.items()) diff.add(item.first, -item.second);
  const double d = py_float(lhs.val) - py_float(rhs.val);
  if (py_str(cmp.get("op")) != ">=" || std::fabs(d) > 1e-12) b.note_lossy(LossyConstruct::kCountTermRows);
  LocalRow first;
  LocalRow second;
  for (const CoefDict::Item& item : diff.items()) {
    if (const std::optional<std::int64_t> col = gen.var_indices.find(item.first)) {
      first.add(*col, -item.second);
      second.add(*col, item.second);
    }
  }
  first.add(z_col, big_m);
  b.store_ub(first, big_m - d);
  second.add(z_col, -big_m);
  b.store_ub(second, -d);
  return z_col;
}

struct CountOfComparisons {
  const Map* sum;
  Value comparison;
};

std::optional<CountOfComparisons> count_of_comparisons(const Value& node) {
  const Value s = unwrap_paren(node);
  if (type_of(s) != "sum") return std::nullopt;
  const Value inner = unwrap_paren(s.as_map()->get("expression"));
  if (!logic::is_simple_comparison(inner)) return std::nullopt;
  return CountOfComparisons{s.as_map().get(), inner};
}

std::vector<std::int64_t> term_binaries(ConstraintBuilder& b, const CountOfComparisons& count, const Env& env,
                                        bool read_filter) {
  std::vector<std::int64_t> columns;
  for_each_term(b.gen, *count.sum, env, [&](const Env& env2) {
    if (read_filter && !b.gen.index_filter_keeps(count.sum->get("index_constraint"), env2)) return;
    columns.push_back(term_binary(b, *count.comparison.as_map(), env2));
  });
  return columns;
}

// k y - sum z <= 0 and sum z - (N - k + 1) y <= k - 1.
void post_threshold_rows(ConstraintBuilder& b, std::int64_t y, const std::vector<std::int64_t>& zs,
                         double k) {
  const auto n = static_cast<double>(zs.size());
  LocalRow at_least;
  at_least.add(y, k);
  for (const std::int64_t z : zs) at_least.add(z, -1.0);
  b.store_ub(at_least, 0.0);
  LocalRow below;
  for (const std::int64_t z : zs) below.add(z, 1.0);
  below.add(y, -(n - k + 1));
  b.store_ub(below, k - 1.0);
}

// `sum(...) (cmp) >= k` or `> k` on the right of an equality, unwrapped.
std::optional<std::pair<CountOfComparisons, Value>> threshold_on_count(const Value& node) {
  const Value r = unwrap_paren(node);
  if (type_of(r) != "binop") return std::nullopt;
  const std::string op = logic::op_of(r);
  if (op != ">=" && op != ">") return std::nullopt;
  const std::optional<CountOfComparisons> count = count_of_comparisons(r.as_map()->get("left"));
  const Value k = r.as_map()->get("right");
  if (!count || !logic::is_num(k)) return std::nullopt;
  return std::make_pair(*count, k);
}

// `sum(...) expr >= k` whose terms are not comparisons.
bool is_threshold_on_linear_sum(const Value& node) {
  const std::string_view type = type_of(node);
  if ((type != "binop" && type != "constraint") || logic::op_of(node) != ">=") return false;
  const Value s = unwrap_paren(node.as_map()->get("left"));
  return type_of(s) == "sum" && !logic::is_simple_comparison(s.as_map()->get("expression"));
}

// `sum(...) (cmp) op number`: the early form takes >= and == and reads no
// filter; the later one takes every operator, reads the filter, and moves a
// strict bound by the same small margin as a weighted sum.
Claim count_against_number(ConstraintBuilder& b, ConstraintCall& call, bool later_form) {
  const Map& constr = *call.constr;
  const std::string op = py_str(constr.get("op"));
  const Value right = unwrap_paren(constr.at("right"));
  const std::optional<CountOfComparisons> count = count_of_comparisons(constr.at("left"));
  const bool op_taken = later_form ? is_count_op(op) : (op == ">=" || op == "==");
  if (!count || !logic::is_num(right) || !op_taken) return Claim::kPass;
  double k = py_float(right.as_map()->get("value"));
  if (later_form && op == ">") k += kWeightedEps;
  if (later_form && op == "<") k -= kWeightedEps;
  const std::vector<std::int64_t> columns = term_binaries(b, *count, call.env, later_form);
  LocalRow row;
  for (const std::int64_t col : columns) row.add(col, 1.0);
  store_count_row(b, row, op, k);
  return Claim::kDone;
}

}  // namespace

Claim boolean_variable_equals_threshold_on_sum(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("op")) != "==") return Claim::kPass;
  Generator& gen = b.gen;
  Value var = constr.at("left");
  Value other = unwrap_paren(constr.at("right"));
  if (!logic::is_declared_bool_var(gen, var)) {
    var = constr.at("right");
    other = unwrap_paren(constr.at("left"));
  }
  if (!logic::is_declared_bool_var(gen, var) || !is_threshold_on_linear_sum(other)) return Claim::kPass;
  const Map& cmp = *other.as_map();
  const auto [lhs, lhs_const] = gen._accumulate_sum_to_dict(cmp.get("left"), call.env, 1.0);
  const auto [rhs, rhs_const] = gen._accumulate_sum_to_dict(cmp.get("right"), call.env, 1.0);
  const double k = lhs_const - rhs_const;
  const std::int64_t y = logic::column_of(gen, logic::variable_name(gen, var, call.env));
  const double big_m = gen._big_m_for_comparison(other, &call.env);
  // The link of a truth variable of `>=`, with y as the flag:
  // y = 1 forces E + K >= 0, y = 0 forces E + K <= -eps.
  LocalRow holds;
  LocalRow fails;
  const auto add_side = [&](const KeyedCoefs& side, double factor) {
    for (const KeyedCoefs::Item& item : side.items()) {
      const std::optional<std::int64_t> col = item.first.is_column
                                                  ? std::optional<std::int64_t>(item.first.column)
                                                  : gen.var_indices.find(item.first.name);
      if (!col) continue;
      holds.add(*col, -factor * item.second);
      fails.add(*col, factor * item.second);
    }
  };
  add_side(lhs, 1.0);
  add_side(rhs, -1.0);
  holds.add(y, big_m);
  b.store_ub(holds, big_m + k);
  fails.add(y, -big_m);
  b.store_ub(fails, -k - kBoolEps);
  return Claim::kDone;
}

Claim weighted_boolean_sum_early(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  const std::string op = py_str(constr.get("op"));
  const std::optional<WeightedSum> ws = weighted_bool_sum(constr.at("left"));
  if (!ws || !is_count_op(op)) return Claim::kPass;
  const std::optional<double> k = pure_constant(b.gen, constr.at("right"), call.env);
  if (!k) return Claim::kPass;
  return weighted_sum_rows(b, *ws, op, *k, call.env);
}

Claim weighted_boolean_sum_late(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  const std::string op = py_str(constr.get("op"));
  const Value right = constr.at("right");
  const std::optional<WeightedSum> ws = weighted_bool_sum(constr.at("left"));
  if (!ws || !is_count_op(op) || !logic::is_num(right)) return Claim::kPass;
  return weighted_sum_rows(b, *ws, op, py_float(right.as_map()->get("value")), call.env);
}

Claim sum_of_comparisons(ConstraintBuilder& b, ConstraintCall& call) {
  return count_against_number(b, call, false);
}

Claim sum_of_comparisons_any_op(ConstraintBuilder& b, ConstraintCall& call) {
  return count_against_number(b, call, true);
}

Claim name_equals_sum_of_comparisons(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  const Value left = constr.at("left");
  if (py_str(constr.get("op")) != "==" || type_of(left) != "name") return Claim::kPass;
  const auto threshold = threshold_on_count(constr.at("right"));
  if (!threshold) return Claim::kPass;
  if (logic::op_of(unwrap_paren(constr.at("right"))) == ">")
    b.note_lossy(LossyConstruct::kStrictThresholdAsAtLeast);
  const double k = py_float(threshold->second.as_map()->get("value"));
  const std::vector<std::int64_t> columns = term_binaries(b, threshold->first, call.env, true);
  Generator& gen = b.gen;
  const std::string b_name = py_str(left.as_map()->get("value"));
  if (!gen.var_indices.contains(b_name)) gen._ensure_aux_binary(b_name);
  post_threshold_rows(b, logic::column_of(gen, b_name), columns, k);
  return Claim::kDone;
}

Claim variable_equals_threshold_on_count(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("op")) != "==") return Claim::kPass;
  Value var = constr.at("left");
  Value other = constr.at("right");
  if (!logic::is_var(var)) std::swap(var, other);
  if (!logic::is_var(var)) return Claim::kPass;
  const auto threshold = threshold_on_count(other);
  if (!threshold) return Claim::kPass;
  double k = py_float(threshold->second.as_map()->get("value"));
  // A count is an integer, so `> k` is `>= floor(k) + 1`.
  if (logic::op_of(unwrap_paren(other)) == ">") k = std::floor(k) + 1.0;
  const std::vector<std::int64_t> columns = term_binaries(b, threshold->first, call.env, true);
  Generator& gen = b.gen;
  const std::string y_name = logic::variable_name(gen, var, call.env);
  if (!gen.var_indices.contains(y_name)) gen._ensure_aux_binary(y_name);
  post_threshold_rows(b, logic::column_of(gen, y_name), columns, k);
  return Claim::kDone;
}

}  // namespace kolva::forms
