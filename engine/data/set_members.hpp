#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>

#include "model/map.hpp"
#include "model/value.hpp"

namespace kolva {

// A set's members in order with a member-to-position map, built once and
// reused until the data it came from is replaced.
struct IndexedMembers {
  Value source;  // the data entry the members were read from (its identity)
  ValueVec members;
  std::unordered_map<std::string, std::size_t> string_positions;
  MapPtr positions;  // member -> first position, for hashable members
  bool hashable = true;
  bool all_tuples = true;

  // First position of `member`, as list.index would find it.
  std::optional<std::size_t> position_of(const Value& member) const;
};

// Builds the position maps of a member list.
IndexedMembers index_members(Value source, ValueVec members);

// Python's iteration over a value: list and tuple items, map keys, the
// characters of a string; TypeError for anything else.
ValueVec py_iterate(const Value& v);

}  // namespace kolva
