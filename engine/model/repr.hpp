#pragma once

#include <string>

#include "model/value.hpp"

namespace kolva {

// repr(v) and str(v) exactly as CPython prints them.
std::string py_repr(const Value& v);
std::string py_str(const Value& v);
void append_repr(std::string& out, const Value& v);
void append_str(std::string& out, const Value& v);

}  // namespace kolva
