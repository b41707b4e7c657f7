#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kolva {

// Variable name -> column, with the names kept in first-insertion order (the
// iteration order of a dict). Open addressing over compact slots keeps a
// lookup to one hash and, usually, one string comparison; a name recorded
// again keeps its place and points to the newer column.
class NameTable {
 public:
  const std::int64_t* find(std::string_view name) const;
  // The name's place in first-insertion order.
  std::optional<std::size_t> position(std::string_view name) const;
  bool contains(std::string_view name) const { return find(name) != nullptr; }
  // Returns true when `name` was new.
  bool insert_or_assign(std::string_view name, std::int64_t column);

  std::size_t size() const { return keys_.size(); }
  const std::vector<std::string>& keys() const { return keys_; }
  std::int64_t value_at(std::size_t i) const { return values_[i]; }

  static std::uint64_t hash(std::string_view name);

 private:
  std::size_t probe(std::string_view name, std::uint64_t h) const;
  void grow();

  std::vector<std::string> keys_;
  std::vector<std::int64_t> values_;
  // Each slot: high 32 bits of the hash, low 32 bits the key's position + 1.
  std::vector<std::uint64_t> slots_;
};

}  // namespace kolva
