#pragma once

#include <string>
#include <utility>
#include <vector>

#include <cstdint>

namespace kolva {

class Generator;
struct BoundPair;

// NaN and the infinities have no place in a linear program's coefficients
// or right-hand sides (no solver takes them, and the script would print
// them as bare names): each of these raises a SemanticError naming the
// variable, before anything of it is stored or printed.
void require_finite_row(const Generator& gen, const std::vector<std::pair<std::int64_t, double>>& entries,
                        double rhs);
void require_finite_objective(const Generator& gen, const std::vector<double>& c, double offset);

// A column's bounds are numbers or None: an infinite bound is no bound and
// is kept; NaN, text and anything else raise a SemanticError naming the
// column.
void require_numeric_bounds(const std::vector<std::string>& names, const std::vector<BoundPair>& bounds);

}  // namespace kolva
