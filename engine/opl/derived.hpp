#pragma once

#include <string>
#include <unordered_map>

#include "model/value.hpp"
#include "opl/data_eval.hpp"
#include "opl/lowering.hpp"

namespace kolva::opl {

// Computes one hidden data item of the lowering over the data now known.
// `hidden` holds the items computed before it, by name.
Value compute_lifted(const Lifted& item, DataEval& eval,
                     const std::unordered_map<std::string, Value>& hidden);

}  // namespace kolva::opl
