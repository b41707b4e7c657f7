#include "logic/keys.hpp"

#include <algorithm>
#include <cstdint>
#include <string>

#include "logic/node_tests.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva::logic {
namespace {

Value tree_key(Generator& gen, const Value& node, const Env& env, Map* known);

Value tuple_of(std::initializer_list<Value> items) { return Value::tuple(ValueVec(items)); }

int kind_rank(const Value& v) {
  if (v.is_none()) return 0;
  if (v.is_number()) return 1;
  if (v.is_str()) return 2;
  if (v.is_sequence()) return 3;
  return 4;
}

// The Env's bindings, or only those not bound by `local` iterators, as a
// sorted tuple of (name, printed value).
Value env_entries(const Env& env, const std::vector<Value>* local) {
  ValueVec entries;
  for (const auto& item : env.items()) {
    if (local != nullptr &&
        std::any_of(local->begin(), local->end(), [&](const Value& l) { return py_eq(l, item.first); })) {
      continue;
    }
    entries.push_back(tuple_of({item.first, Value::str(py_repr(item.second))}));
  }
  std::sort(entries.begin(), entries.end(), key_less);
  return Value::tuple(std::move(entries));
}

Value identity_of(Generator& gen, const Value& node) {
  gen.keep_node_alive(node.as_map());
  return Value::integer(static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(node.as_map().get())));
}

Value sum_key(Generator& gen, const Map& node, const Env& env) {
  std::vector<Value> local;
  const Value iterators = node.get("iterators");
  if (iterators.is_sequence()) {
    for (const Value& entry : iterators.items()) {
      if (!entry.is_map()) continue;
      const Value it = entry.as_map()->get("iterator");
      if (py_truth(it)) local.push_back(it);
    }
  }
  return tuple_of({Value::str("sum"), Value::str(py_str(iterators)), env_entries(env, &local),
                   bound_key(gen, node.get("expression"), env),
                   bound_key(gen, node.get("index_constraint"), env)});
}

}  // namespace

bool key_less(const Value& a, const Value& b) {
  const int ra = kind_rank(a);
  const int rb = kind_rank(b);
  if (ra != rb) return ra < rb;
  if (ra == 3) {
    const ValueVec& x = a.items();
    const ValueVec& y = b.items();
    const std::size_t n = std::min(x.size(), y.size());
    for (std::size_t i = 0; i < n; ++i) {
      if (!py_eq(x[i], y[i])) return key_less(x[i], y[i]);
    }
    return x.size() < y.size();
  }
  if (ra == 0 || ra == 4) return false;
  return py_lt(a, b);
}

Value bound_key(Generator& gen, const Value& node_in, const Env& env) {
  const Value node = strip_all_parens(node_in);
  if (!node.is_map()) return tuple_of({Value::str("lit"), node});
  const Map& n = *node.as_map();
  const std::string_view type = node_type(n);
  if (type == "indexed_name") {
    try {
      return tuple_of({Value::str("indexed"), Value::str(gen._multi_indexed_var_name(node, env, nullptr))});
    } catch (const Error&) {
      return tuple_of({Value::str("indexed_raw"), n.get("name"), Value::str(py_str(n.get("dimensions")))});
    }
  }
  if (type == "name") {
    const Value value = n.get("value");
    return tuple_of({Value::str("name"), env.get(value, value)});
  }
  if (type == "number" || type == "string_literal" || type == "boolean_literal") {
    return tuple_of({n.get("type"), n.get("value")});
  }
  if (type == "binop") {
    return tuple_of({Value::str("binop"), n.get("op"), bound_key(gen, n.get("left"), env),
                     bound_key(gen, n.get("right"), env)});
  }
  if (type == "sum") return sum_key(gen, n, env);
  return tuple_of({n.get("type"), Value::str(py_str(node))});
}

Value comparison_key(Generator& gen, const Value& node, const Env& env) {
  const Map& n = *node.as_map();
  const Value op = n.get("op");
  Value left = bound_key(gen, n.get("left"), env);
  Value right = bound_key(gen, n.get("right"), env);
  const std::string op_text = py_str(op);
  if ((op_text == "==" || op_text == "!=") && key_less(right, left)) std::swap(left, right);
  return tuple_of({Value::str("cmp"), op, left, right});
}

Value bool_struct_key(Generator& gen, const Value& node, const Env& env, Map* known) {
  if (known == nullptr || !node.is_map()) return tree_key(gen, node, env, known);
  const Value visit = memo_key(gen, node, env);
  if (const Value* hit = known->find(visit)) return *hit;
  Value tree = tree_key(gen, node, env, known);
  known->set(visit, tree);
  return tree;
}

namespace {

Value tree_key(Generator& gen, const Value& node_in, const Env& env, Map* known) {
  const Value node = strip_all_parens(node_in);
  if (!node.is_map()) return tuple_of({Value::str("lit"), node});
  const Map& n = *node.as_map();
  const std::string_view type = node_type(n);
  if (type == "constraint" && py_str(n.get("op")) == "==") {
    const Value left = n.get("left");
    const Value right = n.get("right");
    if (is_var(left) && is_number_01(right)) {
      return tuple_of(
          {Value::str("atom"), Value::str(variable_name(gen, left, env)), right.as_map()->get("value")});
    }
    if (is_var(right) && is_number_01(left)) {
      return tuple_of(
          {Value::str("atom"), Value::str(variable_name(gen, right, env)), left.as_map()->get("value")});
    }
  }
  if (type == "not") return tuple_of({Value::str("not"), bool_struct_key(gen, n.get("value"), env, known)});
  if (type == "and" || type == "or") {
    Value left = bool_struct_key(gen, n.get("left"), env, known);
    Value right = bool_struct_key(gen, n.get("right"), env, known);
    const auto bare = [](Value& k) {
      if (k.is_tuple() && k.items().size() >= 3 && py_eq(k.items()[0], Value::str("eq_link"))) {
        k = Value(k.items()[2]);
      }
    };
    bare(left);
    bare(right);
    if (key_less(right, left)) std::swap(left, right);
    return tuple_of({n.get("type"), tuple_of({left, right})});
  }
  if (type == "binop" && py_str(n.get("sem_type")) == "boolean") {
    const std::string op = py_str(n.get("op"));
    if (op == "<=" || op == ">=" || op == "!=" || op == "==") {
      const Value left = n.get("left");
      const Value right = n.get("right");
      if (op == "==" && left.is_map() && right.is_map()) {
        if (is_bool_var_node(left) && is_bool_composite_node(right, false)) {
          return tuple_of(
              {Value::str("eq_link"), bound_key(gen, left, env), bool_struct_key(gen, right, env, known)});
        }
        if (is_bool_var_node(right) && is_bool_composite_node(left, false)) {
          return tuple_of(
              {Value::str("eq_link"), bound_key(gen, right, env), bool_struct_key(gen, left, env, known)});
        }
      }
      return tuple_of(
          {Value::str("cmp"), n.get("op"), bound_key(gen, left, env), bound_key(gen, right, env)});
    }
  }
  return tuple_of({Value::str("unknown"), identity_of(gen, node)});
}

}  // namespace

Value memo_key(Generator& gen, const Value& node, const Env& env) {
  const Value identity = node.is_map() ? identity_of(gen, node) : Value::str(py_repr(node));
  return tuple_of({identity, env_entries(env, nullptr)});
}

}  // namespace kolva::logic
