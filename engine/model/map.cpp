#include "model/map.hpp"

#include <cmath>
#include <string>

#include "model/error.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

void require_hashable(const Value& key) {
  if (key.is_list() || key.is_map()) {
    raise(ErrorKind::kType, std::string("unhashable type: '") + type_name(key) + "'");
  }
}

bool is_str_key(const Value& key, std::string_view text) { return key.is_str() && key.as_str() == text; }

// A NaN key equals no key, itself included, so no lookup can find it: it
// stays out of the hash index, where all NaNs would share one chain and make
// every insertion walk the ones before.
bool never_equal(const Value& key) { return key.is_float() && std::isnan(key.as_float()); }

}  // namespace

std::ptrdiff_t Map::position_of(const Value& key, std::uint64_t hash) const {
  if (never_equal(key)) return -1;
  if (slots_.empty()) {
    for (std::size_t i = 0; i < items_.size(); ++i) {
      if (py_eq(items_[i].first, key)) return static_cast<std::ptrdiff_t>(i);
    }
    return -1;
  }
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t s = hash & mask;; s = (s + 1) & mask) {
    const std::uint32_t slot = slots_[s];
    if (slot == 0) return -1;
    const std::size_t pos = slot - 1;
    if (hashes_[pos] == hash && py_eq(items_[pos].first, key)) {
      return static_cast<std::ptrdiff_t>(pos);
    }
  }
}

std::ptrdiff_t Map::position_of_str(std::string_view key) const {
  if (slots_.empty()) {
    for (std::size_t i = 0; i < items_.size(); ++i) {
      if (is_str_key(items_[i].first, key)) return static_cast<std::ptrdiff_t>(i);
    }
    return -1;
  }
  const std::uint64_t hash = py_hash_str(key);
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t s = hash & mask;; s = (s + 1) & mask) {
    const std::uint32_t slot = slots_[s];
    if (slot == 0) return -1;
    const std::size_t pos = slot - 1;
    if (hashes_[pos] == hash && is_str_key(items_[pos].first, key)) {
      return static_cast<std::ptrdiff_t>(pos);
    }
  }
}

const Value* Map::find(const Value& key) const {
  require_hashable(key);
  if (key.is_str()) return find(std::string_view(key.as_str()));
  const std::uint64_t hash = slots_.empty() ? 0 : py_hash(key);
  const std::ptrdiff_t pos = position_of(key, hash);
  return pos < 0 ? nullptr : &items_[static_cast<std::size_t>(pos)].second;
}

const Value* Map::find(std::string_view key) const {
  const std::ptrdiff_t pos = position_of_str(key);
  return pos < 0 ? nullptr : &items_[static_cast<std::size_t>(pos)].second;
}

Value* Map::find(const Value& key) { return const_cast<Value*>(static_cast<const Map*>(this)->find(key)); }

Value* Map::find(std::string_view key) {
  return const_cast<Value*>(static_cast<const Map*>(this)->find(key));
}

const Value& Map::at(std::string_view key) const {
  const Value* found = find(key);
  if (found == nullptr) raise(ErrorKind::kKey, std::string(key));
  return *found;
}

const Value& Map::at(const Value& key) const {
  const Value* found = find(key);
  if (found == nullptr) raise(ErrorKind::kKey, py_str(key));
  return *found;
}

Value Map::get(std::string_view key, const Value& fallback) const {
  const Value* found = find(key);
  return found == nullptr ? fallback : *found;
}

Value Map::get(const Value& key, const Value& fallback) const {
  const Value* found = find(key);
  return found == nullptr ? fallback : *found;
}

void Map::set(const Value& key, Value value) {
  require_hashable(key);
  annotation_.reset();
  const std::uint64_t hash = py_hash(key);
  const std::ptrdiff_t pos = key.is_str() ? position_of_str(key.as_str()) : position_of(key, hash);
  if (pos >= 0) {
    items_[static_cast<std::size_t>(pos)].second = std::move(value);
    return;
  }
  append(key, std::move(value), hash);
}

void Map::set(std::string_view key, Value value) {
  annotation_.reset();
  const std::ptrdiff_t pos = position_of_str(key);
  if (pos >= 0) {
    items_[static_cast<std::size_t>(pos)].second = std::move(value);
    return;
  }
  append(Value::str(key), std::move(value), py_hash_str(key));
}

bool Map::erase(const Value& key) {
  require_hashable(key);
  annotation_.reset();
  const std::uint64_t hash = slots_.empty() ? 0 : py_hash(key);
  const std::ptrdiff_t pos = key.is_str() ? position_of_str(key.as_str()) : position_of(key, hash);
  if (pos < 0) return false;
  if (items_[static_cast<std::size_t>(pos)].first.is_tuple()) --tuple_keys_;
  items_.erase(items_.begin() + pos);
  if (!slots_.empty()) {
    hashes_.erase(hashes_.begin() + pos);
    rebuild_index();
  }
  return true;
}

void Map::append(Value key, Value value, std::uint64_t hash) {
  if (key.is_tuple()) ++tuple_keys_;
  items_.emplace_back(std::move(key), std::move(value));
  if (!slots_.empty()) {
    hashes_.push_back(hash);
    if (items_.size() * 2 > slots_.size()) {
      rebuild_index();
    } else if (!never_equal(items_.back().first)) {
      index_insert(hash, static_cast<std::uint32_t>(items_.size() - 1));
    }
  } else if (items_.size() > kLinearLimit) {
    hashes_.clear();
    hashes_.reserve(items_.size());
    for (const Item& item : items_) hashes_.push_back(py_hash(item.first));
    rebuild_index();
  }
}

void Map::rebuild_index() {
  std::size_t capacity = 16;
  while (capacity < items_.size() * 4) capacity *= 2;
  slots_.assign(capacity, 0);
  for (std::size_t i = 0; i < items_.size(); ++i) {
    if (!never_equal(items_[i].first)) index_insert(hashes_[i], static_cast<std::uint32_t>(i));
  }
}

void Map::index_insert(std::uint64_t hash, std::uint32_t position) {
  const std::size_t mask = slots_.size() - 1;
  std::size_t s = hash & mask;
  while (slots_[s] != 0) s = (s + 1) & mask;
  slots_[s] = position + 1;
}

}  // namespace kolva
