#pragma once

#include <string>
#include <string_view>

#include "generator/generator.hpp"
#include "model/map.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

// Small recognisers over model nodes shared by the logical forms. Each is
// total: what is not a map is simply not recognised.
namespace kolva::logic {

inline std::string_view type_of(const Value& v) {
  return v.is_map() ? node_type(*v.as_map()) : std::string_view();
}

inline std::string op_of(const Value& v) {
  return v.is_map() ? py_str(v.as_map()->get("op")) : std::string();
}

// One level of parentheses removed.
inline Value unwrap_paren(const Value& node) {
  if (type_of(node) == "parenthesized_expression") return node.as_map()->get("expression");
  return node;
}

// Every level of parentheses removed.
inline Value strip_all_parens(Value node) {
  while (type_of(node) == "parenthesized_expression") node = node.as_map()->get("expression");
  return node;
}

inline bool is_var(const Value& node) {
  const std::string_view type = type_of(node);
  return type == "name" || type == "indexed_name";
}

inline bool is_num(const Value& node) { return type_of(node) == "number"; }

inline bool is_number_equal(const Value& node, std::int64_t value) {
  return is_num(node) && py_eq(node.as_map()->get("value"), Value::integer(value));
}

inline bool is_number_01(const Value& node) { return is_number_equal(node, 0) || is_number_equal(node, 1); }

inline bool is_bool_literal(const Value& node) { return type_of(node) == "boolean_literal"; }

// A Boolean literal whose value is exactly true (or exactly false).
inline bool is_literal(const Value& node, bool value) {
  if (!is_bool_literal(node)) return false;
  const Value v = node.as_map()->get("value");
  return v.is_bool() && v.as_bool() == value;
}

inline bool is_simple_comparison(const Value& node_in) {
  const Value node = unwrap_paren(node_in);
  if (type_of(node) != "binop" || py_str(node.as_map()->get("sem_type")) != "boolean") return false;
  const std::string op = op_of(node);
  return op == ">=" || op == "<=" || op == "==" || op == ">" || op == "<";
}

// A tree of and/or/not over leaves `x == 0` or `x == 1`; a bare variable is
// not a tree.
inline bool is_bool_tree(const Value& node) {
  const std::string_view type = type_of(node);
  if (type == "and" || type == "or") {
    return is_bool_tree(node.as_map()->get("left")) && is_bool_tree(node.as_map()->get("right"));
  }
  if (type == "not") return is_bool_tree(node.as_map()->get("value"));
  if (type == "constraint" && op_of(node) == "==") {
    const Value left = node.as_map()->get("left");
    const Value right = node.as_map()->get("right");
    return (is_var(left) && is_number_01(right)) || (is_var(right) && is_number_01(left));
  }
  return false;
}

// A name or indexed name with sem_type "boolean".
inline bool is_bool_var_node(const Value& node) {
  return is_var(node) && py_str(node.as_map()->get("sem_type")) == "boolean";
}

// A Boolean and/or/binop/parenthesized node (and `not` with include_not).
inline bool is_bool_composite_node(const Value& node, bool include_not) {
  if (!node.is_map() || py_str(node.as_map()->get("sem_type")) != "boolean") return false;
  const std::string_view type = type_of(node);
  return type == "and" || type == "or" || type == "binop" || type == "parenthesized_expression" ||
         (include_not && type == "not");
}

// The name of a variable node: the resolved subscripted name, or `value`.
inline std::string variable_name(Generator& gen, const Value& node, const Env& env) {
  if (type_of(node) == "indexed_name") return gen._multi_indexed_var_name(node, env, nullptr);
  return py_str(node.as_map()->at("value"));
}

// A reference to a variable declared Boolean in the model.
inline bool is_declared_bool_var(Generator& gen, const Value& node) {
  if (!is_var(node)) return false;
  const Value symbol = node.as_map()->get(type_of(node) == "name" ? "value" : "name");
  if (!symbol.is_str()) return false;
  for (const MapPtr& decl : gen._find_decls(symbol.as_str())) {
    const std::string kind = py_str(decl->get("type"));
    if (kind == "dvar" || kind == "dvar_indexed") return py_str(decl->get("var_type")) == "boolean";
  }
  return false;
}

inline MapPtr make_node(std::initializer_list<std::pair<const char*, Value>> fields) {
  MapPtr node = make_map();
  for (const auto& [key, value] : fields) node->set(key, value);
  return node;
}

inline Value true_literal() {
  return Value::map(make_node({{"type", Value::str("boolean_literal")},
                               {"value", Value::boolean(true)},
                               {"sem_type", Value::str("boolean")}}));
}

inline Value false_literal() {
  return Value::map(make_node({{"type", Value::str("boolean_literal")},
                               {"value", Value::boolean(false)},
                               {"sem_type", Value::str("boolean")}}));
}

inline MapPtr constraint_node(const Value& op, const Value& left, const Value& right) {
  return make_node({{"type", Value::str("constraint")}, {"op", op}, {"left", left}, {"right", right}});
}

}  // namespace kolva::logic

namespace kolva::logic {

// The column of a variable the rows need; a name that is not a column is a
// missing key, as a lookup in var_indices would report it.
inline std::int64_t column_of(const Generator& gen, const std::string& name) {
  const std::optional<std::int64_t> col = gen.var_indices.find(name);
  if (!col) raise(ErrorKind::kKey, py_repr(Value::str(name)));
  return *col;
}

}  // namespace kolva::logic
