"""Subscripted names, tuple literals, field access and the index evaluator."""

import pytest

from builders import (
    dvar_indexed,
    field_index,
    maxl,
    minl,
    named_set_dim,
    param_indexed,
    range_dim,
    ref,
    set_of_tuples,
    tuple_lit,
    tuple_type,
    typed_set,
)
from conftest import binop, boolean, field, indexed, lit_index, model, name, num, string, uminus
from kolva.semantic_error import SemanticError


def index_of(g, dim, env=None):
    coef, val = g._eval_index_expr(dim, env or {})
    assert coef == {}
    return val


def error_text(fn, *args):
    with pytest.raises(SemanticError) as excinfo:
        fn(*args)
    return str(excinfo.value)


def with_types(make_gen, declarations, data=None, variables=()):
    g = make_gen(model(declarations), data, variables)
    g._build_variables()
    return g


# ---------------------------------------------------------------- indexed variables


def test_indexed_variable_is_a_unit_term_under_its_column_name(make_gen):
    g = with_types(make_gen, [dvar_indexed("x", range_dim(1, 3))])
    assert g._eval_expr(indexed("x", lit_index(1))) == ({"x_1": 1.0}, 0.0)
    assert g._eval_expr(indexed("x", ref("i")), {"i": 3}) == ({"x_3": 1.0}, 0.0)


def test_two_dimensional_variable(make_gen):
    decls = [typed_set("S", external=True), dvar_indexed("x", range_dim(1, 2), named_set_dim("S"))]
    g = with_types(make_gen, decls, {"S": ["a", "b"]})
    assert g._eval_expr(indexed("x", lit_index(2), string("b"))) == ({"x_2_b": 1.0}, 0.0)


def test_index_outside_the_declared_range_is_a_domain_error(make_gen):
    g = with_types(make_gen, [dvar_indexed("x", range_dim(1, 3))])
    assert error_text(g._eval_expr, indexed("x", lit_index(9))) == (
        "Index [9] for 'x' is out of declared domain (9 not in [1..3])"
    )


def test_tuple_indexed_variable(make_gen):
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc"), dvar_indexed("x", named_set_dim("Arcs"))]
    g = with_types(make_gen, decls, {"Arcs": [["a", 1], ["b", 2]]})
    assert g._eval_expr(indexed("x", tuple_lit(string("b"), num(2)))) == ({"x[('b', 2)]": 1.0}, 0.0)
    assert g._eval_expr(indexed("x", ref("e")), {"e": ("a", 1)}) == ({"x[('a', 1)]": 1.0}, 0.0)


def test_tuple_indexed_name_not_found(make_gen):
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc"), dvar_indexed("x", named_set_dim("Arcs"))]
    g = with_types(make_gen, decls, {"Arcs": [["a", 1]]})
    assert error_text(g._eval_expr, indexed("x", ref("e")), {"e": ("z", 9)}) == (
        "Not found: tuple-indexed variable or parameter 'x[('z', 9)]'"
    )


def test_tuple_indexed_name_is_tried_under_its_plain_text_second(make_gen):
    decls = [tuple_type("K", "k"), set_of_tuples("Ks", "K"), dvar_indexed("x", named_set_dim("Ks"))]
    g = make_gen(model(decls), {"Ks": []}, variables=["x[a]"])
    assert g._eval_expr(indexed("x", string("a"))) == ({"x[a]": 1.0}, 0.0)


def test_tuple_keyed_parameter_prefers_the_map_entry(make_gen):
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc"), param_indexed("d", named_set_dim("Arcs"))]
    data = {"Arcs": [["a", 1]], "d": {("a", 1): 4.0}, "d__map": {("a", 1): 6.5}}
    g = make_gen(model(decls), data)
    assert g._eval_expr(indexed("d", ref("e")), {"e": ("a", 1)}) == ({}, 6.5)


# ---------------------------------------------------------------- indexed parameters


def test_parameter_over_a_set_of_strings_reads_the_position(make_gen):
    decls = [typed_set("S", external=True), param_indexed("cost", named_set_dim("S"))]
    g = make_gen(model(decls), {"S": ["a", "b"], "cost": [10, 20]})
    assert g._eval_expr(indexed("cost", string("b"))) == ({}, 20.0)
    assert g._eval_expr(indexed("cost", ref("s")), {"s": "a"}) == ({}, 10.0)


def test_set_members_come_from_the_declaration_without_data(make_gen):
    decls = [typed_set("S", ["a", "b", "c"]), param_indexed("cost", named_set_dim("S"))]
    g = make_gen(model(decls), {"cost": [10, 20, 30]})
    assert g._eval_expr(indexed("cost", string("c"))) == ({}, 30.0)


def test_set_member_and_integer_subscripts_mix(make_gen):
    decls = [typed_set("S", external=True), param_indexed("p", named_set_dim("S"), range_dim(1, 2))]
    g = make_gen(model(decls), {"S": ["a", "b"], "p": [[1, 2], [3, 4]]})
    assert g._eval_expr(indexed("p", string("b"), lit_index(2))) == ({}, 4.0)


def test_subscript_outside_every_set_is_dropped_once_another_was_remapped(make_gen):
    # "b" becomes position 2, "zz" is no member and no integer and is dropped,
    # so the lookup reads a whole row, which is no parameter value.
    decls = [
        typed_set("S", external=True),
        typed_set("T", external=True),
        param_indexed("p", named_set_dim("S"), named_set_dim("T")),
    ]
    g = make_gen(model(decls), {"S": ["a", "b"], "T": ["u", "v"], "p": [[1, 2], [3, 4]]})
    text = error_text(g._eval_expr, indexed("p", string("b"), string("zz")))
    assert text.startswith("Expected float, str, or dict for parameter value, got ")
    assert text.endswith(": [3, 4]")
    assert g._eval_expr(indexed("p", string("b"), string("u"))) == ({}, 3.0)


def test_map_data_is_read_by_member(make_gen):
    decls = [typed_set("S", external=True), param_indexed("cost", named_set_dim("S"))]
    g = make_gen(model(decls), {"S": ["a", "b"], "cost": {"a": 1.5, "b": 2.5}})
    assert g._eval_expr(indexed("cost", string("b"))) == ({}, 2.5)


def test_string_and_map_parameter_values(make_gen):
    g = make_gen(data={"lab": ["one", "two"], "m": [{"k": 1}]})
    assert g._eval_expr(indexed("lab", lit_index(2))) == ({}, "two")
    assert g._eval_expr(field(indexed("m", lit_index(1)), "k")) == ({}, 1.0)


def test_unresolved_subscripted_name_with_integer_subscripts_fails(make_gen):
    g = make_gen()
    text = error_text(g._eval_expr, indexed("p", lit_index(1)))
    assert text in (
        "Not found: indexed variable or parameter 'p'",
        "Parameter or variable 'p' with indices [1] not found in environment.",
    )


def test_unresolved_subscripted_name_with_a_string_subscript_fails_in_the_lookup(make_gen):
    g = make_gen()
    assert error_text(g._eval_expr, indexed("p", string("a"))) == (
        "Parameter or variable 'p' with indices ['a'] not found in environment."
    )


# ---------------------------------------------------------------- the index evaluator


def test_index_normalization(make_gen):
    g = make_gen(data={"k": "3"})
    two = index_of(g, lit_index(2.0))
    assert two == 2 and type(two) is int
    half = index_of(g, lit_index(2.5))
    assert half == 2.5 and type(half) is float
    from_name = index_of(g, ref("k"))
    assert from_name == 3 and type(from_name) is int
    from_env = index_of(g, ref("j"), {"j": "3"})
    assert from_env == 3 and type(from_env) is int
    literal = index_of(g, string("3"))
    assert literal == "3" and type(literal) is str


def test_name_in_index_position(make_gen):
    g = make_gen(data={"n": 4.0})
    assert index_of(g, name("i"), {"i": 2.0}) == 2
    assert type(index_of(g, name("n"))) is int
    assert index_of(g, name("zz")) == "zz"
    assert index_of(g, ref("zz")) == "zz"
    assert index_of(g, ref("s"), {"s": "ab"}) == "ab"


def test_index_arithmetic_on_integers(make_gen):
    g = make_gen()
    val = index_of(g, binop("+", ref("i"), lit_index(1)), {"i": 2})
    assert val == 3 and type(val) is int
    assert index_of(g, binop("*", ref("i"), num(3)), {"i": 2}) == 6
    assert index_of(g, binop("-", ref("i"), num(5)), {"i": 2}) == -3


def test_index_arithmetic_on_a_string_is_text(make_gen):
    assert index_of(make_gen(), binop("+", ref("i"), lit_index(1)), {"i": "a"}) == "(a + 1)"
    assert index_of(make_gen(), binop("-", ref("i"), num(2.5)), {"i": 1}) == "(1 - 2.5)"


def test_division_in_an_index_is_refused(make_gen):
    g = make_gen()
    assert error_text(g._eval_index_expr, binop("/", ref("i"), lit_index(2)), {"i": 4}) == (
        "Semantic Error: Unsupported operator in index: /"
    )


def test_negated_index(make_gen):
    g = make_gen()
    assert index_of(g, uminus(string("a"))) == "-(a)"
    val = index_of(g, uminus(lit_index(2.0)))
    assert val == -2 and type(val) is int


def test_parenthesized_and_aggregate_indices(make_gen):
    g = make_gen()
    assert index_of(g, {"type": "parenthesized_expression", "expression": ref("i")}, {"i": 5}) == 5
    low = index_of(g, minl(num(3), num(2.0)))
    assert low == 2 and type(low) is int
    assert index_of(g, maxl(num(3), num(2.5))) == 3


def test_tuple_literal_index(make_gen):
    g = make_gen()
    assert index_of(g, tuple_lit(string("a"), ref("i"), tuple_lit(num(1.0), "raw")), {"i": 4}) == ("a", 4, (1, "raw"))


def test_indexed_parameter_as_an_index(make_gen):
    g = make_gen(data={"succ": [2, 3, 1]})
    val = index_of(g, indexed("succ", lit_index(3)))
    assert val == 1 and type(val) is int


def test_indexed_parameter_resolving_to_a_map_is_no_index(make_gen):
    g = make_gen(data={"m": [{"a": 1}]})
    assert error_text(g._eval_index_expr, indexed("m", lit_index(1)), {}) == (
        "Indexed expression used as an index must resolve to a scalar value"
    )


def test_other_index_kinds(make_gen):
    g = make_gen()
    assert index_of(g, {"type": "custom", "value": 7.0}) == 7
    assert index_of(g, {"type": "custom", "name": "i"}, {"i": 3.0}) == 3
    assert index_of(g, {"type": "custom", "name": "q"}) == "q"
    assert error_text(g._eval_index_expr, {"type": "custom"}, {}) == (
        "Semantic Error: Unsupported index expr type: custom"
    )


def test_field_access_in_index_position(make_gen):
    g = with_types(make_gen, [tuple_type("Arc", "src", "n")])
    val = index_of(g, field_index(name("e", sem_type="Arc"), "n"), {"e": ("a", 2.0)})
    assert val == 2 and type(val) is int


# ---------------------------------------------------------------- names in index position as expressions


def test_name_reference_index_as_an_expression(make_gen):
    g = make_gen()
    assert g._eval_expr(ref("i"), {"i": 2}) == ({}, 2.0)
    assert type(g._eval_expr(ref("i"), {"i": 2})[1]) is float
    assert g._eval_expr(ref("i"), {"i": "a"}) == ({}, "a")
    assert g._eval_expr(ref("i")) == ({}, "i")


# ---------------------------------------------------------------- tuple literals


def test_tuple_element_holding_a_variable_contributes_zero(make_gen):
    g = make_gen(variables=["x"])
    assert g._eval_expr(tuple_lit(name("x"), num(1))) == ({}, (0.0, 1.0))


def test_tuple_literal_keeps_booleans_and_raw_members(make_gen):
    coef, val = make_gen()._eval_expr(tuple_lit(boolean(True), num(1), "raw", 3, tuple_lit(string("a"))))
    assert coef == {}
    assert val == (True, 1.0, "raw", 3, ("a",))
    assert val[0] is True
    assert type(val[1]) is float
    assert type(val[3]) is int


# ---------------------------------------------------------------- field access


# A map-valued data entry cannot be named without a subscript, so the maps
# below are bound as iterator values.


def test_field_of_a_map_without_the_field_and_without_a_type_is_text(make_gen):
    g = make_gen()
    assert g._eval_expr(field(name("p"), "q"), {"p": {"a": 1}}) == ({}, "p['q']")


def test_field_of_a_map(make_gen):
    g = make_gen()
    assert g._eval_expr(field(name("p"), "a"), {"p": {"a": 1}}) == ({}, 1.0)


def test_field_of_a_typed_tuple(make_gen):
    g = with_types(make_gen, [tuple_type("Arc", "src", "cap")])
    assert g._eval_expr(field(name("e", sem_type="Arc"), "cap"), {"e": ("a", 3)}) == ({}, 3.0)
    assert g._eval_expr(field(name("e", sem_type="Arc"), "src"), {"e": ("a", 3)}) == ({}, "a")


def test_field_of_a_typed_map(make_gen):
    g = with_types(make_gen, [tuple_type("Arc", "src", "cap")])
    assert g._eval_expr(field(name("m", sem_type="Arc"), "cap"), {"m": {"cap": 8}}) == ({}, 8.0)


def test_unknown_field_of_a_typed_tuple_is_text(make_gen):
    g = with_types(make_gen, [tuple_type("Arc", "src", "cap")])
    assert g._eval_expr(field(name("e", sem_type="Arc"), "zz"), {"e": ("a", 3)}) == ({}, "e['zz']")


def test_field_of_a_tuple_without_a_type_is_text(make_gen):
    g = with_types(make_gen, [tuple_type("Arc", "src", "cap")])
    assert g._eval_expr(field(name("e"), "cap"), {"e": ("a", 3)}) == ({}, "e['cap']")


def test_field_access_debug_lines(make_gen, debug_logs):
    g = make_gen()
    messages = debug_logs()
    g._eval_expr(field(name("p"), "q"), {"p": {"a": 1}})
    debug = messages()
    assert "[_eval_field_access] Fallback to string field access: p['q']" in debug
    g._eval_expr(field(name("p"), "a"), {"p": {"a": 1}})
    assert "[_eval_field_access] Returning field from dict: a -> 1" in messages()


def test_field_access_without_base_fails_on_the_key(make_gen):
    with pytest.raises(KeyError):
        make_gen()._eval_expr({"type": "field_access", "field": "a"})

