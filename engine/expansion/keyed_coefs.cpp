#include "expansion/keyed_coefs.hpp"

namespace kolva {

void KeyedCoefs::add(const CoefKey& key, double delta) {
  if (key.is_column) {
    add_column(key.column, delta);
  } else {
    add_name(key.name, delta);
  }
}

namespace {

std::size_t column_hash(std::int64_t column) {
  auto x = static_cast<std::uint64_t>(column);
  x ^= x >> 33U;
  x *= 0xff51afd7ed558ccdULL;
  return static_cast<std::size_t>(x ^ (x >> 33U));
}

}  // namespace

// The slot holding `column`, or the empty slot where it would go.
std::ptrdiff_t KeyedCoefs::column_slot(std::int64_t column) const {
  const std::size_t mask = column_slots_.size() - 1;
  for (std::size_t s = column_hash(column) & mask;; s = (s + 1) & mask) {
    const std::uint32_t slot = column_slots_[s];
    if (slot == 0 || items_[slot - 1].first.column == column) return static_cast<std::ptrdiff_t>(s);
  }
}

void KeyedCoefs::grow_columns() {
  std::vector<std::uint32_t> old = std::move(column_slots_);
  column_slots_.assign(old.empty() ? 16 : old.size() * 2, 0);
  for (const std::uint32_t slot : old) {
    if (slot != 0) column_slots_[static_cast<std::size_t>(column_slot(items_[slot - 1].first.column))] = slot;
  }
}

void KeyedCoefs::add_column(std::int64_t column, double delta) {
  if ((column_count_ + 1) * 2 > column_slots_.size()) grow_columns();
  const auto s = static_cast<std::size_t>(column_slot(column));
  if (column_slots_[s] != 0) {
    items_[column_slots_[s] - 1].second += delta;
    return;
  }
  items_.emplace_back(CoefKey::of_column(column), 0.0 + delta);
  column_slots_[s] = static_cast<std::uint32_t>(items_.size());
  ++column_count_;
}

void KeyedCoefs::add_name(const std::string& name, double delta) {
  const auto [it, inserted] = names_.try_emplace(name, items_.size());
  if (inserted) {
    items_.emplace_back(CoefKey::of_name(name), 0.0 + delta);
  } else {
    items_[it->second].second += delta;
  }
}

}  // namespace kolva
