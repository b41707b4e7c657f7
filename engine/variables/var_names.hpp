#pragma once

#include <functional>
#include <string>

#include "model/map.hpp"
#include "model/value.hpp"

namespace kolva {

// A list or tuple becomes a tuple, members normalized in turn.
Value normalize_index(const Value& idx);

// The member rule of column names: integral floats as integers, blanks as
// underscores, quotes dropped.
std::string varname_member_text(const Value& v);
// Python's str() of an integral float as an int, e.g. 1e20 -> "100000000000000000000".
std::string integral_float_text(double d);

using IndexEvaluator = std::function<Value(const Value& dim, const Map& env)>;

}  // namespace kolva
