#include "data/var_name_index.hpp"

namespace kolva {

std::string VarNameIndex::without_brackets(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char ch : text) {
    if (ch != '(' && ch != ')') out.push_back(ch);
  }
  return out;
}

bool VarNameIndex::has_brackets(std::string_view text) {
  for (const char c : text) {
    if (c == '(' || c == ')') return true;
  }
  return false;
}

void VarNameIndex::add(const std::string& name, std::size_t position) {
  if (has_brackets(name)) groups_[without_brackets(name)].push_back({position, name});
}

std::optional<std::string> VarNameIndex::first_match(std::string_view prefix, std::string_view probe,
                                                     const NameTable& names) const {
  std::string key = without_brackets(probe);
  const std::string* best = nullptr;
  std::size_t best_position = 0;
  if (const auto it = groups_.find(key); it != groups_.end()) {
    for (const Entry& entry : it->second) {
      if (entry.name.starts_with(prefix)) {
        best = &entry.name;
        best_position = entry.position;
        break;
      }
    }
  }
  // A name without brackets matches only if it is the bracket-free text itself.
  if (key.starts_with(prefix)) {
    if (const auto position = names.position(key);
        position && (best == nullptr || *position < best_position)) {
      return key;
    }
  }
  if (best != nullptr) return *best;
  return std::nullopt;
}

}  // namespace kolva
