#pragma once

#include "model/map.hpp"
#include "model/value.hpp"

namespace kolva {

// A float of integral value becomes an int; anything else stays.
Value normalized_index(const Value& v);

// The value a name stands for in index position: its Env binding, else its
// data entry, else the name itself; integral floats become ints and numeric
// text becomes an int.
Value index_value_of_name(const Value& name, const Map& env, const Map& data_dict);

}  // namespace kolva
