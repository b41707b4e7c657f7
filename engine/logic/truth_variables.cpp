// Truth variable of a comparison `lhs op rhs` (op one of <=, >=, !=, ==).
// Recognises a Boolean binop; a count of comparisons equal to its size is
// read as the conjunction of its instances.
// Emits a binary cmp_flag_<n> and two upper-bound rows in E + K op 0 form
// (E the variables' part, K the constant):
//   <=   E + M z <= M - K        -E - M z <= K - eps
//   >=  -E + M z <= M + K         E - M z <= -K - eps
//   !=  -E - M z <= -1 - K       -E + M z <= M - 1 - K
//   ==   E + M z <= M - K        -E + M z <= M + K
// The == link is one-way and both != rows carry -E: those rows are the
// contract and are kept as they are.
#include "logic/truth_variables.hpp"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>

#include "expansion/product.hpp"
#include "logic/keys.hpp"
#include "logic/node_tests.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva::logic {
namespace {

using logic::column_of;

bool is_truth_op(const std::string& op) { return op == "<=" || op == ">=" || op == "!=" || op == "=="; }

// The coefficients of an evaluation; the marker of `!=` between Boolean
// expressions has none to give.
const CoefDict& linear_part(const EvalResult& r) {
  if (r.marker != nullptr) {
    raise(ErrorKind::kType, "an inequality between Boolean expressions cannot be compared as a number");
  }
  return r.coef;
}

// Rows of the form  sum(sign * E) + z_coef * z <= rhs.
void add_flag_row(ConstraintBuilder& b, const CoefDict& expr, double sign, std::int64_t z, double z_coef,
                  double rhs) {
  LocalRow row;
  for (const CoefDict::Item& item : expr.items()) {
    if (const std::optional<std::int64_t> col = b.gen.var_indices.find(item.first))
      row.add(*col, sign * item.second);
  }
  row.add(z, z_coef);
  b.store_ub(row, rhs);
}

std::string new_truth_flag(ConstraintBuilder& b) {
  std::string name = "cmp_flag_" + std::to_string(b.ctx.comparison_truth_cache->size());
  b.gen.add_binary_flag(name);
  return name;
}

// `sum(...) (cmp) == n` with n the number of instances: the flag y is the
// conjunction of the instances' flags.
std::optional<std::string> conjunction_of_count(ConstraintBuilder& b, const Map& node, const Env& env,
                                                const Value& key) {
  std::optional<std::vector<std::string>> left_truths = sum_comparison_truth_vars(b, node.get("left"), env);
  std::optional<std::vector<std::string>> right_truths = sum_comparison_truth_vars(b, node.get("right"), env);
  if (!left_truths && !right_truths) return std::nullopt;
  const std::vector<std::string>& z_names = left_truths ? *left_truths : *right_truths;
  const Value other_side = left_truths ? node.get("right") : node.get("left");
  const std::optional<double> k_value = ground_numeric_value(b.gen, other_side, env);
  if (!k_value || std::fabs(*k_value - static_cast<double>(z_names.size())) >= 1e-12) return std::nullopt;
  std::string y = new_truth_flag(b);
  const std::int64_t y_col = column_of(b.gen, y);
  for (const std::string& z : z_names) {
    LocalRow row;
    row.add(y_col, 1.0);
    row.add(column_of(b.gen, z), -1.0);
    b.store_ub(row, 0.0);
  }
  LocalRow all;
  for (const std::string& z : z_names) all.add(column_of(b.gen, z), 1.0);
  all.add(y_col, -1.0);
  b.store_ub(all, static_cast<double>(z_names.size()) - 1.0);
  b.ctx.comparison_truth_cache->set(key, Value::str(y));
  b.gen._add_code_line("# comparison truth var for conjunction of sum-comparisons");
  return y;
}

}  // namespace

double coerce_numeric(const Value& value) {
  if (value.is_number()) return py_float(value);
  if (value.is_str()) {
    const std::string& text = value.as_str();
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const double parsed = std::strtod(begin, &end);
    const auto is_space = [](char ch) { return ch == ' ' || (ch >= '\t' && ch <= '\r'); };
    const char* rest = end;
    while (*rest != '\0' && is_space(*rest)) ++rest;
    // strtod also reads hexadecimal text, which float() refuses.
    const bool hex = text.find_first_of("xX") != std::string::npos;
    if (end != begin && !hex && rest == begin + text.size()) return parsed;
    raise_semantic("Non-numeric term '" + text + "' in linear comparison; cannot linearize");
  }
  raise_semantic(std::string("Unsupported constant type <class '") + type_name(value) +
                 "'> in linear comparison");
}

std::optional<double> ground_numeric_value(Generator& gen, const Value& expr, const Env& env) {
  const EvalResult r = gen._eval_expr(expr, &env);
  if (r.has_vars()) return std::nullopt;
  if (r.val.is_number()) return py_float(r.val);
  return std::nullopt;
}

std::optional<std::vector<std::string>> sum_comparison_truth_vars(ConstraintBuilder& b,
                                                                  const Value& sum_node_in, const Env& env) {
  const Value sum_node = strip_all_parens(sum_node_in);
  if (!sum_node.is_map() || node_type(*sum_node.as_map()) != "sum") return std::nullopt;
  const Map& sum = *sum_node.as_map();
  const Value inner = strip_all_parens(sum.get("expression"));
  if (!is_simple_comparison(inner)) return std::nullopt;
  const Map& cmp = *inner.as_map();
  Generator& gen = b.gen;
  const Value iterators = sum.get("iterators", Value::list(ValueVec{}));
  const auto [loop_vars, loop_ranges] = gen._unroll_iterators(iterators.items(), nullptr);
  const Value index_constraint = sum.get("index_constraint");
  std::vector<std::string> z_names;
  for_each_product(loop_ranges, [&](const std::vector<std::size_t>& pos) {
    Env local = env;
    for (std::size_t i = 0; i < loop_vars.size(); ++i) local.set(loop_vars[i], loop_ranges[i][pos[i]]);
    if (!index_constraint.is_none()) {
      const EvalResult cond = gen._eval_expr(index_constraint, &local);
      if (cond.has_vars() || !py_truth(cond.val)) return;
    }
    const MapPtr instance = make_node({{"type", Value::str("binop")},
                                       {"op", cmp.get("op")},
                                       {"left", cmp.get("left")},
                                       {"right", cmp.get("right")},
                                       {"sem_type", Value::str("boolean")}});
    z_names.push_back(comparison_truth_var(b, Value::map(instance), local));
  });
  return z_names;
}

std::string comparison_truth_var(ConstraintBuilder& b, const Value& node, const Env& env) {
  Generator& gen = b.gen;
  const bool valid = node.is_map() && node_type(*node.as_map()) == "binop" &&
                     py_str(node.as_map()->get("sem_type")) == "boolean" &&
                     is_truth_op(py_str(node.as_map()->get("op")));
  if (!valid) raise_semantic("Not a supported comparison binop for truth var");
  const Map& n = *node.as_map();
  const std::string op = py_str(n.get("op"));
  const Value key = comparison_key(gen, node, env);
  if (const Value* cached = b.ctx.comparison_truth_cache->find(key)) return py_str(*cached);
  if (op == "==") {
    if (std::optional<std::string> y = conjunction_of_count(b, n, env, key)) return *y;
  }
  const EvalResult lhs = gen._eval_expr(n.get("left"), &env);
  const EvalResult rhs = gen._eval_expr(n.get("right"), &env);
  const double lhs_const = coerce_numeric(lhs.val);
  const double rhs_const = coerce_numeric(rhs.val);
  CoefDict expr = linear_part(lhs);
  for (const CoefDict::Item& item : linear_part(rhs).items()) expr.add(item.first, -item.second);
  const double k = lhs_const - rhs_const;

  const std::string z = new_truth_flag(b);
  const std::int64_t z_col = column_of(gen, z);
  const double m = gen._big_m_for_comparison(node, &env);
  if (op == "<=") {
    add_flag_row(b, expr, 1.0, z_col, m, m - k);
    add_flag_row(b, expr, -1.0, z_col, -m, k - kBoolEps);
  } else if (op == ">=") {
    add_flag_row(b, expr, -1.0, z_col, m, m + k);
    add_flag_row(b, expr, 1.0, z_col, -m, -k - kBoolEps);
  } else if (op == "!=") {
    b.note_lossy(LossyConstruct::kNotEqualTruthValue);
    add_flag_row(b, expr, -1.0, z_col, -m, -1.0 - k);
    add_flag_row(b, expr, -1.0, z_col, m, m - 1.0 - k);
  } else {
    b.note_lossy(LossyConstruct::kOneWayEquality);
    add_flag_row(b, expr, 1.0, z_col, m, m - k);
    add_flag_row(b, expr, -1.0, z_col, m, m + k);
  }
  b.ctx.comparison_truth_cache->set(key, Value::str(z));
  gen._add_code_line("# comparison truth var for " + op);
  return z;
}

}  // namespace kolva::logic
