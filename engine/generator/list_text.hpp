#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/value.hpp"

namespace kolva {

struct BoundPair;

// Printed forms of the per-column lists as the script spells them.
std::string bounds_text(const std::vector<BoundPair>& bounds);
// The same with each pair in round brackets, as the constraint stage writes it.
std::string tuple_bounds_text(const std::vector<BoundPair>& bounds);
std::string names_text(const std::vector<std::string>& names);
std::string values_text(const std::vector<Value>& values);
std::string flags_text(const std::vector<std::uint8_t>& flags);
std::string floats_text(const std::vector<double>& values);

}  // namespace kolva
