#pragma once

#include "constraints/constraint_builder.hpp"

namespace kolva::forms {

// `A => B` between two comparison constraints, A not a Boolean variable test.
void implication_between_comparisons(ConstraintBuilder& b, const Value& ant, const Value& cons,
                                     const Env& env);

}  // namespace kolva::forms
