#include "constraints/sparse_rows.hpp"

#include <utility>

#include "model/error.hpp"
#include "model/interrupt.hpp"

namespace kolva {

void SparseRows::append(std::size_t width, const std::vector<std::pair<std::int64_t, double>>& entries) {
  poll_interrupt();
  for (const auto& [col, val] : entries) {
    cols_.push_back(col);
    vals_.push_back(val);
  }
  starts_.push_back(cols_.size());
  widths_.push_back(width);
}

void SparseRows::append_dense(const std::vector<double>& dense) {
  poll_interrupt();
  for (std::size_t col = 0; col < dense.size(); ++col) {
    if (dense[col] != 0.0) {
      cols_.push_back(static_cast<std::int64_t>(col));
      vals_.push_back(dense[col]);
    }
  }
  starts_.push_back(cols_.size());
  widths_.push_back(dense.size());
}

std::vector<double> SparseRows::dense_row(std::size_t row) const {
  std::vector<double> dense(widths_[row], 0.0);
  for (std::size_t k = starts_[row]; k < starts_[row + 1]; ++k) {
    const auto col = static_cast<std::size_t>(cols_[k]);
    if (cols_[k] < 0 || col >= dense.size()) raise(ErrorKind::kIndex, "list assignment index out of range");
    dense[col] = vals_[k];
  }
  return dense;
}

std::vector<std::int64_t> SparseRows::entry_rows() const {
  std::vector<std::int64_t> out;
  out.reserve(cols_.size());
  for (std::size_t r = 0; r + 1 < starts_.size(); ++r) {
    for (std::size_t k = starts_[r]; k < starts_[r + 1]; ++k) out.push_back(static_cast<std::int64_t>(r));
  }
  return out;
}

double SparseRows::at(std::size_t row, std::size_t col) const {
  for (std::size_t k = starts_[row]; k < starts_[row + 1]; ++k) {
    if (std::cmp_equal(cols_[k], col)) return vals_[k];
  }
  return 0.0;
}

}  // namespace kolva
