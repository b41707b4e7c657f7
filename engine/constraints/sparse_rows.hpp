#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace kolva {

// Constraint rows kept as (column, value) entries with each row's width, so a
// row costs its nonzeros and never its length. Dense rows are produced only
// on request, for callers that want Python lists.
class SparseRows {
 public:
  std::size_t rows() const { return widths_.size(); }
  std::size_t nnz() const { return cols_.size(); }

  // Append one row of `width` columns from entries sorted by column.
  void append(std::size_t width, const std::vector<std::pair<std::int64_t, double>>& entries);
  // Append a row given densely; entries equal to 0.0 are not stored.
  void append_dense(const std::vector<double>& dense);

  std::size_t width(std::size_t row) const { return widths_[row]; }
  // Every row as wide as `width` (rows widen when they are published).
  void set_all_widths(std::size_t width) { widths_.assign(widths_.size(), width); }
  // The row index of each stored entry, in storage order.
  std::vector<std::int64_t> entry_rows() const;
  std::vector<double> dense_row(std::size_t row) const;
  // Entry (row, col), 0.0 when not stored.
  double at(std::size_t row, std::size_t col) const;

  const std::vector<std::size_t>& row_starts() const { return starts_; }
  const std::vector<std::int64_t>& cols() const { return cols_; }
  const std::vector<double>& vals() const { return vals_; }

 private:
  std::vector<std::size_t> starts_{0};
  std::vector<std::int64_t> cols_;
  std::vector<double> vals_;
  std::vector<std::size_t> widths_;
};

}  // namespace kolva
