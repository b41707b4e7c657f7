#pragma once

#include <string>

#include "evaluator/coef_dict.hpp"
#include "model/map.hpp"
#include "model/value.hpp"

namespace kolva {

// The pair (coef, val) that evaluation gives back. `marker` is set instead of
// `coef` for the auxiliary-variable marker of `!=` between Boolean
// expressions: a node {"type": "aux_var", ...} standing where coef would be.
struct EvalResult {
  CoefDict coef;
  Value val;
  MapPtr marker;

  static EvalResult constant(Value v) { return {CoefDict(), std::move(v), nullptr}; }
  bool has_vars() const { return marker != nullptr || !coef.empty(); }
};

// Python's printed form of the pair, e.g. "({'x': 1.0}, 0.0)".
std::string repr_eval_result(const EvalResult& r);
std::string repr_coef(const CoefDict& coef);

}  // namespace kolva
