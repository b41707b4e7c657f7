#pragma once

#include <string>
#include <vector>

#include "constraints/sparse_rows.hpp"
#include "model/value.hpp"

namespace kolva {

// The numeric program handed out by build_problem(); it shares nothing with
// the generator.
struct LinearProblem {
  std::string sense;
  std::vector<std::string> var_names;
  std::vector<std::pair<Value, Value>> bounds;
  std::vector<std::uint8_t> integrality;
  std::vector<double> c;
  SparseRows A_eq;
  std::vector<double> b_eq;
  SparseRows A_ub;
  std::vector<double> b_ub;
  std::vector<std::string> row_names_eq;
  std::vector<std::string> row_names_ub;
  double objective_offset = 0.0;
};

}  // namespace kolva
