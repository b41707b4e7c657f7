// Index expressions: a subscript comes out as an integer where possible and
// may stay a string, a tuple or symbolic text where not.
#include <string>

#include "evaluator/evaluator.hpp"
#include "evaluator/index_values.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
Value normalized_index(const Value& v) { return v.is_float() ? normalize_integral(v) : v; }

Value index_value_of_name(const Value& name, const Map& env, const Map& data_dict) {
  Value val;
  if (const Value* bound = name.is_str() ? env.find(name.as_str()) : nullptr) {
    val = *bound;
  } else {
    const bool hashable = !(name.is_list() || name.is_map());
    val = hashable ? data_dict.get(name, name) : name;  // an unknown name stands for itself
  }
  if (val.is_float()) return normalize_integral(val);
  if (val.is_str()) {
    // A string that is no integer literal stays as it is; asking first keeps
    // plain member names ("seattle") from costing a raised error each.
    try {
      if (auto i = int_from_text(val.as_str())) return Value::integer(*i);
    } catch (const Error&) {
      // past 64 bits: the string stays, as for any other failed conversion
    }
    return val;
  }
  return val;
}

Value ExpressionEvaluator::index_tuple_member(const Value& e, const Env& env) {
  if (!e.is_map()) return e;
  if (py_str(e.as_map()->get("type")) == "tuple_literal") {
    ValueVec members;
    for (const Value& item : e.as_map()->at("elements").items())
      members.push_back(index_tuple_member(item, env));
    return Value::tuple(std::move(members));
  }
  return _eval_index_expr(e, env).val;
}

EvalResult ExpressionEvaluator::_eval_index_expr(const Value& dim_expr, const Env& env) {
  const DepthGuard guard(depth_, kMaxDepth);
  if (!dim_expr.is_map()) throw Generator::_unsupported_type_error("index expr", "None");
  const Map& node = *dim_expr.as_map();
  const std::string_view tt = node_type(node);
  if (tt == "field_access_index" || tt == "field_access") {
    EvalResult r = _eval_field_access(dim_expr, env);
    r.val = normalized_index(r.val);
    return r;
  }
  if (tt == "number_literal_index") return EvalResult::constant(normalized_index(node.at("value")));
  if (tt == "name_reference_index")
    return EvalResult::constant(index_value_of_name(node.get("name"), env, *parent_.data_dict));
  if (tt == "name")
    return EvalResult::constant(index_value_of_name(node.get("value"), env, *parent_.data_dict));
  if (tt == "indexed_name") {
    const Value val = _eval_indexed_name(dim_expr, env).val;
    if (val.is_map()) raise_semantic("Indexed expression used as an index must resolve to a scalar value");
    return EvalResult::constant(normalized_index(val));
  }
  if (tt == "string_literal") return EvalResult::constant(node.get("value"));
  if (tt == "binop") {
    const Value lval = _eval_index_expr(node.at("left"), env).val;
    const Value rval = _eval_index_expr(node.at("right"), env).val;
    const Value& op = node.at("op");
    const std::string op_text = py_str(op);
    if (!lval.is_int_like() || !rval.is_int_like()) {
      std::string text = "(";
      text += py_str(lval);
      text += " " + op_text + " ";
      text += py_str(rval);
      text += ")";
      return EvalResult::constant(Value::str(std::move(text)));
    }
    if (op_text == "+") return EvalResult::constant(normalized_index(py_add(lval, rval)));
    if (op_text == "-") return EvalResult::constant(normalized_index(py_sub(lval, rval)));
    if (op_text == "*") return EvalResult::constant(normalized_index(py_mul(lval, rval)));
    throw Generator::_unsupported_operator_error("index", op_text);
  }
  if (tt == "uminus") {
    const Value val = _eval_index_expr(node.at("value"), env).val;
    if (val.is_str()) return EvalResult::constant(Value::str("-(" + val.as_str() + ")"));
    return EvalResult::constant(normalized_index(py_neg(val)));
  }
  if (tt == "parenthesized_expression") return _eval_index_expr(node.at("expression"), env);
  if (tt == "minl" || tt == "maxl") {
    return EvalResult::constant(normalized_index(eval_aggregate(dim_expr, env, tt == "maxl").val));
  }
  if (tt == "tuple_literal") return EvalResult::constant(index_tuple_member(dim_expr, env));
  if (const Value* value = node.find("value")) return EvalResult::constant(normalized_index(*value));
  if (const Value* name = node.find("name")) {
    const bool hashable = !(name->is_list() || name->is_map());
    return EvalResult::constant(normalized_index(hashable ? env.get(*name, *name) : *name));
  }
  throw Generator::_unsupported_type_error("index expr", py_str(node.get("type")));
}

}  // namespace kolva
