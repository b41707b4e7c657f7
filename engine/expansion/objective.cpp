// The objective phase: the dense vector c (in the solver's minimizing sense)
// and the constant obj_const_offset (in the model's own sense).
#include <string>

#include "generator/finite_numbers.hpp"
#include "generator/generator.hpp"
#include "generator/list_text.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

std::string type_of(const Value& v) { return v.is_map() ? py_str(v.as_map()->get("type")) : std::string(); }

bool numeric(const Value& v, double& out) {
  if (!(v.is_int() || v.is_float())) return false;
  out = py_float(v);
  return true;
}

}  // namespace

void Generator::_update_vector_from_coef_dict(const CoefDict& coef_dict, std::vector<double>& vector,
                                              std::string_view op) const {
  for (const CoefDict::Item& item : coef_dict.items()) {
    const std::optional<std::int64_t> it = var_indices.find(item.first);
    if (!it || *it < 0 || static_cast<std::size_t>(*it) >= vector.size()) continue;
    double& entry = vector[static_cast<std::size_t>(*it)];
    if (op == "+") {
      entry += item.second;
    } else if (op == "-") {
      entry -= item.second;
    } else {
      entry = item.second;
    }
  }
}

void Generator::add_to_offset(const Value& v, double factor) {
  double d = 0.0;
  if (numeric(v, d)) obj_const_offset = Value::real(py_float(obj_const_offset) + factor * d);
}

void Generator::_build_objective() {
  _add_code_line("# Objective vector c");
  std::vector<double> vec(var_names.size(), 0.0);
  const Map& objective = *ast->at("objective").as_map();
  const Value sense = objective.at("type");
  const Value& expression = objective.at("expression");
  obj_const_offset = Value::real(0.0);
  try {
    _accumulate_objective(expression, vec);
  } catch (Error& e) {
    note_origin(e, objective);
    throw;
  }
  try {
    require_finite_objective(*this, vec, py_float(obj_const_offset));
  } catch (Error& e) {
    note_origin(e, objective);
    throw;
  }
  if (sense.is_str() && sense.as_str() == "maximize") {
    for (double& v : vec) v = -v;
  }
  // A c line of an earlier build prints from the old list: fix its text first.
  scipy_code_lines.materialize(CodeLines::Source::kColumnLists);
  c = std::move(vec);
  add_metadata_line(MetaLine::kC);
  _add_code_line("objective_offset = " + py_repr_float(py_float(obj_const_offset)));
}

void Generator::_accumulate_objective(const Value& expr, std::vector<double>& vec) {
  const std::string type = type_of(expr);
  if (type == "sum") {
    _accumulate_objective_sum(expr, vec, 1.0);
  } else if (type == "binop") {
    _accumulate_objective_binop(expr, vec);
  } else {
    const EvalResult r = _eval_expr(expr, nullptr);
    if (r.marker != nullptr)
      raise(ErrorKind::kType, "an objective cannot be an inequality between Boolean expressions");
    _update_vector_from_coef_dict(r.coef, vec, "+");
    add_to_offset(r.val, 1.0);
  }
}

void Generator::_accumulate_objective_sum(const Value& expr, std::vector<double>& vec, double sign) {
  const Map& node = *expr.as_map();
  const ValueVec& iterators = node.at("iterators").items();
  Env names_env;
  std::string ranges_text;
  for (std::size_t i = 0; i < iterators.size(); ++i) {
    const Map& it = *iterators[i].as_map();
    const Value loop_var = it.at("iterator");
    names_env.set(loop_var, loop_var);
    const Value rng = it.get("range", empty_map());
    if (i > 0) ranges_text += ", ";
    ranges_text += py_str(loop_var);
    if (type_of(rng) == "range_specifier") {
      const Map& range = *rng.as_map();
      ranges_text += " in range(" + _emit_symbolic_expr(range.get("start", Value::str(""))) + ", " +
                     _emit_symbolic_expr(range.get("end", Value::str(""))) + " + 1)";
    } else {
      ranges_text += " in " + py_str(rng.is_map() ? rng.as_map()->get("name") : Value());
    }
  }
  const Value& term = node.at("expression");
  _add_code_line("# Symbolic objective: sum(" + _emit_python_expr(term, names_env) + " for " + ranges_text +
                 ")");
  const Value index_constraint = node.get("index_constraint");
  const Env empty;
  iterate_iterators_dynamic(iterators, empty, [&](const Env& env2, const ValueVec& /*idx*/) {
    if (!index_filter_keeps(index_constraint, env2)) return;
    const EvalResult r = _eval_expr(term, &env2);
    if (r.marker != nullptr)
      raise(ErrorKind::kType, "an objective term cannot be an inequality between Booleans");
    const std::vector<CoefDict::Item>& items = r.coef.items();
    for (std::size_t i = 0; i < items.size(); ++i) {
      const std::int64_t hint = r.coef.column_at(i);
      const auto column = hint >= 0 ? std::optional<std::int64_t>(hint) : column_of_term(items[i].first);
      if (!column || *column < 0 || static_cast<std::size_t>(*column) >= vec.size()) continue;
      vec[static_cast<std::size_t>(*column)] += sign * items[i].second;
    }
    add_to_offset(r.val, sign);
  });
}

void Generator::_accumulate_objective_binop(const Value& expr, std::vector<double>& vec) {
  const Map& node = *expr.as_map();
  const Value& left = node.at("left");
  const Value& right = node.at("right");
  const std::string op = py_str(node.at("op"));
  const bool left_sum = type_of(left) == "sum";
  const bool right_sum = type_of(right) == "sum";
  const auto apply_side = [&](const Value& side, std::string_view how, double factor) {
    const EvalResult r = _eval_expr(side, nullptr);
    if (r.marker != nullptr)
      raise(ErrorKind::kType, "an objective term cannot be an inequality between Booleans");
    _update_vector_from_coef_dict(r.coef, vec, how);
    add_to_offset(r.val, factor);
  };
  if (left_sum && right_sum) {
    if (op != "+" && op != "-") throw _unsupported_operator_error("objective binop", op);
    _accumulate_objective_sum(left, vec, 1.0);
    _accumulate_objective_sum(right, vec, op == "+" ? 1.0 : -1.0);
  } else if (left_sum) {
    if (op != "+" && op != "-") throw _unsupported_operator_error("objective binop", op);
    _accumulate_objective_sum(left, vec, 1.0);
    apply_side(right, op, op == "+" ? 1.0 : -1.0);
  } else if (right_sum) {
    // No check of the operator on this side: `3 * sum(...)` subtracts the sum.
    _accumulate_objective_sum(right, vec, op == "+" ? 1.0 : -1.0);
    apply_side(left, "+", 1.0);
  } else {
    // Neither side a sum: the coefficients overwrite their entries.
    apply_side(expr, "", 1.0);
  }
}

}  // namespace kolva
