#pragma once

#include "constraints/constraint_builder.hpp"

// Each constraint form recognises one shape and emits its rows; it returns
// kDone once it has claimed the constraint and kPass to let the next form
// try. The order in which they are tried is the chain in
// constraints/constraint_chain.cpp.
namespace kolva::forms {

Claim parameter_without_data(ConstraintBuilder& b, ConstraintCall& call);
Claim log_constraint(ConstraintBuilder& b, ConstraintCall& call);
Claim comparison(ConstraintBuilder& b, ConstraintCall& call);
Claim conjunction_or_disjunction_true(ConstraintBuilder& b, ConstraintCall& call);
Claim general_linear_comparison(ConstraintBuilder& b, ConstraintCall& call);
Claim forall(ConstraintBuilder& b, ConstraintCall& call);
Claim end_of_chain(ConstraintBuilder& b, ConstraintCall& call);

// Slots of forms that the engine does not compile yet; they claim nothing.
Claim not_yet_built(ConstraintBuilder& b, ConstraintCall& call);
// The implication slot: until implications are compiled, it warns that the
// constraint is dropped instead of dropping it in silence.
Claim implication_not_yet_built(ConstraintBuilder& b, ConstraintCall& call);

}  // namespace kolva::forms
