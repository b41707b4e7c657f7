"""Whole models with arrays over ranges, named ranges, sets and tuple sets:
the script's variable and data lines against the problem built by a second
generator, and against the values the declarations call for."""

import copy

from builders import (
    data_section,
    dvar_indexed,
    exec_lines,
    forall,
    it,
    literal_line,
    named_range_dim,
    named_set_dim,
    range_decl,
    range_dim,
    range_spec,
    ref,
    set_decl,
    set_of_tuples,
    solvable_model,
    tuple_type,
    typed_set,
)
from conftest import binop, constraint, dvar, field, indexed, name, num, param_inline
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator


def script_and_problem(declarations, data=None, constraints=()):
    ast = solvable_model(declarations, constraints)
    script = SciPyCSCCodeGenerator(copy.deepcopy(ast), copy.deepcopy(data)).generate_code()
    problem = SciPyCSCCodeGenerator(copy.deepcopy(ast), copy.deepcopy(data)).build_problem()
    return script.split("\n"), problem


def check_columns(lines, problem, names, bounds, integrality):
    assert literal_line(lines, "var_names = ") == problem.var_names == names
    assert literal_line(lines, "bounds = ") == problem.bounds == bounds
    assert literal_line(lines, "integrality = ") == problem.integrality == integrality
    # ints stay ints and evaluated bounds are floats, in the script as in Python
    assert "bounds = " + repr(bounds) in lines
    assert "var_names = " + repr(names) in lines
    assert "integrality = " + repr(integrality) in lines


def comments(lines, prefix):
    return [line for line in lines if line.startswith(prefix)]


def test_script_compiles(tmp_path):
    lines, _ = script_and_problem(
        [dvar_indexed("x", range_dim(1, 2)), typed_set("S", external=True), dvar_indexed("y", named_set_dim("S"))],
        {"S": ["a"]},
    )
    compile("\n".join(lines), str(tmp_path / "script.py"), "exec")


# ---------------------------------------------------------------- ranges


def test_arrays_over_literal_ranges():
    decls = [
        dvar_indexed("x", range_dim(1, name("n")), var_type="int+"),
        dvar("y", "boolean"),
        dvar_indexed("w", range_dim(0, 1), range_dim(1, 2), var_type="float"),
    ]
    lines, problem = script_and_problem(decls, {"n": 3})
    check_columns(
        lines,
        problem,
        ["x_1", "x_2", "x_3", "y", "w_0_1", "w_0_2", "w_1_1", "w_1_2"],
        [[0, None]] * 3 + [[0, 1]] + [[None, None]] * 4,
        [1, 1, 1, 1, 0, 0, 0, 0],
    )
    assert comments(lines, "# OPL: ") == [
        "# OPL: dvar int+ x[range(1, n + 1)]",
        "# OPL: dvar float w[range(0, 1 + 1), range(1, 2 + 1)]",
    ]
    assert comments(lines, "# Alias: ") == [
        "# Alias: x['1']",
        "# Alias: x['2']",
        "# Alias: x['3']",
        "# Alias: w['0_1']",
        "# Alias: w['0_2']",
        "# Alias: w['1_1']",
        "# Alias: w['1_2']",
    ]
    section = data_section(lines)
    assert "# Data from .dat file" in section
    assert "n = 3" in section
    assert exec_lines(section)["n"] == 3


def test_tightened_bounds_reach_the_script_and_the_problem():
    decls = [dvar_indexed("x", range_dim(1, 3), var_type="int+"), dvar("y", "float")]
    cons = [
        forall([it("i", range_spec(1, 3))], constraint("<=", indexed("x", ref("i")), binop("*", num(2), name("i")))),
        constraint(">=", name("y"), num(-4)),
        constraint("<=", name("y"), num(4)),
    ]
    lines, problem = script_and_problem(decls, None, cons)
    check_columns(
        lines,
        problem,
        ["x_1", "x_2", "x_3", "y"],
        [[0, 2.0], [0, 4.0], [0, 6.0], [-4.0, 4.0]],
        [1, 1, 1, 0],
    )


# ---------------------------------------------------------------- named ranges


def test_array_over_a_named_range_with_per_member_bounds():
    decls = [
        range_decl("R", 2, 4),
        dvar_indexed(
            "z",
            named_range_dim("R"),
            var_type="float",
            iterators=["r"],
            lower_bound=num(-1),
            upper_bound=binop("*", name("r"), num(10)),
        ),
    ]
    lines, problem = script_and_problem(decls)
    check_columns(lines, problem, ["z_2", "z_3", "z_4"], [[-1.0, 20.0], [-1.0, 30.0], [-1.0, 40.0]], [0, 0, 0])
    assert comments(lines, "# OPL: ") == ["# OPL: dvar float z[range(2, 4 + 1)]"]
    assert comments(lines, "# Alias: ") == ["# Alias: z['2']", "# Alias: z['3']", "# Alias: z['4']"]


def test_named_range_with_a_parameter_bound_and_inline_parameter_data():
    decls = [
        param_inline("m", 2),
        range_decl("R", 1, name("m")),
        dvar_indexed("u", named_range_dim("R"), range_dim(1, 1), var_type="boolean"),
    ]
    lines, problem = script_and_problem(decls)
    check_columns(lines, problem, ["u_1_1", "u_2_1"], [[0, 1], [0, 1]], [1, 1])
    assert comments(lines, "# OPL: ") == ["# OPL: dvar boolean u[range(1, m + 1), range(1, 1 + 1)]"]
    section = data_section(lines)
    assert "m = 2" in section
    assert exec_lines(section)["m"] == 2


# ---------------------------------------------------------------- sets


SET_DECLS = [
    set_decl("S"),
    typed_set("T", external=True),
    dvar_indexed("a", named_set_dim("S"), var_type="boolean"),
    dvar_indexed("b", named_set_dim("T"), named_set_dim("S"), var_type="int"),
]
SET_DATA = {"S": ["north", "south"], "T": [1, 2]}


def test_arrays_over_sets():
    lines, problem = script_and_problem(SET_DECLS, SET_DATA)
    check_columns(
        lines,
        problem,
        ["a_north", "a_south", "b_1_north", "b_1_south", "b_2_north", "b_2_south"],
        [[0, 1], [0, 1]] + [[None, None]] * 4,
        [1, 1, 1, 1, 1, 1],
    )
    assert comments(lines, "# OPL: ") == ["# OPL: dvar int b[T, S]"]
    assert comments(lines, "# Alias: ") == [
        "# Alias: a['north']",
        "# Alias: a['south']",
        "# Alias: b['1_north']",
        "# Alias: b['1_south']",
        "# Alias: b['2_north']",
        "# Alias: b['2_south']",
    ]


def test_set_data_lines():
    lines, _ = script_and_problem(SET_DECLS, SET_DATA)
    section = data_section(lines)
    assert "# Data from .dat file" in section
    assert "S = ['north', 'south']" in section
    assert "T = [1, 2]" in section
    assert "T_index = {v: i for i, v in enumerate(T)}" in section
    values = exec_lines(section)
    assert values["S"] == ["north", "south"]
    assert values["T"] == [1, 2]
    assert values["T_index"] == {1: 0, 2: 1}


# ---------------------------------------------------------------- tuple sets


ROUTE_DECLS = [
    tuple_type("Route", "orig", "dest", "dist"),
    set_of_tuples("Routes", "Route"),
    dvar_indexed(
        "f",
        named_set_dim("Routes"),
        iterators=["r"],
        upper_bound=field(name("r", sem_type="Route"), "dist"),
    ),
    dvar_indexed("g", named_set_dim("Routes"), range_dim(1, 2), var_type="boolean"),
]
ROUTE_DATA = {"Routes": [["A", "B", 5], ["B", "C", 7.5]]}


def test_arrays_over_a_tuple_set():
    lines, problem = script_and_problem(ROUTE_DECLS, ROUTE_DATA)
    names = [
        "f[('A', 'B', 5)]",
        "f[('B', 'C', 7.5)]",
        "g_('A', 'B', 5)_1",
        "g_('A', 'B', 5)_2",
        "g_('B', 'C', 7.5)_1",
        "g_('B', 'C', 7.5)_2",
    ]
    check_columns(lines, problem, names, [[0, 5.0], [0, 7.5]] + [[0, 1]] * 4, [0, 0, 1, 1, 1, 1])
    assert comments(lines, "# OPL: ") == ["# OPL: dvar boolean g[Routes, range(1, 2 + 1)]"]
    assert comments(lines, "# Alias: ") == []


def test_tuple_set_data_line():
    lines, _ = script_and_problem(ROUTE_DECLS, ROUTE_DATA)
    section = data_section(lines)
    assert "# Data from .dat file" in section
    assert "Routes = [('A', 'B', 5), ('B', 'C', 7.5)]" in section
    values = exec_lines(section)
    assert [tuple(m) for m in values["Routes"]] == [("A", "B", 5), ("B", "C", 7.5)]


def test_problem_lists_are_consistent_in_length():
    _, problem = script_and_problem(ROUTE_DECLS + SET_DECLS, dict(ROUTE_DATA, **SET_DATA))
    n = len(problem.var_names)
    assert n == 12
    assert len(problem.bounds) == len(problem.integrality) == len(problem.c) == n
    assert problem.c == [0.0] * n
