"""The `sum` aggregate: iteration, filters, swallowed term errors, text
constants, and sums over indexed variables and parameters of real models."""

import logging

import pytest

from builders import (
    dvar_indexed,
    field_index,
    it,
    named_range,
    named_range_dim,
    named_set,
    named_set_dim,
    param_indexed,
    param_inline_indexed,
    range_decl,
    range_dim,
    range_spec,
    ref,
    set_of_tuples,
    solvable_model,
    sum_of,
    tuple_type,
    typed_set,
)
from conftest import binop, dvar, field, indexed, model, name, num


def evaluated(g, expr, env=None):
    coef, val = g._eval_expr(expr, env)
    return coef, val


def ready(make_gen, declarations, data=None):
    """A generator of a whole model after its build, so that columns, tuple
    types and normalised data are in place."""
    g = make_gen(solvable_model(declarations), data)
    g.build_problem()
    return g


def over(i, lo, hi):
    return it(i, range_spec(lo, hi))


# ---------------------------------------------------------------- sums of constants


def test_sum_of_the_iterator(make_gen):
    coef, val = evaluated(make_gen(), sum_of([over("i", 1, 4)], name("i")))
    assert coef == {}
    assert val == 10.0
    assert type(val) is float


def test_sum_over_an_empty_range_is_zero_without_evaluating_anything(make_gen):
    expr = sum_of([over("i", 1, 0)], {"type": "mystery_kind"}, {"type": "mystery_kind"})
    coef, val = evaluated(make_gen(), expr)
    assert (coef, val) == ({}, 0.0)
    assert type(val) is float


def test_sum_over_an_empty_set_is_zero_without_evaluating_anything(make_gen):
    g = make_gen(model([typed_set("S", external=True)]), {"S": []})
    expr = sum_of([it("s", named_set("S"))], {"type": "mystery_kind"}, {"type": "mystery_kind"})
    assert evaluated(g, expr) == ({}, 0.0)


def test_empty_second_iterator_makes_the_whole_sum_empty(make_gen):
    expr = sum_of([over("i", 1, 3), over("j", 2, 1)], {"type": "mystery_kind"})
    assert evaluated(make_gen(), expr) == ({}, 0.0)


def test_term_failing_with_a_model_error_vanishes_from_the_sum(make_gen):
    g = make_gen(data={"p": [10, 20]})
    assert evaluated(g, sum_of([over("i", 1, 3)], indexed("p", ref("i")))) == ({}, 30.0)


def test_term_failing_with_another_error_propagates(make_gen):
    with pytest.raises(NotImplementedError):
        evaluated(make_gen(), sum_of([over("i", 1, 2)], {"type": "mystery_kind"}))


def test_filter_that_fails_lets_the_term_through(make_gen):
    g = make_gen(data={"q": [1, -1]})
    cond = binop(">", indexed("q", ref("i")), num(0))
    assert evaluated(g, sum_of([over("i", 1, 3)], name("i"), cond)) == ({}, 4.0)


def test_filter_that_raises_a_non_model_error_also_lets_the_term_through(make_gen):
    cond = {"type": "mystery_kind"}
    assert evaluated(make_gen(), sum_of([over("i", 1, 3)], name("i"), cond)) == ({}, 6.0)


def test_filter_skips_false_combinations(make_gen):
    cond = binop("!=", name("i"), num(2))
    assert evaluated(make_gen(), sum_of([over("i", 1, 4)], name("i"), cond)) == ({}, 8.0)


def test_nested_iterators_last_fastest_with_a_filter(make_gen):
    # sum(i in 1..3, j in 1..3 : j > i) (10*i + j) = 12 + 13 + 23
    term = binop("+", binop("*", num(10), name("i")), name("j"))
    cond = binop(">", name("j"), name("i"))
    assert evaluated(make_gen(), sum_of([over("i", 1, 3), over("j", 1, 3)], term, cond)) == ({}, 48.0)


def test_outer_env_is_seen_and_left_unchanged(make_gen):
    env = {"k": 2.0, "i": 100}
    expr = sum_of([over("i", 1, 2)], binop("*", name("k"), name("i")))
    assert evaluated(make_gen(), expr, env) == ({}, 6.0)
    assert env == {"k": 2.0, "i": 100}


def test_iterator_bounds_from_the_outer_env_and_data(make_gen):
    g = make_gen(data={"n": 3})
    expr = sum_of([it("i", range_spec(1, name("n")))], name("i"))
    assert evaluated(g, expr) == ({}, 6.0)


def test_nested_sum_sees_the_outer_iterator(make_gen):
    inner = sum_of([it("j", range_spec(1, 2))], binop("*", name("i"), name("j")))
    outer = sum_of([over("i", 1, 2)], inner)
    assert evaluated(make_gen(), outer) == ({}, 9.0)


# ---------------------------------------------------------------- text and tuple terms


def test_string_terms_fold_into_text(make_gen):
    g = make_gen(model([typed_set("S", external=True)]), {"S": ["a", "b"]})
    assert evaluated(g, sum_of([it("s", named_set("S"))], name("s"))) == ({}, "((0.0) + (a)) + (b)")


def test_text_stays_text_and_takes_later_numbers(make_gen):
    g = make_gen(model([typed_set("S", external=True)]), {"S": ["a", 1, 2.5]})
    assert evaluated(g, sum_of([it("s", named_set("S"))], name("s"))) == (
        {},
        "(((0.0) + (a)) + (1.0)) + (2.5)",
    )


def test_tuple_terms_fold_into_text(make_gen):
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc")]
    g = make_gen(model(decls), {"Arcs": [["a", 1]]})
    assert evaluated(g, sum_of([it("t", named_set("Arcs"))], name("t"))) == ({}, "(0.0) + (('a', 1))")


# ---------------------------------------------------------------- variables in terms


def test_same_variable_adds_up_under_one_key(make_gen):
    g = make_gen(variables=["x"])
    expr = sum_of([over("i", 1, 3)], binop("*", name("i"), name("x")))
    assert evaluated(g, expr) == ({"x": 6.0}, 0.0)


def test_cancelling_coefficients_keep_their_key(make_gen):
    g = make_gen(variables=["x"])
    expr = sum_of([over("i", -1, 1)], binop("*", name("i"), name("x")))
    coef, val = evaluated(g, expr)
    assert coef == {"x": 0.0}
    assert val == 0.0


def test_variable_terms_and_constants_together(make_gen):
    g = make_gen(variables=["x", "y"])
    term = binop("+", binop("+", name("x"), binop("*", num(2), name("y"))), name("i"))
    coef, val = evaluated(g, sum_of([over("i", 1, 2)], term))
    assert coef == {"x": 2.0, "y": 4.0}
    assert list(coef) == ["x", "y"]
    assert val == 3.0


def test_filter_debug_line(make_gen, debug_logs):
    g = make_gen()
    cond = binop("<=", name("i"), num(1))
    messages = debug_logs()
    assert evaluated(g, sum_of([over("i", 1, 2)], name("i"), cond)) == ({}, 1.0)
    debug = messages(logging.DEBUG)
    assert f"[SCIPY_SUM] index_constraint={cond}, env2={{'i': 1}}, cond_val=1.0" in debug
    assert f"[SCIPY_SUM] index_constraint={cond}, env2={{'i': 2}}, cond_val=0.0" in debug


# ---------------------------------------------------------------- sums over indexed variables


def test_sum_over_a_literal_range(make_gen):
    g = ready(make_gen, [dvar_indexed("x", range_dim(1, 3))])
    coef, val = evaluated(g, sum_of([over("i", 1, 3)], indexed("x", ref("i"))))
    assert coef == {"x_1": 1.0, "x_2": 1.0, "x_3": 1.0}
    assert list(coef) == ["x_1", "x_2", "x_3"]
    assert val == 0.0


def test_sum_with_a_filter_on_the_iterator(make_gen):
    g = ready(make_gen, [dvar_indexed("x", range_dim(1, 4))])
    expr = sum_of([over("i", 1, 4)], binop("*", name("i"), indexed("x", ref("i"))), binop("!=", name("i"), num(2)))
    assert evaluated(g, expr) == ({"x_1": 1.0, "x_3": 3.0, "x_4": 4.0}, 0.0)


def test_nested_iterators_over_a_two_dimensional_array(make_gen):
    g = ready(make_gen, [dvar_indexed("x", range_dim(1, 2), range_dim(1, 3))])
    cond = binop(">=", name("j"), name("i"))
    expr = sum_of([over("i", 1, 2), over("j", 1, 3)], indexed("x", ref("i"), ref("j")), cond)
    coef, val = evaluated(g, expr)
    assert list(coef) == ["x_1_1", "x_1_2", "x_1_3", "x_2_2", "x_2_3"]
    assert set(coef.values()) == {1.0}
    assert val == 0.0


def test_index_arithmetic_in_a_sum(make_gen):
    g = ready(make_gen, [dvar_indexed("x", range_dim(1, 4))])
    expr = sum_of([over("i", 1, 3)], indexed("x", binop("+", ref("i"), num(1))))
    assert evaluated(g, expr) == ({"x_2": 1.0, "x_3": 1.0, "x_4": 1.0}, 0.0)


def test_sum_over_a_named_range(make_gen):
    g = ready(make_gen, [range_decl("R", 2, 4), dvar_indexed("x", named_range_dim("R"))])
    expr = sum_of([it("r", named_range("R"))], binop("*", name("r"), indexed("x", ref("r"))))
    assert evaluated(g, expr) == ({"x_2": 2.0, "x_3": 3.0, "x_4": 4.0}, 0.0)


def test_sum_over_a_set_of_strings(make_gen):
    decls = [typed_set("S", external=True), dvar_indexed("x", named_set_dim("S"))]
    g = ready(make_gen, decls, {"S": ["a", "b"]})
    assert evaluated(g, sum_of([it("s", named_set("S"))], indexed("x", ref("s")))) == ({"x_a": 1.0, "x_b": 1.0}, 0.0)


def test_sum_over_a_plain_set_declaration(make_gen):
    decls = [{"type": "set_declaration", "name": "S"}, dvar_indexed("x", named_set_dim("S"))]
    g = ready(make_gen, decls, {"S": [3, 5]})
    assert evaluated(g, sum_of([it("s", named_set("S"))], indexed("x", ref("s")))) == ({"x_3": 1.0, "x_5": 1.0}, 0.0)


def test_sum_over_a_range_and_a_set(make_gen):
    decls = [typed_set("S", external=True), dvar_indexed("x", range_dim(1, 2), named_set_dim("S"))]
    g = ready(make_gen, decls, {"S": ["a", "b"]})
    expr = sum_of([over("i", 1, 2), it("s", named_set("S"))], binop("*", name("i"), indexed("x", ref("i"), ref("s"))))
    assert evaluated(g, expr) == ({"x_1_a": 1.0, "x_1_b": 1.0, "x_2_a": 2.0, "x_2_b": 2.0}, 0.0)


# ---------------------------------------------------------------- tuple sets and field access


def arcs_model(extra=()):
    return [
        tuple_type("Arc", "src", "cap"),
        set_of_tuples("Arcs", "Arc"),
        dvar_indexed("x", named_set_dim("Arcs")),
        *extra,
    ]


ARCS = {"Arcs": [["a", 3], ["b", 5]]}


def test_sum_over_a_tuple_set_with_a_field_as_coefficient(make_gen):
    g = ready(make_gen, arcs_model(), dict(ARCS))
    term = binop("*", field(name("e", sem_type="Arc"), "cap"), indexed("x", ref("e")))
    coef, val = evaluated(g, sum_of([it("e", named_set("Arcs"))], term))
    assert coef == {"x[('a', 3)]": 3.0, "x[('b', 5)]": 5.0}
    assert val == 0.0


def test_sum_over_a_tuple_set_filtered_on_a_field(make_gen):
    g = ready(make_gen, arcs_model(), dict(ARCS))
    cond = binop(">", field(name("e", sem_type="Arc"), "cap"), num(4))
    expr = sum_of([it("e", named_set("Arcs"))], indexed("x", ref("e")), cond)
    assert evaluated(g, expr) == ({"x[('b', 5)]": 1.0}, 0.0)


def test_field_of_a_tuple_as_a_subscript(make_gen):
    decls = arcs_model([typed_set("N", external=True), dvar_indexed("y", named_set_dim("N"))])
    g = ready(make_gen, decls, dict(ARCS, N=["a", "b"]))
    term = indexed("y", field_index(name("e", sem_type="Arc"), "src"))
    assert evaluated(g, sum_of([it("e", named_set("Arcs"))], term)) == ({"y_a": 1.0, "y_b": 1.0}, 0.0)


def test_sum_of_fields_alone(make_gen):
    g = ready(make_gen, arcs_model(), dict(ARCS))
    assert evaluated(g, sum_of([it("e", named_set("Arcs"))], field(name("e", sem_type="Arc"), "cap"))) == ({}, 8.0)


def test_tuple_set_crossed_with_a_range(make_gen):
    decls = [
        tuple_type("Arc", "src", "cap"),
        set_of_tuples("Arcs", "Arc"),
        dvar_indexed("z", named_set_dim("Arcs"), range_dim(1, 2)),
    ]
    g = ready(make_gen, decls, dict(ARCS))
    cond = binop("==", name("k"), num(2))
    expr = sum_of([it("e", named_set("Arcs")), over("k", 1, 2)], indexed("z", ref("e"), ref("k")), cond)
    assert evaluated(g, expr) == ({"z_('a', 3)_2": 1.0, "z_('b', 5)_2": 1.0}, 0.0)


# ---------------------------------------------------------------- indexed parameters


def test_parameter_over_a_range_with_a_start_offset(make_gen):
    decls = [param_indexed("p", range_dim(5, 7)), dvar_indexed("x", range_dim(5, 7))]
    g = ready(make_gen, decls, {"p": [10, 20, 30]})
    expr = sum_of([over("i", 5, 7)], binop("*", indexed("p", ref("i")), indexed("x", ref("i"))))
    assert evaluated(g, expr) == ({"x_5": 10.0, "x_6": 20.0, "x_7": 30.0}, 0.0)
    assert evaluated(g, sum_of([over("i", 5, 7)], indexed("p", ref("i")))) == ({}, 60.0)


def test_parameter_over_a_named_range_with_a_start_offset(make_gen):
    decls = [range_decl("R", 3, 4), param_indexed("p", named_range_dim("R"))]
    g = ready(make_gen, decls, {"p": [1.5, 2.5]})
    expr = sum_of([it("r", named_range("R"))], binop("*", name("r"), indexed("p", ref("r"))))
    assert evaluated(g, expr) == ({}, 14.5)


def test_parameter_over_a_set_of_strings_with_list_data(make_gen):
    decls = [
        typed_set("S", external=True),
        param_indexed("cost", named_set_dim("S")),
        dvar_indexed("x", named_set_dim("S")),
    ]
    g = ready(make_gen, decls, {"S": ["a", "b"], "cost": [10, 20]})
    expr = sum_of([it("s", named_set("S"))], binop("*", indexed("cost", ref("s")), indexed("x", ref("s"))))
    assert evaluated(g, expr) == ({"x_a": 10.0, "x_b": 20.0}, 0.0)


def test_parameter_over_an_inline_set_with_list_data(make_gen):
    decls = [typed_set("S", ["u", "v", "w"]), param_indexed("cost", named_set_dim("S"))]
    g = ready(make_gen, decls, {"cost": [1, 2, 4]})
    expr = sum_of([it("s", named_set("S"))], indexed("cost", ref("s")), binop("!=", indexed("cost", ref("s")), num(2)))
    assert evaluated(g, expr) == ({}, 5.0)


def test_tuple_keyed_parameter(make_gen):
    decls = arcs_model([param_indexed("d", named_set_dim("Arcs"))])
    g = ready(make_gen, decls, dict(ARCS, d={("a", 3): 1.5, ("b", 5): 2.5}))
    expr = sum_of([it("e", named_set("Arcs"))], binop("*", indexed("d", ref("e")), indexed("x", ref("e"))))
    assert evaluated(g, expr) == ({"x[('a', 3)]": 1.5, "x[('b', 5)]": 2.5}, 0.0)


def test_inline_parameter_over_a_tuple_set_by_position(make_gen):
    decls = arcs_model([param_inline_indexed("w", [7, 9], named_set_dim("Arcs"))])
    g = ready(make_gen, decls, dict(ARCS))
    assert evaluated(g, sum_of([it("e", named_set("Arcs"))], indexed("w", ref("e")))) == ({}, 16.0)


def test_sum_in_a_scalar_model_keeps_plain_names(make_gen):
    g = ready(make_gen, [dvar("y"), dvar_indexed("x", range_dim(1, 2))])
    expr = binop("+", name("y"), sum_of([over("i", 1, 2)], indexed("x", ref("i"))))
    assert evaluated(g, expr) == ({"y": 1.0, "x_1": 1.0, "x_2": 1.0}, 0.0)
