#pragma once

#include <string_view>

namespace kolva {

// Whether the emitted script reads `name` after its data lines could have
// assigned it: the script's imports, its `sense` and `results_container`,
// and the builtins it calls. A data item of such a name would replace what
// the script means by it.
bool script_reads_name(std::string_view name);

}  // namespace kolva
