// The evaluator frame: entry point, dispatch by node type, and the checks on
// what a handler gives back.
#include "evaluator/evaluator.hpp"

#include <string>
#include <unordered_map>

#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

using Handler = ExpressionEvaluator::Handler;

const std::unordered_map<std::string_view, Handler>& handler_table() {
  using E = ExpressionEvaluator;
  static const std::unordered_map<std::string_view, Handler> kTable = {
      {"boolean_literal", &E::_eval_boolean_literal},
      {"number", &E::_eval_number},
      {"name", &E::_eval_name},
      {"binop", &E::_eval_binop},
      {"uminus", &E::_eval_uminus},
      {"minl", &E::_eval_minl},
      {"maxl", &E::_eval_maxl},
      {"conditional", &E::_eval_conditional},
      {"sum", &E::_eval_sum},
      {"parenthesized_expression", &E::_eval_parenthesized_expression},
      {"not", &E::_eval_not},
      {"and", &E::_eval_and},
      {"or", &E::_eval_or},
      {"tuple_literal", &E::_eval_tuple_literal},
      {"field_access", &E::_eval_field_access},
      {"indexed_name", &E::_eval_indexed_name},
      {"index_expr", &E::_eval_index_expr},
      {"name_reference_index", &E::_eval_name_reference_index},
  };
  return kTable;
}

std::string env_text(const Env* env) {
  return env == nullptr ? std::string("None") : py_repr(Value::map(std::make_shared<Map>(*env)));
}

// Python's type() of the evaluated pair's value part, for the debug lines.
std::string val_class_text(const Value& v) { return class_text(v); }

}  // namespace

ExpressionEvaluator::Handler ExpressionEvaluator::_get_handler(std::string_view type) {
  const auto& table = handler_table();
  const auto it = table.find(type);
  return it == table.end() ? nullptr : it->second;
}

EvalResult ExpressionEvaluator::eval(const Value& expr, const Env* env) {
  const DepthGuard guard(depth_, kMaxDepth);
  const Log& log = parent_.log();
  log.debug([&] {
    const Value type = expr.is_map() ? expr.as_map()->get("type") : Value();
    return "[EVAL_ENTRY] type=" + py_str(type) + ", expr=" + py_str(expr) + ", env=" + env_text(env);
  });
  static const Env kEmptyEnv;
  const Env& scope = env != nullptr ? *env : kEmptyEnv;
  if (!expr.is_map()) throw Generator::_unsupported_type_error("expr", class_text(expr));
  // Borrowed from the node: nodes are not changed while they are evaluated.
  const EvalNodeInfo& info = node_info(*expr.as_map());
  const Handler handler = info.handler;
  switch (info.route) {
    case EvalNodeInfo::Route::kImplies:
      return eval(_rewrite_implies(expr), &scope);
    case EvalNodeInfo::Route::kConstraint:
      return EvalResult::constant(Value::real(0.0));
    case EvalNodeInfo::Route::kHandler:
      return checked_result(info.type, (this->*handler)(expr, scope));
    case EvalNodeInfo::Route::kFallback:
      break;
  }
  return _handle_literal_fallback(info.type, expr, scope);
}

// The dispatch of a node, worked out on its first evaluation and kept on it.
const EvalNodeInfo& ExpressionEvaluator::node_info(const Map& node) {
  if (const EvalNodeInfo* known = EvalNodeInfo::borrowed(node)) return *known;
  const Value* type = node.find("type");
  if (type == nullptr || !type->is_str()) {
    throw Generator::_unsupported_type_error("expr", "missing or non-string 'type'");
  }
  auto info = std::make_shared<EvalNodeInfo>();
  info->type = type->as_str();
  if (info->type == "implies") {
    info->route = EvalNodeInfo::Route::kImplies;
  } else if (info->type == "constraint") {
    info->route = EvalNodeInfo::Route::kConstraint;
  } else if (const Handler handler = _get_handler(info->type)) {
    info->route = EvalNodeInfo::Route::kHandler;
    info->handler = handler;
  }
  if (info->type == "indexed_name") info->shape = make_indexed_name_shape(node);
  const EvalNodeInfo& result = *info;
  node.annotate(std::move(info));
  return result;
}

EvalResult ExpressionEvaluator::dispatch(const std::string& type, const Value& expr, const Env& env) {
  const Handler handler = _get_handler(type);
  if (handler == nullptr) return _handle_literal_fallback(type, expr, env);
  return checked_result(type, (this->*handler)(expr, env));
}

// The result contract: the value part is a float, a string or a tuple; ints
// and bools become floats; a map is allowed only under a field access.
EvalResult ExpressionEvaluator::checked_result(const std::string& type, EvalResult result) {
  const Log& log = parent_.log();
  log.debug([&] {
    return "[EVAL] Handler for type '" + type + "' returned: " + repr_eval_result(result) +
           " (type: <class 'tuple'>)";
  });
  log.debug([&] {
    const std::string coef =
        result.marker != nullptr ? py_repr(Value::map(result.marker)) : repr_coef(result.coef);
    return "[EVAL] Handler for type '" + type + "' returned tuple: coef=" + coef +
           ", val=" + py_str(result.val) + " (type(val): " + val_class_text(result.val) + ")";
  });
  const Value& val = result.val;
  if (val.is_float() || val.is_str() || val.is_tuple()) return result;
  if (val.is_int_like()) {
    result.val = Value::real(py_float(val));
    return result;
  }
  if (val.is_map()) {
    if (field_access_depth_ > 0) return result;
    const std::string msg = "handler for type '" + type +
                            "' returned tuple with dict value: " + repr_eval_result(result) +
                            ", which is not allowed by type signature.";
    log.error([&] {
      return "[EVAL] Handler for type '" + type +
             "' returned tuple with dict value: " + repr_eval_result(result) +
             ", which is not allowed by type signature.";
    });
    raise_semantic("ExpressionEvaluator.eval: " + msg);
  }
  log.error([&] {
    return "[EVAL] Handler for type '" + type + "' returned non-tuple result: " + repr_eval_result(result);
  });
  raise_semantic("ExpressionEvaluator.eval: handler for type '" + type +
                 "' returned non-tuple result: " + repr_eval_result(result));
}

EvalResult ExpressionEvaluator::_handle_literal_fallback(const std::string& type, const Value& expr,
                                                         const Env& env) {
  const Map& node = *expr.as_map();
  // This path skips the int-to-float step: an integer index literal stays an int.
  if (type == "number_literal_index") return EvalResult::constant(node.at("value"));
  if (type == "boolean_literal") return _eval_boolean_literal(expr, env);
  if (type == "conditional") return _eval_conditional(expr, env);
  if (type == "tuple_literal") return _eval_tuple_literal(expr, env);
  if (type == "string_literal") return EvalResult::constant(node.at("value"));
  raise(ErrorKind::kNotImplemented,
        "Expression type '" + py_str(node.get("type")) + "' is not supported by the SciPy code generator.");
}

Value ExpressionEvaluator::_rewrite_implies(const Value& expr) {
  const Map& node = *expr.as_map();
  MapPtr negated = make_map();
  negated->set("type", Value::str("not"));
  negated->set("value", node.at("left"));
  MapPtr rewritten = make_map();
  rewritten->set("type", Value::str("or"));
  rewritten->set("left", Value::map(negated));
  rewritten->set("right", node.at("right"));
  return Value::map(rewritten);
}

EvalResult ExpressionEvaluator::_eval_boolean_literal(const Value& expr, const Env& /*env*/) {
  const Value v = expr.as_map()->get("value", Value::boolean(false));
  return EvalResult::constant(Value::real(py_truth(v) ? 1.0 : 0.0));
}

EvalResult ExpressionEvaluator::_eval_number(const Value& expr, const Env& /*env*/) {
  return EvalResult::constant(expr.as_map()->at("value"));
}

EvalResult ExpressionEvaluator::_eval_name(const Value& expr, const Env& env) {
  const Value& vname = expr.as_map()->at("value");
  const std::string name = py_str(vname);
  LookupResult found = parent_._lookup_var_or_param(name, nullptr, &env);
  if (found.is_var) {
    EvalResult out;
    out.coef.set_column(found.var_name, 1.0, found.column);
    out.val = Value::real(0.0);
    return out;
  }
  if (!found.is_symbolic) return EvalResult::constant(found.val);
  raise_semantic("Unresolved name '" + name + "' in expression (missing parameter or variable)");
}

bool is_bool_expr(const Value& e) {
  if (!e.is_map()) return false;
  const Map& node = *e.as_map();
  const Value type = node.get("type");
  if (!type.is_str()) return false;
  if (type.as_str() == "boolean_literal") return true;
  const Value sem = node.get("sem_type");
  return type.as_str() == "binop" && sem.is_str() && sem.as_str() == "boolean";
}

}  // namespace kolva
