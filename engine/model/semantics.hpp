#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/value.hpp"

namespace kolva {

// Python's ==, hash, <, truth, int() and float() over Values.
bool py_eq(const Value& a, const Value& b);
// Equal for any two values that py_eq calls equal; TypeError for lists and maps.
std::uint64_t py_hash(const Value& v);
std::uint64_t py_hash_str(std::string_view s);
// a < b; TypeError on unlike or unordered types, with Python's words.
bool py_lt(const Value& a, const Value& b);
bool py_truth(const Value& v);

// float(v) and int(v) with Python's errors.
double py_float(const Value& v);
std::int64_t py_int(const Value& v);

// int(text) for a string: the value when the text is an integer literal, none
// when it is not (without raising); OverflowError past 64 bits.
std::optional<std::int64_t> int_from_text(std::string_view text);
// The integer that a float stands for when it is integral and fits in 64 bits.
std::optional<std::int64_t> integral_value(double d);
// Integral floats and booleans become ints; anything else stays.
Value normalize_integral(const Value& v);

// Checked 64-bit integer arithmetic; overflow is an OverflowError.
std::int64_t checked_add(std::int64_t a, std::int64_t b);
std::int64_t checked_sub(std::int64_t a, std::int64_t b);
std::int64_t checked_mul(std::int64_t a, std::int64_t b);
std::int64_t checked_neg(std::int64_t a);
// Python's // on ints (rounds toward minus infinity).
std::int64_t floor_div(std::int64_t a, std::int64_t b);

// Number arithmetic with Python's int/float promotion (bool counts as int).
Value py_add(const Value& a, const Value& b);
Value py_sub(const Value& a, const Value& b);
Value py_mul(const Value& a, const Value& b);
Value py_neg(const Value& a);

}  // namespace kolva

namespace kolva {

// container[key] with Python's rules and errors (negative list positions
// count from the end; a string gives the code point at that position).
Value py_getitem(const Value& container, const Value& key);
// item in container
bool py_contains(const Value& container, const Value& item);
// The characters of a UTF-8 string, each as its own string (Python's
// iteration over a str).
std::vector<std::string> utf8_characters(const std::string& s);
// The printed form of a Python list of these values, e.g. "[1, 'a']".
std::string repr_list(const ValueVec& items);

}  // namespace kolva
