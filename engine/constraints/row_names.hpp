#pragma once

#include <string>
#include <vector>

#include "model/value.hpp"

namespace kolva {

// The name of a row, OPL's way: the label of the constraint it comes from
// (or "c" and the constraint's position among the model's constraints, from
// 1, when it has none), then each value of the enclosing foralls' iterators
// in brackets: "ctCapacity[Plant1]", "ctBalance[3][2]", "c4[<1,a>]".
std::string row_name(const std::string& base, const ValueVec& forall_values);

// The text of one iterator value in a row name: strings as they are,
// numbers as Python prints them, tuples as <a,b>.
std::string row_name_index(const Value& v);

// Makes every name unique across both lists (upper-bound rows first): a
// later repeat of a name gets "#2", "#3", ... (a constraint that gives
// several rows, as logical encodings do, or a label used twice).
void make_row_names_unique(std::vector<std::string>& ub, std::vector<std::string>& eq);

}  // namespace kolva
