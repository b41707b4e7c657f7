#pragma once

#include <string>

#include "model/map.hpp"
#include "model/value.hpp"

namespace kolva {

// The members of a set of tuples, as a list of tuples. The data entry of that
// name comes first (a list of members, or a map holding them under
// `elements`); otherwise the declaration's inline `value`, whose
// `tuple_literal` members are read as tuples of literals. List members become
// tuples. A set with neither gives an empty list.
ValueVec get_tuple_set(const std::string& set_name, const Map& ast, const Map& data_dict);

}  // namespace kolva
