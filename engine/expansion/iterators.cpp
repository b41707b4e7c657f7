// Iterator lists of sums and foralls turned into concrete index values.
// Two expanders: one that needs every domain up front, and a streaming one
// where a later domain may depend on earlier iterator values.
#include <string>

#include "data/set_members.hpp"
#include "expansion/product.hpp"
#include "generator/generator.hpp"
#include "model/int_range.hpp"
#include "model/interrupt.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

// The declaration kind a named range must have, as _find_decl takes it.
const std::string& range_decl_type() {
  static const std::string kType = "range_declaration_inline";
  return kType;
}

std::string type_of(const Map& node) { return py_str(node.get("type")); }

bool is_one_of(const std::string& type, std::initializer_list<std::string_view> kinds) {
  for (std::string_view k : kinds) {
    if (type == k) return true;
  }
  return false;
}

// int() of a numeric bound, or a TypeError naming what it was.
std::int64_t as_bound_int(const Value& v) { return py_int(v); }

}  // namespace

ValueVec Generator::named_range_members(const Map& range_decl) {
  return range_members(as_bound_int(_eval_bound(range_decl.at("start"))),
                       as_bound_int(_eval_bound(range_decl.at("end"))));
}

// An element of an array of sets: data_dict[name] descended once per index,
// maps by key and lists 1-based. An element that is not there is empty.
ValueVec Generator::indexed_set_members(const Map& rng, const Env& env) {
  Value current = data_dict->get(rng.at("name"), empty_list());
  const Value dims = rng.get("dimensions", empty_list());
  for (const Value& dim : dims.items()) {
    const Value idx = _eval_index_expr(dim, env).val;
    if (current.is_map()) {
      const Value* next = idx.is_list() || idx.is_map() ? nullptr : current.as_map()->find(idx);
      if (next == nullptr) return {};
      current = *next;
    } else if (current.is_sequence()) {
      if (!idx.is_number() || (idx.is_float() && !integral_value(idx.as_float()))) return {};
      const std::int64_t pos = checked_sub(py_int(idx), 1);
      const auto size = static_cast<std::int64_t>(current.items().size());
      if (pos < -size || pos >= size) return {};
      current = py_getitem(current, Value::integer(pos));
    } else {
      return {};
    }
  }
  return py_truth(current) ? py_iterate(current) : ValueVec{};
}

std::pair<ValueVec, std::vector<ValueVec>> Generator::_unroll_iterators(const ValueVec& iterators,
                                                                        const Env* env) {
  const Env empty;
  const Env& scope = env != nullptr ? *env : empty;
  ValueVec loop_vars;
  std::vector<ValueVec> loop_ranges;
  for (const Value& entry : iterators) {
    const Map& it = *entry.as_map();
    const Value& name = it.at("iterator");
    const Map& rng = *it.at("range").as_map();
    const std::string type = type_of(rng);
    if (type == "range_specifier") {
      loop_ranges.push_back(range_members(as_bound_int(_eval_bound(rng.at("start"))),
                                          as_bound_int(_eval_bound(rng.at("end")))));
    } else if (type == "named_range" || type == "named_set") {
      const std::string set_name = py_str(rng.at("name"));
      if (const MapPtr range = _find_decl(set_name, &range_decl_type())) {
        loop_ranges.push_back(named_range_members(*range));
      } else {
        MapPtr found;
        for (const MapPtr& decl : _find_decls(set_name)) {
          if (is_one_of(type_of(*decl), {"set_of_tuples", "set_of_tuples_external", "set_declaration",
                                         "typed_set", "typed_set_external"})) {
            found = decl;
            break;
          }
        }
        if (found == nullptr) throw _not_found_error("range or set", set_name);
        const std::string kind = type_of(*found);
        if (kind == "set_of_tuples" || kind == "set_of_tuples_external") {
          loop_ranges.push_back(tuple_set_members(set_name).members);
        } else if (kind == "set_declaration") {
          const Value data = data_dict->get(set_name);
          loop_ranges.push_back(py_iterate(data.is_none() ? found->get("value", empty_list()) : data));
        } else {
          const Value* data = data_dict->find(set_name);
          const Value value = data != nullptr ? *data : found->get("value");
          loop_ranges.push_back(py_truth(value) ? py_iterate(value) : ValueVec{});
        }
      }
    } else if (type == "indexed_set") {
      loop_ranges.push_back(indexed_set_members(rng, scope));
    } else {
      throw _unsupported_type_error("iterator range type", type);
    }
    loop_vars.push_back(name);
  }
  return {std::move(loop_vars), std::move(loop_ranges)};
}

std::int64_t Generator::_eval_bound_dynamic(const Value& expr, const Env& env) {
  if (!expr.is_map()) throw _unsupported_type_error("expr in index bound", type_name(expr));
  const Map& node = *expr.as_map();
  const Value* type_value = node.find("type");
  if (type_value == nullptr) throw _unsupported_type_error("expr in index bound", "None");
  const std::string type = py_str(*type_value);
  if (type == "number") {
    const Value v = node.get("value", Value::integer(0));
    if (!v.is_number()) throw _unsupported_type_error("number literal in index bound", type_name(v));
    return py_int(v);
  }
  if (type == "name") {
    const Value n = node.get("value");
    if (n.is_str()) {
      if (const Value* bound = env.find(n.as_str())) return py_int(*bound);
    }
    const bool hashable = !(n.is_list() || n.is_map());
    const Value v = hashable ? data_dict->get(n) : Value();
    if (v.is_number()) return py_int(v);
    if (n.is_str()) {
      if (const MapPtr range = _find_decl(n.as_str(), &range_decl_type()))
        return py_int(_eval_bound(range->at("end")));
    }
    throw _unsupported_type_error("name in index bound", py_str(n));
  }
  if (type == "binop") {
    const std::int64_t l = _eval_bound_dynamic(node.at("left"), env);
    const std::int64_t r = _eval_bound_dynamic(node.at("right"), env);
    const std::string op = py_str(node.at("op"));
    if (op == "+") return checked_add(l, r);
    if (op == "-") return checked_sub(l, r);
    if (op == "*") return checked_mul(l, r);
    if (op == "/") return floor_div(l, r);
    throw _unsupported_operator_error("index bound binop", op);
  }
  if (type == "uminus") return checked_neg(_eval_bound_dynamic(node.at("value"), env));
  if (type == "parenthesized_expression") return _eval_bound_dynamic(node.at("expression"), env);
  if (type == "minl" || type == "maxl") {
    const Value args = node.get("args", empty_list());
    if (!args.is_sequence() || args.items().empty())
      throw _unsupported_type_error("expr in index bound", type);
    std::int64_t best = _eval_bound_dynamic(args.items()[0], env);
    for (std::size_t i = 1; i < args.items().size(); ++i) {
      const std::int64_t v = _eval_bound_dynamic(args.items()[i], env);
      best = type == "minl" ? std::min(best, v) : std::max(best, v);
    }
    return best;
  }
  throw _unsupported_type_error("expr in index bound", type);
}

ValueVec Generator::domain_for_iterator(const Map& it, const Env& env) {
  const Value rng_value = it.get("range", empty_map());
  const Map& rng = *rng_value.as_map();
  const std::string rt = type_of(rng);
  if (rt == "range_specifier") {
    return range_members(_eval_bound_dynamic(rng.at("start"), env), _eval_bound_dynamic(rng.at("end"), env));
  }
  if (rt == "named_range") {
    // An unknown named range is an empty domain here, not an error.
    const MapPtr range = _find_decl(py_str(rng.get("name")), &range_decl_type());
    return range == nullptr ? ValueVec{} : named_range_members(*range);
  }
  if (rt == "named_set" || rt == "named_set_dimension") {
    const Value name = rng.get("name");
    Value set_vals = name.is_str() ? data_dict->get(name) : Value();
    if (set_vals.is_map() && set_vals.as_map()->contains("elements"))
      set_vals = set_vals.as_map()->at("elements");
    if (!set_vals.is_none()) return py_iterate(set_vals);
    const MapPtr decl = name.is_str() ? _find_decl(name.as_str()) : nullptr;
    if (decl == nullptr) return {};
    const std::string kind = type_of(*decl);
    if (kind == "typed_set" || kind == "typed_set_external") {
      const Value value = decl->get("value");
      return py_truth(value) ? py_iterate(value) : ValueVec{};
    }
    if (kind == "set_of_tuples" || kind == "set_of_tuples_external")
      return tuple_set_members(name.as_str()).members;
    return {};
  }
  if (rt == "indexed_set") return indexed_set_members(rng, env);
  throw _unsupported_type_error("iterator range type", rt);
}

void Generator::iterate_iterators_dynamic(const ValueVec& iterators, const Env& outer_env,
                                          const Combination& visit) {
  // One level per iterator, kept in a vector rather than on the call stack:
  // a model may have any number of iterators. A level's domain is computed
  // when it is entered, from the values the outer levels hold.
  struct Level {
    Value name;
    ValueVec domain;
    std::size_t pos = 0;
    bool shadows = false;  // the name was already bound when the level began
  };
  Env env = outer_env;
  ValueVec acc;
  std::vector<Level> levels;
  levels.reserve(iterators.size());
  // The combinations on the path to the current level: a bound on what is
  // left to visit below it.
  std::vector<std::uint64_t> combinations{1};
  const auto bind_current = [&](const Level& level) {
    env.set(level.name, level.domain[level.pos]);
    acc.push_back(level.domain[level.pos]);
  };
  while (true) {
    poll_interrupt();
    if (levels.size() == iterators.size()) {
      visit(env, acc);
    } else {
      const Map& it = *iterators[levels.size()].as_map();
      Level level{it.get("iterator"), domain_for_iterator(it, env)};
      if (!level.domain.empty()) {
        // Bound once and overwritten per value, then removed: the same Env
        // at every step as binding and removing per value, unless the name
        // was already bound, where the per-value order of keys is kept.
        level.shadows = !(level.name.is_list() || level.name.is_map()) && env.contains(level.name);
        std::uint64_t below = combinations.back();
        add_combination_factor(below, level.domain.size());
        combinations.push_back(below);
        bind_current(levels.emplace_back(std::move(level)));
        continue;
      }
    }
    // Step the innermost level that has values left; levels that are done
    // unbind their name and go.
    while (!levels.empty()) {
      Level& level = levels.back();
      acc.pop_back();
      if (level.shadows) env.erase(level.name);
      if (++level.pos < level.domain.size()) {
        bind_current(level);
        break;
      }
      if (!level.shadows) env.erase(level.name);
      levels.pop_back();
      combinations.pop_back();
    }
    if (levels.empty()) return;
  }
}

bool Generator::index_filter_keeps(const Value& index_constraint, const Env& env) {
  if (index_constraint.is_none()) return true;
  try {
    return py_truth(_eval_expr(index_constraint, &env).val);
  } catch (const Error&) {
    return true;  // a filter that cannot be evaluated keeps the combination
  }
}

std::pair<Env, bool> Generator::_should_include_sum_term(const ValueVec& loop_vars, const ValueVec& idx_tuple,
                                                         const ValueVec& tuple_set_names, const Env* env,
                                                         const Value& index_constraint) {
  Env env2 = env != nullptr ? *env : Env();
  const std::size_t n = std::min(loop_vars.size(), idx_tuple.size());
  for (std::size_t i = 0; i < n; ++i) {
    bool over_tuples = false;
    for (const Value& t : tuple_set_names) over_tuples = over_tuples || py_eq(t, loop_vars[i]);
    env2.set(loop_vars[i], over_tuples ? Value::tuple(py_iterate(idx_tuple[i])) : idx_tuple[i]);
  }
  const bool keep = index_filter_keeps(index_constraint, env2);
  return {std::move(env2), keep};
}

}  // namespace kolva
