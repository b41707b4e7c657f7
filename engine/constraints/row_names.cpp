#include "constraints/row_names.hpp"

#include <unordered_map>

#include "model/repr.hpp"

namespace kolva {

std::string row_name_index(const Value& v) {
  if (v.is_str()) return v.as_str();
  if (v.is_tuple()) {
    std::string out = "<";
    for (std::size_t i = 0; i < v.items().size(); ++i) {
      if (i > 0) out += ",";
      out += row_name_index(v.items()[i]);
    }
    return out + ">";
  }
  return py_str(v);
}

std::string row_name(const std::string& base, const ValueVec& forall_values) {
  std::string out = base;
  for (const Value& v : forall_values) {
    out += "[";
    out += row_name_index(v);
    out += "]";
  }
  return out;
}

void make_row_names_unique(std::vector<std::string>& ub, std::vector<std::string>& eq) {
  std::unordered_map<std::string, std::size_t> seen;
  seen.reserve(ub.size() + eq.size());
  const auto fix = [&](std::vector<std::string>& names) {
    for (std::string& name : names) {
      const auto [it, fresh] = seen.try_emplace(name, 1);
      if (fresh) continue;
      // The suffixed name may itself be taken ("a#2" as a label): count on.
      std::string candidate;
      do {
        candidate = name + "#" + std::to_string(++it->second);
      } while (seen.contains(candidate));
      seen.emplace(candidate, 1);
      name = std::move(candidate);
    }
  };
  fix(ub);
  fix(eq);
}

}  // namespace kolva
