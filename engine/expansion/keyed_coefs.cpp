#include "expansion/keyed_coefs.hpp"

namespace kolva {

void KeyedCoefs::add(const CoefKey& key, double delta) {
  if (key.is_column) {
    add_column(key.column, delta);
  } else {
    add_name(key.name, delta);
  }
}

void KeyedCoefs::add_column(std::int64_t column, double delta) {
  const auto [it, inserted] = columns_.try_emplace(column, items_.size());
  if (inserted) {
    items_.emplace_back(CoefKey::of_column(column), 0.0 + delta);
  } else {
    items_[it->second].second += delta;
  }
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
