#pragma once

#include <cstddef>
#include <vector>

#include "model/value.hpp"

namespace kolva {

// Calls `visit(positions)` for each combination of members of `ranges`, in
// nested-loop order with the last range varying fastest. Nothing is visited
// when any range is empty; one empty combination is visited for no ranges.
template <typename Visit>
void for_each_product(const std::vector<ValueVec>& ranges, Visit&& visit) {
  for (const ValueVec& r : ranges) {
    if (r.empty()) return;
  }
  std::vector<std::size_t> pos(ranges.size(), 0);
  while (true) {
    visit(pos);
    std::size_t k = ranges.size();
    while (k > 0) {
      --k;
      if (++pos[k] < ranges[k].size()) break;
      pos[k] = 0;
      if (k == 0) return;
    }
    if (ranges.empty()) return;
  }
}

}  // namespace kolva
