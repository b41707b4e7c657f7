#pragma once

#include <cstdint>
#include <string>

#include "constraints/build_state.hpp"
#include "generator/generator.hpp"

namespace kolva {

// One call of handle_constraint: the constraint (which rewriting forms may
// replace) under its Env.
struct ConstraintCall {
  MapPtr constr;
  const Env& env;
};

enum class Claim { kPass, kDone };

// One constraint build: the state, the build context, and handle_constraint,
// which runs each constraint through the ordered chain of forms.
class ConstraintBuilder {
 public:
  explicit ConstraintBuilder(Generator& gen);

  void handle_constraint(const MapPtr& constr, const Env& env);

  // Row storage. `row_` is the accumulator a form fills before storing.
  RowAccumulator& row() { return row_; }
  void append_eq_row(double rhs);
  void append_ub_row(double rhs);

  Generator& gen;
  RowSystem eq;
  RowSystem ub;
  ConstraintBuildContext ctx;

 private:
  RowAccumulator row_;
};

}  // namespace kolva
