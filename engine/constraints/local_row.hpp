#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace kolva {

// A short row built by a logical form while other rows may be stored in
// between (a Boolean sum makes each term's variable, with its own rows,
// while its own row is still open). It keeps the operations in order and
// folds them per column at the end, so each column gets exactly the value a
// dense row of zeros would: additions sum in order from 0.0, an assignment
// replaces what came before.
class LocalRow {
 public:
  void add(std::int64_t column, double value) { ops_.push_back({column, value, false}); }
  void set(std::int64_t column, double value) { ops_.push_back({column, value, true}); }
  void negate() { negated_ = !negated_; }
  bool empty() const { return ops_.empty(); }

  // Entries in ascending column order, none dropped here.
  std::vector<std::pair<std::int64_t, double>> entries() const {
    std::vector<Op> ops = ops_;
    std::stable_sort(ops.begin(), ops.end(), [](const Op& a, const Op& b) { return a.column < b.column; });
    std::vector<std::pair<std::int64_t, double>> out;
    for (const Op& op : ops) {
      if (out.empty() || out.back().first != op.column) out.emplace_back(op.column, 0.0);
      out.back().second = op.assign ? op.value : out.back().second + op.value;
    }
    if (negated_) {
      for (auto& entry : out) entry.second = -entry.second;
    }
    return out;
  }

 private:
  struct Op {
    std::int64_t column;
    double value;
    bool assign;
  };
  std::vector<Op> ops_;
  bool negated_ = false;
};

}  // namespace kolva
