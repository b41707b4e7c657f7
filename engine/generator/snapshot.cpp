// The last steps of build_problem: rows for top-level 0/1 assignments, the
// per-column lists made whole, the script's metadata lines rewritten, and
// the LinearProblem copied out.
#include <cmath>
#include <string>

#include "generator/generator.hpp"
#include "generator/list_text.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"
#include "variables/var_names.hpp"

namespace kolva {
namespace {

bool is_node_of_type(const Value& v, std::initializer_list<std::string_view> types) {
  if (!v.is_map()) return false;
  const Value* type = v.as_map()->find("type");
  if (type == nullptr || !type->is_str()) return false;
  for (std::string_view t : types) {
    if (type->as_str() == t) return true;
  }
  return false;
}

}  // namespace

void Generator::_apply_top_level_binary_assignments() {
  const Value constraints = ast->get("constraints", empty_list());
  if (!constraints.is_sequence()) return;
  for (const Value& entry : constraints.items()) {
    if (!is_node_of_type(entry, {"constraint"})) continue;
    const Map& constr = *entry.as_map();
    const Value op = constr.get("op");
    if (!op.is_str() || op.as_str() != "==") continue;
    const Value left = constr.get("left");
    const Value right = constr.get("right");
    if (!is_node_of_type(left, {"name", "indexed_name"}) || !is_node_of_type(right, {"number"})) {
      continue;
    }
    const Value value = right.as_map()->get("value");
    if (!py_eq(value, Value::integer(0)) && !py_eq(value, Value::integer(1))) continue;
    const Value vname = is_node_of_type(left, {"indexed_name"})
                            ? Value::str(_multi_indexed_var_name(left, Env(), nullptr))
                            : left.as_map()->at("value");
    if (!vname.is_str()) continue;
    const std::optional<std::int64_t> found = var_indices.find(vname.as_str());
    if (!found) continue;
    const std::int64_t idx = *found;
    const double target = py_float(value);
    // Kept rule: the new row is compared with the column of the name walked
    // in step with b_eq, not with the stored rows, so only b_eq at the
    // row's own column can make it count as present.
    bool present = false;
    const std::size_t walk = std::min({A_eq.rows(), b_eq.size(), var_names.size()});
    for (std::size_t p = 0; p < walk && !present; ++p) {
      present = var_indices.find(var_names[p]) == idx && std::fabs(b_eq[p] - target) < 1e-8;
    }
    if (present) continue;
    A_eq.append(var_names.size(), {{idx, 1.0}});
    b_eq.push_back(target);
    row_names_eq.push_back(vname.as_str() + "#fix");
  }
}

void Generator::_reconcile_problem_metadata() {
  // Every late column is an auxiliary binary, hence these defaults.
  while (bounds.size() < var_names.size()) bounds.push_back({Value::integer(0), Value::integer(1)});
  if (!integrality)
    raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute 'integrality'");
  while (integrality->size() < var_names.size()) integrality->push_back(1);
  if (c.size() < var_names.size()) {
    c.resize(var_names.size(), 0.0);
  } else if (c.size() > var_names.size()) {
    // A line printing c may still count the entries cut here.
    scipy_code_lines.materialize(CodeLines::Source::kColumnLists);
    c.resize(var_names.size());
  }
}

void Generator::_refresh_problem_metadata_code_lines() {
  if (!integrality) {
    raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute 'integrality'");
  }
  // Every line that starts with a prefix is rewritten, and a missing one is
  // appended; a line can match more than one prefix only in theory.
  constexpr std::array<MetaLine, 4> kKinds = {MetaLine::kVarNames, MetaLine::kBounds, MetaLine::kIntegrality,
                                              MetaLine::kC};
  std::array<bool, 4> found{};
  for (const MetaLine kind : kKinds) {
    for (const std::size_t i : scipy_code_lines.find_prefixed(metadata_prefix(kind))) {
      rewrite_metadata_line(i, kind, false);
      found[static_cast<std::size_t>(kind)] = true;
    }
  }
  for (const MetaLine kind : kKinds) {
    if (!found[static_cast<std::size_t>(kind)]) add_metadata_line(kind);
  }
}

std::string Generator::snapshot_sense() const {
  const Value objective = ast->get("objective", empty_map());
  const Value sense =
      objective.is_map() ? objective.as_map()->get("type", Value::str("minimize")) : Value::str("minimize");
  const bool known = sense.is_str() && (sense.as_str() == "minimize" || sense.as_str() == "maximize");
  return known ? sense.as_str() : "minimize";
}

LinearProblem Generator::_snapshot_linear_problem() const {
  LinearProblem problem;
  problem.sense = snapshot_sense();
  problem.var_names = var_names;
  for (const BoundPair& pair : bounds) problem.bounds.emplace_back(pair.lower, pair.upper);
  if (!integrality)
    raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute 'integrality'");
  problem.integrality = *integrality;
  problem.c = c;
  problem.A_eq = A_eq;
  problem.b_eq = b_eq;
  problem.A_ub = A_ub;
  problem.b_ub = b_ub;
  problem.row_names_eq = row_names_eq;
  problem.row_names_ub = row_names_ub;
  problem.objective_offset = py_float(obj_const_offset);
  return problem;
}

}  // namespace kolva
