// Index values of a subscript, by the subscript's form.
#include <string>

#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

bool is_tuple_set_type(const Value& type) {
  return type.is_str() && (type.as_str() == "set_of_tuples" || type.as_str() == "set_of_tuples_external");
}

Value env_or_self(const Env& env, const Value& name) {
  if (name.is_list() || name.is_map()) return name;
  return env.get(name, name);
}

}  // namespace

bool Generator::_is_tuple_indexed(const MapPtr& decl) {
  if (decl == nullptr) return false;
  const Value dims = decl->get("dimensions", empty_list());
  if (!dims.is_sequence() || dims.items().size() != 1 || !dims.items()[0].is_map()) return false;
  const Map& dim = *dims.items()[0].as_map();
  if (py_str(dim.get("type")) != "named_set_dimension") return false;
  const MapPtr set_decl = _find_decl(py_str(dim.at("name")));
  return set_decl != nullptr && is_tuple_set_type(set_decl->get("type"));
}

Value Generator::_extract_field_access_index(const Value& dim, const Env& env) {
  const Map& node = *dim.as_map();
  const Value& base_expr = node.at("base");
  const Value& field = node.at("field");
  Value base_val;
  if (base_expr.is_map() && py_str(base_expr.as_map()->get("type")) == "name") {
    base_val = env_or_self(env, base_expr.as_map()->at("value"));
  } else {
    base_val = _eval_expr(base_expr, &env).val;
  }
  if (!base_val.is_sequence()) {
    if (base_val.is_map()) return base_val.as_map()->get(field);
    return base_val;
  }
  const Value sem_type = base_expr.is_map() ? base_expr.as_map()->get("sem_type") : Value();
  if (tuple_types != nullptr && !sem_type.is_list() && !sem_type.is_map()) {
    if (const Value* fields = tuple_types->find(sem_type)) {
      const ValueVec& records = fields->items();
      for (std::size_t i = 0; i < records.size(); ++i) {
        if (records[i].is_map() && py_eq(records[i].as_map()->get("name"), field)) {
          return py_getitem(base_val, Value::integer(static_cast<std::int64_t>(i)));
        }
      }
    }
  }
  return base_val.items().empty() ? Value() : base_val.items()[0];
}

Value Generator::_extract_tuple_index(const Value& dim, const Env& env) {
  const Map& node = *dim.as_map();
  const Value* elements = node.find("elements");
  if (elements == nullptr) return _eval_expr(dim, &env).val;
  ValueVec out;
  for (const Value& member : elements->items()) {
    if (member.is_str()) {
      out.push_back(member);
    } else if (member.is_map() && member.as_map()->contains("name")) {
      out.push_back(env_or_self(env, member.as_map()->at("name")));
    } else {
      out.push_back(_eval_expr(member, &env).val);
    }
  }
  return Value::tuple(std::move(out));
}

Value Generator::_extract_normal_index(const Value& dim, const Env& env) {
  Value idx = _eval_expr(dim, &env).val;
  if (idx.is_list() || idx.is_map()) return idx;
  if (const Value* bound = env.find(idx)) return *bound;
  if (const Value* entry = data_dict->find(idx)) return *entry;
  return idx;
}

}  // namespace kolva
