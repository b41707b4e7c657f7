// Boolean expression variable of a tree of and/or/not/implies over leaves
// `x == 0|1`, comparisons, `!=` between Boolean expressions and `aux_var`.
// Emits auxiliaries _baux<n> with these rows (z the auxiliary):
//   and:  z - l <= 0,  z - r <= 0,  -z + l + r <= 1
//   or:  -z + l <= 0, -z + r <= 0,   z - l - r <= 0
//   not, x == 0:  z + v == 1
//   != of Booleans:  z - x + y <= 0, z + x - y <= 0, -z + x + y <= 0,
//                    z + x + y <= 2 (these four admit only all zeros; kept
//                    as the contract)
// and ties `y == tree` as y - z == 0.
#include "logic/boolean_variables.hpp"

#include <array>
#include <cmath>
#include <string>

#include "logic/keys.hpp"
#include "logic/node_tests.hpp"
#include "logic/truth_variables.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva::logic {
namespace {

struct Keys {
  Value memo;
  Value structure;
};

void record(ConstraintBuilder& b, const Keys& keys, const std::string& name) {
  b.ctx.subtree_var_cache->set(keys.structure, Value::str(name));
  b.ctx.expr_memo->set(keys.memo, Value::str(name));
}

// z + v == 1: z holds the negation of v.
std::string negation_of(ConstraintBuilder& b, const std::string& v) {
  Generator& gen = b.gen;
  const std::string z = new_bool_aux_var(gen);
  LocalRow row;
  row.add(column_of(gen, z), 1.0);
  row.add(column_of(gen, v), 1.0);
  b.store_eq(row, 1.0);
  b.ctx.neg_cache->set(Value::str(v), Value::str(z));
  return z;
}

// name - result == 0 for each variable tied to an operand.
void tie(ConstraintBuilder& b, const std::string& var_name, const std::string& result) {
  Generator& gen = b.gen;
  const std::optional<std::int64_t> var_col = gen.var_indices.find(var_name);
  const std::optional<std::int64_t> res_col = gen.var_indices.find(result);
  if (!var_col || !res_col) return;
  LocalRow row;
  row.set(*var_col, 1.0);
  row.set(*res_col, -1.0);
  b.store_eq(row, 0.0);
}

// Whether the published equality rows of an earlier build already tie the
// two columns (a row with magnitude exactly 1 at both).
bool earlier_tie_exists(const Generator& gen, std::int64_t a, std::int64_t c) {
  const SparseRows& rows = gen.A_eq;
  for (std::size_t r = 0; r < rows.rows(); ++r) {
    if (std::fabs(rows.at(r, static_cast<std::size_t>(a))) == 1.0 &&
        std::fabs(rows.at(r, static_cast<std::size_t>(c))) == 1.0) {
      return true;
    }
  }
  return false;
}

// `x != y` between two Boolean expressions.
std::string boolean_inequality(ConstraintBuilder& b, const Map& n, const Env& env, const Keys& keys) {
  Generator& gen = b.gen;
  const std::string x = bool_expr_var(b, n.get("left"), env);
  const std::string y = bool_expr_var(b, n.get("right"), env);
  const std::string z = new_bool_aux_var(gen);
  b.note_lossy(LossyConstruct::kBooleanNotEqual);
  const std::int64_t zc = column_of(gen, z);
  const std::int64_t xc = column_of(gen, x);
  const std::int64_t yc = column_of(gen, y);
  const auto row = [&](double zv, double xv, double yv, double rhs) {
    LocalRow r;
    r.set(zc, zv);
    r.set(xc, xv);
    r.set(yc, yv);
    b.store_ub(r, rhs);
  };
  row(1.0, -1.0, 1.0, 0.0);
  row(1.0, 1.0, -1.0, 0.0);
  row(-1.0, 1.0, 1.0, 0.0);
  row(1.0, 1.0, 1.0, 2.0);
  record(b, keys, z);
  return z;
}

// `y == tree` with y a Boolean variable: y is tied to the tree's variable.
std::optional<std::string> variable_tied_to_tree(ConstraintBuilder& b, const Map& n, const Env& env,
                                                 const Keys& keys) {
  const Value left = n.get("left");
  const Value right = n.get("right");
  if (!left.is_map() || !right.is_map()) return std::nullopt;
  Value var_side;
  Value expr_side;
  if (is_bool_var_node(left) && is_bool_composite_node(right, true)) {
    var_side = left;
    expr_side = right;
  } else if (is_bool_var_node(right) && is_bool_composite_node(left, true)) {
    var_side = right;
    expr_side = left;
  } else {
    return std::nullopt;
  }
  Generator& gen = b.gen;
  const std::string expr_var = bool_expr_var(b, expr_side, env);
  std::string var_name = variable_name(gen, var_side, env);
  const std::optional<std::int64_t> var_col = gen.var_indices.find(var_name);
  const std::optional<std::int64_t> expr_col = gen.var_indices.find(expr_var);
  if (var_col && expr_col) {
    if (!earlier_tie_exists(gen, *var_col, *expr_col)) {
      LocalRow row;
      row.set(*var_col, 1.0);
      row.set(*expr_col, -1.0);
      b.store_eq(row, 0.0);
    }
  }
  record(b, keys, var_name);
  return var_name;
}

std::string connective(ConstraintBuilder& b, const Value& node, const Env& env, const Keys& keys) {
  Generator& gen = b.gen;
  const Map& n = *node.as_map();
  const bool is_and = type_of(node) == "and";
  std::vector<Value> tie_vars;
  std::array<Value, 2> operands = {n.get("left"), n.get("right")};
  for (Value& operand : operands) {
    const Value inner = strip_all_parens(operand);
    if (type_of(inner) != "binop" || py_str(inner.as_map()->get("op")) != "==") continue;
    const Value l = inner.as_map()->get("left");
    const Value r = inner.as_map()->get("right");
    if (!l.is_map() || !r.is_map()) continue;
    if (is_bool_var_node(l) && is_bool_composite_node(r, true)) {
      tie_vars.push_back(l);
      operand = r;
    } else if (is_bool_var_node(r) && is_bool_composite_node(l, true)) {
      tie_vars.push_back(r);
      operand = l;
    }
  }
  const std::string left_v = bool_expr_var(b, operands[0], env);
  const std::string right_v = bool_expr_var(b, operands[1], env);
  std::string result;
  if (left_v == right_v) {
    result = left_v;
  } else {
    result = new_bool_aux_var(gen);
    const std::int64_t zc = column_of(gen, result);
    const std::int64_t lc = column_of(gen, left_v);
    const std::int64_t rc = column_of(gen, right_v);
    const double s = is_and ? 1.0 : -1.0;
    LocalRow first;
    first.add(zc, s);
    first.add(lc, -s);
    b.store_ub(first, 0.0);
    LocalRow second;
    second.add(zc, s);
    second.add(rc, -s);
    b.store_ub(second, 0.0);
    LocalRow third;
    third.add(zc, -s);
    third.add(lc, s);
    third.add(rc, s);
    b.store_ub(third, is_and ? 1.0 : 0.0);
  }
  record(b, keys, result);
  for (const Value& var_node : tie_vars) tie(b, variable_name(gen, var_node, env), result);
  return result;
}

}  // namespace

bool is_bool_expr(const Value& node) {
  if (!node.is_map()) return false;
  const Map& n = *node.as_map();
  const std::string_view type = node_type(n);
  if (py_str(n.get("sem_type")) == "boolean" || type == "boolean_literal") return true;
  if (type == "constraint" && py_str(n.get("op")) == "==") {
    return is_var(n.get("left")) || is_var(n.get("right"));
  }
  return type == "and" || type == "or" || type == "not";
}

std::string new_bool_aux_var(Generator& gen) {
  if (!gen.aux_created) gen.aux_created.emplace();
  std::vector<std::string>& created = *gen.aux_created;
  std::string name = "_baux" + std::to_string(created.size());
  gen.add_binary_flag(name);
  created.push_back(name);
  return name;
}

std::pair<std::string, int> atomic_bool_var(Generator& gen, const Value& node, const Env& env) {
  if (!node.is_map()) raise_semantic("Non-dict atomic boolean node");
  const Map& n = *node.as_map();
  if (node_type(n) == "constraint" && py_str(n.get("op")) == "==") {
    const Value left = n.get("left");
    const Value right = n.get("right");
    const auto read = [&](const Value& var, const Value& number) {
      const int polarity = py_eq(number.as_map()->get("value"), Value::integer(1)) ? 1 : -1;
      return std::make_pair(variable_name(gen, var, env), polarity);
    };
    if (is_var(left) && is_number_01(right)) return read(left, right);
    if (is_var(right) && is_number_01(left)) return read(right, left);
  }
  raise_semantic("Unsupported atomic boolean literal");
}

std::string bool_expr_var(ConstraintBuilder& b, const Value& node, const Env& env) {
  Generator& gen = b.gen;
  const Keys keys{memo_key(gen, node, env), bool_struct_key(gen, node, env, b.ctx.tree_keys.get())};
  if (const Value* hit = b.ctx.subtree_var_cache->find(keys.structure)) return py_str(*hit);
  if (const Value* hit = b.ctx.expr_memo->find(keys.memo)) return py_str(*hit);
  if (!node.is_map()) raise_semantic("Invalid boolean expr node (not a dict): " + py_str(node));
  const Map& n = *node.as_map();
  const std::string_view type = node_type(n);
  const std::string op = py_str(n.get("op"));
  const bool boolean_binop = type == "binop" && py_str(n.get("sem_type")) == "boolean";

  if (type == "aux_var" && py_str(n.get("sem_type")) == "boolean") {
    const std::string name = py_str(n.at("name"));
    if (const std::optional<std::int64_t> col = gen.var_indices.find(name)) {
      gen.log().debug([&] {
        return "[DEBUG] aux_var node already registered: " + name + " (idx=" + std::to_string(*col) + ")";
      });
    } else {
      const std::int64_t added = gen.add_binary_flag(name);
      gen.log().debug([&] {
        return "[DEBUG] Registered aux_var node: " + name + " (idx=" + std::to_string(added) + ")";
      });
    }
    record(b, keys, name);
    return name;
  }
  if (type == "parenthesized_expression") return bool_expr_var(b, n.get("expression"), env);
  if ((boolean_binop || type == "constraint") && op == "!=" && is_bool_expr(n.get("left")) &&
      is_bool_expr(n.get("right"))) {
    return boolean_inequality(b, n, env, keys);
  }
  if (boolean_binop && (op == "<=" || op == ">=" || op == "!=" || op == "==")) {
    if (op == "==") {
      if (std::optional<std::string> tied = variable_tied_to_tree(b, n, env, keys)) return *tied;
    }
    const std::string z = comparison_truth_var(b, node, env);
    record(b, keys, z);
    return z;
  }
  if (type == "constraint" && op == "==") {
    const auto [bcmp, polarity] = atomic_bool_var(gen, node, env);
    if (polarity == 1) {
      record(b, keys, bcmp);
      return bcmp;
    }
    if (const Value* neg = b.ctx.neg_cache->find(Value::str(bcmp))) {
      const std::string name = py_str(*neg);
      record(b, keys, name);
      return name;
    }
    const std::string z = negation_of(b, bcmp);
    record(b, keys, z);
    return z;
  }
  if (type == "not") {
    const std::string v = bool_expr_var(b, n.get("value"), env);
    if (const Value* neg = b.ctx.neg_cache->find(Value::str(v))) {
      const std::string name = py_str(*neg);
      b.ctx.subtree_var_cache->set(keys.structure, Value::str(name));
      return name;
    }
    const std::string z = negation_of(b, v);
    b.ctx.subtree_var_cache->set(keys.structure, Value::str(z));
    return z;
  }
  if (type == "and" || type == "or") return connective(b, node, env, keys);
  if (type == "implies") {
    MapPtr negated = make_map();
    negated->set("type", Value::str("not"));
    negated->set("value", n.get("left"));
    MapPtr disjunction = make_map();
    disjunction->set("type", Value::str("or"));
    disjunction->set("left", Value::map(negated));
    disjunction->set("right", n.get("right"));
    return bool_expr_var(b, Value::map(disjunction), env);
  }
  raise_semantic("Unsupported or non-resolvable boolean expression node type: " + py_str(n.get("type")) +
                 " (" + py_str(node) + ")");
}

}  // namespace kolva::logic
