#pragma once

#include <cstdint>
#include <string>

#include "model/value.hpp"

namespace kolva {

// What a name with subscripts stands for: (is_var, val, is_symbolic).
struct LookupResult {
  bool is_var = false;
  Value val;  // the value found; unset for a variable, whose name is var_name
  bool is_symbolic = false;
  // A variable's full name and column; the column spares callers a second lookup.
  std::string var_name;
  std::int64_t column = -1;

  static LookupResult variable(std::string name, std::int64_t column) {
    return {true, Value(), false, std::move(name), column};
  }
  static LookupResult value(Value v, bool symbolic = false) {
    return {false, std::move(v), symbolic, {}, -1};
  }
  // What the Python surface shows as the second member of the triple.
  Value shown_value() const { return is_var ? Value::str(var_name) : val; }
};

}  // namespace kolva
