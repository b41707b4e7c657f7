#include "variables/name_table.hpp"

namespace kolva {
namespace {

constexpr std::uint64_t kEmpty = 0;
constexpr std::uint64_t kLowMask = 0xFFFFFFFFULL;

}  // namespace

std::uint64_t NameTable::hash(std::string_view name) {
  // FNV-1a, then a final mix so that similar names spread over the slots.
  std::uint64_t h = 1469598103934665603ULL;
  for (const unsigned char ch : name) {
    h ^= ch;
    h *= 1099511628211ULL;
  }
  h ^= h >> 29U;
  h *= 0xbf58476d1ce4e5b9ULL;
  return h ^ (h >> 32U);
}

// The slot holding `name`, or the empty slot where it would go.
std::size_t NameTable::probe(std::string_view name, std::uint64_t h) const {
  const std::size_t mask = slots_.size() - 1;
  const std::uint64_t tag = h >> 32U;
  for (std::size_t s = h & mask;; s = (s + 1) & mask) {
    const std::uint64_t slot = slots_[s];
    if (slot == kEmpty) return s;
    if ((slot >> 32U) == tag && keys_[(slot & kLowMask) - 1] == name) return s;
  }
}

const std::int64_t* NameTable::find(std::string_view name) const {
  if (slots_.empty()) return nullptr;
  const std::uint64_t slot = slots_[probe(name, hash(name))];
  return slot == kEmpty ? nullptr : &values_[(slot & kLowMask) - 1];
}

std::optional<std::size_t> NameTable::position(std::string_view name) const {
  if (slots_.empty()) return std::nullopt;
  const std::uint64_t slot = slots_[probe(name, hash(name))];
  if (slot == kEmpty) return std::nullopt;
  return static_cast<std::size_t>((slot & kLowMask) - 1);
}

bool NameTable::insert_or_assign(std::string_view name, std::int64_t column) {
  if ((keys_.size() + 1) * 2 > slots_.size()) grow();
  const std::uint64_t h = hash(name);
  const std::size_t s = probe(name, h);
  if (slots_[s] != kEmpty) {
    values_[(slots_[s] & kLowMask) - 1] = column;
    return false;
  }
  keys_.emplace_back(name);
  values_.push_back(column);
  slots_[s] = ((h >> 32U) << 32U) | static_cast<std::uint64_t>(keys_.size());
  return true;
}

void NameTable::grow() {
  std::size_t capacity = slots_.empty() ? 16 : slots_.size() * 2;
  while (capacity < (keys_.size() + 1) * 2) capacity *= 2;
  slots_.assign(capacity, kEmpty);
  const std::size_t mask = capacity - 1;
  for (std::size_t i = 0; i < keys_.size(); ++i) {
    const std::uint64_t h = hash(keys_[i]);
    std::size_t s = h & mask;
    while (slots_[s] != kEmpty) s = (s + 1) & mask;
    slots_[s] = ((h >> 32U) << 32U) | static_cast<std::uint64_t>(i + 1);
  }
}

}  // namespace kolva
