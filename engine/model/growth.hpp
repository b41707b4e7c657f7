#pragma once

#include <algorithm>
#include <cstddef>

namespace kolva {

// Makes room for `extra` more elements in `v`. Capacity grows at least
// geometrically, so that many small additions (one array declaration after
// another) cost linear time in all, where reserving the exact new size each
// time would copy everything each time.
template <typename Vector>
void reserve_more(Vector& v, std::size_t extra) {
  const std::size_t wanted = v.size() + extra;
  if (wanted > v.capacity()) v.reserve(std::max(wanted, 2 * v.capacity()));
}

}  // namespace kolva
