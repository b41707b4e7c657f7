#pragma once

#include <cstdint>

#include "model/value.hpp"

namespace kolva {

// The most members an integer range may have when it is enumerated (an
// index, a forall, a sum): a hundred million members already take gigabytes
// once each is a column or a row. A larger range is a model error, found
// before anything is allocated for it.
inline constexpr std::uint64_t kMaxRangeMembers = 100'000'000;

// Members of first..last, both ends included (0 when last < first). Raises a
// SemanticError when there are more than kMaxRangeMembers.
std::uint64_t checked_range_size(std::int64_t first, std::int64_t last);

// The members of first..last as integers, in order (checked as above).
ValueVec range_members(std::int64_t first, std::int64_t last);

// Calls visit(i) for each i of first..last in order. The counter stops at
// `last` before it is incremented, so a range ending at the largest 64-bit
// integer ends too. The caller bounds the size (checked_range_size).
template <typename Visit>
void for_each_in_range(std::int64_t first, std::int64_t last, Visit&& visit) {
  if (last < first) return;
  for (std::int64_t i = first;; ++i) {
    visit(i);
    if (i == last) return;
  }
}

}  // namespace kolva
