#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "model/error.hpp"
#include "model/interrupt.hpp"
#include "model/value.hpp"

namespace kolva {

// The most combinations one list of iterators may give. Beyond it a sum,
// forall or array is refused before any work starts: a billion combinations
// already take minutes and usually mean an iterator too many.
inline constexpr std::uint64_t kMaxCombinations = 1'000'000'000;

// Multiplies `count` into `combinations`, raising a SemanticError once the
// product passes kMaxCombinations.
inline void add_combination_factor(std::uint64_t& combinations, std::uint64_t count) {
  if (count != 0 && combinations > kMaxCombinations / count) {
    raise_semantic("These iterators have more than " + std::to_string(kMaxCombinations) + " combinations.");
  }
  combinations *= count;
}

// Calls `visit(positions)` for each combination of members of `ranges`, in
// nested-loop order with the last range varying fastest. Nothing is visited
// when any range is empty; one empty combination is visited for no ranges.
template <typename Visit>
void for_each_product(const std::vector<ValueVec>& ranges, Visit&& visit) {
  std::uint64_t combinations = 1;
  for (const ValueVec& r : ranges) {
    if (r.empty()) return;
    add_combination_factor(combinations, r.size());
  }
  std::vector<std::size_t> pos(ranges.size(), 0);
  while (true) {
    poll_interrupt();
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
