"""The emitted script: header, solve section, short-circuit, and running it."""

import pytest
from scipy.optimize import linprog

from conftest import binop, dvar, maximize, minimize, model, name, num, param_inline, string, uminus
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

HEADER = [
    "import numpy as np",
    "import time",
    "from scipy.optimize import linprog",
    "from scipy.sparse import csr_matrix",
    "try:",
    "    results_container",
    "except NameError:",
    "    results_container = {}",
]

CALL_INT = (
    "res = linprog(c, A_ub=A_ub, b_ub=b_ub if b_ub else None, A_eq=A_eq, "
    "b_eq=b_eq if b_eq else None, bounds=bounds, method='highs', "
    "integrality=integrality, options={'disp': True})"
)
CALL_PLAIN = (
    "res = linprog(c, A_ub=A_ub, b_ub=b_ub if b_ub else None, A_eq=A_eq, "
    "b_eq=b_eq if b_eq else None, bounds=bounds, method='highs', "
    "options={'disp': True})"
)


def solve_section(call, r="results"):
    i1, i2, i3, i4 = " " * 4, " " * 8, " " * 12, " " * 16
    return [
        "",
        r + " = {}",
        "try:",
        i1 + "start_time = time.time()",
        i1
        + "print(f'Kolva/SciPy-HiGHS: variables={len(var_names)}, equalities={len(b_eq)}, "
        "inequalities={len(b_ub)}, integrality={sum(1 for v in integrality if v)}')",
        i1 + call,
        i1 + "end_time = time.time()",
        i1
        + "print(f'Kolva/SciPy-HiGHS: status={res.status}, success={res.success}, "
        'iterations={getattr(res, "nit", None)}, time={end_time - start_time:.3f}s\')',
        i1 + "status_map = {0: 'OPTIMAL', 1: 'ITERATION_LIMIT', 2: 'INFEASIBLE', 3: 'UNBOUNDED'}",
        i1 + "status_str = status_map.get(res.status, 'ERROR')",
        i1 + "if res.success and res.status == 0:",
        i2 + "print('Optimal solution found:')",
        i2 + "solution = {}",
        i2 + "for i, name in enumerate(var_names):",
        i3 + "solution[name] = res.x[i]",
        i3 + "if abs(res.x[i]) > 1e-8:",
        i4 + "print(f'{name}: {res.x[i]}')",
        i2 + "# Patch: Fix objective sign for maximization",
        i2 + "objective_value = res.fun",
        i2 + "if sense == 'maximize':",
        i3 + "objective_value = -objective_value",
        i2 + "objective_value += objective_offset",
        i2 + "print(f'Objective value: {objective_value}')",
        i2 + r + "['solution'] = solution",
        i2 + r + "['objective_value'] = objective_value",
        i2 + r + "['status'] = status_str",
        i2 + "stats = {}",
        i2 + "stats['status'] = res.status",
        i2 + "stats['message'] = res.message",
        i2 + "stats['nit'] = res.nit",
        i2 + "stats['crossover_nit'] = getattr(res, 'crossover_nit', None)",
        i2 + "stats['time'] = end_time - start_time",
        i2 + r + "['stats'] = stats",
        i1 + "else:",
        i2 + "print('Optimization failed: ' + res.message)",
        i2 + r + "['status'] = status_str",
        i2 + r + "['message'] = res.message",
        i2 + r + "['objective_value'] = None",
        "except Exception as e:",
        i1 + r + "['status'] = 'ERROR'",
        i1 + r + "['message'] = str(e)",
        i1 + r + "['objective_value'] = None",
        "results_container['scipy_output'] = " + r,
    ]


def short_circuit(objective_text):
    return [
        "",
        "# No decision variables: short-circuit without linprog",
        "results = {}",
        "results['status'] = 'OPTIMAL'",
        "results['objective_value'] = " + objective_text,
        "results['solution'] = {}",
        "results_container['scipy_output'] = results",
    ]


def run_script(text, ns=None):
    if ns is None:
        ns = {"results_container": {}}
    exec(compile(text, "model.py", "exec"), ns)
    return ns


def lines_of(g):
    text = g.generate_code()
    return text, text.split("\n")


# ---------------------------------------------------------------- header


@pytest.mark.parametrize("sense", ["minimize", "maximize"])
def test_header_and_sense_line(sense):
    g = SciPyCSCCodeGenerator(model([], {"type": sense, "expression": num(0)}))
    _, lines = lines_of(g)
    assert lines[:10] == HEADER + ["sense = '" + sense + "'", ""]


def test_unknown_objective_kind_is_printed_as_given_but_solved_as_minimization():
    ast = model([], {"type": "feasibility", "expression": num(2)})
    _, lines = lines_of(SciPyCSCCodeGenerator(ast))
    assert lines[8] == "sense = 'feasibility'"
    problem = SciPyCSCCodeGenerator(ast).build_problem()
    assert problem.sense == "minimize"


def test_text_is_the_buffer_joined_by_line_feeds_without_a_final_one():
    g = SciPyCSCCodeGenerator(model([dvar("x")], minimize(num(0))))
    text = g.generate_code()
    assert text == "\n".join(g.scipy_code_lines)
    assert not text.endswith("\n")
    assert g.indent_level == 0


def test_build_lines_come_between_header_and_solve_section():
    g = SciPyCSCCodeGenerator(model([dvar("x")], minimize(num(0))))
    _, lines = lines_of(g)
    body = lines[10:-len(solve_section(CALL_PLAIN))]
    assert "# Build LP vectors/matrices" in body
    assert "var_names = ['x']" in body
    assert "bounds = [[0, None]]" in body
    assert "integrality = [0]" in body
    assert body.index("# Build LP vectors/matrices") < body.index("var_names = ['x']")


def test_model_error_passes_through_and_returns_no_text():
    from kolva.semantic_error import SemanticError

    g = SciPyCSCCodeGenerator(model([{"type": "mystery", "name": "m"}], minimize(num(0))))
    with pytest.raises(SemanticError) as excinfo:
        g.generate_code()
    assert str(excinfo.value) == "Unsupported declaration type: mystery"


# ---------------------------------------------------------------- solve section


def test_binary_variables_select_the_integrality_call():
    g = SciPyCSCCodeGenerator(model([dvar("a", "boolean"), dvar("b", "boolean")], minimize(num(0))))
    _, lines = lines_of(g)
    section = solve_section(CALL_INT)
    assert lines[-len(section):] == section


def test_float_variables_select_the_plain_call():
    g = SciPyCSCCodeGenerator(model([dvar("a", "float"), dvar("b", "float+")], minimize(num(0))))
    _, lines = lines_of(g)
    section = solve_section(CALL_PLAIN)
    assert lines[-len(section):] == section


@pytest.mark.parametrize("int_type", ["int", "int+", "boolean"])
def test_one_integer_column_among_floats_selects_the_integrality_call(int_type):
    g = SciPyCSCCodeGenerator(
        model([dvar("a", "float"), dvar("b", int_type), dvar("z", "float+")], minimize(num(0)))
    )
    _, lines = lines_of(g)
    section = solve_section(CALL_INT)
    assert lines[-len(section):] == section


def test_results_name_is_taken_from_the_attribute():
    g = SciPyCSCCodeGenerator(model([dvar("a", "float+")], minimize(num(0))))
    g.results_varname = "my_results"
    _, lines = lines_of(g)
    section = solve_section(CALL_PLAIN, "my_results")
    assert lines[-len(section):] == section


def test_results_name_is_ignored_by_the_short_circuit():
    g = SciPyCSCCodeGenerator(model([], minimize(num(1))))
    g.results_varname = "my_results"
    _, lines = lines_of(g)
    assert lines[-7:] == short_circuit("1.0")


# ---------------------------------------------------------------- short-circuit


def test_no_variables_and_no_rows_is_optimal_with_the_constant_objective():
    g = SciPyCSCCodeGenerator(model([], minimize(binop("+", num(2), num(3)))))
    text, lines = lines_of(g)
    assert lines[-7:] == short_circuit("5.0")
    assert "linprog(" not in "\n".join(lines[10:])


def test_no_variables_and_a_maximized_constant_keeps_its_sign():
    g = SciPyCSCCodeGenerator(model([], maximize(num(5))))
    _, lines = lines_of(g)
    assert lines[-7:] == short_circuit("5.0")
    assert "results['objective_value'] = 5.0" in lines


def test_no_variables_negative_constant_is_not_flipped_for_maximize():
    g = SciPyCSCCodeGenerator(model([], maximize(uminus(num(3)))))
    _, lines = lines_of(g)
    assert lines[-3] == "results['objective_value'] = -3.0"


@pytest.mark.parametrize(
    "expr, text",
    [
        (binop("+", num(0.1), num(0.2)), repr(0.1 + 0.2)),
        (num(1e16), repr(1e16)),
        (binop("/", num(1), num(3)), repr(1.0 * (1.0 / 3.0))),
        (uminus(num(0)), "-0.0"),
        (num(True), "1.0"),
    ],
)
def test_no_variables_objective_constant_is_written_as_a_float(expr, text):
    g = SciPyCSCCodeGenerator(model([], minimize(expr)))
    _, lines = lines_of(g)
    assert lines[-3] == "results['objective_value'] = " + text


def test_no_variables_objective_from_data_and_inline_parameters():
    ast = model([param_inline("q", 4)], minimize(binop("+", name("p"), name("q"))))
    g = SciPyCSCCodeGenerator(ast, {"p": 2.5})
    _, lines = lines_of(g)
    assert lines[-3] == "results['objective_value'] = 6.5"


def test_no_variables_non_numeric_objective_counts_as_zero():
    g = SciPyCSCCodeGenerator(model([], minimize(string("abc"))))
    _, lines = lines_of(g)
    assert lines[-7:] == short_circuit("0.0")


# ---------------------------------------------------------------- running the script


def test_short_circuit_script_runs_and_reports_optimal():
    text = SciPyCSCCodeGenerator(model([], maximize(num(5)))).generate_code()
    ns = run_script(text)
    assert ns["results_container"]["scipy_output"] == {
        "status": "OPTIMAL",
        "objective_value": 5.0,
        "solution": {},
    }


def test_script_creates_the_results_container_when_absent():
    text = SciPyCSCCodeGenerator(model([], minimize(num(0)))).generate_code()
    ns = run_script(text, {})
    assert ns["results_container"]["scipy_output"]["status"] == "OPTIMAL"


def test_script_keeps_other_entries_of_an_existing_results_container():
    text = SciPyCSCCodeGenerator(model([], minimize(num(0)))).generate_code()
    ns = run_script(text, {"results_container": {"mine": 1}})
    assert ns["results_container"]["mine"] == 1
    assert ns["results_container"]["scipy_output"]["objective_value"] == 0.0


# ---------------------------------------------------------------- running the solve section
#
# The solve section is run on top of the script's own earlier lines; the
# objective vector, offset and rows are then set by hand, so that the
# section's handling of the solver result is exercised on its own.

SECTION_LEN = len(solve_section(CALL_PLAIN))


def run_solve_section(g, ns=None, **state):
    lines = g.generate_code().split("\n")
    prefix, section = lines[:-SECTION_LEN], lines[-SECTION_LEN:]
    ns = {"results_container": {}} if ns is None else ns
    exec(compile("\n".join(prefix), "model.py", "exec"), ns)
    ns.setdefault("A_eq", None)
    ns.setdefault("A_ub", None)
    ns.setdefault("b_eq", [])
    ns.setdefault("b_ub", [])
    ns.setdefault("objective_offset", 0.0)
    ns.update(state)
    exec(compile("\n".join(section), "model.py", "exec"), ns)
    return ns


def test_successful_solve_reports_every_variable_and_stats():
    g = SciPyCSCCodeGenerator(model([dvar("x", "float+"), dvar("y", "float+")], minimize(num(0))))
    ns = run_solve_section(g, c=[1.0, 0.0])
    out = ns["results_container"]["scipy_output"]
    assert out is ns["results"]
    assert set(out) == {"status", "objective_value", "solution", "stats"}
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == pytest.approx(0.0)
    assert list(out["solution"]) == ["x", "y"]
    assert set(out["stats"]) == {"status", "message", "nit", "crossover_nit", "time"}
    assert out["stats"]["status"] == 0


def test_maximization_restores_the_sign_before_adding_the_offset():
    g = SciPyCSCCodeGenerator(model([dvar("x", "boolean")], maximize(num(0))))
    # maximize x + 5 in the solver's minimizing sense: c = [-1], offset 5.
    ns = run_solve_section(g, c=[-1.0], objective_offset=5.0)
    out = ns["results_container"]["scipy_output"]
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == pytest.approx(6.0)
    assert out["solution"]["x"] == pytest.approx(1.0)


def test_minimization_adds_the_offset_as_it_stands():
    g = SciPyCSCCodeGenerator(model([dvar("x", "int+")], minimize(num(0))))
    ns = run_solve_section(g, c=[2.0], objective_offset=-1.5, bounds=[[3, 10]])
    assert ns["results_container"]["scipy_output"]["objective_value"] == pytest.approx(4.5)


def test_renamed_results_map_still_reaches_the_container():
    g = SciPyCSCCodeGenerator(model([dvar("x", "float+")], minimize(num(0))))
    g.results_varname = "res_map"
    ns = run_solve_section(g, c=[1.0])
    assert ns["results_container"]["scipy_output"] is ns["res_map"]
    assert ns["res_map"]["status"] == "OPTIMAL"
    assert "results" not in ns


def test_failed_solve_leaves_only_status_message_and_objective():
    # A free variable minimized without rows has no optimum.
    g = SciPyCSCCodeGenerator(model([dvar("x", "float")], minimize(num(0))))
    out = run_solve_section(g, c=[1.0])["results_container"]["scipy_output"]
    reference = linprog([1.0], bounds=[(None, None)], method="highs")
    assert reference.status != 0
    expected = {0: "OPTIMAL", 1: "ITERATION_LIMIT", 2: "INFEASIBLE", 3: "UNBOUNDED"}.get(reference.status, "ERROR")
    assert set(out) == {"status", "message", "objective_value"}
    assert out["status"] == expected
    assert out["message"] == reference.message
    assert out["objective_value"] is None


def test_solver_exception_is_recorded_as_an_error():
    g = SciPyCSCCodeGenerator(model([dvar("x", "float+")], minimize(num(0))))
    # A NaN cost makes linprog raise instead of returning a result.
    out = run_solve_section(g, c=[float("nan")])["results_container"]["scipy_output"]
    with pytest.raises(ValueError) as excinfo:
        linprog([float("nan")], bounds=[(0, None)], method="highs")
    assert out == {"status": "ERROR", "message": str(excinfo.value), "objective_value": None}
