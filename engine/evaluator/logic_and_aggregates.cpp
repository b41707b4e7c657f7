// minl, maxl, conditional, parenthesis and the ground logic of not/and/or.
// Outside the constraint build every non-ground Boolean is an error; inside
// it, the result is symbolic text of the constant parts.
#include <cstdlib>
#include <string>

#include "evaluator/evaluator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

bool non_ground(const EvalResult& r) { return r.has_vars() || r.val.is_str(); }

double aggregate_argument(const EvalResult& r, const std::string& fn) {
  if (r.has_vars()) raise_semantic("Non-ground argument in " + fn + "()");
  const Value& val = r.val;
  if (val.is_bool()) return val.as_bool() ? 1.0 : 0.0;
  if (val.is_number()) return py_float(val);
  if (val.is_str()) {
    try {
      return py_float(val);
    } catch (const Error&) {
      raise_semantic("Non-numeric argument '" + val.as_str() + "' in " + fn + "()");
    }
  }
  raise_semantic("Unsupported argument type in " + fn + "(): " + class_text(val));
}

}  // namespace

EvalResult ExpressionEvaluator::eval_aggregate(const Value& expr, const Env& env, bool take_max) {
  const std::string fn = take_max ? "maxl" : "minl";
  const Value args = expr.as_map()->get("args", empty_list());
  bool any = false;
  double best = 0.0;
  for (const Value& arg : args.items()) {
    const double v = aggregate_argument(eval(arg, &env), fn);
    // min() and max() keep the first of equal values.
    if (!any || (take_max ? v > best : v < best)) best = v;
    any = true;
  }
  if (!any) raise_semantic(fn + "() requires at least one argument");
  return EvalResult::constant(Value::real(best));
}

EvalResult ExpressionEvaluator::_eval_minl(const Value& expr, const Env& env) {
  return eval_aggregate(expr, env, false);
}

EvalResult ExpressionEvaluator::_eval_maxl(const Value& expr, const Env& env) {
  return eval_aggregate(expr, env, true);
}

EvalResult ExpressionEvaluator::_eval_conditional(const Value& expr, const Env& env) {
  const Map& node = *expr.as_map();
  const EvalResult cond = eval(node.at("condition"), &env);
  if (cond.has_vars()) throw Generator::_unsupported_type_error("conditional", "non-ground condition");
  return eval(py_truth(cond.val) ? node.at("then") : node.at("else"), &env);
}

EvalResult ExpressionEvaluator::_eval_parenthesized_expression(const Value& expr, const Env& env) {
  return eval(expr.as_map()->at("expression"), &env);
}

EvalResult ExpressionEvaluator::_eval_not(const Value& expr, const Env& env) {
  const EvalResult inner = eval(expr.as_map()->at("value"), &env);
  if (non_ground(inner)) {
    if (!parent_.allow_symbolic_bool)
      raise_semantic("Non-ground boolean NOT outside constraint build context");
    return EvalResult::constant(Value::str("!(" + py_str(inner.val) + ")"));
  }
  return EvalResult::constant(Value::real(py_truth(inner.val) ? 0.0 : 1.0));
}

EvalResult ExpressionEvaluator::eval_connective(const Value& expr, const Env& env, bool is_and) {
  const Map& node = *expr.as_map();
  // Both sides are always evaluated, so a failure on the right surfaces.
  const EvalResult left = eval(node.at("left"), &env);
  const EvalResult right = eval(node.at("right"), &env);
  if (non_ground(left) || non_ground(right)) {
    if (!parent_.allow_symbolic_bool) {
      raise_semantic(std::string("Non-ground boolean ") + (is_and ? "AND" : "OR") +
                     " outside constraint build context");
    }
    std::string text = "(";
    text += py_str(left.val);
    text += is_and ? ") && (" : ") || (";
    text += py_str(right.val);
    text += ")";
    return EvalResult::constant(Value::str(std::move(text)));
  }
  const bool l = py_truth(left.val);
  const bool r = py_truth(right.val);
  const bool holds = is_and ? (l && r) : (l || r);
  return EvalResult::constant(Value::real(holds ? 1.0 : 0.0));
}

EvalResult ExpressionEvaluator::_eval_and(const Value& expr, const Env& env) {
  return eval_connective(expr, env, true);
}

EvalResult ExpressionEvaluator::_eval_or(const Value& expr, const Env& env) {
  return eval_connective(expr, env, false);
}

}  // namespace kolva
