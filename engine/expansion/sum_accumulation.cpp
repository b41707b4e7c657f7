// Constraint sides accumulated straight into coefficients and a constant.
// Sums key their coefficients by column, plain evaluation by name.
#include <string>

#include "evaluator/evaluator.hpp"
#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

std::string type_of(const Value& v) { return v.is_map() ? py_str(v.as_map()->get("type")) : std::string(); }

void refuse_marker(const EvalResult& r) {
  if (r.marker != nullptr) {
    raise(ErrorKind::kType,
          "an inequality between Boolean expressions cannot be a term of a linear expression");
  }
}

// Python's float() of an int or float value; others contribute nothing.
bool numeric(const Value& v, double& out) {
  if (!(v.is_int() || v.is_float())) return false;
  out = py_float(v);
  return true;
}

}  // namespace

std::optional<std::int64_t> Generator::column_of_term(const std::string& name) const {
  if (const std::optional<std::int64_t> it = var_indices.find(name); it.has_value()) return it;
  try {
    return _resolve_tuple_index_varname(name);
  } catch (const Error& err) {
    if (err.kind() != ErrorKind::kSemantic) throw;
    return std::nullopt;
  }
}

std::pair<KeyedCoefs, double> Generator::_accumulate_sum_to_dict(const Value& expr, const Env& env,
                                                                 double sign) {
  KeyedCoefs coefs;
  double constant = 0.0;
  const std::string type = type_of(expr);
  const auto add_evaluated = [&](const EvalResult& r) {
    refuse_marker(r);
    for (const CoefDict::Item& item : r.coef.items()) coefs.add_name(item.first, sign * item.second);
    double v = 0.0;
    if (numeric(r.val, v)) constant += sign * v;
  };
  if (type == "sum") {
    _accumulate_sum_expr(expr, env, coefs, sign, constant);
  } else if (type == "binop" && (type_of(expr.as_map()->get("left")) == "sum" ||
                                 type_of(expr.as_map()->get("right")) == "sum")) {
    _accumulate_binop_with_sum(expr, env, coefs, sign, constant);
  } else if (type == "indexed_name") {
    add_evaluated(_eval_expr(expr, &env));
  } else if (type == "name") {
    // A name that cannot be resolved contributes nothing here.
    try {
      const LookupResult found = _lookup_var_or_param(py_str(expr.as_map()->at("value")), nullptr, &env);
      double v = 0.0;
      if (found.is_var) {
        coefs.add_name(found.var_name, sign * 1.0);
      } else if (!found.is_symbolic && numeric(found.val, v)) {
        constant += sign * v;
      }
    } catch (const Error&) {  // NOLINT(bugprone-empty-catch): contributes nothing, by design
    }
  } else if (type == "number") {
    constant += sign * py_float(expr.as_map()->get("value", Value::real(0.0)));
  } else if (type == "binop" &&
             (py_str(expr.as_map()->get("op")) == "+" || py_str(expr.as_map()->get("op")) == "-")) {
    const Map& node = *expr.as_map();
    const double factor = py_str(node.get("op")) == "+" ? 1.0 : -1.0;
    const auto [left, left_const] = _accumulate_sum_to_dict(node.at("left"), env, 1.0);
    const auto [right, right_const] = _accumulate_sum_to_dict(node.at("right"), env, 1.0);
    for (const KeyedCoefs::Item& item : left.items()) coefs.add(item.first, sign * item.second);
    for (const KeyedCoefs::Item& item : right.items()) coefs.add(item.first, sign * factor * item.second);
    constant += sign * (left_const + factor * right_const);
  } else if (type == "parenthesized_expression") {
    const auto [inner, inner_const] = _accumulate_sum_to_dict(expr.as_map()->at("expression"), env, 1.0);
    for (const KeyedCoefs::Item& item : inner.items()) coefs.add(item.first, sign * item.second);
    constant += sign * inner_const;
  } else {
    // Everything else is evaluated with missing parameters read as zero.
    const ScopedFlag zero_missing = zero_missing_parameters();
    add_evaluated(_eval_expr(expr, &env));
  }
  return {std::move(coefs), constant};
}

void Generator::_accumulate_sum_expr(const Value& expr, const Env& env, KeyedCoefs& coefs, double sign,
                                     double& constant) {
  const Map& node = *expr.as_map();
  const ValueVec& iterators = node.at("iterators").items();
  const Value index_constraint = node.get("index_constraint");
  const Value& term = node.at("expression");
  // Comparison terms other than `<=` contribute nothing; `<=` is evaluated.
  const std::string term_op = type_of(term) == "binop" ? py_str(term.as_map()->get("op")) : std::string();
  if (term_op == ">=" || term_op == "==" || term_op == ">" || term_op == "<" || term_op == "!=") {
    iterate_iterators_dynamic(iterators, env, [](const Env&, const ValueVec&) {});
    return;
  }
  iterate_iterators_dynamic(iterators, env, [&](const Env& env2, const ValueVec& /*idx*/) {
    if (!index_filter_keeps(index_constraint, env2)) return;
    const EvalResult r = _eval_expr(term, &env2);
    refuse_marker(r);
    const std::vector<CoefDict::Item>& items = r.coef.items();
    for (std::size_t i = 0; i < items.size(); ++i) {
      const std::int64_t hint = r.coef.column_at(i);
      if (const auto column =
              hint >= 0 ? std::optional<std::int64_t>(hint) : column_of_term(items[i].first)) {
        coefs.add_column(*column, sign * items[i].second);
      }
    }
    double v = 0.0;
    if (numeric(r.val, v)) constant += sign * v;
  });
}

void Generator::_accumulate_binop_with_sum(const Value& expr, const Env& env, KeyedCoefs& coefs, double sign,
                                           double& constant) {
  const Map& node = *expr.as_map();
  const Value left = node.get("left");
  const Value right = node.get("right");
  const Value op_value = node.get("op");
  const std::string op = py_str(op_value);
  const bool left_is_sum = type_of(left) == "sum";
  const bool right_is_sum = type_of(right) == "sum";
  const auto merge_sum = [&](const Value& side, double factor) {
    KeyedCoefs temp;
    double temp_const = 0.0;
    _accumulate_sum_expr(side, env, temp, 1.0, temp_const);
    for (const KeyedCoefs::Item& item : temp.items()) coefs.add(item.first, sign * factor * item.second);
    constant += sign * factor * temp_const;
  };
  // An evaluated side keeps only names that are columns.
  const auto merge_evaluated = [&](const Value& side, double factor) {
    const EvalResult r = _eval_expr(side, &env);
    refuse_marker(r);
    for (const CoefDict::Item& item : r.coef.items()) {
      if (const std::optional<std::int64_t> it = var_indices.find(item.first); it.has_value()) {
        coefs.add_column(*it, sign * factor * item.second);
      }
    }
    double v = 0.0;
    if (numeric(r.val, v)) constant += sign * factor * v;
  };
  if (!left_is_sum && !right_is_sum) {
    merge_evaluated(expr, 1.0);
    return;
  }
  if (op != "+" && op != "-") throw _unsupported_operator_error("binop-with-sum", op);
  const double right_factor = op == "+" ? 1.0 : -1.0;
  if (left_is_sum) {
    merge_sum(left, 1.0);
  } else {
    merge_evaluated(left, 1.0);
  }
  if (right_is_sum) {
    merge_sum(right, right_factor);
  } else {
    merge_evaluated(right, right_factor);
  }
}

}  // namespace kolva
