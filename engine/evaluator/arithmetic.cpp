// binop and uminus: linear expressions stay linear, products of variables and
// division by a variable are refused, ground comparisons are computed, and
// what cannot be computed becomes symbolic text.
#include <cmath>
#include <string>

#include "evaluator/evaluator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

bool is_text_like(const Value& v) { return v.is_str() || v.is_tuple(); }

std::string symbolic(const Value& l, std::string_view op, const Value& r) {
  std::string out = "(";
  append_str(out, l);
  out += ") ";
  out += op;
  out += " (";
  append_str(out, r);
  out += ')';
  return out;
}

// The auxiliary marker of `!=` is a node, not coefficients; arithmetic on it
// has no meaning.
void refuse_marker(const EvalResult& r, const char* op) {
  if (r.marker != nullptr) {
    raise(ErrorKind::kType, std::string("unsupported operand for ") + op +
                                ": an inequality between Boolean expressions is not a number");
  }
}

CoefDict merged(const CoefDict& left, const CoefDict& right, double sign) {
  CoefDict out = left;
  for (std::size_t i = 0; i < right.size(); ++i) out.add_from(right, i, sign);
  return out;
}

const std::string& node_name_value(const Value& operand, const Env& env, const Value*& bound) {
  static const std::string kEmpty;
  bound = nullptr;
  if (!operand.is_map()) return kEmpty;
  const Map& node = *operand.as_map();
  const Value* type = node.find("type");
  const Value* value = node.find("value");
  if (type == nullptr || !type->is_str() || type->as_str() != "name" || value == nullptr ||
      !value->is_str()) {
    return kEmpty;
  }
  bound = env.find(value->as_str());
  return value->as_str();
}

bool is_plain_scalar(const Value& v) { return v.is_str() || v.is_number(); }

}  // namespace

EvalResult ExpressionEvaluator::_eval_binop(const Value& expr, const Env& env) {
  const Map& node = *expr.as_map();
  const Value& left = node.at("left");
  const Value& right = node.at("right");
  const Value& op_value = node.at("op");
  std::string op_text;
  const bool op_is_str = op_value.is_str();
  const std::string& op = op_is_str ? op_value.as_str() : (op_text = py_str(op_value));
  if (op_is_str && op == "!=" && is_bool_expr(left) && is_bool_expr(right)) {
    const std::string aux = parent_._ensure_aux_binary("xor_flag");
    EvalResult out;
    out.marker = make_map();
    out.marker->set("type", Value::str("aux_var"));
    out.marker->set("name", Value::str(aux));
    out.marker->set("sem_type", Value::str("boolean"));
    out.val = Value::real(0.0);
    return out;
  }
  if (op_is_str && op == "==") return eval_equality(left, right, env);
  if (op_is_str && op == "+") return _handle_binop_add(left, right, env);
  if (op_is_str && op == "-") return _handle_binop_sub(left, right, env);
  if (op_is_str && op == "*") return _handle_binop_mul(left, right, env);
  if (op_is_str && op == "/") return _handle_binop_div(left, right, env);
  if (op_is_str && (op == "!=" || op == "<" || op == ">" || op == "<=" || op == ">=")) {
    return _handle_binop_cmp(left, right, op, env);
  }
  throw Generator::_unsupported_operator_error("binop", op);
}

EvalResult ExpressionEvaluator::eval_equality(const Value& left, const Value& right, const Env& env) {
  const EvalResult left_result = eval(left, &env);
  const EvalResult right_result = eval(right, &env);
  Value left_val = left_result.val;
  Value right_val = right_result.val;
  // An iterator compares as it stands in the Env, before any float conversion.
  const Value* bound = nullptr;
  node_name_value(left, env, bound);
  if (bound != nullptr) left_val = *bound;
  node_name_value(right, env, bound);
  if (bound != nullptr) right_val = *bound;
  const bool non_ground =
      left_result.has_vars() || right_result.has_vars() || left_val.is_str() || right_val.is_str();
  if (non_ground && !parent_.allow_symbolic_bool) {
    raise_semantic("Non-ground boolean == outside constraint build context");
  }
  // There is no symbolic result for ==: only the constants are compared.
  if (is_plain_scalar(left_val) && is_plain_scalar(right_val)) {
    return EvalResult::constant(Value::boolean(py_eq(left_val, right_val)));
  }
  return EvalResult::constant(Value::boolean(py_str(left_val) == py_str(right_val)));
}

EvalResult ExpressionEvaluator::_handle_binop_add(const Value& left, const Value& right, const Env& env) {
  const EvalResult l = eval(left, &env);
  const EvalResult r = eval(right, &env);
  refuse_marker(l, "+");
  refuse_marker(r, "+");
  EvalResult out;
  out.coef = merged(l.coef, r.coef, 1.0);
  out.val = is_text_like(l.val) || is_text_like(r.val) ? Value::str(symbolic(l.val, "+", r.val))
                                                       : Value::real(py_float(l.val) + py_float(r.val));
  return out;
}

EvalResult ExpressionEvaluator::_handle_binop_sub(const Value& left, const Value& right, const Env& env) {
  const EvalResult l = eval(left, &env);
  const EvalResult r = eval(right, &env);
  refuse_marker(l, "-");
  refuse_marker(r, "-");
  EvalResult out;
  out.coef = merged(l.coef, r.coef, -1.0);
  out.val = is_text_like(l.val) || is_text_like(r.val) ? Value::str(symbolic(l.val, "-", r.val))
                                                       : Value::real(py_float(l.val) - py_float(r.val));
  return out;
}

EvalResult ExpressionEvaluator::_handle_binop_mul(const Value& left, const Value& right, const Env& env) {
  const EvalResult l = eval(left, &env);
  const EvalResult r = eval(right, &env);
  // Text comes first, so a product of variables with a text constant does
  // not fail; its variables are dropped.
  if (is_text_like(l.val) || is_text_like(r.val))
    return EvalResult::constant(Value::str(symbolic(l.val, "*", r.val)));
  if (l.has_vars() && r.has_vars())
    throw Generator::_unsupported_type_error("nonlinear term", "variable * variable");
  refuse_marker(l, "*");
  refuse_marker(r, "*");
  EvalResult out;
  if (!l.coef.empty()) {
    const double rc = py_float(r.val);
    out.coef = l.coef.scaled(rc);
    out.val = Value::real(py_float(l.val) * rc);
    return out;
  }
  if (!r.coef.empty()) {
    const double lc = py_float(l.val);
    out.coef = r.coef.scaled(lc);
    out.val = Value::real(py_float(r.val) * lc);
    return out;
  }
  return EvalResult::constant(Value::real(py_float(l.val) * py_float(r.val)));
}

EvalResult ExpressionEvaluator::_handle_binop_div(const Value& left, const Value& right, const Env& env) {
  const EvalResult l = eval(left, &env);
  const EvalResult r = eval(right, &env);
  if (is_text_like(l.val) || is_text_like(r.val))
    return EvalResult::constant(Value::str(symbolic(l.val, "/", r.val)));
  if (r.has_vars()) throw Generator::_unsupported_type_error("nonlinear term", "division by variable");
  refuse_marker(l, "/");
  double rc = 0.0;
  try {
    rc = py_float(r.val);
  } catch (const Error&) {
    throw Generator::_unsupported_type_error("division", "non-numeric divisor");
  }
  if (std::fabs(rc) < 1e-12) raise_semantic("Division by zero");
  // A product with the reciprocal, not a quotient: 49 / 49 is 0.9999999999999999.
  const double inv = 1.0 / rc;
  EvalResult out;
  out.coef = l.coef.scaled(inv);
  out.val = Value::real(py_float(l.val) * inv);
  return out;
}

EvalResult ExpressionEvaluator::_handle_binop_cmp(const Value& left, const Value& right,
                                                  const std::string& op, const Env& env) {
  const EvalResult l = eval(left, &env);
  const EvalResult r = eval(right, &env);
  const Value& lconst = l.val;
  const Value& rconst = r.val;
  if (lconst.is_str() && rconst.is_str()) {
    if (op == "!=") return EvalResult::constant(Value::real(lconst.as_str() != rconst.as_str() ? 1.0 : 0.0));
    if (op == "==") return EvalResult::constant(Value::real(lconst.as_str() == rconst.as_str() ? 1.0 : 0.0));
  }
  if (l.has_vars() || r.has_vars() || is_text_like(lconst) || is_text_like(rconst)) {
    if (!parent_.allow_symbolic_bool)
      raise_semantic("Non-ground boolean comparison outside constraint build context");
    return EvalResult::constant(Value::str(symbolic(lconst, op, rconst)));
  }
  const bool numbers = lconst.is_number() && rconst.is_number();
  if (op == "!=") {
    const bool differ = numbers ? !py_eq(lconst, rconst) : py_truth(lconst) != py_truth(rconst);
    return EvalResult::constant(Value::real(differ ? 1.0 : 0.0));
  }
  if (op == "<" || op == ">" || op == "<=" || op == ">=") {
    if (!numbers) {
      if (!parent_.allow_symbolic_bool)
        raise_semantic("Non-numeric comparison outside constraint build context");
      return EvalResult::constant(Value::str(symbolic(lconst, op, rconst)));
    }
    const double a = py_float(lconst);
    const double b = py_float(rconst);
    bool holds = false;
    if (op == "<") holds = a < b;
    if (op == ">") holds = a > b;
    if (op == "<=") holds = a <= b;
    if (op == ">=") holds = a >= b;
    return EvalResult::constant(Value::real(holds ? 1.0 : 0.0));
  }
  throw Generator::_unsupported_operator_error("binop", op);
}

EvalResult ExpressionEvaluator::_eval_uminus(const Value& expr, const Env& env) {
  const EvalResult inner = eval(expr.as_map()->at("value"), &env);
  refuse_marker(inner, "unary -");
  EvalResult out;
  out.coef = inner.coef.scaled(-1.0);
  if (is_text_like(inner.val)) {
    std::string text = "-(";
    append_str(text, inner.val);
    text += ')';
    out.val = Value::str(text);
  } else {
    out.val = Value::real(-py_float(inner.val));
  }
  return out;
}

}  // namespace kolva
