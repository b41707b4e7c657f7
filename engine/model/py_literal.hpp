#pragma once

#include <string>

#include "model/value.hpp"

namespace kolva {

// Python source text that rebuilds `v`: repr, except that infinite and NaN
// floats, which repr prints as bare names, are written as float('inf') etc.
std::string py_literal(const Value& v);

// Whether `name` can stand on the left of `name = ...` in a script.
bool is_python_identifier(const std::string& name);

}  // namespace kolva
