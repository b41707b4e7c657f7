#pragma once

#include <string>
#include <string_view>

namespace kolva {

// Text of repr(float) in CPython: shortest round-trip digits.
std::string py_repr_float(double value);

// Text of repr(str) in CPython for a UTF-8 encoded string (quote choice and escapes).
// Bytes that are not well-formed UTF-8 are treated the way Python's
// bytes.decode("utf-8", "surrogateescape") does: each bad byte B becomes the lone
// surrogate U+DC00+B, which repr() then shows as "\udcXX".
std::string py_repr_str(std::string_view utf8);

// True when CPython's str.isprintable() holds for this single code point.
bool py_is_printable(char32_t code_point);

// str.isalnum() of a UTF-8 encoded string: non-empty, every character a
// letter or a digit in Python's sense.
bool py_str_isalnum(std::string_view utf8);

}  // namespace kolva
