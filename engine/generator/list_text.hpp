#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/value.hpp"

namespace kolva {

struct BoundPair;

// Printed forms of the per-column lists as the script spells them.
std::string bounds_text(std::span<const BoundPair> bounds);
// The same with each pair in round brackets, as the constraint stage writes it.
std::string tuple_bounds_text(std::span<const BoundPair> bounds);
std::string names_text(std::span<const std::string> names);
std::string values_text(std::span<const Value> values);
std::string flags_text(std::span<const std::uint8_t> flags);
std::string floats_text(std::span<const double> values);

}  // namespace kolva
