// Fields of tuple values, tuple literals and name references in index position.
#include <string>

#include "evaluator/evaluator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

// Keeps map values allowed while a field access is being evaluated.
class FieldAccessScope {
 public:
  explicit FieldAccessScope(int& depth) : depth_(depth) { ++depth_; }
  FieldAccessScope(const FieldAccessScope&) = delete;
  FieldAccessScope& operator=(const FieldAccessScope&) = delete;
  ~FieldAccessScope() { --depth_; }

 private:
  int& depth_;
};

std::string env_repr(const Env& env) { return py_repr(Value::map(std::make_shared<Map>(env))); }

}  // namespace

Value Generator::_resolve_tuple_field(const Value& tuple_type, const Value& field, const Value& tuple_val) {
  if (tuple_types == nullptr) return Value();
  const Value* fields = tuple_types->find(tuple_type);
  if (fields == nullptr || !fields->is_sequence()) return Value();
  const ValueVec& records = fields->items();
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (!records[i].is_map() || !py_eq(records[i].as_map()->get("name"), field)) continue;
    if (tuple_val.is_tuple()) return py_getitem(tuple_val, Value::integer(static_cast<std::int64_t>(i)));
    if (tuple_val.is_map()) return tuple_val.as_map()->get(field);
    return Value();
  }
  return Value();
}

EvalResult ExpressionEvaluator::_eval_field_access(const Value& expr, const Env& env) {
  const FieldAccessScope scope(field_access_depth_);
  const Map& node = *expr.as_map();
  const Value& base = node.at("base");
  const Value& field = node.at("field");
  const Log& log = parent_.log();
  log.debug([&] {
    return "[_eval_field_access] base expr: " + py_str(base) + ", field: " + py_str(field) +
           ", env: " + env_repr(env);
  });
  const EvalResult result = eval(base, &env);
  log.debug([&] { return "[_eval_field_access] eval(base) result: " + repr_eval_result(result); });
  const Value& base_val = result.val;
  log.debug([&] {
    return "[_eval_field_access] base_val: " + py_str(base_val) + " (type: " + class_text(base_val) + ")";
  });
  const Value sem_type = base.is_map() ? base.as_map()->get("sem_type") : Value();
  if (!sem_type.is_none()) {
    Value val = parent_._resolve_tuple_field(sem_type, field, base_val);
    log.debug([&] { return "[_eval_field_access] _resolve_tuple_field result: " + py_str(val); });
    if (!val.is_none()) return EvalResult::constant(std::move(val));
  }
  if (base_val.is_map()) {
    if (const Value* entry = base_val.as_map()->find(field)) {
      log.debug([&] {
        return "[_eval_field_access] Returning field from dict: " + py_str(field) + " -> " + py_str(*entry);
      });
      return EvalResult::constant(*entry);
    }
  }
  const bool is_name = base.is_map() && py_str(base.as_map()->get("type")) == "name";
  const std::string base_str = is_name ? py_str(base.as_map()->get("value")) : py_str(base);
  log.debug([&] {
    return "[_eval_field_access] Fallback to string field access: " + base_str + "['" + py_str(field) + "']";
  });
  return EvalResult::constant(Value::str(base_str + "['" + py_str(field) + "']"));
}

Value ExpressionEvaluator::tuple_member(const Value& e, const Env& env) {
  if (!e.is_map()) return e;
  const Map& node = *e.as_map();
  const std::string type = py_str(node.get("type"));
  if (type == "tuple_literal") {
    ValueVec members;
    for (const Value& item : node.at("elements").items()) members.push_back(tuple_member(item, env));
    return Value::tuple(std::move(members));
  }
  if (type == "boolean_literal") return Value::boolean(py_truth(node.get("value", Value::boolean(false))));
  Value val = eval(e, &env).val;
  if (!(val.is_number() || val.is_str() || val.is_tuple())) {
    raise_semantic("Tuple element evaluated to unsupported type: " + class_text(val));
  }
  return val;
}

EvalResult ExpressionEvaluator::_eval_tuple_literal(const Value& expr, const Env& env) {
  ValueVec members;
  for (const Value& item : expr.as_map()->at("elements").items()) members.push_back(tuple_member(item, env));
  return EvalResult::constant(Value::tuple(std::move(members)));
}

EvalResult ExpressionEvaluator::_eval_name_reference_index(const Value& expr, const Env& env) {
  const Value name_any = expr.as_map()->get("name");
  const std::string name = py_str(name_any);
  const Value val = env.get(name, Value::str(name));
  if (val.is_number()) return EvalResult::constant(Value::real(py_float(val)));
  return EvalResult::constant(Value::str(py_str(val)));
}

}  // namespace kolva
