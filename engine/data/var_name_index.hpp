#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kolva {

// Finds variable names that equal a probe once all round brackets are
// removed from both, without scanning every name: names are grouped by their
// bracket-free text, each group in the order the names were first added.
class VarNameIndex {
 public:
  static std::string without_brackets(std::string_view text);

  void add(const std::string& name);
  // The first name added that starts with `prefix` and whose bracket-free
  // text equals that of `probe`; null when there is none.
  const std::string* first_match(std::string_view prefix, std::string_view probe) const;

 private:
  std::unordered_map<std::string, std::vector<std::string>> groups_;
};

}  // namespace kolva
