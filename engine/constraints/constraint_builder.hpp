#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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

  // Records that the constraint being handled uses a lossy encoding.
  void note_lossy(LossyConstruct kind) { lossy.note(kind, current_constraint_); }

  // Where rows come from, for their names: the position of the model's
  // constraint being built (from 1), and the iterator values of the
  // foralls around the row, pushed and popped by the forall form.
  void begin_model_constraint(std::size_t position) { position_ = position; }

  // While a form runs: its role names the rows stored meanwhile, unless a
  // form further out (the encoding that made this node) has one already.
  class RoleScope {
   public:
    RoleScope(ConstraintBuilder& b, std::string_view role) : b_(b), outer_(b.role_) {
      if (outer_.empty()) b_.role_ = role;
    }
    RoleScope(const RoleScope&) = delete;
    RoleScope& operator=(const RoleScope&) = delete;
    ~RoleScope() { b_.role_ = outer_; }

   private:
    ConstraintBuilder& b_;
    std::string_view outer_;
  };
  void push_forall_values(const ValueVec& values);
  void pop_forall_values(std::size_t count);

  Generator& gen;
  RowSystem eq;
  RowSystem ub;
  ConstraintBuildContext ctx;
  LossyConstructLog lossy;

 private:
  // A row is as wide as the variables are many when it is made: a column
  // beyond that (a name whose column an earlier build made) cannot be set.
  void store(RowSystem& system, const std::vector<std::pair<std::int64_t, double>>& entries, double rhs);

  std::string current_row_name() const;

  RowAccumulator row_;
  MapPtr current_constraint_;
  std::string label_;      // the OPL label of the innermost labelled constraint
  std::string_view role_;  // of the outermost running form that has one
  std::size_t position_ = 0;
  ValueVec forall_values_;
};

}  // namespace kolva
