#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "model/value.hpp"

namespace kolva {

// An insertion-ordered map with Python's key semantics: 1, 1.0 and True are
// one key, tuples compare by members, lists and maps are unhashable. Small
// maps (model tree nodes) are searched linearly; larger ones (data tables)
// get an open-addressing index of positions.
// What the engine has worked out about a model-tree node (its handler, the
// shape of a subscripted name), kept on the node so that evaluating it again
// needs no lookups. Any change to the node drops it.
struct NodeAnnotation {
  // Which subsystem's record this is, so that readers need no dynamic cast.
  enum class Kind : std::uint8_t { kEvaluator };
  explicit NodeAnnotation(Kind k) : kind(k) {}
  const Kind kind;
  NodeAnnotation(const NodeAnnotation&) = delete;
  NodeAnnotation& operator=(const NodeAnnotation&) = delete;
  virtual ~NodeAnnotation() = default;
};

class Map {
 public:
  using Item = std::pair<Value, Value>;

  Map() = default;

  std::size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  const std::vector<Item>& items() const { return items_; }

  const Value* find(const Value& key) const;
  const Value* find(std::string_view key) const;
  Value* find(const Value& key);
  Value* find(std::string_view key);
  bool contains(const Value& key) const { return find(key) != nullptr; }
  bool contains(std::string_view key) const { return find(key) != nullptr; }

  // Direct access: a missing key is a KeyError, as for a Python dict.
  const Value& at(std::string_view key) const;
  const Value& at(const Value& key) const;
  // dict.get(key, fallback)
  Value get(std::string_view key, const Value& fallback = Value()) const;
  Value get(const Value& key, const Value& fallback = Value()) const;

  // Insert at the end, or replace the value in place keeping the first key.
  void set(const Value& key, Value value);
  void set(std::string_view key, Value value);
  bool erase(const Value& key);
  // Replaces the value at a place of the insertion order; the key stays.
  // With a copy of a map holding the right keys, this fills a map of the
  // same keys without hashing them again.
  void set_value_at(std::size_t position, Value value) {
    annotation_.reset();
    items_.at(position).second = std::move(value);
  }

  // Whether any key is a tuple, known without looking at the keys.
  bool has_tuple_key() const { return tuple_keys_ > 0; }

  const std::shared_ptr<const NodeAnnotation>& annotation() const { return annotation_; }
  void annotate(std::shared_ptr<const NodeAnnotation> note) const { annotation_ = std::move(note); }

 private:
  static constexpr std::size_t kLinearLimit = 8;

  std::ptrdiff_t position_of(const Value& key, std::uint64_t hash) const;
  std::ptrdiff_t position_of_str(std::string_view key) const;
  void append(Value key, Value value, std::uint64_t hash);
  void rebuild_index();
  void index_insert(std::uint64_t hash, std::uint32_t position);

  std::vector<Item> items_;
  std::vector<std::uint64_t> hashes_;  // filled only once the index exists
  std::vector<std::uint32_t> slots_;   // position + 1, 0 = empty
  std::size_t tuple_keys_ = 0;
  mutable std::shared_ptr<const NodeAnnotation> annotation_;
};

inline MapPtr make_map() { return std::make_shared<Map>(); }

// The `type` of a model-tree node as text; empty when absent or not a string.
inline std::string_view node_type(const Map& node) {
  const Value* t = node.find("type");
  return t != nullptr && t->is_str() ? std::string_view(t->as_str()) : std::string_view();
}
inline std::string_view node_type(const Value& v) {
  return v.is_map() ? node_type(*v.as_map()) : std::string_view();
}

}  // namespace kolva
