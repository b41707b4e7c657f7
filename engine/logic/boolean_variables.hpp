#pragma once

#include <string>
#include <utility>

#include "constraints/constraint_builder.hpp"
#include "logic/node_tests.hpp"

// Boolean expression variables: one binary whose value equals the truth of a
// Boolean tree, linked to its parts by rows. Equal trees share a variable
// through their structural key; a node met again under the same bindings is
// found in the per-build memo.
namespace kolva::logic {

std::string bool_expr_var(ConstraintBuilder& b, const Value& node, const Env& env);
// A new auxiliary `_baux<n>`, n the number of auxiliaries of this build.
std::string new_bool_aux_var(Generator& gen);
// `x == 1` gives (x, 1) and `x == 0` gives (x, -1), either side order.
std::pair<std::string, int> atomic_bool_var(Generator& gen, const Value& node, const Env& env);

// A map with sem_type "boolean", a Boolean literal, `x == ...` over a
// variable node, or and/or/not.
bool is_bool_expr(const Value& node);

}  // namespace kolva::logic
