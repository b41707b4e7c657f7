#include "constraints/build_state.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include "model/error.hpp"

namespace kolva {

void RowAccumulator::reset() {
  for (const std::int64_t col : touched_) seen_[static_cast<std::size_t>(col)] = 0;
  touched_.clear();
  entries_.clear();
}

void RowAccumulator::add(std::int64_t column, double value) {
  const auto col = static_cast<std::size_t>(column);
  if (col >= seen_.size()) {
    seen_.resize(std::max(col + 1, seen_.size() * 2), 0);
    values_.resize(seen_.size(), 0.0);
  }
  if (seen_[col] == 0) {
    seen_[col] = 1;
    touched_.push_back(column);
    values_[col] = 0.0 + value;
  } else {
    values_[col] += value;
  }
}

void RowAccumulator::negate() {
  for (const std::int64_t col : touched_)
    values_[static_cast<std::size_t>(col)] = -values_[static_cast<std::size_t>(col)];
}

const std::vector<std::pair<std::int64_t, double>>& RowAccumulator::sorted_entries() {
  std::sort(touched_.begin(), touched_.end());
  entries_.clear();
  entries_.reserve(touched_.size());
  for (const std::int64_t col : touched_) entries_.emplace_back(col, values_[static_cast<std::size_t>(col)]);
  return entries_;
}

void RowSystem::append(const std::vector<std::pair<std::int64_t, double>>& entries, double rhs_value) {
  std::vector<std::pair<std::int64_t, double>>& kept = scratch_;
  kept.clear();
  for (const auto& entry : entries) {
    if (std::fabs(entry.second) > kZeroTolerance) kept.push_back(entry);
  }
  rows.append(0, kept);
  rhs.push_back(rhs_value);
}

void append_sparse_row(ConstraintBuildState& state,
                       const std::vector<std::pair<std::int64_t, double>>& entries, double rhs,
                       std::string_view sense) {
  const bool eq = sense == "eq";
  if (!eq && sense != "ub") raise(ErrorKind::kValue, "Unsupported sparse row sense: " + std::string(sense));
  std::int64_t& row_idx = eq ? state.eq_row_idx : state.ub_row_idx;
  auto& rows = eq ? state.A_eq_rows : state.A_ub_rows;
  auto& cols = eq ? state.A_eq_cols : state.A_ub_cols;
  auto& data = eq ? state.A_eq_data : state.A_ub_data;
  for (const auto& [col, value] : entries) {
    if (std::fabs(value) > kZeroTolerance) {
      rows.push_back(row_idx);
      cols.push_back(col);
      data.push_back(value);
    }
  }
  (eq ? state.b_eq : state.b_ub).push_back(rhs);
  ++row_idx;
}

}  // namespace kolva
