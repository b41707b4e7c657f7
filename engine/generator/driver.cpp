// The script driver: header, build phases in their fixed order, and either
// the solve section or the short-circuit for a model without variables.
#include <cmath>
#include <string>

#include "generator/generator.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

constexpr double kShortCircuitTolerance = 1e-09;

bool constant_rows_feasible(const std::vector<double>& b_eq, const std::vector<double>& b_ub) {
  for (const double v : b_eq) {
    if (!(std::fabs(v) <= kShortCircuitTolerance)) return false;
  }
  for (const double v : b_ub) {
    if (!(v >= -kShortCircuitTolerance)) return false;
  }
  return true;
}

Value objective_node(const Map& ast) {
  Value objective = ast.get("objective", empty_map());
  if (!objective.is_map()) {
    raise(ErrorKind::kType, std::string("'objective' must be a dict, not '") + type_name(objective) + "'");
  }
  return objective;
}

}  // namespace

std::string Generator::generate_code() {
  emit_script_header();
  run_build_phases();
  if (var_names.empty()) {
    emit_short_circuit();
  } else {
    emit_solve_section();
  }
  return scipy_code_lines.join();
}

void Generator::emit_script_header() {
  _add_code_line("import numpy as np");
  _add_code_line("import time");
  _add_code_line("from scipy.optimize import linprog");
  _add_code_line("from scipy.sparse import csr_matrix");
  _add_code_line("try:");
  ++indent_level;
  _add_code_line("results_container");
  --indent_level;
  _add_code_line("except NameError:");
  ++indent_level;
  _add_code_line("results_container = {}");
  --indent_level;
  const Value sense = objective_node(*ast).as_map()->get("type", Value::str("minimize"));
  // As a Python literal: an objective type is text from the model. Any
  // type other than "maximize" minimizes, in the script as in the problem.
  _add_code_line("sense = " + py_repr(Value::str(py_str(sense))));
  _add_code_line("");
}

double Generator::constant_objective_value() {
  // Any failure here, a missing objective included, means a constant of 0.
  try {
    const Value& expression = ast->at("objective").as_map()->at("expression");
    const Env empty;
    const Value val = _eval_expr(expression, &empty).val;
    return val.is_number() ? py_float(val) : 0.0;
  } catch (const Error&) {
    return 0.0;
  } catch (const std::exception&) {
    return 0.0;
  }
}

void Generator::emit_short_circuit() {
  const bool feasible = constant_rows_feasible(b_eq, b_ub);
  const double objective = constant_objective_value();
  _add_code_line("");
  _add_code_line("# No decision variables: short-circuit without linprog");
  _add_code_line("results = {}");
  if (feasible) {
    _add_code_line("results['status'] = 'OPTIMAL'");
    _add_code_line("results['objective_value'] = " + py_repr_float(objective));
  } else {
    _add_code_line("results['status'] = 'INFEASIBLE'");
    _add_code_line("results['objective_value'] = None");
  }
  _add_code_line("results['solution'] = {}");
  _add_code_line("results_container['scipy_output'] = results");
}

void Generator::emit_solve_section() {
  const std::string& r = results_varname;
  bool any_integer = false;
  if (integrality) {
    for (const std::uint8_t v : *integrality) any_integer = any_integer || v != 0;
  }
  struct Line {
    int level;
    std::string text;
  };
  const std::string solver_call =
      any_integer
          ? "res = linprog(c, A_ub=A_ub, b_ub=b_ub if b_ub else None, A_eq=A_eq, b_eq=b_eq if b_eq else "
            "None, bounds=bounds, method='highs', integrality=integrality, options={'disp': True})"
          : "res = linprog(c, A_ub=A_ub, b_ub=b_ub if b_ub else None, A_eq=A_eq, b_eq=b_eq if b_eq else "
            "None, bounds=bounds, method='highs', options={'disp': True})";
  const std::vector<Line> lines = {
      {0, ""},
      {0, r + " = {}"},
      {0, "try:"},
      {1, "start_time = time.time()"},
      {1,
       "print(f'Kolva/SciPy-HiGHS: variables={len(var_names)}, equalities={len(b_eq)}, "
       "inequalities={len(b_ub)}, integrality={sum(1 for v in integrality if v)}')"},
      {1, solver_call},
      {1, "end_time = time.time()"},
      {1,
       "print(f'Kolva/SciPy-HiGHS: status={res.status}, success={res.success}, "
       "iterations={getattr(res, \"nit\", None)}, time={end_time - start_time:.3f}s')"},
      {1, "status_map = {0: 'OPTIMAL', 1: 'ITERATION_LIMIT', 2: 'INFEASIBLE', 3: 'UNBOUNDED'}"},
      {1, "status_str = status_map.get(res.status, 'ERROR')"},
      {1, "if res.success and res.status == 0:"},
      {2, "print('Optimal solution found:')"},
      {2, "solution = {}"},
      {2, "for i, name in enumerate(var_names):"},
      {3, "solution[name] = res.x[i]"},
      {3, "if abs(res.x[i]) > 1e-8:"},
      {4, "print(f'{name}: {res.x[i]}')"},
      {2, "# Patch: Fix objective sign for maximization"},
      {2, "objective_value = res.fun"},
      {2, "if sense == 'maximize':"},
      {3, "objective_value = -objective_value"},
      {2, "objective_value += objective_offset"},
      {2, "print(f'Objective value: {objective_value}')"},
      {2, r + "['solution'] = solution"},
      {2, r + "['objective_value'] = objective_value"},
      {2, r + "['status'] = status_str"},
      {2, "stats = {}"},
      {2, "stats['status'] = res.status"},
      {2, "stats['message'] = res.message"},
      {2, "stats['nit'] = res.nit"},
      {2, "stats['crossover_nit'] = getattr(res, 'crossover_nit', None)"},
      {2, "stats['time'] = end_time - start_time"},
      {2, r + "['stats'] = stats"},
      {1, "else:"},
      {2, "print('Optimization failed: ' + res.message)"},
      {2, r + "['status'] = status_str"},
      {2, r + "['message'] = res.message"},
      {2, r + "['objective_value'] = None"},
      {0, "except Exception as e:"},
      {1, r + "['status'] = 'ERROR'"},
      {1, r + "['message'] = str(e)"},
      {1, r + "['objective_value'] = None"},
      {0, "results_container['scipy_output'] = " + r},
  };
  const std::int64_t base = indent_level;
  for (const Line& line : lines) {
    indent_level = base + line.level;
    _add_code_line(line.text);
  }
  indent_level = base;
}

LinearProblem Generator::build_problem() {
  run_build_phases();
  return _snapshot_linear_problem();
}

void Generator::run_build_phases() {
  _generate_data_declarations(data_dict);
  _add_code_line("");
  _add_code_line("# Build LP vectors/matrices");
  _build_variables();
  _build_objective();
  _build_constraints();
  _apply_top_level_binary_assignments();
  _reconcile_problem_metadata();
  _refresh_problem_metadata_code_lines();
}

}  // namespace kolva
