#pragma once

#include "constraints/constraint_builder.hpp"

// Each constraint form recognises one shape and emits its rows; it returns
// kDone once it has claimed the constraint and kPass to let the next form
// try. The order in which they are tried is the chain in
// constraints/constraint_chain.cpp.
namespace kolva::forms {

// Forms of every constraint (constraints/forms/).
Claim parameter_without_data(ConstraintBuilder& b, ConstraintCall& call);
Claim top_level_boolean_tree(ConstraintBuilder& b, ConstraintCall& call);
Claim log_constraint(ConstraintBuilder& b, ConstraintCall& call);
Claim preregistration_and_bound_collection(ConstraintBuilder& b, ConstraintCall& call);
Claim constraint_over_implies(ConstraintBuilder& b, ConstraintCall& call);
Claim implication(ConstraintBuilder& b, ConstraintCall& call);
Claim comparison(ConstraintBuilder& b, ConstraintCall& call);
Claim forall(ConstraintBuilder& b, ConstraintCall& call);
Claim end_of_chain(ConstraintBuilder& b, ConstraintCall& call);

// Forms of the comparison step: Boolean sums (constraints/forms/).
Claim weighted_boolean_sum_early(ConstraintBuilder& b, ConstraintCall& call);
Claim sum_of_comparisons(ConstraintBuilder& b, ConstraintCall& call);
Claim name_equals_sum_of_comparisons(ConstraintBuilder& b, ConstraintCall& call);
Claim boolean_variable_equals_threshold_on_sum(ConstraintBuilder& b, ConstraintCall& call);
Claim weighted_boolean_sum_late(ConstraintBuilder& b, ConstraintCall& call);
Claim sum_of_comparisons_any_op(ConstraintBuilder& b, ConstraintCall& call);
Claim variable_equals_threshold_on_count(ConstraintBuilder& b, ConstraintCall& call);

// Literal rewrites, != and Boolean relations (logic/).
Claim parenthesis_stripping(ConstraintBuilder& b, ConstraintCall& call);
Claim comparison_equals_true(ConstraintBuilder& b, ConstraintCall& call);
Claim comparison_equals_false(ConstraintBuilder& b, ConstraintCall& call);
Claim not_equal(ConstraintBuilder& b, ConstraintCall& call);
Claim not_of_comparison(ConstraintBuilder& b, ConstraintCall& call);
Claim declared_bool_equals_expression(ConstraintBuilder& b, ConstraintCall& call);
Claim boolean_tree_against_literal(ConstraintBuilder& b, ConstraintCall& call);
Claim boolean_variable_against_expression(ConstraintBuilder& b, ConstraintCall& call);

// The general forms (constraints/forms/).
Claim conjunction_or_disjunction_true(ConstraintBuilder& b, ConstraintCall& call);
Claim general_linear_comparison(ConstraintBuilder& b, ConstraintCall& call);

}  // namespace kolva::forms
