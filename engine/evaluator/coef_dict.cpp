#include "evaluator/coef_dict.hpp"

namespace kolva {

CoefDict::CoefDict(const CoefDict& other) : items_(other.items_) {
  if (other.index_ != nullptr)
    index_ = std::make_unique<std::unordered_map<std::string, std::size_t>>(*other.index_);
}

CoefDict& CoefDict::operator=(const CoefDict& other) {
  if (this != &other) {
    CoefDict copy(other);
    *this = std::move(copy);
  }
  return *this;
}

std::ptrdiff_t CoefDict::position_of(const std::string& name) const {
  if (index_ == nullptr) {
    for (std::size_t i = 0; i < items_.size(); ++i) {
      if (items_[i].first == name) return static_cast<std::ptrdiff_t>(i);
    }
    return -1;
  }
  const auto it = index_->find(name);
  return it == index_->end() ? -1 : static_cast<std::ptrdiff_t>(it->second);
}

const double* CoefDict::find(const std::string& name) const {
  const std::ptrdiff_t pos = position_of(name);
  return pos < 0 ? nullptr : &items_[static_cast<std::size_t>(pos)].second;
}

void CoefDict::set(const std::string& name, double value) { set_column(name, value, -1); }

void CoefDict::set_column(const std::string& name, double value, std::int64_t column) {
  const std::ptrdiff_t pos = position_of(name);
  if (pos >= 0) {
    items_[static_cast<std::size_t>(pos)].second = value;
    if (column >= 0) items_[static_cast<std::size_t>(pos)].column = column;
    return;
  }
  items_.push_back(Item{name, value, column});
  if (index_ != nullptr) {
    index_->emplace(name, items_.size() - 1);
  } else if (items_.size() > kLinearLimit) {
    index_ = std::make_unique<std::unordered_map<std::string, std::size_t>>();
    for (std::size_t i = 0; i < items_.size(); ++i) index_->emplace(items_[i].first, i);
  }
}

void CoefDict::add(const std::string& name, double delta) {
  const std::ptrdiff_t pos = position_of(name);
  if (pos >= 0) {
    items_[static_cast<std::size_t>(pos)].second += delta;
    return;
  }
  set(name, 0.0 + delta);
}

void CoefDict::add_from(const CoefDict& other, std::size_t i, double factor) {
  const Item& item = other.items_[i];
  const std::ptrdiff_t pos = position_of(item.first);
  if (pos >= 0) {
    items_[static_cast<std::size_t>(pos)].second += factor * item.second;
    return;
  }
  set_column(item.first, 0.0 + factor * item.second, item.column);
}

CoefDict CoefDict::scaled(double factor) const {
  CoefDict out = *this;
  for (Item& item : out.items_) item.second *= factor;
  return out;
}

}  // namespace kolva
