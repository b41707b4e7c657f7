#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "model/value.hpp"

namespace kolva {

// Index subscripts that arrive as text ("3", "(1, 2)", "'a'", "i+1") are read
// by this small parser of Python expression syntax, never by an interpreter.

// The value of a text that is a Python literal (numbers, strings, tuples,
// lists, None/True/False, signed numbers); nullopt when it is not one.
std::optional<Value> parse_index_literal(std::string_view text);

// Whether Python reserves the word (a name that is no name to its parser).
bool is_python_keyword(std::string_view word);

// Integer arithmetic over names: + - * // and unary minus, numbers, names
// and tuples. `lookup` gives a name's value. nullopt when the text is not of
// that form or a value is not numeric.
using NameLookup = std::function<Value(std::string_view name)>;
std::optional<Value> eval_index_arithmetic(std::string_view text, const NameLookup& lookup);

}  // namespace kolva
