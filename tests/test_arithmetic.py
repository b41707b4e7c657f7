"""Arithmetic, unary minus and comparisons inside expressions."""

import math
import re

import pytest

from conftest import binop, bool_binop, boolean, field, name, num, string, uminus
from kolva.semantic_error import SemanticError

NONLINEAR_PRODUCT = "Semantic Error: Unsupported nonlinear term type: variable * variable"
NONLINEAR_DIVISION = "Semantic Error: Unsupported nonlinear term type: division by variable"
NON_GROUND_EQ = "Non-ground boolean == outside constraint build context"
NON_GROUND_CMP = "Non-ground boolean comparison outside constraint build context"


@pytest.fixture
def g(make_gen):
    return make_gen(variables=["x", "y"])


@pytest.fixture
def gs(make_gen):
    """A generator in the state of a constraint build: symbolic Booleans allowed."""
    gen = make_gen(variables=["x", "y"])
    gen._allow_symbolic_bool = True
    return gen


def error_text(gen, expr, env=None, exc=SemanticError):
    with pytest.raises(exc) as excinfo:
        gen._eval_expr(expr, env)
    return str(excinfo.value)


# ---------------------------------------------------------------- + and -


def test_scaled_variable_plus_constant(g):
    expr = binop("+", binop("*", num(2), name("x")), num(3))
    result = g._eval_expr(expr)
    assert result == ({"x": 2.0}, 3.0)
    assert type(result[1]) is float


def test_sum_merges_coefficients_left_keys_first(g):
    expr = binop("+", binop("*", num(2), name("y")), binop("-", name("x"), name("y")))
    coef, const = g._eval_expr(expr)
    assert list(coef.items()) == [("y", 1.0), ("x", 1.0)]
    assert const == 0.0


def test_cancelled_variable_keeps_its_key(g):
    assert g._eval_expr(binop("-", name("x"), name("x"))) == ({"x": 0.0}, 0.0)


def test_subtraction_of_constants(g):
    assert g._eval_expr(binop("-", num(0.3), num(0.1))) == ({}, 0.3 - 0.1)


def test_right_only_variable_in_subtraction_is_negated(g):
    assert g._eval_expr(binop("-", num(5), name("y"))) == ({"y": -1.0}, 5.0)


def test_variable_plus_text_keeps_the_variable(g):
    assert g._eval_expr(binop("+", name("x"), string("s"))) == ({"x": 1.0}, "(0.0) + (s)")


def test_variable_minus_text_keeps_the_variable(g):
    assert g._eval_expr(binop("-", name("x"), string("s"))) == ({"x": 1.0}, "(0.0) - (s)")


def test_symbolic_text_prints_numbers_with_a_point(g):
    assert g._eval_expr(binop("+", num(1), string("s"))) == ({}, "(1.0) + (s)")
    assert g._eval_expr(binop("-", string("s"), num(2.5))) == ({}, "(s) - (2.5)")


def test_tuple_constant_makes_symbolic_text(g):
    env = {"t": (1, "a")}
    assert g._eval_expr(binop("+", name("t"), num(1)), env) == ({}, "((1, 'a')) + (1.0)")


def test_nested_symbolic_text(g):
    expr = binop("+", binop("+", name("x"), string("a")), string("b"))
    assert g._eval_expr(expr) == ({"x": 1.0}, "((0.0) + (a)) + (b)")


def test_map_constant_in_a_sum_is_a_conversion_error(g):
    # Only reachable while a field access is in progress, where map values are allowed.
    env = {"m": {"a": 1}}
    with pytest.raises(TypeError):
        g._eval_expr(field(binop("+", name("m"), num(1)), "a"), env)


# ---------------------------------------------------------------- *


def test_product_of_two_variables_is_refused(g):
    assert error_text(g, binop("*", name("x"), name("y"))) == NONLINEAR_PRODUCT


def test_product_with_zero_keeps_a_zero_coefficient(g):
    result = g._eval_expr(binop("*", name("x"), num(0)))
    assert result == ({"x": 0.0}, 0.0)
    assert list(result[0]) == ["x"]


def test_cancelled_variable_still_counts_in_a_product(g):
    expr = binop("*", binop("-", name("x"), name("x")), name("y"))
    assert error_text(g, expr) == NONLINEAR_PRODUCT


def test_constant_times_variable(g):
    assert g._eval_expr(binop("*", num(3), binop("+", name("y"), num(1)))) == ({"y": 3.0}, 3.0)


def test_variable_times_text_drops_the_variable(g):
    assert g._eval_expr(binop("*", name("x"), string("s"))) == ({}, "(0.0) * (s)")


def test_product_of_variables_with_text_is_symbolic_not_an_error(g):
    expr = binop("*", binop("+", name("x"), string("a")), name("y"))
    assert g._eval_expr(expr) == ({}, "((0.0) + (a)) * (0.0)")


def test_product_of_constants(g):
    assert g._eval_expr(binop("*", num(0.1), num(3))) == ({}, 0.1 * 3.0)


# ---------------------------------------------------------------- /


def test_variable_divided_by_constant(g):
    assert g._eval_expr(binop("/", name("x"), num(2))) == ({"x": 0.5}, 0.0)


def test_division_by_a_variable_is_refused(g):
    assert error_text(g, binop("/", name("x"), name("y"))) == NONLINEAR_DIVISION
    assert error_text(g, binop("/", num(1), name("y"))) == NONLINEAR_DIVISION


@pytest.mark.parametrize("divisor", [0, 0.0, 1e-13, -1e-13, -0.0])
def test_division_by_zero(g, divisor):
    assert error_text(g, binop("/", num(1), num(divisor))) == "Division by zero"


def test_division_by_the_tolerance_itself_is_computed(g):
    assert g._eval_expr(binop("/", num(1), num(1e-12))) == ({}, 1.0 * (1.0 / 1e-12))


def test_division_is_a_product_with_the_reciprocal(g):
    assert g._eval_expr(binop("/", num(49), num(49))) == ({}, 0.9999999999999999)
    q = g._eval_expr(binop("/", num(10), num(3)))[1]
    assert q == 10.0 * (1.0 / 3.0)
    assert q != 10 / 3
    assert g._eval_expr(binop("/", binop("*", num(10), name("x")), num(3))) == (
        {"x": 10.0 * (1.0 / 3.0)},
        0.0,
    )


def test_text_in_a_division_comes_before_the_variable_check(g):
    assert g._eval_expr(binop("/", string("s"), name("x"))) == ({}, "(s) / (0.0)")
    assert g._eval_expr(binop("/", num(1), string("s"))) == ({}, "(1.0) / (s)")


def test_map_divisor_is_a_non_numeric_divisor(g):
    env = {"m": {"a": 1}}
    text = error_text(g, field(binop("/", num(1), name("m")), "a"), env)
    assert text == "Semantic Error: Unsupported division type: non-numeric divisor"


# ---------------------------------------------------------------- unary minus


def test_negated_variable_has_a_negative_zero_constant(g):
    coef, const = g._eval_expr(uminus(name("x")))
    assert coef == {"x": -1.0}
    assert const == 0.0
    assert math.copysign(1.0, const) == -1.0


def test_negated_text(g):
    assert g._eval_expr(uminus(string("s"))) == ({}, "-(s)")
    assert g._eval_expr(uminus(binop("+", name("x"), string("s")))) == ({"x": -1.0}, "-((0.0) + (s))")


def test_negated_constant(g):
    result = g._eval_expr(uminus(num(3)))
    assert result == ({}, -3.0)
    assert type(result[1]) is float


def test_double_negation(g):
    assert g._eval_expr(uminus(uminus(binop("+", name("x"), num(2))))) == ({"x": 1.0}, 2.0)


# ---------------------------------------------------------------- comparisons


@pytest.mark.parametrize(
    "op, left, right, expected",
    [
        ("<", 1, 2, 1.0),
        ("<", 2, 2, 0.0),
        ("<=", 2, 2, 1.0),
        (">", 3, 2, 1.0),
        (">=", 2, 3, 0.0),
        ("!=", 1, 2, 1.0),
        ("!=", 1, 1.0, 0.0),
        ("==", 1, 1.0, 1.0),
        ("==", 1, 2, 0.0),
    ],
)
def test_ground_comparisons(g, op, left, right, expected):
    result = g._eval_expr(binop(op, num(left), num(right)))
    assert result == ({}, expected)
    assert type(result[1]) is float


def test_ground_comparisons_carry_no_tolerance(g):
    point_three = binop("+", num(0.1), num(0.2))
    assert g._eval_expr(binop("==", point_three, num(0.3))) == ({}, 0.0)
    assert g._eval_expr(binop(">", point_three, num(0.3))) == ({}, 1.0)
    assert g._eval_expr(binop("<=", num(1.0 + 1e-15), num(1.0))) == ({}, 0.0)


@pytest.mark.parametrize("gen_fixture", ["g", "gs"])
def test_string_inequality_is_ground_in_every_context(request, gen_fixture):
    gen = request.getfixturevalue(gen_fixture)
    assert gen._eval_expr(binop("!=", string("a"), string("b"))) == ({}, 1.0)
    assert gen._eval_expr(binop("!=", string("a"), string("a"))) == ({}, 0.0)


def test_string_ordering_fails_outside_a_constraint_build(g):
    assert error_text(g, binop("<", string("a"), string("b"))) == NON_GROUND_CMP


def test_string_ordering_is_text_inside_a_constraint_build(gs):
    assert gs._eval_expr(binop("<", string("a"), string("b"))) == ({}, "(a) < (b)")


def test_string_equality_fails_outside_a_constraint_build(g):
    assert error_text(g, binop("==", string("a"), string("a"))) == NON_GROUND_EQ


def test_string_equality_inside_a_constraint_build(gs):
    assert gs._eval_expr(binop("==", string("a"), string("a"))) == ({}, 1.0)
    assert gs._eval_expr(binop("==", string("a"), string("b"))) == ({}, 0.0)


def test_variable_equality_fails_outside_a_constraint_build(g):
    assert error_text(g, binop("==", name("x"), num(1))) == NON_GROUND_EQ


def test_variable_equality_inside_a_constraint_build_compares_only_constants(gs):
    assert gs._eval_expr(binop("==", name("x"), num(1))) == ({}, 0.0)
    assert gs._eval_expr(binop("==", name("x"), num(0))) == ({}, 1.0)
    assert gs._eval_expr(binop("==", binop("+", name("x"), num(2)), num(2))) == ({}, 1.0)


def test_variable_ordering_fails_outside_a_constraint_build(g):
    assert error_text(g, binop("<=", name("x"), num(1))) == NON_GROUND_CMP


def test_variable_ordering_inside_a_constraint_build_is_text(gs):
    assert gs._eval_expr(binop("<=", name("x"), num(1))) == ({}, "(0.0) <= (1.0)")
    assert gs._eval_expr(binop(">", binop("+", name("x"), num(2)), name("y"))) == ({}, "(2.0) > (0.0)")


def test_variable_inequality_inside_a_constraint_build_is_text(gs):
    assert gs._eval_expr(binop("!=", name("x"), num(1))) == ({}, "(0.0) != (1.0)")


def test_variable_inequality_outside_a_constraint_build_fails(g):
    assert error_text(g, binop("!=", name("x"), num(1))) == NON_GROUND_CMP


def test_tuple_ordering_fails_outside_a_constraint_build(g):
    assert error_text(g, binop("<", name("t"), num(1)), {"t": (1, 2)}) == NON_GROUND_CMP


def test_map_ordering_is_a_non_numeric_comparison(g):
    text = error_text(g, field(binop("<", name("m"), num(1)), "a"), {"m": {"a": 1}})
    assert text == "Non-numeric comparison outside constraint build context"


def test_equality_reads_iterator_values_raw(g):
    assert g._eval_expr(binop("==", name("i"), num(2)), {"i": 2}) == ({}, 1.0)
    assert g._eval_expr(binop("==", name("i"), name("j")), {"i": 1, "j": 1.0}) == ({}, 1.0)
    assert g._eval_expr(binop("==", name("b"), num(1)), {"b": True}) == ({}, 1.0)


def test_equality_of_a_number_and_a_string_is_false_inside_a_build(gs):
    assert gs._eval_expr(binop("==", name("i"), string("2")), {"i": 2}) == ({}, 0.0)


def test_equality_of_tuples_compares_their_printed_forms(g):
    env = {"t": (1, 2), "u": (1, 2), "v": (1.0, 2.0)}
    assert g._eval_expr(binop("==", name("t"), name("u")), env) == ({}, 1.0)
    assert g._eval_expr(binop("==", name("t"), name("v")), env) == ({}, 0.0)


def test_unknown_operator(g):
    assert error_text(g, binop("%", num(1), num(2))) == "Semantic Error: Unsupported operator in binop: %"
    assert error_text(g, binop("**", num(1), num(2))) == "Semantic Error: Unsupported operator in binop: **"


# ---------------------------------------------------------------- != between Booleans


def test_inequality_of_boolean_literals_makes_an_auxiliary_binary(g):
    coef, const = g._eval_expr(binop("!=", boolean(True), boolean(False)))
    assert coef == {"type": "aux_var", "name": "xor_flag", "sem_type": "boolean"}
    assert const == 0.0
    assert g.var_names == ["x", "y", "xor_flag"]
    assert g.var_indices["xor_flag"] == 2


def test_each_boolean_inequality_asks_for_a_new_binary(g):
    g._eval_expr(binop("!=", boolean(True), boolean(False)))
    coef, _ = g._eval_expr(binop("!=", boolean(False), boolean(False)))
    assert coef["name"] == "xor_flag_1"
    assert g.var_names[-2:] == ["xor_flag", "xor_flag_1"]


def test_boolean_inequality_does_not_evaluate_its_operands(g):
    left = bool_binop("<", name("nowhere"), num(1))
    right = bool_binop(">", binop("*", name("x"), name("y")), num(0))
    coef, const = g._eval_expr(binop("!=", left, right))
    assert coef["type"] == "aux_var"
    assert const == 0.0


def test_inequality_of_a_boolean_and_a_number_is_an_ordinary_comparison(g):
    assert g._eval_expr(binop("!=", boolean(True), num(1))) == ({}, 0.0)
    assert g.var_names == ["x", "y"]


def test_comparison_without_boolean_sense_is_not_a_boolean_operand(g):
    # Without sem_type the comparison is evaluated as a number.
    expr = binop("!=", binop("<", num(1), num(2)), boolean(False))
    assert g._eval_expr(expr) == ({}, 1.0)
    assert g.var_names == ["x", "y"]


def test_failures_leave_the_variables_untouched(g):
    with pytest.raises(SemanticError, match=re.escape(NONLINEAR_PRODUCT)):
        g._eval_expr(binop("*", name("x"), name("y")))
    assert g.var_names == ["x", "y"]
    assert g._eval_expr(name("x")) == ({"x": 1.0}, 0.0)
