#include "generator/finite_numbers.hpp"

#include <cmath>

#include "generator/generator.hpp"
#include "model/error.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

std::string column_name(const Generator& gen, std::int64_t column) {
  const auto at = static_cast<std::size_t>(column);
  return column >= 0 && at < gen.var_names.size() ? py_repr(Value::str(gen.var_names[at]))
                                                  : "column " + std::to_string(column);
}

}  // namespace

void require_finite_row(const Generator& gen, const std::vector<std::pair<std::int64_t, double>>& entries,
                        double rhs) {
  for (const auto& [column, value] : entries) {
    if (!std::isfinite(value)) {
      raise_semantic("The coefficient of " + column_name(gen, column) + " in a constraint is " +
                     py_repr_float(value) + "; coefficients must be finite numbers.");
    }
  }
  if (!std::isfinite(rhs)) {
    raise_semantic("The constant side of a constraint is " + py_repr_float(rhs) +
                   "; constraints must have finite numbers on both sides.");
  }
}

void require_finite_objective(const Generator& gen, const std::vector<double>& c, double offset) {
  for (std::size_t k = 0; k < c.size(); ++k) {
    if (!std::isfinite(c[k])) {
      raise_semantic("The objective's coefficient of " + column_name(gen, static_cast<std::int64_t>(k)) +
                     " is " + py_repr_float(c[k]) + "; coefficients must be finite numbers.");
    }
  }
  if (!std::isfinite(offset)) {
    raise_semantic("The objective's constant is " + py_repr_float(offset) + "; it must be a finite number.");
  }
}

void require_numeric_bounds(const std::vector<std::string>& names, const std::vector<BoundPair>& bounds) {
  for (std::size_t k = 0; k < bounds.size() && k < names.size(); ++k) {
    for (const Value& bound : {bounds[k].lower.value(), bounds[k].upper.value()}) {
      const bool numeric = bound.is_none() || bound.is_bool() || bound.is_int() ||
                           (bound.is_float() && !std::isnan(bound.as_float()));
      if (!numeric) {
        raise_semantic("A bound of variable " + py_repr(Value::str(names[k])) + " is " + py_repr(bound) +
                       "; bounds must be numbers or None.");
      }
    }
  }
}

}  // namespace kolva
