// Forall: `forall(i in I, ...) body` and `forall(...) {bodies}`.
// Recognises a forall_constraint. Emits nothing itself: each body goes
// through the whole chain again under the Env extended by each combination
// of the iterators that passes the filter.
#include <string>

#include "constraints/forms/forms.hpp"
#include "expansion/product.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva::forms {

Claim forall(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("type")) != "forall_constraint") return Claim::kPass;
  Generator& gen = b.gen;
  const Value iterators = constr.get("iterators");
  const Value index_constraint = constr.get("index_constraint");
  if (iterators.is_none()) throw Generator::_unsupported_type_error("forall_constraint", "missing iterators");
  ValueVec bodies;
  if (const Value* one = constr.find("constraint")) {
    bodies.push_back(*one);
  } else if (const Value* many = constr.find("constraints")) {
    bodies = many->items();
  } else {
    throw Generator::_unsupported_type_error("forall_constraint", "missing constraint(s)");
  }
  const auto [loop_vars, loop_ranges] = gen._unroll_iterators(iterators.items(), nullptr);
  for_each_product(loop_ranges, [&](const std::vector<std::size_t>& pos) {
    Env env2 = call.env;
    for (std::size_t i = 0; i < loop_vars.size(); ++i) env2.set(loop_vars[i], loop_ranges[i][pos[i]]);
    if (!gen.index_filter_keeps(index_constraint, env2)) return;
    ValueVec values;
    values.reserve(loop_vars.size());
    for (std::size_t i = 0; i < loop_vars.size(); ++i) values.push_back(loop_ranges[i][pos[i]]);
    const std::size_t mark = b.push_iteration(values);
    for (const Value& body : bodies) {
      if (!body.is_map()) {
        b.pop_iteration(mark);
        raise(ErrorKind::kType, "a forall body must be a constraint dict");
      }
      b.handle_constraint(body.as_map(), env2);
    }
    b.pop_iteration(mark);
  });
  return Claim::kDone;
}

}  // namespace kolva::forms
