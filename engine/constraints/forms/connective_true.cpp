// Conjunction or disjunction asserted true: `(A and B) == true`,
// `(A or B) == true`, A and B comparisons.
// For `and`: posts each conjunct as a constraint of its own.
// For `or`: one binary or_flag_<k> per group of the disjunctive form, big-M
// rows that switch each group's comparisons off when its flag is 0, and the
// closing row -sum(flags) <= -1 (at least one group holds).
#include <string>

#include "constraints/forms/forms.hpp"
#include "logic/node_tests.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva::forms {
namespace {

std::string type_of(const Value& v) { return v.is_map() ? py_str(v.as_map()->get("type")) : std::string(); }

Value strip_parens(Value node) {
  while (type_of(node) == "parenthesized_expression") node = node.as_map()->at("expression");
  return node;
}

MapPtr equals_true(const Value& node) {
  MapPtr t = make_map();
  t->set("type", Value::str("boolean_literal"));
  t->set("value", Value::boolean(true));
  t->set("sem_type", Value::str("boolean"));
  return logic::constraint_node(Value::str("=="), node, Value::map(t));
}

void emit_conj(ConstraintBuilder& b, const Value& node_in, const Env& env) {
  const Value node = strip_parens(node_in);
  const std::string type = type_of(node);
  if (type == "and") {
    emit_conj(b, node.as_map()->at("left"), env);
    emit_conj(b, node.as_map()->at("right"), env);
  } else if (type == "not" || type == "or") {
    b.handle_constraint(equals_true(node), env);
  } else if (Generator::_is_linear_comparison(node)) {
    const Map& n = *node.as_map();
    b.handle_constraint(logic::constraint_node(n.at("op"), n.at("left"), n.at("right")), env);
  } else {
    throw Generator::_unsupported_type_error("boolean leaf", py_str(node));
  }
}

std::vector<ValueVec> disjuncts(const Value& node_in) {
  if (!node_in.is_map()) return {};
  const Value node = strip_parens(node_in);
  const std::string type = type_of(node);
  if (type == "or") {
    std::vector<ValueVec> out = disjuncts(node.as_map()->at("left"));
    std::vector<ValueVec> right = disjuncts(node.as_map()->at("right"));
    out.insert(out.end(), right.begin(), right.end());
    return out;
  }
  if (type == "and") {
    ValueVec comps;
    ValueVec stack{node};
    while (!stack.empty()) {
      const Value item = strip_parens(stack.back());
      stack.pop_back();
      if (type_of(item) == "and") {
        stack.push_back(item.as_map()->at("left"));
        stack.push_back(item.as_map()->at("right"));
      } else if (Generator::_is_linear_comparison(item)) {
        comps.push_back(item);
      } else {
        throw Generator::_unsupported_type_error("boolean leaf", py_str(item));
      }
    }
    return {comps};
  }
  if (!Generator::_is_linear_comparison(node))
    throw Generator::_unsupported_type_error("boolean leaf", py_str(node));
  return {{node}};
}

// A new binary or_flag_<k> (with "_" appended while the name is taken);
// returns its column.
std::int64_t new_or_flag(Generator& gen, std::size_t dj_idx) {
  std::string name = "or_flag_" + std::to_string(dj_idx);
  while (gen.var_indices.contains(name)) name += '_';
  return gen.add_binary_flag(name);
}

void post_group_rows(ConstraintBuilder& b, const ValueVec& group, std::int64_t flag_col, const Env& env) {
  Generator& gen = b.gen;
  for (const Value& comp : group) {
    const double big_m = gen._big_m_for_comparison(comp, &env);
    const Map& n = *comp.as_map();
    const EvalResult left = gen._eval_expr(n.at("left"), &env);
    const Value& right_node = n.at("right");
    EvalResult right;
    if (right_node.is_map()) {
      right = gen._eval_expr(right_node, &env);
    } else {
      right = EvalResult::constant(
          Value::real(right_node.is_int() || right_node.is_float() ? py_float(right_node) : 0.0));
    }
    if (left.marker != nullptr || right.marker != nullptr) {
      raise(ErrorKind::kType, "a disjunct compares an inequality between Boolean expressions");
    }
    CoefDict coef = left.coef;
    for (const CoefDict::Item& item : right.coef.items()) coef.add(item.first, -item.second);
    const double constant = py_float(left.val) - py_float(right.val);
    const std::string op = py_str(n.at("op"));
    const auto post = [&](double factor, double rhs) {
      RowAccumulator& row = b.row();
      row.reset();
      for (const CoefDict::Item& item : coef.items()) {
        if (const std::optional<std::int64_t> it = gen.var_indices.find(item.first); it.has_value()) {
          row.add(*it, factor * item.second);
        }
      }
      row.add(flag_col, big_m);
      b.append_ub_row(rhs);
    };
    if (op == "<=" || op == "==") post(1.0, big_m - constant);
    if (op == ">=" || op == "==") post(-1.0, big_m + constant);
  }
}

}  // namespace

Claim conjunction_or_disjunction_true(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  const Value left = constr.at("left");
  const Value right = constr.at("right");
  const std::string left_type = type_of(left);
  if ((left_type != "and" && left_type != "or") || py_str(constr.get("op")) != "==") return Claim::kPass;
  if (type_of(right) != "boolean_literal") return Claim::kPass;
  const Value value = right.as_map()->get("value");
  if (!value.is_bool() || !value.as_bool()) return Claim::kPass;
  if (left_type == "and") {
    emit_conj(b, left, call.env);
    return Claim::kDone;
  }
  std::vector<std::int64_t> flags;
  const std::vector<ValueVec> groups = disjuncts(left);
  for (std::size_t dj_idx = 0; dj_idx < groups.size(); ++dj_idx) {
    const std::int64_t flag_col = new_or_flag(b.gen, dj_idx);
    flags.push_back(flag_col);
    post_group_rows(b, groups[dj_idx], flag_col, call.env);
  }
  if (!flags.empty()) {
    RowAccumulator& row = b.row();
    row.reset();
    for (const std::int64_t col : flags) row.add(col, -1.0);
    b.append_ub_row(-1.0);
  }
  return Claim::kDone;
}

}  // namespace kolva::forms
