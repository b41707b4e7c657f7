#include "opl/lower_nodes.hpp"

#include "model/map.hpp"

namespace kolva::opl {

Value node(std::initializer_list<std::pair<const char*, Value>> entries) {
  MapPtr m = make_map();
  for (const auto& [key, value] : entries) m->set(key, value);
  return Value::map(m);
}

Value number_node(Value v) { return node({{"type", Value::str("number")}, {"value", std::move(v)}}); }

Value name_node(const std::string& name) {
  return node({{"type", Value::str("name")}, {"value", Value::str(name)}});
}

Value deep_copy(const Value& v) {
  if (v.is_map()) {
    MapPtr m = make_map();
    for (const auto& [key, value] : v.as_map()->items()) m->set(key, deep_copy(value));
    return Value::map(m);
  }
  if (v.is_list()) {
    ValueVec items;
    for (const Value& item : v.list_items()) items.push_back(deep_copy(item));
    return Value::list(std::move(items));
  }
  return v;
}

ExprPtr clone_expr(const Expr& e) {
  auto c = std::make_unique<Expr>(e.kind, e.place);
  c->text = e.text;
  c->int_value = e.int_value;
  c->float_value = e.float_value;
  c->brackets = e.brackets;
  c->depth = e.depth;
  for (const ExprPtr& a : e.args) c->args.push_back(a ? clone_expr(*a) : nullptr);
  if (e.iteration) {
    c->iteration = std::make_unique<Iteration>();
    for (const Binding& b : e.iteration->bindings) {
      Binding nb;
      nb.place = b.place;
      nb.names = b.names;
      nb.pattern = b.pattern;
      nb.domain = clone_expr(*b.domain);
      c->iteration->bindings.push_back(std::move(nb));
    }
    if (e.iteration->filter) c->iteration->filter = clone_expr(*e.iteration->filter);
  }
  return c;
}

Value generator_subscript(const Value& v) {
  if (!v.is_str()) return v;
  const std::string& text = v.as_str();
  const std::size_t sign = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
  if (sign == text.size() || text.size() > 18) return v;
  for (std::size_t k = sign; k < text.size(); ++k) {
    if (text[k] < '0' || text[k] > '9') return v;
  }
  return Value::integer(std::stoll(text));
}

}  // namespace kolva::opl
