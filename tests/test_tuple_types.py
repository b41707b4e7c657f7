"""The tuple type registry, tuple fields, iterators over tuple sets, and
columns named with a tuple subscript."""

import pytest

from builders import (
    dvar_indexed,
    it,
    named_range,
    named_set,
    named_set_dim,
    range_spec,
    set_of_tuples,
    tuple_type,
    typed_set,
)
from conftest import model
from kolva.semantic_error import SemanticError

ARC = tuple_type("Arc", "src", "cap")


@pytest.fixture
def g(make_gen):
    gen = make_gen(model([ARC]))
    gen._build_variables()
    return gen


# ---------------------------------------------------------------- registry


def test_tuple_type_declaration_registers_its_fields(g):
    assert g.tuple_types == {"Arc": [{"name": "src"}, {"name": "cap"}]}


def test_fields_are_kept_as_given(make_gen):
    fields = [{"name": "a", "type": "int"}, {"name": "b", "type": "string"}]
    gen = make_gen(model([{"type": "tuple_type", "name": "T", "fields": fields}, tuple_type("U")]))
    gen._build_variables()
    assert gen.tuple_types == {"T": fields, "U": []}


def test_handler_adds_to_the_registry(g):
    g._handle_tuple_type_declaration(tuple_type("Pair", "l", "r"))
    assert g.tuple_types == {"Arc": [{"name": "src"}, {"name": "cap"}], "Pair": [{"name": "l"}, {"name": "r"}]}


def test_tuple_type_without_fields_fails_on_the_key(make_gen):
    gen = make_gen(model([{"type": "tuple_type", "name": "T"}]))
    with pytest.raises(KeyError):
        gen._build_variables()


def test_registry_is_started_afresh_by_the_variable_phase(make_gen):
    gen = make_gen(model([ARC]))
    gen._build_variables()
    gen._build_variables()
    assert gen.tuple_types == {"Arc": [{"name": "src"}, {"name": "cap"}]}


# ---------------------------------------------------------------- fields


def test_field_of_a_tuple_value(g):
    assert g._resolve_tuple_field("Arc", "cap", ("a", 3)) == 3
    assert g._resolve_tuple_field("Arc", "src", ("a", 3)) == "a"


def test_field_not_in_the_type_on_a_tuple_is_null(g):
    assert g._resolve_tuple_field("Arc", "zzz", ("a", 3)) is None


def test_known_field_on_a_map(g):
    assert g._resolve_tuple_field("Arc", "src", {"src": "a", "cap": 3}) == "a"


def test_field_not_in_the_type_on_a_map_holding_it_is_null(g):
    assert g._resolve_tuple_field("Arc", "other", {"other": 1}) is None


def test_known_field_missing_from_a_map_is_null(g):
    assert g._resolve_tuple_field("Arc", "cap", {"src": "a"}) is None


def test_unknown_tuple_type_is_null_also_on_a_map_holding_the_field(g):
    assert g._resolve_tuple_field("Nope", "src", ("a", 3)) is None
    assert g._resolve_tuple_field("Nope", "src", {"src": "a"}) is None


def test_field_of_a_value_that_is_neither_tuple_nor_map_is_null(g):
    assert g._resolve_tuple_field("Arc", "src", "a") is None
    assert g._resolve_tuple_field("Arc", "src", ["a", 3]) is None


# ---------------------------------------------------------------- iterators over tuple sets


def test_tuple_set_names(make_gen):
    decls = [ARC, set_of_tuples("Arcs", "Arc"), set_of_tuples("Ext", "Arc", external=True), typed_set("S", ["a"])]
    gen = make_gen(model(decls))
    iters = [
        it("e", named_set("Arcs")),
        it("f", named_set("Ext")),
        it("s", named_set("S")),
        it("i", range_spec(1, 3)),
        it("r", named_range("Arcs")),
        it("u", named_set("Unknown")),
        {"iterator": "norange"},
    ]
    assert set(gen._get_tuple_set_names(iters)) == {"e", "f"}
    assert set(gen._get_tuple_set_names([])) == set()


# ---------------------------------------------------------------- columns named with a tuple


@pytest.fixture
def pairs(make_gen):
    decls = [tuple_type("P", "a", "b"), set_of_tuples("Pairs", "P"), dvar_indexed("x", named_set_dim("Pairs"))]
    gen = make_gen(model(decls), {"Pairs": [[0, 0], [1, 2], ["u", "v"]]})
    gen._build_variables()
    return gen


def test_tuple_subscript_spellings_resolve_to_one_column(pairs):
    assert pairs.var_names == ["x[(0, 0)]", "x[(1, 2)]", "x[('u', 'v')]"]
    assert pairs._resolve_tuple_index_varname("x[(1, 2)]") == 1
    assert pairs._resolve_tuple_index_varname("x[(1,2)]") == 1
    assert pairs._resolve_tuple_index_varname("x[( 1 ,  2 )]") == 1
    assert pairs._resolve_tuple_index_varname('x[("u","v")]') == 2
    assert pairs._resolve_tuple_index_varname("x[(0,0)]") == 0


def not_found(gen, vname):
    with pytest.raises(SemanticError) as excinfo:
        gen._resolve_tuple_index_varname(vname)
    return str(excinfo.value)


def test_name_without_a_bracket_is_not_found(pairs):
    assert not_found(pairs, "x") == "Variable 'x' not found in environment."


def test_names_that_do_not_resolve(pairs):
    assert not_found(pairs, "x[(9, 9)]") == "Variable 'x[(9, 9)]' not found in environment."
    assert not_found(pairs, "x[1]") == "Variable 'x[1]' not found in environment."
    assert not_found(pairs, "x[(1, 2]") == "Variable 'x[(1, 2]' not found in environment."
    assert not_found(pairs, "x[(a, b)]") == "Variable 'x[(a, b)]' not found in environment."
    assert not_found(pairs, "y[(1, 2)]") == "Variable 'y[(1, 2)]' not found in environment."


def test_name_beginning_with_a_quote_is_not_found(pairs):
    assert not_found(pairs, "'x[(1, 2)]") == "Variable ''x[(1, 2)]' not found in environment."
