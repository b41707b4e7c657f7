"""minl/maxl, conditionals and the Boolean connectives, in and out of the
constraint build."""

import pytest

from builders import maxl, minl
from conftest import binop, boolean, indexed, lit_index, name, num, paren, string
from kolva.semantic_error import SemanticError


@pytest.fixture
def g(make_gen):
    return make_gen(variables=["x"])


@pytest.fixture
def gs(make_gen):
    gen = make_gen(variables=["x"])
    gen._allow_symbolic_bool = True
    return gen


def error_text(gen, expr, env=None):
    with pytest.raises(SemanticError) as excinfo:
        gen._eval_expr(expr, env)
    return str(excinfo.value)


def logical(kind, left, right):
    return {"type": kind, "left": left, "right": right}


def negation(value):
    return {"type": "not", "value": value}


# ---------------------------------------------------------------- minl / maxl


def test_minl_without_arguments(g):
    assert error_text(g, minl()) == "minl() requires at least one argument"
    assert error_text(g, {"type": "maxl"}) == "maxl() requires at least one argument"


def test_minl_of_a_variable(g, gs):
    assert error_text(g, minl(name("x"), num(1))) == "Non-ground argument in minl()"
    assert error_text(gs, maxl(num(1), name("x"))) == "Non-ground argument in maxl()"


def test_numeric_strings_count_as_numbers(g):
    assert g._eval_expr(maxl(string("2.5"), num(1))) == ({}, 2.5)
    assert g._eval_expr(minl(string("2.5"), num(3))) == ({}, 2.5)


def test_non_numeric_string(g):
    assert error_text(g, maxl(string("abc"), num(1))) == "Non-numeric argument 'abc' in maxl()"
    assert error_text(g, minl(num(1), string("abc"))) == "Non-numeric argument 'abc' in minl()"


def test_booleans_and_numbers(g):
    assert g._eval_expr(minl(boolean(True), num(3))) == ({}, 1.0)
    assert g._eval_expr(maxl(num(-2), num(-7.5), boolean(False))) == ({}, 0.0)
    coef, val = g._eval_expr(maxl(num(4)))
    assert (coef, val) == ({}, 4.0) and type(val) is float


def test_unsupported_argument_type(g):
    text = error_text(g, minl({"type": "tuple_literal", "elements": [num(1)]}, num(2)))
    assert text.startswith("Unsupported argument type in minl(): ")
    text = error_text(g, maxl({"type": "tuple_literal", "elements": [num(1)]}))
    assert text.startswith("Unsupported argument type in maxl(): ")


# ---------------------------------------------------------------- conditional


def cond(condition, then, else_):
    return {"type": "conditional", "condition": condition, "then": then, "else": else_}


def test_conditional_evaluates_only_the_chosen_branch(g):
    missing = indexed("nowhere", lit_index(1))
    assert g._eval_expr(cond(binop(">", num(2), num(1)), num(5), missing)) == ({}, 5.0)
    assert g._eval_expr(cond(boolean(False), missing, name("x"))) == ({"x": 1.0}, 0.0)


def test_conditional_on_a_non_ground_condition_fails_even_inside_the_build(g, gs):
    for gen in (g, gs):
        assert error_text(gen, cond(name("x"), num(1), num(2))) == (
            "Semantic Error: Unsupported conditional type: non-ground condition"
        )


def test_text_condition_counts_as_true_unless_empty(g):
    assert g._eval_expr(cond(string("a"), num(1), num(2))) == ({}, 1.0)
    assert g._eval_expr(cond(string(""), num(1), num(2))) == ({}, 2.0)


# ---------------------------------------------------------------- not / and / or


def test_not_of_a_variable(g, gs):
    assert error_text(g, negation(name("x"))) == "Non-ground boolean NOT outside constraint build context"
    assert gs._eval_expr(negation(name("x"))) == ({}, "!(0.0)")


def test_not_of_ground_values(g):
    assert g._eval_expr(negation(boolean(True))) == ({}, 0.0)
    assert g._eval_expr(negation(num(0))) == ({}, 1.0)


@pytest.mark.parametrize("fixture", ["g", "gs"])
def test_ground_connectives_in_every_context(request, fixture):
    gen = request.getfixturevalue(fixture)
    assert gen._eval_expr(logical("and", boolean(True), boolean(False))) == ({}, 0.0)
    assert gen._eval_expr(logical("or", boolean(True), boolean(False))) == ({}, 1.0)
    assert gen._eval_expr(logical("and", num(2), num(3))) == ({}, 1.0)
    assert gen._eval_expr(logical("or", num(0), boolean(False))) == ({}, 0.0)


def test_string_operand_makes_a_connective_non_ground(g, gs):
    assert error_text(g, logical("and", num(1), string("a"))) == (
        "Non-ground boolean AND outside constraint build context"
    )
    assert error_text(g, logical("or", string("a"), num(0))) == (
        "Non-ground boolean OR outside constraint build context"
    )
    assert gs._eval_expr(logical("and", num(1), string("a"))) == ({}, "(1.0) && (a)")
    assert gs._eval_expr(logical("or", string("a"), num(0))) == ({}, "(a) || (0.0)")


def test_variable_operand_text_keeps_only_the_constant(gs):
    assert gs._eval_expr(logical("or", name("x"), paren(num(2)))) == ({}, "(0.0) || (2.0)")


def test_ground_and_evaluates_its_right_side_even_after_false(g):
    with pytest.raises(SemanticError):
        g._eval_expr(logical("and", boolean(False), indexed("nowhere", lit_index(1))))
    with pytest.raises(SemanticError):
        g._eval_expr(logical("or", boolean(True), indexed("nowhere", lit_index(1))))
