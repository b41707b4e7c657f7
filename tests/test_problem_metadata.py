"""Top-level 0/1 assignments, metadata reconciliation, rewriting of the
metadata lines and the LinearProblem snapshot."""

import pytest

from conftest import constraint, dvar, indexed, lit_index, maximize, minimize, model, name, num
from kolva.linear_problem import LinearProblem


def rows(matrix):
    return [list(r) for r in matrix]


def built(declarations, constraints=(), make=None, objective=None):
    g = make(model(declarations, objective, constraints))
    g._build_variables()
    return g


# ---------------------------------------------------------------- 0/1 assignments


def test_fixing_a_variable_to_one_adds_an_equality_row(make_gen):
    g = built([dvar("x", "boolean"), dvar("y", "boolean")], [constraint("==", name("x"), num(1))], make_gen)
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[1.0, 0.0]]
    assert g.b_eq == [1.0]
    assert type(g.b_eq[0]) is float


def test_fixing_a_variable_to_zero_adds_an_equality_row(make_gen):
    g = built([dvar("x", "boolean"), dvar("y", "boolean")], [constraint("==", name("y"), num(0))], make_gen)
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[0.0, 1.0]]
    assert g.b_eq == [0.0]


@pytest.mark.parametrize(
    "constr",
    [
        constraint("==", name("x"), num(2)),
        constraint("==", name("x"), name("y")),
        constraint("<=", name("x"), num(1)),
        constraint("==", num(1), name("x")),
        constraint("==", name("x"), {"type": "boolean_literal", "value": True}),
        constraint("==", name("undeclared"), num(1)),
        {"type": "forall_constraint", "iterators": [], "constraint": constraint("==", name("x"), num(1))},
    ],
    ids=[
        "value-two",
        "variable-rhs",
        "not-equality",
        "reversed",
        "boolean-literal",
        "undeclared",
        "forall",
    ],
)
def test_shapes_that_are_not_assignments_add_nothing(make_gen, constr):
    g = built([dvar("x", "boolean"), dvar("y", "boolean")], [constr], make_gen)
    g._apply_top_level_binary_assignments()
    assert g.A_eq == []
    assert g.b_eq == []


@pytest.mark.parametrize(
    "constr",
    [{"type": "constraint", "op": "==", "right": num(1)}, {"type": "constraint", "op": "==", "left": name("x")}],
    ids=["no-left", "no-right"],
)
def test_assignment_walk_passes_over_a_constraint_missing_a_side(make_gen, constr):
    # The variable phase reads both sides directly, so the column is made
    # without it here; the assignment walk itself reads them with defaults.
    g = make_gen(model([dvar("x", "boolean")], None, [constr]))
    g._ensure_aux_binary("x")
    g._apply_top_level_binary_assignments()
    assert g.A_eq == []
    assert g.b_eq == []


@pytest.mark.parametrize(
    "constr, missing",
    [({"type": "constraint", "op": "==", "right": num(1)}, "left"), ({"type": "constraint", "op": "==", "left": name("x")}, "right")],
)
def test_variable_phase_needs_both_sides_of_a_constraint(make_gen, constr, missing):
    g = make_gen(model([dvar("x", "boolean")], None, [constr]))
    with pytest.raises(KeyError) as excinfo:
        g._build_variables()
    assert excinfo.value.args[0] == missing


def test_float_one_counts_as_one(make_gen):
    g = built([dvar("x", "boolean")], [constraint("==", name("x"), num(1.0))], make_gen)
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[1.0]]
    assert g.b_eq == [1.0]


def test_indexed_variable_assignment_uses_the_column_name(make_gen):
    g = make_gen(model([], None, [constraint("==", indexed("x", lit_index(1)), num(1))]))
    g._add_variable("y")
    g._add_variable("x_1")
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[0.0, 1.0]]
    assert g.b_eq == [1.0]


def test_assignment_counts_as_present_when_b_eq_at_its_column_matches(make_gen):
    # x is column 0; the first row is about y, but b_eq[0] is 1.0, so x == 1
    # is taken as already present.
    g = built(
        [dvar("x", "boolean"), dvar("y", "boolean")],
        [constraint("==", name("y"), num(1)), constraint("==", name("x"), num(1))],
        make_gen,
    )
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[0.0, 1.0]]
    assert g.b_eq == [1.0]


def test_assignment_is_added_when_b_eq_at_its_column_differs(make_gen):
    g = built(
        [dvar("x", "boolean"), dvar("y", "boolean")],
        [constraint("==", name("y"), num(0)), constraint("==", name("x"), num(1))],
        make_gen,
    )
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[0.0, 1.0], [1.0, 0.0]]
    assert g.b_eq == [0.0, 1.0]


def test_repeated_assignment_on_column_zero_is_stored_once(make_gen):
    g = built([dvar("x", "boolean")], [constraint("==", name("x"), num(1))] * 2, make_gen)
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[1.0]]
    assert g.b_eq == [1.0]


def test_repeated_assignment_beyond_the_rows_walked_is_stored_twice(make_gen):
    # x is column 1 while only one row exists: position 1 is never walked.
    g = built(
        [dvar("y", "boolean"), dvar("x", "boolean")],
        [constraint("==", name("x"), num(1))] * 2,
        make_gen,
    )
    g._apply_top_level_binary_assignments()
    assert rows(g.A_eq) == [[0.0, 1.0], [0.0, 1.0]]
    assert g.b_eq == [1.0, 1.0]


# ---------------------------------------------------------------- reconciliation


def test_reconcile_pads_late_columns_as_binaries(make_gen):
    g = built([dvar("x", "float+")], make=make_gen)
    g._add_variable("z")
    g._reconcile_problem_metadata()
    assert g.var_names == ["x", "z"]
    assert g.bounds == [[0, None], [0, 1]]
    assert g.integrality == [0, 1]
    assert g.c == [0.0, 0.0]


def test_reconcile_only_pads_what_is_short(make_gen):
    g = built([dvar("x", "int"), dvar("y", "float")], make=make_gen)
    g._reconcile_problem_metadata()
    assert g.bounds == [[None, None], [None, None]]
    assert g.integrality == [1, 0]
    assert g.c == [0.0, 0.0]


def test_reconcile_leaves_complete_metadata_alone(make_gen):
    g = make_gen()
    g._ensure_aux_binary("a")
    g._ensure_aux_binary("a")
    g._reconcile_problem_metadata()
    assert g.var_names == ["a", "a_1"]
    assert g.bounds == [[0, 1], [0, 1]]
    assert g.integrality == [1, 1]
    assert g.c == [0.0, 0.0]


# ---------------------------------------------------------------- rewriting lines


def test_refresh_rewrites_metadata_lines_and_appends_a_missing_c(make_gen):
    g = built([dvar("x", "float+")], make=make_gen)
    g._add_variable("z")
    g._reconcile_problem_metadata()
    g._refresh_problem_metadata_code_lines()
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = ['x', 'z']",
        "bounds = [[0, None], [0, 1]]",
        "integrality = [0, 1]",
        "c = [0.0, 0.0]",
    ]


def test_refresh_appends_all_four_lines_in_order_when_none_exist(make_gen):
    g = make_gen()
    assert g._ensure_aux_binary("flag") == "flag"
    g._refresh_problem_metadata_code_lines()
    assert g.scipy_code_lines == [
        "var_names = ['flag']",
        "bounds = [[0, 1]]",
        "integrality = [1]",
        "c = [0.0]",
    ]


def test_refresh_appends_at_the_current_indentation(make_gen):
    g = make_gen()
    g._ensure_aux_binary("flag")
    g.indent_level = 1
    g._refresh_problem_metadata_code_lines()
    assert g.scipy_code_lines[0] == "    var_names = ['flag']"


def test_refresh_overwrites_any_level_zero_line_starting_with_c(make_gen):
    g = built([dvar("x", "float+")], make=make_gen)
    g._reconcile_problem_metadata()
    g._add_code_line("c = 'stale'")
    g.indent_level = 1
    g._add_code_line("c = 'nested'")
    g.indent_level = 0
    g._add_code_line("objective_offset = 7.0")
    g._refresh_problem_metadata_code_lines()
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = ['x']",
        "bounds = [[0, None]]",
        "integrality = [0]",
        "c = [0.0]",
        "    c = 'nested'",
        "objective_offset = 7.0",
    ]


def test_refresh_rewrites_every_matching_line(make_gen):
    g = built([dvar("x", "boolean")], make=make_gen)
    g._reconcile_problem_metadata()
    g._add_code_line("var_names = []")
    g._add_code_line("bounds = 'old'")
    g._refresh_problem_metadata_code_lines()
    assert g.scipy_code_lines.count("var_names = ['x']") == 2
    assert g.scipy_code_lines.count("bounds = [[0, 1]]") == 2


def test_refresh_leaves_alias_comments_alone(make_gen):
    g = built([dvar("x_1", "boolean")], make=make_gen)
    g._add_variable("extra")
    g._reconcile_problem_metadata()
    g._refresh_problem_metadata_code_lines()
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = ['x_1', 'extra']",
        "# Alias: x['1']",
        "bounds = [[0, 1], [0, 1]]",
        "integrality = [1, 1]",
        "c = [0.0, 0.0]",
    ]


def test_refresh_renders_an_unbounded_side_as_none(make_gen):
    g = built([dvar("x", "float"), dvar("y", "int+")], make=make_gen)
    g._reconcile_problem_metadata()
    g._refresh_problem_metadata_code_lines()
    assert "bounds = [[None, None], [0, None]]" in g.scipy_code_lines


def test_refresh_prints_names_as_python_would(make_gen):
    g = built([dvar("it's", "boolean")], make=make_gen)
    g._reconcile_problem_metadata()
    g._refresh_problem_metadata_code_lines()
    assert "var_names = " + repr(["it's"]) in g.scipy_code_lines


def test_auxiliary_binary_appears_in_every_rewritten_line(make_gen):
    g = built([dvar("x", "float+")], make=make_gen)
    g._ensure_aux_binary("cmp_flag")
    g._reconcile_problem_metadata()
    g._refresh_problem_metadata_code_lines()
    lines = g.scipy_code_lines
    assert "var_names = ['x', 'cmp_flag']" in lines
    assert "bounds = [[0, None], [0, 1]]" in lines
    assert "integrality = [0, 1]" in lines
    assert "c = [0.0, 0.0]" in lines


# ---------------------------------------------------------------- snapshot


def test_snapshot_copies_the_generator_state(make_gen):
    g = built([dvar("x", "boolean"), dvar("y", "float")], [constraint("==", name("x"), num(1))], make_gen,
              objective=maximize(name("y")))
    g._apply_top_level_binary_assignments()
    g._reconcile_problem_metadata()
    problem = g._snapshot_linear_problem()
    assert isinstance(problem, LinearProblem)
    assert problem.sense == "maximize"
    assert problem.var_names == ["x", "y"]
    # x == 1 is also read as a bound of x by the variable phase.
    assert problem.bounds == [[1.0, 1.0], [None, None]]
    assert problem.integrality == [1, 0]
    assert problem.c == [0.0, 0.0]
    assert rows(problem.A_eq) == [[1.0, 0.0]]
    assert problem.b_eq == [1.0]
    assert rows(problem.A_ub) == []
    assert problem.b_ub == []
    assert problem.objective_offset == 0.0
    assert type(problem.objective_offset) is float


def test_snapshot_shares_no_list_with_the_generator(make_gen):
    g = built([dvar("x", "boolean")], make=make_gen)
    g._reconcile_problem_metadata()
    first = g._snapshot_linear_problem()
    first.var_names.append("junk")
    first.bounds[0][1] = 99
    first.integrality.append(7)
    first.c.append(3.0)
    second = g._snapshot_linear_problem()
    assert second.var_names == ["x"]
    assert second.bounds == [[0, 1]]
    assert second.integrality == [1]
    assert second.c == [0.0]


@pytest.mark.parametrize("kind", ["feasibility", "MAXIMIZE", ""])
def test_snapshot_reads_any_other_objective_kind_as_minimize(make_gen, kind):
    g = built([dvar("x")], make=make_gen, objective={"type": kind, "expression": num(0)})
    assert g._snapshot_linear_problem().sense == "minimize"


def test_snapshot_offset_is_a_float(make_gen):
    g = built([dvar("x")], make=make_gen, objective=minimize(num(3)))
    problem = g._snapshot_linear_problem()
    assert problem.objective_offset == 0.0
    assert type(problem.objective_offset) is float
