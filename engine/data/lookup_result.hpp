#pragma once

#include "model/value.hpp"

namespace kolva {

// What a name with subscripts stands for: (is_var, val, is_symbolic).
struct LookupResult {
  bool is_var = false;
  Value val;
  bool is_symbolic = false;
};

}  // namespace kolva
