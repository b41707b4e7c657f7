"""The LinearProblem of models with constraints: 0/1 assignments added after
the script's matrices, metadata lines rewritten for auxiliary columns, and
the no-variable short-circuit deciding on constant rows."""

import pytest

from builders import literal_line
from conftest import binop, bool_binop, constraint, dvar, maximize, minimize, model, name, num, param_inline
from lp_builders import asserted, generator, or_, run_script, script_lines, triplets


def xy(constraints, var_type="boolean", objective=None):
    obj = objective if objective is not None else minimize(name("x"))
    return model([dvar("x", var_type), dvar("y", var_type)], obj, constraints)


# ---------------------------------------------------------------- 0/1 assignments


def test_assignment_adds_a_problem_row_that_the_script_does_not_have():
    # y is column 1; the constraint phase gives b_eq = [1.0], which has no
    # entry at position 1, so the assignment is appended once more.
    m = xy([constraint("==", name("y"), num(1))])
    problem = generator(m).build_problem()
    assert problem.A_eq == [[0.0, 1.0], [0.0, 1.0]]
    assert problem.b_eq == [1.0, 1.0]
    lines = script_lines(m)
    assert triplets(lines, "eq") == ([0], [1], [1.0], [1.0])


def test_assignment_to_zero_on_a_later_column():
    m = xy([constraint("==", name("y"), num(0))])
    problem = generator(m).build_problem()
    assert problem.A_eq == [[0.0, 1.0], [0.0, 1.0]]
    assert problem.b_eq == [0.0, 0.0]


@pytest.mark.parametrize(
    "constr, a_eq, b_eq",
    [
        (constraint("==", name("y"), num(2)), [[0.0, 1.0]], [2.0]),
        (constraint("==", name("y"), name("x")), [[-1.0, 1.0]], [0.0]),
        (constraint("<=", name("y"), num(1)), [], []),
    ],
    ids=["value-two", "two-variables", "not-equality"],
)
def test_other_shapes_add_no_row(constr, a_eq, b_eq):
    # only the constraint phase's own row is there
    problem = generator(xy([constr])).build_problem()
    assert problem.A_eq == a_eq
    assert problem.b_eq == b_eq


def test_assignment_on_column_zero_counts_as_present_after_any_first_row():
    # the first equality row is about y, but it has rhs 1.0 at position 0,
    # which is x's column: x == 1 counts as present and adds nothing.
    m = xy([constraint("==", binop("+", name("y"), name("y")), num(1)), constraint("==", name("x"), num(1))])
    problem = generator(m).build_problem()
    assert problem.A_eq == [[0.0, 2.0], [1.0, 0.0]]
    assert problem.b_eq == [1.0, 1.0]


def test_assignment_whose_position_holds_another_value_is_added():
    m = xy([constraint("==", binop("+", name("y"), name("y")), num(0)), constraint("==", name("x"), num(1))])
    problem = generator(m).build_problem()
    assert problem.A_eq == [[0.0, 2.0], [1.0, 0.0], [1.0, 0.0]]
    assert problem.b_eq == [0.0, 1.0, 1.0]


def test_assignment_rows_do_not_change_the_solution():
    # maximize x + y with x + y <= 1 and y == 1: optimum 1 at y = 1, x = 0
    m = xy(
        [constraint("<=", binop("+", name("x"), name("y")), num(1)), constraint("==", name("y"), num(1))],
        objective=maximize(binop("+", name("x"), name("y"))),
    )
    from lp_builders import solve_problem

    value, x = solve_problem(generator(m).build_problem())
    assert value == pytest.approx(1.0)
    assert list(x) == pytest.approx([0.0, 1.0])
    out = run_script(generator(m).generate_code())
    assert out["objective_value"] == pytest.approx(1.0)
    assert out["solution"] == {"x": pytest.approx(0.0), "y": pytest.approx(1.0)}


# ---------------------------------------------------------------- metadata lines


def disjunction_model(objective=None):
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    obj = objective if objective is not None else minimize(binop("+", name("x"), name("y")))
    return model([dvar("x", "float+"), dvar("y", "float")], obj, [asserted(dis)])


def test_auxiliary_columns_appear_in_every_metadata_line():
    lines = script_lines(disjunction_model())
    assert literal_line(lines, "var_names = ") == ["x", "y", "or_flag_0", "or_flag_1"]
    assert "bounds = [[0, None], [None, None], [0, 1], [0, 1]]" in lines
    assert "integrality = [0, 0, 1, 1]" in lines
    assert "c = [1.0, 1.0, 0.0, 0.0]" in lines
    problem = generator(disjunction_model()).build_problem()
    assert problem.var_names == ["x", "y", "or_flag_0", "or_flag_1"]
    assert problem.bounds == [[0, None], [None, None], [0, 1], [0, 1]]
    assert problem.integrality == [0, 0, 1, 1]
    assert problem.c == [1.0, 1.0, 0.0, 0.0]
    assert problem.A_ub.shape == (3, 4)


def test_auxiliary_columns_select_the_integer_solver_call():
    text = generator(disjunction_model()).generate_code()
    assert "integrality=integrality" in text


def test_earlier_line_starting_with_c_is_overwritten():
    # a data parameter named c is emitted as "c = 7" and rewritten like the
    # objective line
    decls = [param_inline("c", 7), dvar("x", "float+"), dvar("y", "float")]
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    m = model(decls, minimize(name("x")), [asserted(dis)])
    lines = script_lines(m)
    c_lines = [line for line in lines if line.startswith("c = ")]
    assert c_lines == ["c = [1.0, 0.0, 0.0, 0.0]", "c = [1.0, 0.0, 0.0, 0.0]"]
    assert "c = 7" not in lines


def test_unbounded_upper_side_prints_none():
    lines = script_lines(model([dvar("x", "float+")], minimize(name("x")), [constraint(">=", name("x"), num(-5))]))
    assert "bounds = [[0, None]]" in lines


# ---------------------------------------------------------------- constant rows without variables


def constant_model(constraints, objective=None):
    obj = objective if objective is not None else minimize(num(3))
    return model([], obj, constraints)


def short_circuit(constraints, objective=None):
    m = constant_model(constraints, objective)
    problem = generator(m).build_problem()
    text = generator(m).generate_code()
    return problem, text.split("\n"), run_script(text)


def test_zero_equality_and_slack_inequality_are_optimal():
    problem, lines, out = short_circuit([constraint("==", num(0), num(0)), constraint("<=", num(0), num(1))])
    assert problem.b_eq == [0.0]
    assert problem.b_ub == [1.0]
    assert out == {"status": "OPTIMAL", "objective_value": 3.0, "solution": {}}
    assert lines[-6:] == [
        "# No decision variables: short-circuit without linprog",
        "results = {}",
        "results['status'] = 'OPTIMAL'",
        "results['objective_value'] = 3.0",
        "results['solution'] = {}",
        "results_container['scipy_output'] = results",
    ]


def test_unsatisfied_equality_is_infeasible():
    problem, lines, out = short_circuit([constraint("==", num(0), num(0.5))])
    assert problem.b_eq == [0.5]
    assert out == {"status": "INFEASIBLE", "objective_value": None, "solution": {}}
    assert "results['objective_value'] = None" in lines
    assert "results['status'] = 'INFEASIBLE'" in lines


def test_equality_within_the_tolerance_is_feasible():
    problem, lines, out = short_circuit([constraint("==", num(0), num(1e-09))])
    assert problem.b_eq == [1e-09]
    assert out["status"] == "OPTIMAL"


def test_slightly_negative_rhs_passes():
    problem, lines, out = short_circuit([constraint("<=", num(0), num(-1e-10))])
    assert problem.b_ub == [-1e-10]
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == 3.0


def test_negative_rhs_beyond_the_tolerance_fails():
    problem, lines, out = short_circuit([constraint("<=", num(0), num(-1e-08))])
    assert problem.b_ub == [-1e-08]
    assert out == {"status": "INFEASIBLE", "objective_value": None, "solution": {}}


def test_violated_constant_inequality_from_greater_equal():
    # 1 >= 2: rhs_value = 2 - 1 = 1, stored negated as an empty row <= -1.0
    problem, lines, out = short_circuit([constraint(">=", num(1), num(2))])
    assert problem.b_ub == [-1.0]
    assert out["status"] == "INFEASIBLE"


def test_constant_rows_are_also_in_the_script():
    problem, lines, out = short_circuit([constraint("==", num(0), num(0.5)), constraint("<=", num(1), num(3))])
    assert triplets(lines, "eq") == ([], [], [], [0.5])
    assert triplets(lines, "ub") == ([], [], [], [2.0])
    assert problem.A_eq == [[]]
    assert problem.A_ub == [[]]
    assert problem.A_ub.shape == (1, 0)


def test_maximized_constant_is_not_flipped():
    problem, lines, out = short_circuit([constraint("<=", num(0), num(1))], maximize(num(5)))
    assert "results['objective_value'] = 5.0" in lines
    assert out["objective_value"] == 5.0
