#include "data/var_name_index.hpp"

namespace kolva {

std::string VarNameIndex::without_brackets(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    if (ch != '(' && ch != ')') out.push_back(ch);
  }
  return out;
}

void VarNameIndex::add(const std::string& name) { groups_[without_brackets(name)].push_back(name); }

const std::string* VarNameIndex::first_match(std::string_view prefix, std::string_view probe) const {
  const auto it = groups_.find(without_brackets(probe));
  if (it == groups_.end()) return nullptr;
  for (const std::string& name : it->second) {
    if (name.starts_with(prefix)) return &name;
  }
  return nullptr;
}

}  // namespace kolva
