#pragma once

#include <cstdint>

#include "model/value.hpp"

namespace kolva {

// What a name with subscripts stands for: (is_var, val, is_symbolic).
struct LookupResult {
  bool is_var = false;
  Value val;
  bool is_symbolic = false;
  // The variable's column when is_var; lets callers skip a second lookup.
  std::int64_t column = -1;
};

}  // namespace kolva
