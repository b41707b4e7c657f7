"""Simple constraints read as variable bounds before any bound is written."""

import pytest

from builders import (
    dvar_indexed,
    forall,
    it,
    named_range,
    named_set,
    named_set_dim,
    range_decl,
    range_dim,
    range_spec,
    ref,
    set_of_tuples,
    tuple_lit,
    tuple_type,
)
from conftest import binop, constraint, dvar, indexed, lit_index, model, name, num, string


def tightened(make_gen, declarations, constraints, data=None):
    g = make_gen(model(declarations, None, constraints), data)
    g._build_variables()
    return g


def bounds_line(g):
    lines = [line for line in g.scipy_code_lines if line.startswith("bounds = ")]
    assert len(lines) == 1
    return lines[0]


def y_over(n, var_type="float+"):
    return dvar_indexed("y", range_dim(1, n), var_type=var_type)


# ---------------------------------------------------------------- scalar constraints


def test_upper_bound_from_a_constraint(make_gen):
    g = tightened(make_gen, [dvar("x", "float+")], [constraint("<=", name("x"), num(5))])
    assert g.bounds == [[0, 5.0]]
    assert bounds_line(g) == "bounds = [[0, 5.0]]"


def test_lower_bound_from_a_constraint(make_gen):
    g = tightened(make_gen, [dvar("x", "float")], [constraint(">=", name("x"), num(-2))])
    assert bounds_line(g) == "bounds = [[-2.0, None]]"


def test_equality_fixes_both_and_a_weaker_lower_bound_changes_nothing(make_gen):
    cons = [constraint("==", name("x"), num(2)), constraint(">=", name("x"), num(1))]
    g = tightened(make_gen, [dvar("x", "float+")], cons)
    assert g.bounds == [[2.0, 2.0]]
    assert bounds_line(g) == "bounds = [[2.0, 2.0]]"


def test_only_tighter_values_replace_a_bound(make_gen):
    cons = [
        constraint("<=", name("x"), num(5)),
        constraint("<=", name("x"), num(8)),
        constraint(">=", name("x"), num(1)),
        constraint(">=", name("x"), num(0.5)),
        constraint("<=", name("x"), num(4)),
    ]
    g = tightened(make_gen, [dvar("x", "float+")], cons)
    assert g.bounds == [[1.0, 4.0]]


def test_equality_replaces_even_a_tighter_pair(make_gen):
    cons = [
        constraint("<=", name("x"), num(1)),
        constraint(">=", name("x"), num(0.5)),
        constraint("==", name("x"), num(7)),
    ]
    g = tightened(make_gen, [dvar("x", "float+")], cons)
    assert g.bounds == [[7.0, 7.0]]


def test_crossing_bounds_are_not_checked(make_gen):
    cons = [constraint("<=", name("x"), num(1)), constraint(">=", name("x"), num(3))]
    g = tightened(make_gen, [dvar("x", "float+")], cons)
    assert g.bounds == [[3.0, 1.0]]


def test_boolean_bounds_are_narrowed_like_any_other(make_gen):
    g = tightened(make_gen, [dvar("b", "boolean")], [constraint("<=", name("b"), num(0))])
    assert bounds_line(g) == "bounds = [[0, 0.0]]"
    assert g.integrality == [1]


@pytest.mark.parametrize("op", [">", "<", "!="])
def test_strict_and_not_equal_comparisons_narrow_nothing(make_gen, op):
    g = tightened(make_gen, [dvar("x", "float+")], [constraint(op, name("x"), num(3))])
    assert bounds_line(g) == "bounds = [[0, None]]"


def test_right_side_with_a_variable_narrows_nothing(make_gen):
    g = tightened(make_gen, [dvar("x", "float+"), dvar("y", "float+")], [constraint(">=", name("x"), name("y"))])
    assert g.bounds == [[0, None], [0, None]]


@pytest.mark.parametrize(
    "left, op, right",
    [
        (binop("*", num(2), name("x")), "<=", num(3)),
        (num(3), ">=", name("x")),
        ({"type": "parenthesized_expression", "expression": name("x")}, "<=", num(3)),
    ],
)
def test_only_a_plain_or_indexed_name_on_the_left_is_read(make_gen, left, op, right):
    g = tightened(make_gen, [dvar("x", "float+")], [constraint(op, left, right)])
    assert g.bounds == [[0, None]]


def test_right_side_that_cannot_be_evaluated_changes_nothing_and_raises_nothing(make_gen):
    cons = [
        constraint("<=", name("x"), name("undefined_param")),
        constraint("<=", name("x"), string("abc")),
        constraint("<=", name("x"), {"type": "mystery_kind"}),
    ]
    g = tightened(make_gen, [dvar("x", "float+")], cons)
    assert g.bounds == [[0, None]]


def test_right_side_from_a_parameter(make_gen):
    g = tightened(make_gen, [dvar("x", "float+")], [constraint("<=", name("x"), name("cap"))], {"cap": 4})
    assert bounds_line(g) == "bounds = [[0, 4.0]]"


def test_unknown_name_on_the_left_narrows_nothing(make_gen):
    g = tightened(make_gen, [dvar("x", "float+")], [constraint("<=", name("nowhere"), num(3))])
    assert g.bounds == [[0, None]]


def test_implications_are_ignored(make_gen):
    imp = {
        "type": "implication_constraint",
        "antecedent": constraint("<=", name("x"), num(1)),
        "consequent": constraint("<=", name("x"), num(2)),
    }
    g = tightened(make_gen, [dvar("x", "float+")], [imp])
    assert g.bounds == [[0, None]]


def test_constraint_without_right_side_fails_on_the_key(make_gen):
    g = make_gen(model([dvar("x")], None, [{"type": "constraint", "op": "<=", "left": name("x")}]))
    with pytest.raises(KeyError):
        g._build_variables()


# ---------------------------------------------------------------- indexed names


def test_literal_index(make_gen):
    g = tightened(make_gen, [y_over(3)], [constraint("<=", indexed("y", lit_index(2)), num(4))])
    assert g.bounds == [[0, None], [0, 4.0], [0, None]]


def test_integral_float_index_reaches_the_column_through_the_lookup(make_gen):
    g = tightened(make_gen, [y_over(3)], [constraint(">=", indexed("y", lit_index(2.0)), num(1))])
    assert g.bounds == [[0, None], [1.0, None], [0, None]]


def test_tuple_subscript_of_a_tuple_indexed_column(make_gen):
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc"), dvar_indexed("x", named_set_dim("Arcs"))]
    cons = [constraint("<=", indexed("x", tuple_lit(string("a"), num(1))), num(3))]
    g = tightened(make_gen, decls, cons, {"Arcs": [["a", 1], ["b", 2]]})
    assert g.var_names == ["x[('a', 1)]", "x[('b', 2)]"]
    assert g.bounds == [[0, 3.0], [0, None]]


# ---------------------------------------------------------------- forall


def test_forall_over_a_literal_range(make_gen):
    cons = [forall([it("i", range_spec(1, 3))], constraint("<=", indexed("y", ref("i")), name("i")))]
    g = tightened(make_gen, [y_over(3)], cons)
    assert g.bounds == [[0, 1.0], [0, 2.0], [0, 3.0]]
    assert bounds_line(g) == "bounds = [[0, 1.0], [0, 2.0], [0, 3.0]]"


def test_forall_range_bounds_may_be_plain_values(make_gen):
    rng = {"type": "range_specifier", "start": 2, "end": 3}
    cons = [forall([it("i", rng)], constraint(">=", indexed("y", ref("i")), num(1)))]
    g = tightened(make_gen, [y_over(3)], cons)
    assert g.bounds == [[0, None], [1.0, None], [1.0, None]]


def test_forall_up_to_a_parameter_narrows_nothing(make_gen):
    cons = [forall([it("i", range_spec(1, name("n")))], constraint("<=", indexed("y", ref("i")), num(9)))]
    g = tightened(make_gen, [y_over(3)], cons, {"n": 3})
    assert g.bounds == [[0, None]] * 3


def test_forall_over_a_named_range_with_literal_bounds(make_gen):
    cons = [forall([it("i", named_range("R"))], constraint("<=", indexed("y", ref("i")), num(9)))]
    g = tightened(make_gen, [range_decl("R", 2, 3), y_over(3)], cons)
    assert g.bounds == [[0, None], [0, 9.0], [0, 9.0]]


def test_forall_over_a_named_range_with_a_parameter_bound_narrows_nothing(make_gen):
    cons = [forall([it("i", named_range("R"))], constraint("<=", indexed("y", ref("i")), num(9)))]
    g = tightened(make_gen, [range_decl("R", 1, name("n")), y_over(3)], cons, {"n": 3})
    assert g.bounds == [[0, None]] * 3


def test_forall_over_a_set_narrows_nothing(make_gen):
    decls = [dvar_indexed("x", named_set_dim("S"))]
    cons = [forall([it("s", named_set("S"))], constraint("<=", indexed("x", ref("s")), num(1)))]
    g = tightened(make_gen, decls, cons, {"S": ["a", "b"]})
    assert g.var_names == ["x_a", "x_b"]
    assert g.bounds == [[0, None], [0, None]]


def test_second_iterator_shares_the_first_ones_value(make_gen):
    decls = [dvar_indexed("x", range_dim(1, 2), range_dim(1, 2))]
    iters = [it("i", range_spec(1, 2)), it("j", range_spec(1, 2))]
    cons = [forall(iters, constraint("<=", indexed("x", ref("i"), ref("j")), num(5)))]
    g = tightened(make_gen, decls, cons)
    assert g.var_names == ["x_1_1", "x_1_2", "x_2_1", "x_2_2"]
    assert g.bounds == [[0, 5.0], [0, None], [0, None], [0, 5.0]]


def test_filter_of_a_forall(make_gen):
    body = constraint("<=", indexed("y", ref("i")), num(10))
    cons = [forall([it("i", range_spec(1, 3))], body, binop("!=", name("i"), num(2)))]
    g = tightened(make_gen, [y_over(3)], cons)
    assert g.bounds == [[0, 10.0], [0, None], [0, 10.0]]


def test_filter_that_fails_still_visits(make_gen):
    body = constraint("<=", indexed("y", ref("i")), num(10))
    cons = [forall([it("i", range_spec(1, 2))], body, indexed("missing", ref("i")))]
    g = tightened(make_gen, [y_over(2)], cons)
    assert g.bounds == [[0, 10.0], [0, 10.0]]


def test_forall_with_a_list_of_constraints(make_gen):
    node = {
        "type": "forall_constraint",
        "iterators": [it("i", range_spec(1, 2))],
        "constraints": [
            constraint(">=", indexed("y", ref("i")), name("i")),
            constraint("<=", indexed("y", ref("i")), binop("*", num(3), name("i"))),
        ],
    }
    g = tightened(make_gen, [y_over(2)], [node])
    assert g.bounds == [[1.0, 3.0], [2.0, 6.0]]


def test_nested_forall(make_gen):
    body = constraint("<=", indexed("x", ref("i"), ref("j")), binop("+", name("i"), name("j")))
    inner = forall([it("j", range_spec(1, 2))], body)
    outer = forall([it("i", range_spec(1, 2))], inner)
    g = tightened(make_gen, [dvar_indexed("x", range_dim(1, 2), range_dim(1, 2))], [outer])
    assert g.bounds == [[0, 2.0], [0, 3.0], [0, 3.0], [0, 4.0]]


def test_forall_with_an_indexed_parameter_on_the_right(make_gen):
    cons = [forall([it("i", range_spec(1, 3))], constraint("<=", indexed("y", ref("i")), indexed("p", ref("i"))))]
    g = tightened(make_gen, [y_over(3)], cons, {"p": [5, 6, 7]})
    assert g.bounds == [[0, 5.0], [0, 6.0], [0, 7.0]]


def test_forall_without_iterators_visits_nothing(make_gen):
    node = {"type": "forall_constraint", "iterators": [], "constraint": constraint("<=", name("x"), num(1))}
    g = tightened(make_gen, [dvar("x", "float+")], [node])
    assert g.bounds == [[0, None]]


def test_iterator_without_a_name_fails_on_the_key(make_gen):
    node = forall([{"range": range_spec(1, 2)}], constraint("<=", name("x"), num(1)))
    g = make_gen(model([dvar("x")], None, [node]))
    with pytest.raises(KeyError):
        g._build_variables()
