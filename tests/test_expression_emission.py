"""Expressions as text, for comments and range texts of the script."""

import pytest

from builders import it, maxl, minl, range_spec, ref, sum_of, tuple_lit, tuple_type
from conftest import binop, boolean, field, indexed, lit_index, model, name, num, paren, string, uminus


@pytest.fixture
def g(make_gen):
    gen = make_gen(model([tuple_type("Arc", "src", "cost")]))
    gen._build_variables()
    return gen


# ---------------------------------------------------------------- _emit_python_expr


def test_indexed_product_with_the_iterator_bound_in_the_env(g):
    expr = binop("*", indexed("x", ref("i")), num(2))
    assert g._emit_python_expr(expr, {"i": "i"}) == "(x[i] * 2)"


def test_env_value_replaces_a_name_reference_index(g):
    assert g._emit_python_expr(indexed("x", ref("i")), {"i": 3}) == "x[3]"
    assert g._emit_python_expr(indexed("x", ref("i"))) == "x[i]"


def test_sum_node_prints_as_the_text_of_the_map(g):
    inner = sum_of([it("i", range_spec(1, 2))], name("i"))
    assert g._emit_python_expr(binop("+", name("a"), inner)) == "(a + " + str(inner) + ")"


def test_string_index_prints_quoted(g):
    assert g._emit_python_expr(indexed("x", string("a"))) == "x['a']"
    assert g._emit_python_expr(string("it's")) == repr("it's")


def test_minl_and_maxl(g):
    assert g._emit_python_expr(minl(num(1), num(2))) == "min(1, 2)"
    assert g._emit_python_expr(maxl(name("a"), num(2.5))) == "max(a, 2.5)"
    assert g._emit_python_expr({"type": "minl"}) == "min()"


def test_field_access_by_position_or_by_key(g):
    assert g._emit_python_expr(field(name("t", sem_type="Arc"), "cost")) == "t[1]"
    assert g._emit_python_expr(field(name("t", sem_type="Arc"), "src")) == "t[0]"
    assert g._emit_python_expr(field(name("t"), "cost")) == "t['cost']"
    assert g._emit_python_expr(field(name("t", sem_type="Arc"), "other")) == "t['other']"
    assert g._emit_python_expr(field(name("t", sem_type="Unknown"), "cost")) == "t['cost']"


def test_field_access_before_any_tuple_type_is_known(make_gen):
    assert make_gen()._emit_python_expr(field(name("t", sem_type="Arc"), "cost")) == "t['cost']"


def test_operators_and_literals(g):
    assert g._emit_python_expr(num(3)) == "3"
    assert g._emit_python_expr(num(2.5)) == "2.5"
    assert g._emit_python_expr(name("a")) == "a"
    assert g._emit_python_expr(uminus(name("a"))) == "-(a)"
    assert g._emit_python_expr(paren(binop("-", name("a"), num(1)))) == "((a - 1))"
    cond = {"type": "conditional", "condition": binop(">", name("a"), num(0)), "then": num(1), "else": num(2)}
    assert g._emit_python_expr(cond) == "(1 if ((a > 0)) else 2)"
    assert g._emit_python_expr(boolean(True)) == "True"
    assert g._emit_python_expr(boolean(0)) == "False"
    assert g._emit_python_expr({"type": "boolean_literal"}) == "False"
    assert g._emit_python_expr(lit_index(4)) == "4"
    assert g._emit_python_expr(indexed("y", lit_index(1), ref("j"))) == "y[1, j]"


def test_unknown_kind_prints_as_the_text_of_the_map(g):
    node = {"type": "mystery", "value": 1}
    assert g._emit_python_expr(node) == str(node)


def test_missing_required_key_fails_on_the_key(g):
    with pytest.raises(KeyError):
        g._emit_python_expr({"type": "binop", "op": "+", "left": num(1)})


# ---------------------------------------------------------------- _traverse_expression and _emit_symbolic_expr


def test_traverse_reads_missing_keys_as_none(g):
    assert g._traverse_expression({"type": "number"}) == "None"
    assert g._traverse_expression({"type": "binop", "left": name("a"), "right": num(1)}) == "(a None 1)"
    assert g._traverse_expression({"type": "binop"}) == "(None None None)"
    assert g._traverse_expression({"type": "uminus"}) == "-(None)"


def test_traverse_knows_tuple_literals(g):
    assert g._traverse_expression(tuple_lit(num(1), string("a"))) == "(1, 'a')"


def test_traverse_prints_index_forms_without_an_env(g):
    assert g._traverse_expression(indexed("x", ref("i"), lit_index(2))) == "x[i, 2]"


def test_traverse_of_a_non_map(g):
    assert g._traverse_expression(5) == "5"
    assert g._traverse_expression("n") == "n"


def test_traverse_aggregates_and_fields(g):
    assert g._traverse_expression(minl(num(1), name("b"))) == "min(1, b)"
    assert g._traverse_expression({"type": "maxl"}) == "max()"
    assert g._traverse_expression(field(name("t", sem_type="Arc"), "cost")) == "t[1]"


def test_symbolic_expr(g):
    assert g._emit_symbolic_expr(5) == "5"
    assert g._emit_symbolic_expr(2.0) == "2.0"
    assert g._emit_symbolic_expr(binop("+", name("n"), num(1))) == "(n + 1)"
    assert g._emit_symbolic_expr({"type": "number"}) == "None"
