#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kolva {

// A coefficient key: a column number (from the sum paths) or a variable name
// (from plain evaluation). The two never merge, as an int and a str key of
// one dict would not.
struct CoefKey {
  bool is_column = false;
  std::int64_t column = 0;
  std::string name;

  static CoefKey of_column(std::int64_t c) { return {true, c, {}}; }
  static CoefKey of_name(std::string n) { return {false, 0, std::move(n)}; }
};

// Coefficients by key in first-insertion order; adding to a missing key
// starts from 0.0, as a map with default 0.0 would.
class KeyedCoefs {
 public:
  using Item = std::pair<CoefKey, double>;

  void add(const CoefKey& key, double delta);
  void add_column(std::int64_t column, double delta);
  void add_name(const std::string& name, double delta);
  const std::vector<Item>& items() const { return items_; }
  bool empty() const { return items_.empty(); }

 private:
  std::ptrdiff_t column_slot(std::int64_t column) const;
  void grow_columns();

  std::vector<Item> items_;
  // Open addressing over item positions (+1; 0 is empty) for column keys:
  // one allocation per growth instead of one per entry.
  std::vector<std::uint32_t> column_slots_;
  std::size_t column_count_ = 0;
  std::unordered_map<std::string, std::size_t> names_;
};

}  // namespace kolva
