#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "constraints/sparse_rows.hpp"
#include "model/map.hpp"

namespace kolva {

// The rows of one constraint build in triplet form. A row whose
// coefficients all vanish still takes a row index and a right-hand side.
struct ConstraintBuildState {
  std::vector<std::int64_t> A_eq_rows;
  std::vector<std::int64_t> A_eq_cols;
  std::vector<double> A_eq_data;
  std::vector<double> b_eq;
  std::vector<std::int64_t> A_ub_rows;
  std::vector<std::int64_t> A_ub_cols;
  std::vector<double> A_ub_data;
  std::vector<double> b_ub;
  std::int64_t eq_row_idx = 0;
  std::int64_t ub_row_idx = 0;
};

// The caches handed to the Boolean linearizations; the first two are the
// generator's own maps, so they outlive one build.
struct ConstraintBuildContext {
  MapPtr comparison_truth_cache;
  MapPtr subtree_var_cache;
  MapPtr expr_memo = make_map();
  MapPtr neg_cache = make_map();
  // Structural keys of the trees keyed in this build, by memo key.
  MapPtr tree_keys = make_map();
};

// One row under construction, kept sparse. Entries sum in the order they
// are added, starting from 0.0, exactly as a dense row of zeros would.
class RowAccumulator {
 public:
  void reset();
  void add(std::int64_t column, double value);
  void negate();
  // Entries in ascending column order; none is dropped here.
  const std::vector<std::pair<std::int64_t, double>>& sorted_entries();

 private:
  std::vector<double> values_;
  std::vector<std::uint8_t> seen_;
  std::vector<std::int64_t> touched_;
  std::vector<std::pair<std::int64_t, double>> entries_;
};

// Stores a row: entries above 1e-12 in magnitude become triplets, in column
// order, and the right-hand side is appended. `sense` is "eq" or "ub".
void append_sparse_row(ConstraintBuildState& state,
                       const std::vector<std::pair<std::int64_t, double>>& entries, double rhs,
                       std::string_view sense);

inline constexpr double kZeroTolerance = 1e-12;

// One system of rows (equalities, or upper bounds) as the constraint build
// stores them: compressed rows and their right-hand sides.
struct RowSystem {
  SparseRows rows;
  std::vector<double> rhs;
  // The name of each row, in row order (see ConstraintBuilder::row_name).
  std::vector<std::string> names;

  std::size_t size() const { return rhs.size(); }
  // Stores a row: entries above 1e-12 in magnitude, in the order given
  // (ascending columns), then the right-hand side.
  void append(const std::vector<std::pair<std::int64_t, double>>& entries, double rhs_value);

 private:
  std::vector<std::pair<std::int64_t, double>> scratch_;
};

}  // namespace kolva
