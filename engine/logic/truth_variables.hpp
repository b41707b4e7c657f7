#pragma once

#include <optional>
#include <string>
#include <vector>

#include "constraints/constraint_builder.hpp"

// Truth variables: a binary flag `cmp_flag_<n>` whose value stands for a
// comparison inside a logical expression, with the two big-M rows that link
// them. A flag is made once per comparison key for the generator's life.
namespace kolva::logic {

std::string comparison_truth_var(ConstraintBuilder& b, const Value& node, const Env& env);

// The truth flags of the instances of `sum(...) (comparison)`, or none when
// `sum_node` is not such a sum.
std::optional<std::vector<std::string>> sum_comparison_truth_vars(ConstraintBuilder& b, const Value& sum_node,
                                                                  const Env& env);

// The value of an expression without variables, as a float; none otherwise.
std::optional<double> ground_numeric_value(Generator& gen, const Value& expr, const Env& env);
// A constant of a comparison as a float (numbers, Booleans, numeric text).
double coerce_numeric(const Value& value);

}  // namespace kolva::logic
