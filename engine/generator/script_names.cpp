#include "generator/script_names.hpp"

#include <algorithm>
#include <array>

namespace kolva {

bool script_reads_name(std::string_view name) {
  // Sorted, for the binary search.
  static constexpr std::array<std::string_view, 19> kRead = {
      "Exception", "NameError", "abs",     "csr_matrix", "enumerate", "float", "getattr",
      "globals",   "len",       "linprog", "np",         "print",     "range", "results_container",
      "sense",     "str",       "sum",     "time",       "tuple"};
  return std::binary_search(kRead.begin(), kRead.end(), name);
}

}  // namespace kolva
