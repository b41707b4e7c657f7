#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kolva {

// Coefficients of a linear expression by variable name, in insertion order.
// A coefficient that cancels to 0.0 keeps its key: later tests ask whether
// any variable occurred, not whether the sum is non-zero.
class CoefDict {
 public:
  // Named like a pair's members, plus the column when it is known.
  struct Item {
    std::string first;
    double second = 0.0;
    std::int64_t column = -1;
  };

  bool empty() const { return items_.empty(); }
  std::size_t size() const { return items_.size(); }
  const std::vector<Item>& items() const { return items_; }

  const double* find(const std::string& name) const;
  // out[name] = out.get(name, 0.0) + delta
  void add(const std::string& name, double delta);
  // Adds entry i of `other` (its hint included) scaled by `factor`.
  void add_from(const CoefDict& other, std::size_t i, double factor);
  void set(const std::string& name, double value);
  // The column of entry i when the evaluation that made it knew it, else -1:
  // consumers then need no second name lookup.
  std::int64_t column_at(std::size_t i) const { return items_[i].column; }
  void set_column(const std::string& name, double value, std::int64_t column);
  // Every coefficient multiplied by `factor`.
  CoefDict scaled(double factor) const;

  CoefDict() = default;
  CoefDict(const CoefDict& other);
  CoefDict& operator=(const CoefDict& other);
  CoefDict(CoefDict&&) noexcept = default;
  CoefDict& operator=(CoefDict&&) noexcept = default;
  ~CoefDict() = default;

 private:
  static constexpr std::size_t kLinearLimit = 8;
  std::ptrdiff_t position_of(const std::string& name) const;

  std::vector<Item> items_;
  // Built only past kLinearLimit entries; most maps hold one or two terms and
  // stay cheap to move and destroy.
  std::unique_ptr<std::unordered_map<std::string, std::size_t>> index_;
};

}  // namespace kolva
