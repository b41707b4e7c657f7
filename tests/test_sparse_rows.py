"""Storing constraint rows as triplets, publishing them on the generator and
in the script, and the constraint driver around them."""

import logging

import pytest

from builders import literal_line
from conftest import GEN_LOGGER, binop, bool_binop, constraint, dvar, minimize, model, name, num
from kolva import _engine
from kolva.semantic_error import SemanticError
from lp_builders import asserted, built_rows, generator, or_, run_script, script_lines, triplets


def fresh_state():
    return _engine._ConstraintBuildState()


def ub_lists(state):
    return state.A_ub_rows, state.A_ub_cols, state.A_ub_data, state.b_ub


def eq_lists(state):
    return state.A_eq_rows, state.A_eq_cols, state.A_eq_data, state.b_eq


def two_vars(make_gen):
    return make_gen(variables=("x", "y"))


# ---------------------------------------------------------------- the build state


def test_new_state_is_empty():
    s = fresh_state()
    assert eq_lists(s) == ([], [], [], [])
    assert ub_lists(s) == ([], [], [], [])
    assert (s.eq_row_idx, s.ub_row_idx) == (0, 0)


# ---------------------------------------------------------------- storing one dense row


def test_zero_row_with_negative_rhs_still_takes_a_row(make_gen):
    g = two_vars(make_gen)
    s = fresh_state()
    g._append_sparse_row(s, [0.0, 0.0], -1.0, sense="ub")
    assert ub_lists(s) == ([], [], [], [-1.0])
    assert s.ub_row_idx == 1
    # the next row gets index 1
    g._append_sparse_row(s, [0.0, 4.0], 2.0, sense="ub")
    assert ub_lists(s) == ([1], [1], [4.0], [-1.0, 2.0])
    assert s.ub_row_idx == 2
    assert eq_lists(s) == ([], [], [], []) and s.eq_row_idx == 0


def test_tolerance_drops_exactly_one_e_minus_twelve(make_gen):
    g = make_gen(variables=("a", "b", "c", "d", "e"))
    s = fresh_state()
    g._append_sparse_row(s, [1e-12, 1.1e-12, -1e-12, -1.1e-12, 0.0], 0.0, sense="ub")
    assert ub_lists(s) == ([0, 0], [1, 3], [1.1e-12, -1.1e-12], [0.0])


def test_coefficients_are_stored_unchanged_in_column_order(make_gen):
    g = make_gen(variables=("a", "b", "c"))
    s = fresh_state()
    g._append_sparse_row(s, [0.1 + 0.2, 0.0, -1e300], 7.25, sense="eq")
    assert eq_lists(s) == ([0, 0], [0, 2], [0.30000000000000004, -1e300], [7.25])
    g._append_sparse_row(s, [0.0, 5e-324 + 2e-12, 3.0], -0.5, sense="eq")
    assert eq_lists(s) == ([0, 0, 1, 1], [0, 2, 1, 2], [0.30000000000000004, -1e300, 2e-12, 3.0], [7.25, -0.5])
    assert s.eq_row_idx == 2 and s.ub_row_idx == 0


@pytest.mark.parametrize("sense", ["le", "EQ", "", "ge"])
def test_bad_sense_is_a_value_error_and_stores_nothing(make_gen, sense):
    g = two_vars(make_gen)
    s = fresh_state()
    with pytest.raises(ValueError) as err:
        g._append_sparse_row(s, [1.0, 2.0], 1.0, sense=sense)
    assert str(err.value) == "Unsupported sparse row sense: " + sense
    assert eq_lists(s) == ([], [], [], []) and ub_lists(s) == ([], [], [], [])
    assert (s.eq_row_idx, s.ub_row_idx) == (0, 0)


def test_sense_is_keyword_only(make_gen):
    g = two_vars(make_gen)
    with pytest.raises(TypeError):
        g._append_sparse_row(fresh_state(), [1.0, 0.0], 1.0, "ub")


# ---------------------------------------------------------------- rows from coefficient maps


def test_make_constraint_row_skips_unknown_variables(make_gen):
    g = two_vars(make_gen)
    assert g._make_constraint_row({"y": 2.0, "ghost": 5.0, "x": -0.5}) == [-0.5, 2.0]
    assert g._make_constraint_row({}) == [0.0, 0.0]


def test_coef_row_is_stored_like_its_dense_row(make_gen):
    g = two_vars(make_gen)
    s = fresh_state()
    g._append_sparse_coef_row(s, {"y": 2.0, "x": -1.0}, 3.0, sense="ub")
    assert ub_lists(s) == ([0, 0], [0, 1], [-1.0, 2.0], [3.0])
    assert s.ub_row_idx == 1


def test_coef_row_skips_unknown_variables(make_gen):
    g = two_vars(make_gen)
    s = fresh_state()
    g._append_sparse_coef_row(s, {"ghost": 9.0, "y": 4.0}, -2.0, sense="eq")
    assert eq_lists(s) == ([0], [1], [4.0], [-2.0])
    assert s.eq_row_idx == 1


def test_coef_row_of_tiny_coefficients_has_no_triplet(make_gen):
    g = two_vars(make_gen)
    s = fresh_state()
    g._append_sparse_coef_row(s, {"x": 1e-12, "y": -1e-13}, 1.0, sense="ub")
    assert ub_lists(s) == ([], [], [], [1.0])
    assert s.ub_row_idx == 1


@pytest.mark.parametrize(
    "op, expected",
    [("+", [3.0, 10.0]), ("-", [-1.0, 10.0]), (None, [2.0, 10.0]), ("*", [2.0, 10.0])],
    ids=["add", "subtract", "assign", "other-op-assigns"],
)
def test_update_vector_writes_into_the_given_list(make_gen, op, expected):
    g = two_vars(make_gen)
    vector = [1.0, 10.0]
    g._update_vector_from_coef_dict({"x": 2.0, "ghost": 100.0}, vector, op)
    assert vector == expected


def test_update_vector_with_only_unknown_names_changes_nothing(make_gen):
    g = two_vars(make_gen)
    vector = [1.0, 2.0]
    g._update_vector_from_coef_dict({"ghost": 1.0}, vector, "+")
    assert vector == [1.0, 2.0]


# ---------------------------------------------------------------- publishing


def test_finalize_publishes_dense_rows_and_script_lines(make_gen):
    g = make_gen(variables=("x", "y", "z"))
    s = fresh_state()
    g._append_sparse_row(s, [1.0, 0.0, -2.0], 4.0, sense="ub")
    g._append_sparse_row(s, [0.0, 0.0, 0.0], -1.0, sense="ub")
    g._append_sparse_row(s, [0.0, 0.5, 0.0], 1.5, sense="eq")
    before = len(g.scipy_code_lines)
    g._finalize_constraint_state(s)
    assert g.A_ub == [[1.0, 0.0, -2.0], [0.0, 0.0, 0.0]]
    assert g.b_ub == [4.0, -1.0]
    assert g.A_eq == [[0.0, 0.5, 0.0]]
    assert g.b_eq == [1.5]
    assert g.scipy_code_lines[before:] == [
        "from scipy.sparse import csr_matrix",
        "A_eq_rows = [0]",
        "A_eq_cols = [1]",
        "A_eq_data = [0.5]",
        "b_eq = [1.5]",
        "A_ub_rows = [0, 0]",
        "A_ub_cols = [0, 2]",
        "A_ub_data = [1.0, -2.0]",
        "b_ub = [4.0, -1.0]",
        "A_eq = csr_matrix((A_eq_data, (A_eq_rows, A_eq_cols)), shape=(1, 3)) if len(b_eq) > 0 else None",
        "A_ub = csr_matrix((A_ub_data, (A_ub_rows, A_ub_cols)), shape=(2, 3)) if len(b_ub) > 0 else None",
    ]


def test_finalize_of_an_empty_state_gives_empty_matrices(make_gen):
    g = two_vars(make_gen)
    before = len(g.scipy_code_lines)
    g._finalize_constraint_state(fresh_state())
    assert (g.A_eq, g.b_eq, g.A_ub, g.b_ub) == ([], [], [], [])
    assert g.scipy_code_lines[before:][-2:] == [
        "A_eq = csr_matrix((A_eq_data, (A_eq_rows, A_eq_cols)), shape=(0, 2)) if len(b_eq) > 0 else None",
        "A_ub = csr_matrix((A_ub_data, (A_ub_rows, A_ub_cols)), shape=(0, 2)) if len(b_ub) > 0 else None",
    ]


# ---------------------------------------------------------------- the driver


def simple_model(constraints, declarations=None):
    decls = declarations if declarations is not None else [dvar("x"), dvar("y")]
    return model(decls, minimize(name("x")), constraints)


def test_driver_lines_and_entry_log(caplog):
    g = generator(simple_model([constraint("<=", name("x"), num(4))]))
    g._build_variables()
    g._build_objective()
    caplog.set_level(logging.DEBUG, logger=GEN_LOGGER)
    g.logger.setLevel(logging.DEBUG)
    caplog.clear()
    before = len(g.scipy_code_lines)
    g._build_constraints()
    assert g.scipy_code_lines[before:] == [
        "# Constraints (sparse)",
        "from scipy.sparse import csr_matrix",
        "A_eq_rows = []",
        "A_eq_cols = []",
        "A_eq_data = []",
        "b_eq = []",
        "A_ub_rows = [0]",
        "A_ub_cols = [0]",
        "A_ub_data = [1.0]",
        "b_ub = [4.0]",
        "A_eq = csr_matrix((A_eq_data, (A_eq_rows, A_eq_cols)), shape=(0, 2)) if len(b_eq) > 0 else None",
        "A_ub = csr_matrix((A_ub_data, (A_ub_rows, A_ub_cols)), shape=(1, 2)) if len(b_ub) > 0 else None",
    ]
    messages = [r.getMessage() for r in caplog.records if r.levelno == logging.DEBUG]
    assert messages[0] == "[SciPyCSCCodeGenerator] Entering _build_constraints"


def test_model_without_constraints_still_defines_every_matrix_name():
    m = {"declarations": [dvar("x")], "objective": minimize(name("x")), "constraints": []}
    lines = script_lines(m)
    for prefix in ("A_eq_rows = ", "A_eq_cols = ", "A_eq_data = ", "b_eq = ", "A_ub_rows = ", "A_ub_cols = ", "A_ub_data = ", "b_ub = "):
        assert literal_line(lines, prefix) == []
    ns = {"results_container": {}}
    exec(compile("\n".join(lines), "<kolva script>", "exec"), ns)
    assert ns["A_eq"] is None and ns["A_ub"] is None
    assert ns["results_container"]["scipy_output"]["status"] == "OPTIMAL"
    assert ns["results_container"]["scipy_output"]["objective_value"] == 0.0


def test_model_without_constraints_key_is_a_key_error():
    g = generator({"declarations": [dvar("x")], "objective": minimize(name("x"))})
    g._build_variables()
    g._build_objective()
    with pytest.raises(KeyError):
        g._build_constraints()


def test_rows_of_both_systems_are_numbered_separately():
    cons = [
        constraint("<=", name("x"), num(1)),
        constraint("==", name("y"), num(2)),
        constraint(">=", name("y"), name("x")),
        constraint("==", binop("+", name("x"), name("y")), num(5)),
    ]
    lines = script_lines(simple_model(cons))
    assert triplets(lines, "ub") == ([0, 1, 1], [0, 0, 1], [1.0, 1.0, -1.0], [1.0, -0.0])
    assert triplets(lines, "eq") == ([0, 1, 1], [1, 0, 1], [1.0, 1.0, 1.0], [2.0, 5.0])


def test_row_cancelling_to_zero_keeps_its_place():
    # x - x <= -1 has no non-zero but is still row 0; y <= 3 is row 1
    cons = [constraint("<=", binop("-", name("x"), name("x")), num(-1)), constraint("<=", name("y"), num(3))]
    lines = script_lines(simple_model(cons))
    assert triplets(lines, "ub") == ([1], [1], [1.0], [-1.0, 3.0])
    problem = generator(simple_model(cons)).build_problem()
    assert problem.A_ub == [[0.0, 0.0], [0.0, 1.0]]
    assert problem.b_ub == [-1.0, 3.0]


def test_tiny_coefficients_in_a_model_row():
    lhs = binop("+", binop("*", num(1e-12), name("x")), binop("*", num(1.1e-12), name("y")))
    lines = script_lines(simple_model([constraint("<=", lhs, num(1))]))
    assert triplets(lines, "ub") == ([0], [1], [1.1e-12], [1.0])


def test_auxiliary_columns_reach_the_rewritten_lines_after_the_driver():
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    g = built_rows(simple_model([asserted(dis)]))
    lines = g.scipy_code_lines
    assert "var_names = ['x', 'y', 'or_flag_0', 'or_flag_1']" in lines
    # the driver writes bound pairs in parentheses
    assert "bounds = [(0, None), (0, None), (0, 1), (0, 1)]" in lines
    assert "integrality = [0, 0, 1, 1]" in lines
    assert "c = [1.0, 0.0, 0.0, 0.0]" in lines
    assert g.c == [1.0, 0.0, 0.0, 0.0]
    assert len(g.c) == len(g.var_names)


def test_aux_created_is_reset_by_every_build():
    g = generator(simple_model([constraint("<=", name("x"), num(1))]))
    g._build_variables()
    g._build_objective()
    g._ensure_aux_binary("early")
    assert g.aux_created == ["early"]
    g._build_constraints()
    assert g.aux_created == []


@pytest.mark.parametrize("before", [False, True])
def test_symbolic_flag_is_restored_after_a_failing_constraint(before):
    cons = [constraint("<=", name("x"), num(1)), constraint("<=", binop("*", name("x"), name("y")), num(1))]
    g = generator(simple_model(cons))
    g._build_variables()
    g._build_objective()
    g._allow_symbolic_bool = before
    before_lines = len(g.scipy_code_lines)
    with pytest.raises(SemanticError) as err:
        g._build_constraints()
    assert str(err.value) == "Semantic Error: Unsupported nonlinear term type: variable * variable"
    assert g._allow_symbolic_bool is before
    # nothing past the heading line was emitted
    assert g.scipy_code_lines[before_lines:] == ["# Constraints (sparse)"]


@pytest.mark.parametrize("before", [False, True])
def test_symbolic_flag_is_restored_after_a_normal_build(before):
    g = generator(simple_model([constraint("<=", name("x"), num(1))]))
    g._build_variables()
    g._build_objective()
    g._allow_symbolic_bool = before
    g._build_constraints()
    assert g._allow_symbolic_bool is before


def test_symbolic_comparisons_are_allowed_while_constraints_are_built():
    # `(x <= 1) and (y <= 2) == false` is not claimed by the conjunction form
    # and its left side is evaluated as a symbolic value: allowed only here.
    conj = {"type": "and", "left": bool_binop("<=", name("x"), num(1)), "right": bool_binop("<=", name("y"), num(2))}
    g = built_rows(simple_model([constraint("==", conj, {"type": "boolean_literal", "value": False})]))
    assert g.b_eq == [0.0]
    assert g.A_eq == [[0.0, 0.0]]
    assert g._allow_symbolic_bool is False
    with pytest.raises(SemanticError):
        g._eval_expr(bool_binop("<=", name("x"), num(1)), {})


def test_script_with_rows_solves():
    cons = [constraint(">=", binop("+", name("x"), name("y")), num(3)), constraint("<=", name("x"), num(1))]
    out = run_script(generator(simple_model(cons)).generate_code())
    # minimize x with x + y >= 3, 0 <= x <= 1: x = 0
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == pytest.approx(0.0)
