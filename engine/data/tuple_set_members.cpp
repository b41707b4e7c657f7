#include "data/tuple_set_members.hpp"

#include <string>

#include "model/error.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

Value literal_element(const std::string& set_name, const Value& element) {
  if (!element.is_map()) return element;
  const Map& node = *element.as_map();
  const Value type = node.get("type");
  const std::string t = py_str(type);
  if (t == "number" || t == "string_literal" || t == "number_literal_index") return node.at("value");
  if (t == "boolean_literal") return Value::boolean(py_truth(node.get("value", Value::boolean(false))));
  if (t == "uminus") return py_neg(literal_element(set_name, node.at("value")));
  if (t == "tuple_literal") {
    ValueVec members;
    for (const Value& e : node.at("elements").items()) members.push_back(literal_element(set_name, e));
    return Value::tuple(std::move(members));
  }
  raise_semantic("Tuple set '" + set_name + "' has a member element of type '" + t +
                 "'; inline tuple members must be literals");
}

Value as_member(const std::string& set_name, const Value& member) {
  if (member.is_list()) return Value::tuple(member.items());
  if (member.is_map() && py_str(member.as_map()->get("type")) == "tuple_literal") {
    return literal_element(set_name, member);
  }
  return member;
}

ValueVec members_of(const std::string& set_name, const Value& source) {
  if (!source.is_sequence()) {
    raise_semantic("Tuple set '" + set_name + "' must be a list of tuples, got " + type_name(source));
  }
  ValueVec out;
  out.reserve(source.items().size());
  for (const Value& member : source.items()) out.push_back(as_member(set_name, member));
  return out;
}

}  // namespace

ValueVec get_tuple_set(const std::string& set_name, const Map& ast, const Map& data_dict) {
  if (const Value* entry = data_dict.find(set_name)) {
    if (entry->is_map() && entry->as_map()->contains("elements")) {
      return members_of(set_name, entry->as_map()->at("elements"));
    }
    return members_of(set_name, *entry);
  }
  const Value decls = ast.get("declarations", empty_list());
  if (!decls.is_sequence()) return {};
  for (const Value& decl : decls.items()) {
    if (!decl.is_map()) continue;
    const Value name = decl.as_map()->get("name");
    if (!name.is_str() || name.as_str() != set_name) continue;
    const Value value = decl.as_map()->get("value");
    if (!value.is_none()) return members_of(set_name, value);
  }
  return {};
}

}  // namespace kolva
