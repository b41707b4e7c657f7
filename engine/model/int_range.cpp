#include "model/int_range.hpp"

#include <string>

#include "model/error.hpp"
#include "model/interrupt.hpp"

namespace kolva {

std::uint64_t checked_range_size(std::int64_t first, std::int64_t last) {
  if (last < first) return 0;
  // In unsigned arithmetic the difference is exact for any two int64 values.
  const std::uint64_t span = static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first);
  if (span >= kMaxRangeMembers) {
    const std::string size = span == UINT64_MAX ? "18446744073709551616" : std::to_string(span + 1);
    raise_semantic("The range " + std::to_string(first) + ".." + std::to_string(last) + " has " + size +
                   " members, more than the " + std::to_string(kMaxRangeMembers) + " a range may have.");
  }
  return span + 1;
}

ValueVec range_members(std::int64_t first, std::int64_t last) {
  ValueVec out;
  out.reserve(static_cast<std::size_t>(checked_range_size(first, last)));
  for_each_in_range(first, last, [&](std::int64_t i) {
    poll_interrupt();
    out.push_back(Value::integer(i));
  });
  return out;
}

}  // namespace kolva
