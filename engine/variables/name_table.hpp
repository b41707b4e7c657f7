#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kolva {

// Variable name -> column, with the names kept in first-insertion order (the
// iteration order of a dict); a name recorded again keeps its place and
// points to the newer column.
//
// Names are held two ways. Single names sit in an open-addressing table.
// The names of an array over integer ranges ("x_1_1" ... "x_707_707") are
// held as one block (base name, ranges, first column), which costs nothing
// per name: a lookup parses the subscripts back and accepts only the exact
// spelling the array gives its columns.
class NameTable {
 public:
  std::optional<std::int64_t> find(std::string_view name) const;
  bool contains(std::string_view name) const { return find(name).has_value(); }
  // The name's place in first-insertion order.
  std::optional<std::size_t> position(std::string_view name) const;
  // Returns true when `name` was new.
  bool insert_or_assign(std::string_view name, std::int64_t column);
  // Records the names base_i_j... of an array whose columns lie in product
  // order from `first_column`. Only valid when none of these names exists
  // yet and none will be added by another block (the caller checks that no
  // name starts with base + "_"); returns false if another block has `base`.
  bool insert_block(const std::string& base, std::vector<std::int64_t> starts,
                    std::vector<std::int64_t> sizes, std::int64_t first_column);
  // Room for `extra` more single names without growing on the way.
  void reserve(std::size_t extra);

  std::size_t size() const { return size_; }
  // Every name with its column, in first-insertion order.
  void for_each(const std::function<void(const std::string& name, std::int64_t column)>& visit) const;

  static std::uint64_t hash(std::string_view name);

 private:
  struct Block {
    std::string base;
    std::vector<std::int64_t> starts;
    std::vector<std::int64_t> sizes;
    std::int64_t first_column = 0;
    std::size_t first_position = 0;
    std::size_t count = 0;
  };
  // One entry of the insertion order: a single name, or a whole block.
  struct Segment {
    bool block = false;
    std::size_t index = 0;  // into keys_ or blocks_
  };

  std::size_t probe(std::string_view name, std::uint64_t h) const;
  void grow(std::size_t at_least);
  // The block and offset a name belongs to, if it is one of a block's names.
  std::optional<std::pair<std::size_t, std::int64_t>> block_entry(std::string_view name) const;
  std::string block_name(const Block& block, std::int64_t offset) const;

  std::vector<std::string> keys_;
  std::vector<std::int64_t> values_;
  std::vector<std::size_t> positions_;  // first-insertion place of each single name
  // A single entry that only gives a block's name a newer column; it takes
  // no place of its own.
  std::vector<bool> shadows_;
  // Each slot: high 32 bits of the hash, low 32 bits the key's index + 1.
  std::vector<std::uint64_t> slots_;
  std::vector<Block> blocks_;
  std::unordered_map<std::string, std::size_t> block_by_base_;
  std::vector<Segment> order_;
  std::size_t size_ = 0;
};

}  // namespace kolva
