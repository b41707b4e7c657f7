"""The constraint chain as far as it is built: parameters without data, the
general linear comparison, conjunctions and disjunctions asserted true,
forall, and what the end of the chain does with anything else."""

import logging

import pytest

from builders import dvar_indexed, forall, it, param_indexed, range_dim, range_spec, ref
from conftest import (
    GEN_LOGGER,
    binop,
    bool_binop,
    boolean,
    constraint,
    dvar,
    indexed,
    minimize,
    model,
    name,
    num,
    param_inline,
    paren,
)
from kolva.scipy_codegen_csc import BOOL_EPS
from kolva.semantic_error import SemanticError
from lp_builders import and_, asserted, built_rows, forall_many, generator, or_, param_external, script_lines, triplets

NO_DATA = "Constraint references parameter with no data provided"


def xy_model(constraints, extra=(), var_type="float"):
    return model([dvar("x", var_type), dvar("y", var_type), *extra], minimize(name("x")), constraints)


def rows_of(constraints, extra=(), data=None, var_type="float"):
    g = built_rows(xy_model(constraints, extra, var_type), data)
    return g.A_eq, g.b_eq, g.A_ub, g.b_ub


def with_debug(caplog, g):
    caplog.set_level(logging.DEBUG, logger=GEN_LOGGER)
    g.logger.setLevel(logging.DEBUG)
    caplog.clear()

    def messages(level=logging.DEBUG):
        return [r.getMessage() for r in caplog.records if r.levelno == level]

    return messages


def build_with_debug(caplog, constraints, extra=(), data=None):
    g = generator(xy_model(constraints, extra), data)
    g._build_variables()
    g._build_objective()
    messages = with_debug(caplog, g)
    g._build_constraints()
    return g, messages()


# ---------------------------------------------------------------- parameters without data


@pytest.mark.parametrize(
    "constr",
    [
        constraint("<=", name("p"), name("x")),
        constraint(">=", name("x"), name("p")),
        constraint("==", name("p"), num(1)),
        forall([it("i", range_spec(1, 2))], constraint("<=", name("p"), name("x"))),
    ],
    ids=["left", "right", "equality", "under-forall"],
)
def test_external_parameter_without_data_on_a_side_fails(constr):
    g = generator(xy_model([constr], [param_external("p")]))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == NO_DATA


def test_indexed_parameter_without_data_fails():
    decls = [param_indexed("q", range_dim(1, 2))]
    constr = constraint("<=", indexed("q", ref("i")), name("x"))
    g = generator(xy_model([forall([it("i", range_spec(1, 2))], constr)], decls))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == NO_DATA


def test_parameter_deeper_in_an_expression_is_read_as_zero_on_the_linear_row():
    # p * 2 <= x is not refused by the first test; the sum accumulation reads
    # the missing p as 0, giving -x <= 0.
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint("<=", binop("*", name("p"), num(2)), name("x"))], [param_external("p")])
    assert a_ub == [[-1.0, 0.0]]
    assert b_ub == [0.0]
    assert (a_eq, b_eq) == ([], [])


def test_parameter_with_data_is_bound():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint("<=", name("p"), name("x"))], [param_external("p")], {"p": 3})
    assert a_ub == [[-1.0, 0.0]]
    assert b_ub == [-3.0]


def test_inline_parameter_with_a_value_is_never_unbound():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint("<=", name("q"), name("x"))], [param_inline("q", 5)])
    assert a_ub == [[-1.0, 0.0]]
    assert b_ub == [-5.0]


def test_inline_parameter_with_a_null_value_and_no_data_is_unbound():
    g = generator(xy_model([constraint("<=", name("q"), name("x"))], [param_inline("q", None)]))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == NO_DATA


def test_missing_parameter_check_comes_before_the_log_line(caplog):
    g = generator(xy_model([constraint("<=", name("p"), name("x"))], [param_external("p")]))
    g._build_variables()
    g._build_objective()
    messages = with_debug(caplog, g)
    with pytest.raises(SemanticError):
        g._build_constraints()
    assert not any(m.startswith("[SciPyCSCCodeGenerator] handle_constraint: ") for m in messages())


# ---------------------------------------------------------------- the general linear comparison


def test_every_constraint_is_logged_as_it_stands(caplog):
    constr = constraint("<=", binop("+", name("x"), num(2)), name("y"))
    _, messages = build_with_debug(caplog, [constr])
    assert "[SciPyCSCCodeGenerator] handle_constraint: " + repr(constr) in messages


def test_general_row_debug_lines(caplog):
    constr = constraint("<=", binop("+", name("x"), num(2)), name("y"))
    _, messages = build_with_debug(caplog, [constr])
    start = messages.index("[SciPyCSCCodeGenerator] handle_constraint: " + repr(constr))
    row_lines = [m for m in messages[start:] if m.startswith("[SciPyCSCCodeGenerator] ")]
    assert row_lines[1:] == [
        "[SciPyCSCCodeGenerator] lhs_dict: {'x': 1.0}, lhs_const: 2.0",
        "[SciPyCSCCodeGenerator] rhs_dict: {'y': 1.0}, rhs_const: 0.0",
        "[SciPyCSCCodeGenerator] LHS vname: x, coef: 1.0, idx: 0",
        "[SciPyCSCCodeGenerator] RHS vname: y, coef: 1.0, idx: 1",
        "[SciPyCSCCodeGenerator] Final constraint row: [1.0, -1.0], rhs_value: -2.0",
    ]


def test_sum_side_is_logged_by_column(caplog):
    decls = [dvar_indexed("z", range_dim(1, 2))]
    total = {"type": "sum", "iterators": [it("i", range_spec(1, 2))], "expression": indexed("z", ref("i"))}
    constr = constraint("<=", total, num(4))
    _, messages = build_with_debug(caplog, [constr], decls)
    assert "[SciPyCSCCodeGenerator] lhs_dict: {2: 1.0, 3: 1.0}, lhs_const: 0.0" in messages
    assert "[SciPyCSCCodeGenerator] LHS vname: 2, coef: 1.0, idx: 2" in messages
    assert "[SciPyCSCCodeGenerator] Final constraint row: [0.0, 0.0, 1.0, 1.0], rhs_value: 4.0" in messages


def test_equality_with_constant_on_the_right():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint("==", name("x"), binop("+", name("y"), num(3)))])
    assert a_eq == [[1.0, -1.0]]
    assert b_eq == [3.0]
    assert (a_ub, b_ub) == ([], [])


def test_constant_on_the_left_of_less_equal():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint("<=", num(2), name("x"))])
    assert a_ub == [[-1.0, 0.0]]
    assert b_ub == [-2.0]


def test_greater_equal_is_stored_negated():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint(">=", binop("-", binop("*", num(2), name("x")), name("y")), num(7))])
    assert a_ub == [[-2.0, 1.0]]
    assert b_ub == [-7.0]


def test_greater_equal_zero_still_gives_its_row():
    lines = script_lines(xy_model([constraint(">=", name("x"), num(0))]))
    assert triplets(lines, "ub") == ([0], [0], [-1.0], [-0.0])
    assert "b_ub = [-0.0]" in lines


def test_strict_greater_is_adjusted_and_negated():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint(">", name("x"), num(3))])
    assert a_ub == [[-1.0, 0.0]]
    assert b_ub == [-(3.0 + BOOL_EPS)]
    assert b_ub == [-3.000001]


def test_strict_less_is_adjusted():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint("<", name("x"), num(3))])
    assert a_ub == [[1.0, 0.0]]
    assert b_ub == [3.0 - BOOL_EPS]


def test_strict_greater_with_the_variable_on_the_right():
    # 3 > x: row -x, rhs_value -3; ">" moves it to -3 + eps, then negated
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint(">", num(3), name("x"))])
    assert a_ub == [[1.0, 0.0]]
    assert b_ub == [-(-3.0 + BOOL_EPS)]


def test_variables_on_both_sides_cancel_but_keep_the_row():
    a_eq, b_eq, a_ub, b_ub = rows_of([constraint("<=", binop("+", name("x"), name("y")), binop("+", name("x"), num(1)))])
    assert a_ub == [[0.0, 1.0]]
    assert b_ub == [1.0]


def test_unknown_operator_drops_the_constraint_with_a_debug_line(caplog):
    g, messages = build_with_debug(caplog, [constraint("~", name("x"), num(1)), constraint("<=", name("y"), num(2))])
    assert "Unsupported op: ~" in messages
    assert g.A_ub == [[0.0, 1.0]]
    assert g.b_ub == [2.0]
    assert (g.A_eq, g.b_eq) == ([], [])


# ---------------------------------------------------------------- conjunctions asserted true


def test_conjunction_posts_each_comparison_in_order():
    conj = and_(
        bool_binop("<=", name("x"), num(1)),
        paren(and_(bool_binop(">=", name("y"), num(2)), bool_binop("==", name("x"), name("y")))),
    )
    a_eq, b_eq, a_ub, b_ub = rows_of([asserted(conj)])
    assert a_ub == [[1.0, 0.0], [0.0, -1.0]]
    assert b_ub == [1.0, -2.0]
    assert a_eq == [[1.0, -1.0]]
    assert b_eq == [0.0]


def test_conjunction_with_a_plain_name_leaf_is_refused():
    g = generator(xy_model([asserted(and_(bool_binop("<=", name("x"), num(1)), name("y")))]))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == "Semantic Error: Unsupported boolean leaf type: " + repr(name("y"))


def test_conjunction_with_a_strict_comparison_leaf_is_refused():
    leaf = bool_binop("<", name("y"), num(2))
    g = generator(xy_model([asserted(and_(bool_binop("<=", name("x"), num(1)), leaf))]))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == "Semantic Error: Unsupported boolean leaf type: " + repr(leaf)


# ---------------------------------------------------------------- disjunctions asserted true


def test_disjunction_of_two_comparisons():
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    g = built_rows(xy_model([asserted(dis)]))
    assert g.var_names == ["x", "y", "or_flag_0", "or_flag_1"]
    assert g.bounds[2:] == [[0, 1], [0, 1]]
    assert g.integrality == [0, 0, 1, 1]
    # x <= 1: expr x - 1 over the default box [-1000, 1000]: f_min -1001,
    # f_max 999, width 2000, M = 2001; row x + M z0 <= M - (-1) = 2002.
    # y >= 2: expr y - 2: the same M; row -y + M z1 <= M + (-2) = 1999.
    assert g.A_ub == [
        [1.0, 0.0, 2001.0, 0.0],
        [0.0, -1.0, 0.0, 2001.0],
        [0.0, 0.0, -1.0, -1.0],
    ]
    assert g.b_ub == [2002.0, 1999.0, -1.0]
    assert (g.A_eq, g.b_eq) == ([], [])


def test_second_disjunction_appends_an_underscore():
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    g = built_rows(xy_model([asserted(dis), asserted(dis)]))
    assert g.var_names == ["x", "y", "or_flag_0", "or_flag_1", "or_flag_0_", "or_flag_1_"]
    assert g.b_ub == [2002.0, 1999.0, -1.0, 2002.0, 1999.0, -1.0]
    assert g.A_ub[5] == [0.0, 0.0, 0.0, 0.0, -1.0, -1.0]
    assert g.A_ub[3] == [1.0, 0.0, 0.0, 0.0, 2001.0, 0.0]


def test_disjunction_rows_in_the_script():
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    lines = script_lines(xy_model([asserted(dis)]))
    assert triplets(lines, "ub") == (
        [0, 0, 1, 1, 2, 2],
        [0, 2, 1, 3, 2, 3],
        [1.0, 2001.0, -1.0, 2001.0, -1.0, -1.0],
        [2002.0, 1999.0, -1.0],
    )
    assert "integrality = [0, 0, 1, 1]" in lines


def test_disjunct_that_is_a_conjunction_shares_one_flag():
    group = and_(bool_binop("<=", name("x"), num(1)), bool_binop("<=", name("y"), num(3)))
    dis = or_(group, bool_binop(">=", name("y"), num(5)))
    g = built_rows(xy_model([asserted(dis)]))
    assert g.var_names == ["x", "y", "or_flag_0", "or_flag_1"]
    # the group's comparisons come off a stack: y <= 3 before x <= 1
    # y <= 3: y - 3 in [-1003, 997], width 2000, M 2001, rhs 2001 + 3
    # x <= 1: rhs 2001 + 1;  y >= 5: y - 5 in [-1005, 995], M 2001, rhs 2001 - 5
    assert g.A_ub == [
        [0.0, 1.0, 2001.0, 0.0],
        [1.0, 0.0, 2001.0, 0.0],
        [0.0, -1.0, 0.0, 2001.0],
        [0.0, 0.0, -1.0, -1.0],
    ]
    assert g.b_ub == [2004.0, 2002.0, 1996.0, -1.0]


def test_equality_disjunct_gives_both_rows():
    dis = or_(bool_binop("==", name("x"), num(4)), bool_binop("<=", name("y"), num(0)))
    g = built_rows(xy_model([asserted(dis)]))
    # x == 4: x - 4 in [-1004, 996], width 2000: M 2001
    # "<=" row x + M z0 <= 2001 + 4, ">=" row -x + M z0 <= 2001 - 4
    # y <= 0: y in [-1000, 1000]: M 2001, rhs 2001
    assert g.A_ub == [
        [1.0, 0.0, 2001.0, 0.0],
        [-1.0, 0.0, 2001.0, 0.0],
        [0.0, 1.0, 0.0, 2001.0],
        [0.0, 0.0, -1.0, -1.0],
    ]
    assert g.b_ub == [2005.0, 1997.0, 2001.0, -1.0]


def test_disjunction_asserted_false_is_not_claimed():
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    g = built_rows(xy_model([constraint("==", dis, boolean(False))]))
    assert g.var_names == ["x", "y"]
    # the general row: nothing numeric on either side
    assert g.A_eq == [[0.0, 0.0]]
    assert g.b_eq == [0.0]
    assert g.A_ub == []


def test_disjunction_with_a_name_leaf_is_refused():
    g = generator(xy_model([asserted(or_(bool_binop("<=", name("x"), num(1)), name("y")))]))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == "Semantic Error: Unsupported boolean leaf type: " + repr(name("y"))


def test_disjunction_flags_pad_an_objective_vector_one_entry_each():
    # without the objective phase c is still the empty list: each flag adds
    # one 0.0 to it, and the metadata reconciliation fills the rest
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    g = generator(xy_model([asserted(dis)]))
    g._build_variables()
    g._build_constraints()
    assert g.var_names == ["x", "y", "or_flag_0", "or_flag_1"]
    assert g.c == [0.0, 0.0]
    g._reconcile_problem_metadata()
    assert g.c == [0.0, 0.0, 0.0, 0.0]


def test_ground_disjunction_creates_the_integrality_list():
    # (1 <= 2) or (3 >= 5): constants -1 and -2, so M = 2 and M = 3;
    # rows 2 z0 <= 2 - (-1) and 3 z1 <= 3 + (-2), then -z0 - z1 <= -1
    dis = or_(bool_binop("<=", num(1), num(2)), bool_binop(">=", num(3), num(5)))
    g = generator(model([], minimize(num(0)), [asserted(dis)]))
    with pytest.raises(AttributeError):
        g.integrality
    g._build_constraints()
    assert g.var_names == ["or_flag_0", "or_flag_1"]
    assert g.integrality == [1, 1]
    assert g.bounds == [[0, 1], [0, 1]]
    assert g.A_ub == [[2.0, 0.0], [0.0, 3.0], [-1.0, -1.0]]
    assert g.b_ub == [3.0, 1.0, -1.0]


def test_disjunction_solves_to_the_better_branch():
    # minimize x + y with x >= 3, y >= 0 and (x <= 1 or y >= 2): x <= 1 is
    # impossible, so y >= 2 holds and the optimum is x = 3, y = 2: 5.
    dis = or_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2)))
    m = model(
        [dvar("x", "float+"), dvar("y", "float+")],
        minimize(binop("+", name("x"), name("y"))),
        [constraint(">=", name("x"), num(3)), asserted(dis)],
    )
    from lp_builders import run_script, solve_problem

    out = run_script(generator(m).generate_code())
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == pytest.approx(5.0)
    value, _ = solve_problem(generator(m).build_problem())
    assert value == pytest.approx(5.0)


# ---------------------------------------------------------------- forall


def test_forall_posts_one_row_per_value():
    decls = [dvar_indexed("z", range_dim(1, 3))]
    body = constraint("<=", indexed("z", ref("i")), binop("*", num(2), name("i")))
    a_eq, b_eq, a_ub, b_ub = rows_of([forall([it("i", range_spec(1, 3))], body)], decls)
    assert a_ub == [
        [0.0, 0.0, 1.0, 0.0, 0.0],
        [0.0, 0.0, 0.0, 1.0, 0.0],
        [0.0, 0.0, 0.0, 0.0, 1.0],
    ]
    assert b_ub == [2.0, 4.0, 6.0]


def test_forall_over_two_iterators_last_varies_fastest():
    body = constraint("<=", name("x"), binop("+", binop("*", num(10), name("i")), name("j")))
    a_eq, b_eq, a_ub, b_ub = rows_of([forall([it("i", range_spec(1, 2)), it("j", range_spec(1, 3))], body)])
    assert b_ub == [11.0, 12.0, 13.0, 21.0, 22.0, 23.0]
    assert a_ub == [[1.0, 0.0]] * 6


def test_forall_filter_skips_false_combinations():
    body = constraint("<=", name("x"), name("i"))
    cond = binop("!=", name("i"), num(2))
    a_eq, b_eq, a_ub, b_ub = rows_of([forall([it("i", range_spec(1, 4))], body, cond)])
    assert b_ub == [1.0, 3.0, 4.0]


def test_forall_filter_that_cannot_be_evaluated_keeps_every_combination():
    body = constraint("<=", name("x"), name("i"))
    cond = binop("==", name("i"), name("nowhere"))
    a_eq, b_eq, a_ub, b_ub = rows_of([forall([it("i", range_spec(1, 3))], body, cond)])
    assert b_ub == [1.0, 2.0, 3.0]


def test_forall_over_an_empty_range_posts_nothing():
    body = constraint("<=", name("x"), name("i"))
    a_eq, b_eq, a_ub, b_ub = rows_of([forall([it("i", range_spec(1, 0))], body)])
    assert (a_eq, b_eq, a_ub, b_ub) == ([], [], [], [])


def test_forall_with_a_list_of_bodies():
    bodies = [constraint("<=", name("x"), name("i")), constraint("==", name("y"), binop("*", num(3), name("i")))]
    a_eq, b_eq, a_ub, b_ub = rows_of([forall_many([it("i", range_spec(1, 2))], bodies)])
    assert b_ub == [1.0, 2.0]
    assert b_eq == [3.0, 6.0]
    assert a_eq == [[0.0, 1.0], [0.0, 1.0]]


def test_nested_forall_sees_the_outer_iterator_in_its_body():
    inner = forall([it("j", range_spec(1, 2))], constraint("<=", name("x"), binop("-", binop("*", num(10), name("i")), name("j"))))
    a_eq, b_eq, a_ub, b_ub = rows_of([forall([it("i", range_spec(1, 2))], inner)])
    assert b_ub == [9.0, 8.0, 19.0, 18.0]


def test_forall_range_bound_does_not_read_the_environment():
    # forall bounds are evaluated up front from the data: `i` is no data
    # entry, so the inner range 1..i is 1..1 whatever the outer value is.
    inner = forall([it("j", range_spec(1, name("i")))], constraint("<=", name("x"), binop("-", name("i"), name("j"))))
    a_eq, b_eq, a_ub, b_ub = rows_of([forall([it("i", range_spec(1, 3))], inner)])
    assert b_ub == [0.0, 1.0, 2.0]


def test_forall_without_iterators_is_refused():
    node = {"type": "forall_constraint", "constraint": constraint("<=", name("x"), num(1))}
    g = generator(xy_model([node]))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == "Semantic Error: Unsupported forall_constraint type: missing iterators"


def test_forall_without_a_body_is_refused():
    node = {"type": "forall_constraint", "iterators": [it("i", range_spec(1, 2))]}
    g = generator(xy_model([node]))
    with pytest.raises(SemanticError) as err:
        g.build_problem()
    assert str(err.value) == "Semantic Error: Unsupported forall_constraint type: missing constraint(s)"


# ---------------------------------------------------------------- the end of the chain


def test_unknown_constraint_type_is_logged_and_dropped(caplog):
    g, messages = build_with_debug(caplog, [{"type": "soft_constraint"}, constraint("<=", name("x"), num(1))])
    assert "Unsupported constraint type: soft_constraint" in messages
    assert g.A_ub == [[1.0, 0.0]]
    assert g.b_ub == [1.0]


def test_implication_is_claimed_before_the_comparison_forms():
    # `x == 1 => y <= 0` is an indicator on a Boolean: one row x + y <= 1,
    # no new column, and the comparison after it is untouched.
    impl = {
        "type": "implication_constraint",
        "antecedent": constraint("==", name("x"), num(1)),
        "consequent": constraint("<=", name("y"), num(0)),
    }
    g = built_rows(xy_model([impl, constraint("<=", name("y"), num(5))], var_type="boolean"))
    assert g.A_ub == [[1.0, 1.0], [0.0, 1.0]]
    assert g.b_ub == [1.0, 5.0]
    assert (g.A_eq, g.b_eq) == ([], [])
    assert g.var_names == ["x", "y"]
