#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "variables/name_table.hpp"

namespace kolva {

// Finds the first variable name, in first-insertion order, that starts with
// a prefix and equals a probe once all round brackets are removed from both,
// without scanning every name. A name without brackets can only match a
// probe whose bracket-free text is that name itself, which the name table
// answers; names with brackets are grouped by their bracket-free text.
class VarNameIndex {
 public:
  static std::string without_brackets(std::string_view text);
  static bool has_brackets(std::string_view text);

  // Records the name at `position` in the table's insertion order.
  void add(const std::string& name, std::size_t position);
  std::optional<std::string> first_match(std::string_view prefix, std::string_view probe,
                                         const NameTable& names) const;

 private:
  struct Entry {
    std::size_t position;
    std::string name;
  };
  std::unordered_map<std::string, std::vector<Entry>> groups_;
};

}  // namespace kolva
