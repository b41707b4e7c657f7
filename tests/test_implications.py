"""Implication constraints `A => B`: normalization of the two sides, the
indicator rows of a Boolean or zero-tested antecedent (no new variable), the
fixed-charge link `x > 0 => y == 1`, and implications between two linear
comparisons, which get a binary flag `implication_flag_c<n>`.

An implication constraint skips the bound collection and the comparison forms
of the constraint chain: it goes straight from its normalization to the first
implication form that matches, and that form either returns or fails."""

import pytest

from builders import dvar_indexed, param_indexed, range_dim
from conftest import binop, bool_binop, boolean, constraint, dvar, indexed, lit_index, minimize, model, name, num, paren
from kolva.scipy_codegen_csc import BIG_M_DEFAULT, BOOL_EPS
from kolva.semantic_error import SemanticError
from lp_builders import and_, built_rows, generator

# ---------------------------------------------------------------- helpers


def impl(antecedent, consequent):
    return {"type": "implication_constraint", "antecedent": antecedent, "consequent": consequent}


def build(declarations, constraints, data=None):
    return built_rows(model(declarations, minimize(num(0)), constraints), data)


def failing_build(declarations, constraints, data=None):
    """Runs the three phases and returns (generator, error)."""
    g = generator(model(declarations, minimize(num(0)), constraints), data)
    g._build_variables()
    g._build_objective()
    with pytest.raises(SemanticError) as err:
        g._build_constraints()
    return g, str(err.value)


def x_at(k):
    return indexed("x", lit_index(k))


def y_at(k):
    return indexed("y", lit_index(k))


M = BIG_M_DEFAULT

# ---------------------------------------------------------------- y == 0 => x <= r


def one_x(**bounds):
    """A Boolean `y` (column 0) and a one-element array x over 1..1 whose
    bounds come from its declaration (column 1, named x_1)."""
    return [dvar("y", "boolean"), dvar_indexed("x", range_dim(1, 1), var_type="float+", **bounds)]


def test_zero_antecedent_uses_a_declared_upper_bound_below_one_as_one():
    # antecedent `y == 0` is a zero test, consequent `x <= 5` a variable
    # against a number: the first indicator form. x_1 is declared in
    # [0, 0.5]; M = max(0.5, 1.0) = 1.0. Row x - M*y <= r.
    g = build(one_x(upper_bound=num(0.5)), [impl(constraint("==", name("y"), num(0)), constraint("<=", x_at(1), num(5)))])
    assert g.var_names == ["y", "x_1"]
    assert g.A_ub == [[-1.0, 1.0]]
    assert g.b_ub == [5.0]
    assert (g.A_eq, g.b_eq) == ([], [])
    # indicator rows make no flag, so the flag counter does not move
    assert getattr(g, "_impl_counter", 0) == 0


def test_zero_antecedent_without_an_upper_bound_uses_the_default():
    g = build(one_x(), [impl(constraint("==", name("y"), num(0)), constraint("<=", x_at(1), num(5)))])
    assert g.A_ub == [[-M, 1.0]]
    assert g.b_ub == [5.0]


def test_zero_antecedent_big_m_ignores_the_right_hand_side():
    # ub 10, r 4: x - 10*y <= 4 (M is not raised or lowered by r)
    g = build(one_x(upper_bound=num(10)), [impl(constraint("==", name("y"), num(0)), constraint("<=", x_at(1), num(4)))])
    assert g.A_ub == [[-10.0, 1.0]]
    assert g.b_ub == [4.0]


def test_zero_antecedent_with_the_number_on_the_left():
    # `0 == y` is recognised from either side
    g = build(one_x(upper_bound=num(10)), [impl(constraint("==", num(0), name("y")), constraint("<=", x_at(1), num(4)))])
    assert g.A_ub == [[-10.0, 1.0]]
    assert g.b_ub == [4.0]


def test_zero_antecedent_forcing_zero_writes_only_the_upper_side():
    # second indicator form: `y == 0 => x == 0` gives x - M*y <= 0 alone
    g = build(one_x(upper_bound=num(10)), [impl(constraint("==", name("y"), num(0)), constraint("==", x_at(1), num(0)))])
    assert g.A_ub == [[-10.0, 1.0]]
    assert g.b_ub == [0.0]
    assert (g.A_eq, g.b_eq) == ([], [])
    assert g.var_names == ["y", "x_1"]


# ---------------------------------------------------------------- x > 0 => y == 1


def charge_decls():
    # x_0..x_3 are columns 0..3, y_0..y_3 columns 4..7
    return [
        dvar_indexed("x", range_dim(0, 3)),
        dvar_indexed("y", range_dim(0, 3), var_type="boolean"),
        param_indexed("demand", range_dim(1, 3)),
    ]


def charge(k):
    return impl(constraint(">", x_at(k), num(0)), constraint("==", y_at(k), num(1)))


def charge_row(x_col, y_col, big_m):
    row = [0.0] * 8
    row[x_col] = 1.0
    row[y_col] = -big_m
    return row


def test_fixed_charge_takes_big_m_from_the_demand_list():
    # no bound collected for x_3 or x: the last index 3 picks the third
    # entry of the list under "demand": x_3 - 9*y_3 <= 0
    g = build(charge_decls(), [charge(3)], {"demand": [7, 8, 9]})
    assert g.A_ub == [charge_row(3, 7, 9.0)]
    assert g.b_ub == [0.0]
    assert g.var_names[-1] == "y_3"


def test_fixed_charge_index_zero_is_outside_the_demand_list():
    g = build(charge_decls(), [charge(0)], {"demand": [7, 8, 9]})
    assert g.A_ub == [charge_row(0, 4, M)]
    assert g.b_ub == [0.0]


def test_fixed_charge_index_past_a_short_demand_list():
    g = build(charge_decls(), [charge(3)], {"demand": [7, 8]})
    assert g.A_ub == [charge_row(3, 7, M)]


def test_fixed_charge_prefers_a_bound_collected_for_the_full_name():
    # `x[3] <= 40` is posted first (its own row), and its bound collection
    # records 40 for x_3: the data is not looked at.
    g = build(charge_decls(), [constraint("<=", x_at(3), num(40)), charge(3)], {"demand": [7, 8, 9]})
    assert g.A_ub == [[0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0], charge_row(3, 7, 40.0)]
    assert g.b_ub == [40.0, 0.0]


def test_fixed_charge_falls_back_to_a_bound_under_the_base_symbol():
    # `x[2] <= 30` records 30 for x_2 and for x; x_3 has no entry of its own
    g = build(charge_decls(), [constraint("<=", x_at(2), num(30)), charge(3)], {"demand": [7, 8, 9]})
    assert g.A_ub[1] == charge_row(3, 7, 30.0)
    assert g.b_ub == [30.0, 0.0]


def scalar_charge(antecedent):
    decls = [dvar("x", "float+"), dvar("y", "boolean")]
    return build(decls, [impl(antecedent, constraint("==", name("y"), num(1)))])


def test_zero_on_the_left_of_greater_equal_reads_as_x_positive():
    # `0 >= x` is read as `x > 0`: same row, x - M*y <= 0 (no bound, no data)
    g1 = scalar_charge(constraint(">", name("x"), num(0)))
    g2 = scalar_charge(constraint(">=", num(0), name("x")))
    assert g1.A_ub == [[1.0, -M]]
    assert g1.b_ub == [0.0]
    assert g2.A_ub == g1.A_ub
    assert g2.b_ub == g1.b_ub


def test_fixed_charge_needs_both_variables():
    g, message = failing_build(
        [dvar("x", "float+")],
        [impl(constraint(">", name("x"), num(0)), constraint("==", name("ghost"), num(1)))],
    )
    assert message == "Implication variables not indexed properly"


# ---------------------------------------------------------------- b == 1 => ...


def indicator(consequent):
    # b: column 0 (Boolean), y: column 1 (int+), x: column 2 (float)
    decls = [dvar("b", "boolean"), dvar("y", "int+"), dvar("x", "float")]
    return build(decls, [impl(constraint("==", name("b"), num(1)), consequent)])


@pytest.mark.parametrize(
    "consequent",
    [constraint("==", name("y"), num(1)), constraint(">=", name("y"), num(1)), constraint("==", num(1), name("y"))],
    ids=["y-eq-1", "y-ge-1", "1-eq-y"],
)
def test_boolean_antecedent_forcing_one(consequent):
    # b - y <= 0, with no new variable
    g = indicator(consequent)
    assert g.var_names == ["b", "y", "x"]
    assert g.A_ub == [[1.0, -1.0, 0.0]]
    assert g.b_ub == [0.0]


@pytest.mark.parametrize(
    "consequent",
    [constraint("==", name("y"), num(0)), constraint("<=", name("y"), num(0))],
    ids=["y-eq-0", "y-le-0"],
)
def test_boolean_antecedent_forcing_zero(consequent):
    # b + y <= 1
    g = indicator(consequent)
    assert g.A_ub == [[1.0, 1.0, 0.0]]
    assert g.b_ub == [1.0]


def test_boolean_antecedent_with_a_threshold_above_one_is_a_linear_indicator():
    # `y >= 2` is no 0/1 test: the linear case. lhs {y: 1}, value 2, ">="
    # negated: -y + M*b <= -2 + M.
    g = indicator(constraint(">=", name("y"), num(2)))
    assert g.A_ub == [[M, -1.0, 0.0]]
    assert g.b_ub == [-2.0 + M]
    assert g.var_names == ["b", "y", "x"]


def test_boolean_antecedent_strict_greater_moves_by_eps_before_negation():
    g = indicator(constraint(">", name("x"), num(3)))
    assert g.A_ub == [[M, 0.0, -1.0]]
    assert g.b_ub == [-(3.0 + BOOL_EPS) + M]


def test_boolean_antecedent_strict_less():
    g = indicator(constraint("<", name("x"), num(3)))
    assert g.A_ub == [[M, 0.0, 1.0]]
    assert g.b_ub == [(3.0 - BOOL_EPS) + M]


def test_boolean_antecedent_linear_consequent_over_two_variables():
    # x + 2*y <= 7: lhs {x: 1, y: 2}, value 7 - 0
    g = indicator(constraint("<=", binop("+", name("x"), binop("*", num(2), name("y"))), num(7)))
    assert g.A_ub == [[M, 2.0, 1.0]]
    assert g.b_ub == [7.0 + M]


def test_boolean_antecedent_consequent_with_variables_on_both_sides():
    # x >= y: lhs {x: 1, y: -1}, value 0, negated: -x + y + M*b <= M
    g = indicator(constraint(">=", name("x"), name("y")))
    assert g.A_ub == [[M, 1.0, -1.0]]
    assert g.b_ub == [M]


@pytest.mark.parametrize(
    "consequent",
    [constraint("==", name("x"), num(3)), constraint("==", name("y"), num(2)), constraint("!=", name("y"), num(1))],
    ids=["x-eq-3", "y-eq-2", "y-ne-1"],
)
def test_boolean_antecedent_with_an_unsupported_consequent(consequent):
    decls = [dvar("b", "boolean"), dvar("y", "int+"), dvar("x", "float")]
    _, message = failing_build(decls, [impl(constraint("==", name("b"), num(1)), consequent)])
    assert message == "Unsupported implication consequent form"


def test_boolean_antecedent_needs_a_constraint_consequent():
    decls = [dvar("b", "boolean"), dvar("c", "boolean")]
    _, message = failing_build(decls, [impl(constraint("==", name("b"), num(1)), name("c", sem_type="boolean"))])
    assert message == "Implication consequent must be a constraint"


def test_antecedent_that_is_no_constraint_is_refused():
    # a bare comparison node (not a constraint node) is neither `var == 1`
    # nor a linear constraint
    decls = [dvar("x", "float+"), dvar("y", "float+")]
    _, message = failing_build(decls, [impl(bool_binop(">=", name("x"), num(1)), constraint("<=", name("y"), num(2)))])
    assert message == "Implication antecedent must be boolean var == 1 or linear constraint"


# ---------------------------------------------------------------- comparison antecedents


def xy():
    return [dvar("x", "float+"), dvar("y", "float+")]


def bounded_equality(consequent):
    # `x <= 10` and `y <= 5` narrow the declared bounds to [0, 10] and
    # [0, 5] before any row is made, and post their own two rows first.
    return build(
        xy(),
        [
            constraint("<=", name("x"), num(10)),
            constraint("<=", name("y"), num(5)),
            impl(constraint("==", name("x"), num(2)), consequent),
        ],
    )


def test_equality_antecedent_rows():
    # `x == 2` is not a 0/1 test, so the comparison case: D = {x: 1},
    # d = -2. With x in [0, 10]: diff_min = 0 - 2 = -2, diff_max = 10 - 2 = 8,
    # M = 8. Flag f = implication_flag_c0 (column 2). Rows:
    #   x + 8f <= 8 + 2,  -x + 8f <= 8 - 2,  x - 8f <= 2,  -x - 8f <= -2
    # Consequent y <= 1: {y: 1}, k = -1, M_c = max(|5|, |0|) = 5:
    #   y + 5f <= 5 + 1
    g = bounded_equality(constraint("<=", name("y"), num(1)))
    assert g.var_names == ["x", "y", "implication_flag_c0"]
    assert g.bounds[2] == [0, 1]
    assert g.integrality == [0, 0, 1]
    assert g.aux_created == []
    assert g._impl_counter == 1
    assert g.A_ub == [
        [1.0, 0.0, 0.0],
        [0.0, 1.0, 0.0],
        [1.0, 0.0, 8.0],
        [-1.0, 0.0, 8.0],
        [1.0, 0.0, -8.0],
        [-1.0, 0.0, -8.0],
        [0.0, 1.0, 5.0],
    ]
    assert g.b_ub == [10.0, 5.0, 10.0, 6.0, 2.0, -2.0, 6.0]
    assert (g.A_eq, g.b_eq) == ([], [])


def test_equality_antecedent_with_an_unbounded_variable_uses_the_default():
    # x has no upper bound: M = 1e6 for the antecedent rows, while the
    # consequent's M_c still comes from y in [0, 5].
    implication = impl(constraint("==", name("x"), num(2)), constraint("<=", name("y"), num(1)))
    g = build(xy(), [constraint("<=", name("y"), num(5)), implication])
    assert g.A_ub == [
        [0.0, 1.0, 0.0],
        [1.0, 0.0, M],
        [-1.0, 0.0, M],
        [1.0, 0.0, -M],
        [-1.0, 0.0, -M],
        [0.0, 1.0, 5.0],
    ]
    assert g.b_ub == [5.0, M + 2.0, M - 2.0, 2.0, -2.0, 6.0]


def test_consequent_without_variables_uses_the_default_big_m():
    # `3 <= 4`: no variable, M_c stays 0.0 and becomes 1e6; k = 3 - 4 = -1
    implication = impl(constraint("==", name("x"), num(2)), constraint("<=", num(3), num(4)))
    g = build(xy(), [constraint("<=", name("x"), num(10)), implication])
    assert g.A_ub[-1] == [0.0, 0.0, M]
    assert g.b_ub[-1] == M + 1.0
    assert g.b_ub == [10.0, 10.0, 6.0, 2.0, -2.0, M + 1.0]


def test_strict_consequent_gets_no_eps_after_an_equality_antecedent():
    strict = bounded_equality(constraint("<", name("y"), num(2)))
    plain = bounded_equality(constraint("<=", name("y"), num(2)))
    # y + 5f <= 5 - (-2)
    assert strict.A_ub[-1] == [0.0, 1.0, 5.0]
    assert strict.b_ub[-1] == 7.0
    assert strict.A_ub == plain.A_ub
    assert strict.b_ub == plain.b_ub


def test_greater_consequent_after_an_equality_antecedent_swaps_the_sides():
    # `y >= 1`: the form is 1 - y, {y: -1}, k = 1; M_c = max(|-1*5|, |-1*0|) = 5
    g = bounded_equality(constraint(">=", name("y"), num(1)))
    assert g.A_ub[-1] == [0.0, -1.0, 5.0]
    assert g.b_ub[-1] == 4.0


def bounded_inequality(antecedent, consequent):
    # `x <= 4` and `y <= 5` are recorded by bound collection before the
    # implication is reached; with the declared lower bound 0 of float+ the
    # bound estimates are x in [0, 4] and y in [0, 5].
    bounds = [constraint("<=", name("x"), num(4)), constraint("<=", name("y"), num(5))]
    return build(xy(), bounds + [impl(antecedent, consequent)])


def test_inequality_antecedent_rows():
    # `x >= 1`: D = {x: 1}, d = -1; diff_min = 0 - 1 = -1, diff_max = 4 - 1 = 3;
    # M1 = 1, U_a = 3. Rows
    #   -x + 1f <= 1 + (-1)     (f = 1 forces x >= 1)
    #    x - 3f <= 1            (f = 0 forces x <= 1)
    # Consequent `y <= 2`: {y: 1}, k = -2, M_c = 5 - 2 = 3: y + 3f <= 3 + 2.
    g = bounded_inequality(constraint(">=", name("x"), num(1)), constraint("<=", name("y"), num(2)))
    assert g.var_names == ["x", "y", "implication_flag_c0"]
    assert g.A_ub == [
        [1.0, 0.0, 0.0],
        [0.0, 1.0, 0.0],
        [-1.0, 0.0, 1.0],
        [1.0, 0.0, -3.0],
        [0.0, 1.0, 3.0],
    ]
    assert g.b_ub == [4.0, 5.0, 0.0, 1.0, 5.0]


def test_strict_antecedent_gets_no_eps():
    strict = bounded_inequality(constraint(">", name("x"), num(1)), constraint("<=", name("y"), num(2)))
    plain = bounded_inequality(constraint(">=", name("x"), num(1)), constraint("<=", name("y"), num(2)))
    assert strict.var_names == ["x", "y", "implication_flag_c0"]
    assert strict.b_ub[2:4] == [0.0, 1.0]
    assert strict.A_ub == plain.A_ub
    assert strict.b_ub == plain.b_ub


def test_less_equal_antecedent_reverses_the_difference():
    # `x <= 3`: D, d from 3 - x: {x: -1}, d = 3; diff_min = rL - lU = 3 - 4,
    # diff_max = rU - lL = 3 - 0. M1 = 1, U_a = 3.
    #   x + 1f <= 1 + 3,   -x - 3f <= -3
    g = bounded_inequality(constraint("<=", name("x"), num(3)), constraint("<=", name("y"), num(2)))
    assert g.A_ub[2:4] == [[1.0, 0.0, 1.0], [-1.0, 0.0, -3.0]]
    assert g.b_ub[2:4] == [4.0, -3.0]


def test_strict_less_consequent_gets_eps_after_an_inequality_antecedent():
    # `y < 2`: k = -2 + 1e-06, M_c = 3: y + 3f <= 3 - k
    g = bounded_inequality(constraint(">=", name("x"), num(1)), constraint("<", name("y"), num(2)))
    assert g.A_ub[-1] == [0.0, 1.0, 3.0]
    assert g.b_ub[-1] == pytest.approx(3.0 - (-2.0 + BOOL_EPS), abs=1e-12)
    assert g.b_ub[-1] != 5.0


def test_strict_greater_consequent_after_an_inequality_antecedent():
    # `y > 2`: the form of 2 - y, {y: -1}, k = 2 + 1e-06;
    # diff_c_max = dU - cL = 2 - 0 = 2: -y + 2f <= 2 - k
    g = bounded_inequality(constraint(">=", name("x"), num(1)), constraint(">", name("y"), num(2)))
    assert g.A_ub[-1] == [0.0, -1.0, 2.0]
    assert g.b_ub[-1] == pytest.approx(-BOOL_EPS, abs=1e-12)


def test_inequality_antecedent_without_bounds_uses_the_defaults():
    # No bound estimate for x above: L_a = -1e6, M1 = 1e6, U_a = 1e6; y has
    # no upper estimate either, so M_c = 1e6.
    g = build(xy(), [impl(constraint(">=", name("x"), num(1)), constraint("<=", name("y"), num(2)))])
    assert g.A_ub == [[-1.0, 0.0, M], [1.0, 0.0, -M], [0.0, 1.0, M]]
    assert g.b_ub == [M - 1.0, 1.0, M + 2.0]


def test_two_implications_get_consecutive_flags():
    g = build(
        xy(),
        [
            impl(constraint(">=", name("x"), num(1)), constraint("<=", name("y"), num(2))),
            impl(constraint("==", name("x"), num(2)), constraint("<=", name("y"), num(1))),
        ],
    )
    assert g.var_names == ["x", "y", "implication_flag_c0", "implication_flag_c1"]
    assert g._impl_counter == 2
    assert g.bounds[2:] == [[0, 1], [0, 1]]
    assert g.integrality == [0, 0, 1, 1]
    assert g.c == [0.0, 0.0, 0.0, 0.0]
    assert g.aux_created == []
    # first: inequality antecedent with default bounds; second: equality
    # antecedent with x unbounded above (M 1e6) and y unbounded (M_c 1e6)
    assert g.A_ub == [
        [-1.0, 0.0, M, 0.0],
        [1.0, 0.0, -M, 0.0],
        [0.0, 1.0, M, 0.0],
        [1.0, 0.0, 0.0, M],
        [-1.0, 0.0, 0.0, M],
        [1.0, 0.0, 0.0, -M],
        [-1.0, 0.0, 0.0, -M],
        [0.0, 1.0, 0.0, M],
    ]
    assert g.b_ub == [M - 1.0, 1.0, M + 2.0, M + 2.0, M - 2.0, 2.0, -2.0, M + 1.0]


def test_flag_counter_is_not_reset_by_a_second_build():
    g = build(xy(), [impl(constraint(">=", name("x"), num(1)), constraint("<=", name("y"), num(2)))])
    assert g.var_names[-1] == "implication_flag_c0"
    g._build_constraints()
    assert g.var_names[-1] == "implication_flag_c1"
    assert g._impl_counter == 2


@pytest.mark.parametrize(
    "antecedent",
    [constraint(">=", name("x"), num(1)), constraint("==", name("x"), num(2))],
    ids=["inequality", "equality"],
)
def test_equality_consequent_fails_after_the_flag_was_made(antecedent):
    g, message = failing_build(xy(), [impl(antecedent, constraint("==", name("y"), num(2)))])
    assert message == "Equality consequent not yet supported"
    assert g.var_names == ["x", "y", "implication_flag_c0"]
    assert g._impl_counter == 1


def test_unsupported_comparison_operator_fails_before_any_flag():
    g, message = failing_build(xy(), [impl(constraint("!=", name("x"), num(2)), constraint("<=", name("y"), num(1)))])
    assert message == "Unsupported implication comparison operator"
    assert g.var_names == ["x", "y"]


def test_side_that_is_not_a_node_fails_before_any_flag():
    # the antecedent's right side is a bare 2, not a number node: the
    # equality case linearizes the sides before making its flag
    g, message = failing_build(xy(), [impl(constraint("==", name("x"), 2), constraint("<=", name("y"), num(1)))])
    assert message == "Unsupported expression in implication linearization"
    assert g.var_names == ["x", "y"]


def test_nonlinear_side_fails_before_any_flag():
    product = binop("*", name("x"), name("y"))
    g, message = failing_build(xy(), [impl(constraint(">=", product, num(1)), constraint("<=", name("y"), num(1)))])
    assert message == "Unsupported linear expression form in implication"
    assert g.var_names == ["x", "y"]


# ---------------------------------------------------------------- normalization


@pytest.mark.parametrize(
    "antecedent",
    [
        constraint("==", paren(bool_binop(">=", name("x"), num(1))), boolean(True)),
        constraint("==", boolean(True), paren(bool_binop(">=", name("x"), num(1)))),
        constraint("==", bool_binop(">=", name("x"), num(1)), boolean(True)),
    ],
    ids=["cmp-eq-true", "true-eq-cmp", "bare-cmp-eq-true"],
)
def test_comparison_equal_to_true_is_unwrapped(antecedent):
    wrapped = bounded_inequality(antecedent, constraint("==", paren(bool_binop("<=", name("y"), num(2))), boolean(True)))
    plain = bounded_inequality(constraint(">=", name("x"), num(1)), constraint("<=", name("y"), num(2)))
    assert wrapped.A_ub == plain.A_ub
    assert wrapped.b_ub == plain.b_ub
    assert wrapped.var_names == ["x", "y", "implication_flag_c0"]


def test_conjunction_antecedent_posts_each_conjunct_and_keeps_the_last():
    # `(a <= 1 and c >= 2) == true => z <= 0`: the conjuncts are posted as
    # plain constraints through the whole chain (bound collection records
    # a <= 1 and c >= 2, the general form posts the rows), then `c >= 2`
    # is the antecedent of a comparison implication:
    #   D = {c: 1}, d = -2; c is estimated [2, None] (collected lower 2,
    #   float+ gives no upper), so diff bounds are unknown: M1 = U_a = 1e6
    #   -c + 1e6 f <= 1e6 - 2,   c - 1e6 f <= 2
    # consequent z <= 0 with z Boolean, estimated [0, 1]: M_c = 1 - 0 = 1,
    # k = 0: z + f <= 1.
    conj = paren(and_(paren(bool_binop("<=", name("a"), num(1))), paren(bool_binop(">=", name("c"), num(2)))))
    decls = [dvar("a", "float+"), dvar("c", "float+"), dvar("z", "boolean")]
    g = build(decls, [impl(constraint("==", conj, boolean(True)), constraint("<=", name("z"), num(0)))])
    assert g.var_names == ["a", "c", "z", "implication_flag_c0"]
    assert g._collected_ubs == {"a": 1.0}
    assert g._collected_lbs == {"c": 2.0}
    assert g.A_ub == [
        [1.0, 0.0, 0.0, 0.0],
        [0.0, -1.0, 0.0, 0.0],
        [0.0, -1.0, 0.0, M],
        [0.0, 1.0, 0.0, -M],
        [0.0, 0.0, 1.0, 1.0],
    ]
    assert g.b_ub == [1.0, -2.0, M - 2.0, 2.0, 1.0]
    assert (g.A_eq, g.b_eq) == ([], [])
