// sum(...) over unrolled iterators, with its filter.
#include <string>

#include "evaluator/evaluator.hpp"
#include "expansion/product.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {}  // namespace

bool ExpressionEvaluator::_sum_index_constraint_satisfied(const Value& expr, const Env& env2) {
  const Value index_constraint = expr.as_map()->get("index_constraint");
  if (index_constraint.is_none()) return true;
  try {
    const Value cond_val = eval(index_constraint, &env2).val;
    parent_.log().debug([&] {
      return "[SCIPY_SUM] index_constraint=" + py_str(index_constraint) +
             ", env2=" + py_repr(Value::map(std::make_shared<Map>(env2))) + ", cond_val=" + py_str(cond_val);
    });
    return py_truth(cond_val);
  } catch (const Error&) {
    return true;  // a filter that cannot be evaluated lets the term through
  }
}

EvalResult ExpressionEvaluator::_eval_sum(const Value& expr, const Env& env) {
  const Map& node = *expr.as_map();
  const auto [loop_vars, loop_ranges] = parent_._unroll_iterators(node.at("iterators").items(), &env);
  EvalResult total;
  total.val = Value::real(0.0);
  const Value& term = node.at("expression");
  for_each_product(loop_ranges, [&](const std::vector<std::size_t>& pos) {
    Env env2 = env;
    for (std::size_t i = 0; i < loop_vars.size(); ++i) env2.set(loop_vars[i], loop_ranges[i][pos[i]]);
    if (!_sum_index_constraint_satisfied(expr, env2)) return;
    EvalResult part;
    try {
      part = eval(term, &env2);
    } catch (const Error& err) {
      // A term that is not defined for this index drops out of the sum.
      if (err.kind() != ErrorKind::kSemantic) throw;
      part = EvalResult::constant(Value::real(0.0));
    }
    if (part.marker != nullptr) {
      raise(ErrorKind::kType, "a sum term is an inequality between Boolean expressions, not a number");
    }
    for (const CoefDict::Item& item : part.coef.items()) total.coef.add(item.first, item.second);
    if (total.val.is_str() || part.val.is_str() || part.val.is_tuple()) {
      std::string text = "(";
      text += py_str(total.val);
      text += ") + (";
      text += py_str(part.val);
      text += ")";
      total.val = Value::str(std::move(text));
    } else if (part.val.is_number()) {
      total.val = Value::real(py_float(total.val) + py_float(part.val));
    }
  });
  return total;
}

}  // namespace kolva
