"""Accumulating constraint sides into a coefficient map and a constant:
which shapes are keyed by column and which by name, signs, comparisons
inside sums, and parameters without data."""

import pytest

from builders import dvar_indexed, it, param_indexed, range_dim, range_spec, ref, sum_of
from conftest import binop, bool_binop, constraint, dvar, indexed, lit_index, minimize, model, name, num, param_inline, paren, uminus
from kolva.semantic_error import SemanticError
from lp_builders import generator, param_external

MISSING_P = "Parameter or variable 'p' with indices None not found in environment."


@pytest.fixture
def g():
    decls = [dvar_indexed("x", range_dim(1, 2)), dvar("y"), dvar("a"), dvar("b"), param_external("p"), param_inline("q", 4)]
    gen = generator(model(decls, minimize(num(0)), []))
    gen._build_variables()
    assert gen.var_names == ["x_1", "x_2", "y", "a", "b"]
    return gen


def over_x(expression=None, index_constraint=None):
    body = expression if expression is not None else indexed("x", ref("i"))
    return sum_of([it("i", range_spec(1, 2))], body, index_constraint)


# ---------------------------------------------------------------- plain shapes


def test_sign_minus_one_on_a_difference(g):
    assert g._accumulate_sum_to_dict(binop("-", name("a"), name("b")), {}, -1.0) == ({"a": -1.0, "b": 1.0}, 0.0)


def test_difference_with_constants_and_a_sign(g):
    # -2 * ((q + a) - (b - 3)) = -2a + 2b - 14
    expr = binop("-", binop("+", name("q"), name("a")), binop("-", name("b"), num(3)))
    assert g._accumulate_sum_to_dict(expr, {}, -2.0) == ({"a": -2.0, "b": 2.0}, -14.0)


def test_parenthesis_is_seen_through(g):
    assert g._accumulate_sum_to_dict(paren(binop("-", name("q"), name("y"))), {}, -2.0) == ({"y": 2.0}, -8.0)


def test_number_with_a_sign(g):
    assert g._accumulate_sum_to_dict(num(2.5), {}, -2.0) == ({}, -5.0)
    assert g._accumulate_sum_to_dict(num(2), {}) == ({}, 2.0)


def test_indexed_name_with_a_sign(g):
    assert g._accumulate_sum_to_dict(indexed("x", lit_index(2)), {}, -3.0) == ({"x_2": -3.0}, 0.0)


def test_parameter_name_goes_to_the_constant(g):
    assert g._accumulate_sum_to_dict(name("q"), {}, -1.0) == ({}, -4.0)


def test_iterator_name_reads_the_environment(g):
    assert g._accumulate_sum_to_dict(name("k"), {"k": 6}, 0.5) == ({}, 3.0)


def test_parameter_without_data_contributes_nothing(g):
    assert g._accumulate_sum_to_dict(name("p"), {}) == ({}, 0.0)


def test_unknown_name_contributes_nothing(g):
    assert g._accumulate_sum_to_dict(name("no_such_symbol"), {}, 3.0) == ({}, 0.0)


def test_text_parameter_contributes_nothing():
    gen = generator(model([dvar("y"), param_inline("label", "abc")], minimize(num(0)), []))
    gen._build_variables()
    assert gen._accumulate_sum_to_dict(name("label"), {}) == ({}, 0.0)
    assert gen._accumulate_sum_to_dict(binop("+", name("label"), name("y")), {}) == ({"y": 1.0}, 0.0)


def test_indexed_parameter_goes_to_the_constant():
    decls = [param_indexed("w", range_dim(1, 2)), dvar("y")]
    gen = generator(model(decls, minimize(num(0)), []), {"w": [1.5, 4]})
    gen._build_variables()
    assert gen._accumulate_sum_to_dict(indexed("w", lit_index(2)), {}, -0.5) == ({}, -2.0)
    expr = binop("-", name("y"), indexed("w", ref("i")))
    assert gen._accumulate_sum_to_dict(expr, {"i": 1}) == ({"y": 1.0}, -1.5)


def test_missing_parameter_is_zero_here_and_fails_elsewhere(g):
    expr = binop("*", name("p"), num(2))
    assert g._accumulate_sum_to_dict(expr, {}) == ({}, 0.0)
    with pytest.raises(SemanticError) as err:
        g._eval_expr(expr, {})
    assert str(err.value) == MISSING_P


def test_reading_missing_parameters_as_zero_ends_after_a_failure(g):
    # a nonlinear term fails inside the zero-reading evaluation ...
    with pytest.raises(SemanticError) as err:
        g._accumulate_sum_to_dict(binop("*", name("y"), name("y")), {})
    assert str(err.value) == "Semantic Error: Unsupported nonlinear term type: variable * variable"
    # ... and afterwards plain evaluation is strict again
    with pytest.raises(SemanticError) as err:
        g._eval_expr(binop("*", name("p"), num(2)), {})
    assert str(err.value) == MISSING_P
    # while the accumulation itself still reads the parameter as zero
    assert g._accumulate_sum_to_dict(binop("+", binop("*", name("p"), num(2)), num(1)), {}) == ({}, 1.0)


# ---------------------------------------------------------------- sums are keyed by column


def test_sum_is_keyed_by_column(g):
    assert g._accumulate_sum_to_dict(over_x(), {}, -1.0) == ({0: -1.0, 1: -1.0}, 0.0)


def test_negated_sum_is_evaluated_and_keyed_by_name(g):
    # a unary minus is no binop: the whole node is evaluated
    assert g._accumulate_sum_to_dict(uminus(over_x()), {}) == ({"x_1": -1.0, "x_2": -1.0}, 0.0)


def test_constant_minus_a_sum(g):
    expr = binop("-", num(10), over_x(binop("*", name("i"), indexed("x", ref("i")))))
    assert g._accumulate_sum_to_dict(expr, {}) == ({0: -1.0, 1: -2.0}, 10.0)


def test_variable_plus_a_sum_merges_names_into_columns(g):
    expr = binop("+", binop("*", num(3), name("y")), over_x())
    assert g._accumulate_sum_to_dict(expr, {}, 2.0) == ({2: 6.0, 0: 2.0, 1: 2.0}, 0.0)


def test_sum_minus_a_sum(g):
    expr = binop("-", over_x(), over_x(binop("*", num(4), indexed("x", ref("i")))))
    assert g._accumulate_sum_to_dict(expr, {}) == ({0: -3.0, 1: -3.0}, 0.0)


def test_sum_times_a_number_is_an_operator_error(g):
    with pytest.raises(SemanticError) as err:
        g._accumulate_sum_to_dict(binop("*", num(10), over_x()), {})
    assert str(err.value) == "Semantic Error: Unsupported operator in binop-with-sum: *"


def test_sum_filter_that_fails_keeps_the_term(g):
    expr = over_x(index_constraint=binop("==", name("i"), name("nothing_here")))
    assert g._accumulate_sum_to_dict(expr, {}) == ({0: 1.0, 1: 1.0}, 0.0)


def test_sum_filter_skips_false_terms(g):
    expr = over_x(index_constraint=binop(">", name("i"), num(1)))
    assert g._accumulate_sum_to_dict(expr, {}) == ({1: 1.0}, 0.0)


def test_sum_sees_the_outer_environment(g):
    expr = sum_of([it("i", range_spec(1, name("n")))], binop("*", name("k"), indexed("x", ref("i"))))
    assert g._accumulate_sum_to_dict(expr, {"n": 1, "k": 5}) == ({0: 5.0}, 0.0)


# ---------------------------------------------------------------- comparisons inside sums


def test_less_equal_terms_are_evaluated():
    gen = generator(model([dvar_indexed("x", range_dim(1, 2))], minimize(num(0)), []))
    gen._build_variables()
    # ground comparisons: (1 <= 1) + (2 <= 1) = 1
    assert gen._accumulate_sum_to_dict(over_x(binop("<=", name("i"), num(1))), {}) == ({}, 1.0)
    # with a variable the comparison is evaluated, and outside a constraint
    # build that is refused
    with pytest.raises(SemanticError) as err:
        gen._accumulate_sum_to_dict(over_x(binop("<=", indexed("x", ref("i")), num(1))), {})
    assert str(err.value) == "Non-ground boolean comparison outside constraint build context"


@pytest.mark.parametrize("op", [">=", "==", ">", "<", "!="])
def test_other_comparison_terms_contribute_nothing(op):
    gen = generator(model([dvar_indexed("x", range_dim(1, 2))], minimize(num(0)), []))
    gen._build_variables()
    # (i >= 1) would be true for both terms, but such terms are skipped
    assert gen._accumulate_sum_to_dict(over_x(binop(op, name("i"), num(1))), {}) == ({}, 0.0)
    assert gen._accumulate_sum_to_dict(over_x(bool_binop(op, indexed("x", ref("i")), num(1))), {}) == ({}, 0.0)


def test_skipped_comparison_sum_in_a_constraint_leaves_a_constant_row():
    # sum(i in 1..2) (i >= 1) <= 5 collects nothing on the left: 0 <= 5
    m = model([dvar_indexed("x", range_dim(1, 2))], minimize(num(0)), [constraint("<=", over_x(binop(">=", name("i"), num(1))), num(5))])
    g = generator(m)
    g._build_variables()
    g._build_objective()
    g._build_constraints()
    assert g.A_ub == [[0.0, 0.0]]
    assert g.b_ub == [5.0]
