#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "constraints/build_state.hpp"
#include "constraints/local_row.hpp"
#include "constraints/lossy_constructs.hpp"
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
  // Stores a row built with LocalRow (used where rows nest).
  void store_eq(const LocalRow& row, double rhs) { store(eq, row.entries(), rhs); }
  void store_ub(const LocalRow& row, double rhs) { store(ub, row.entries(), rhs); }

  // Row naming. `begin_top_level` starts the n-th (1-based) constraint of
  // the model; forall iterations push their iterator values; `set_role`
  // marks the rows a logical encoding stores.
  void begin_top_level(std::size_t position) { top_position_ = position; }
  std::size_t push_iteration(const ValueVec& values);
  void pop_iteration(std::size_t mark) { iteration_suffix_.resize(mark); }
  std::string_view set_role(std::string_view role) { return std::exchange(role_, role); }
  // Names unique within the build: a repeat gets "#2", "#3", ...
  std::vector<std::string> unique_names(std::vector<std::string> names) const;

  // Records that the constraint being handled uses a lossy encoding.
  void note_lossy(LossyConstruct kind) { lossy.note(kind, current_constraint_); }

  Generator& gen;
  RowSystem eq;
  RowSystem ub;
  ConstraintBuildContext ctx;
  LossyConstructLog lossy;

 private:
  // A row is as wide as the variables are many when it is made: a column
  // beyond that (a name whose column an earlier build made) cannot be set.
  void store(RowSystem& system, const std::vector<std::pair<std::int64_t, double>>& entries, double rhs);
  std::string row_name() const;

  RowAccumulator row_;
  MapPtr current_constraint_;
  // The label of the innermost labelled constraint being handled, if any.
  const std::string* label_ = nullptr;
  std::size_t top_position_ = 0;
  std::string iteration_suffix_;
  std::string_view role_;
};

}  // namespace kolva
