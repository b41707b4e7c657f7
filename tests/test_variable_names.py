"""Column names built from indices, the order in which a reference tries the
name forms, and the index extraction helpers."""

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from builders import (
    dvar_indexed,
    field_index,
    named_set_dim,
    range_dim,
    ref,
    set_of_tuples,
    tuple_lit,
    tuple_type,
    typed_set,
)
from conftest import dvar, indexed, lit_index, model, name, num, string
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

# ---------------------------------------------------------------- _format_varname


def test_integral_float_prints_as_int_and_blanks_become_underscores(make_gen):
    assert make_gen()._format_varname("x", [2.0, "a b"], False) == "x_2_a_b"


def test_tuple_entry_members_are_joined_by_underscores(make_gen):
    assert make_gen()._format_varname("x", [("a", 1.0)], False) == "x_a_1"


def test_tuple_form_uses_the_printed_tuple(make_gen):
    assert make_gen()._format_varname("x", [("a", 1)], True) == "x[('a', 1)]"


def test_tuple_form_is_the_default_off(make_gen):
    assert make_gen()._format_varname("x", [("a", 1)]) == "x_a_1"


def test_apostrophe_is_dropped_in_the_member_rule(make_gen):
    g = make_gen()
    assert g._format_varname("x", ["it's"], False) == "x_its"
    assert g._format_varname("x", [("it's", 1)], False) == "x_its_1"


def test_apostrophe_is_kept_in_the_tuple_form(make_gen):
    g = make_gen()
    assert g._format_varname("x", [("it's",)], True) == "x[(\"it's\",)]"
    assert g._format_varname("x", [("it's", 1)], True) == "x[(\"it's\", 1)]"


def test_double_quotes_are_dropped_in_the_member_rule(make_gen):
    assert make_gen()._format_varname("x", ['say "hi"'], False) == "x_say_hi"


def test_one_member_tuple_form_keeps_the_trailing_comma(make_gen):
    assert make_gen()._format_varname("x", [("a",)], True) == "x[('a',)]"


def test_tuple_form_reads_only_the_first_index(make_gen):
    assert make_gen()._format_varname("x", [(1, 2), (3, 4)], True) == "x[(1, 2)]"


def test_non_integral_float_keeps_its_text(make_gen):
    g = make_gen()
    assert g._format_varname("x", [2.5], False) == "x_2.5"
    assert g._format_varname("x", [1e-06], False) == "x_1e-06"
    assert g._format_varname("x", [-3.0, 0.1], False) == "x_-3_0.1"


def test_several_indices_are_joined(make_gen):
    assert make_gen()._format_varname("cost", [1, "b", 3], False) == "cost_1_b_3"


def test_tuple_form_with_no_index_fails_on_the_index(make_gen):
    with pytest.raises(IndexError):
        make_gen()._format_varname("x", [], True)


# Member rule, restated from Python's own str(): an integral float prints as
# the integer, everything else prints as str() with blanks turned into "_" and
# quotes removed. A tuple entry is its members joined by "_".


def member_text(v):
    if isinstance(v, float):
        return str(int(v)) if v.is_integer() else str(v)
    return str(v).replace(" ", "_").replace("'", "").replace('"', "")


def expected_plain_name(base, indices):
    parts = []
    for entry in indices:
        if isinstance(entry, tuple):
            parts.append("_".join(member_text(m) for m in entry))
        else:
            parts.append(member_text(entry))
    return base + "_" + "_".join(parts)


texts = st.text(alphabet="ab yZ_'\"-.,()[]0é1", max_size=8)
ints = st.integers(min_value=-(2**62), max_value=2**62)
floats = st.floats()
scalars = st.one_of(texts, ints, floats, st.booleans())
entries = st.one_of(scalars, st.tuples(scalars), st.lists(scalars, min_size=0, max_size=3).map(tuple))
bases = st.from_regex(r"[A-Za-z][A-Za-z0-9_]{0,6}", fullmatch=True)


@pytest.fixture(scope="module")
def shared_gen():
    return SciPyCSCCodeGenerator(model())


@settings(max_examples=300, deadline=None)
@given(base=bases, first=st.lists(st.one_of(texts, ints), max_size=4).map(tuple), rest=st.lists(entries, max_size=2))
def test_tuple_form_is_the_repr_of_the_first_index(shared_gen, base, first, rest):
    assert shared_gen._format_varname(base, [first] + rest, True) == base + "[" + repr(first) + "]"


nested = st.recursive(scalars, lambda inner: st.lists(inner, max_size=3).map(tuple), max_leaves=6)


@settings(max_examples=200, deadline=None)
@given(base=bases, first=st.lists(nested, max_size=4).map(tuple))
def test_tuple_form_of_any_tuple_is_its_repr(shared_gen, base, first):
    assert shared_gen._format_varname(base, [first], True) == base + "[" + repr(first) + "]"


@settings(max_examples=300, deadline=None)
@given(base=bases, indices=st.lists(entries, min_size=1, max_size=4))
def test_plain_form_follows_the_member_rule(shared_gen, base, indices):
    assert shared_gen._format_varname(base, indices, False) == expected_plain_name(base, indices)


def test_member_rule_helper_agrees_with_the_fixed_examples():
    # Guards the restatement above against drifting from the examples.
    assert expected_plain_name("x", [2.0, "a b"]) == "x_2_a_b"
    assert expected_plain_name("x", [("a", 1.0)]) == "x_a_1"
    assert member_text(-0.0) == "0"


def test_nested_tuple_member_prints_as_its_cleaned_text(make_gen):
    # A tuple inside a tuple entry is a non-float member: str(), then cleaned.
    assert make_gen()._format_varname("x", [(("a", 1), 2)], False) == "x_(a,_1)_2"


# ---------------------------------------------------------------- normalize_index


def test_normalize_index_turns_lists_into_tuples_recursively():
    assert SciPyCSCCodeGenerator.normalize_index(["a", [1, 2]]) == ("a", (1, 2))
    assert type(SciPyCSCCodeGenerator.normalize_index(["a", [1, 2]])[1]) is tuple


def test_normalize_index_leaves_a_scalar_alone():
    assert SciPyCSCCodeGenerator.normalize_index(3) == 3
    assert type(SciPyCSCCodeGenerator.normalize_index(3)) is int
    assert SciPyCSCCodeGenerator.normalize_index("a") == "a"
    assert SciPyCSCCodeGenerator.normalize_index(2.0) == 2.0
    assert type(SciPyCSCCodeGenerator.normalize_index(2.0)) is float


def test_normalize_index_on_tuples_and_empty_lists(make_gen):
    assert make_gen().normalize_index((1, [2, ("a", [3])])) == (1, (2, ("a", (3,))))
    assert make_gen().normalize_index([]) == ()


# ---------------------------------------------------------------- _multi_indexed_var_name


def test_no_match_gives_the_bare_base(make_gen):
    g = make_gen()
    assert g._multi_indexed_var_name(indexed("x", lit_index(1)), {}) == "x"


def test_name_node_is_read_under_name_and_fails_without_one(make_gen):
    g = make_gen(variables=["x"])
    with pytest.raises(KeyError):
        g._multi_indexed_var_name(name("x"), {})
    assert g._multi_indexed_var_name({"type": "name", "value": "x", "name": "y"}, {}) == "y"


def test_indexed_name_without_name_fails_on_the_key(make_gen):
    with pytest.raises(KeyError):
        make_gen()._multi_indexed_var_name({"type": "indexed_name", "dimensions": []}, {})


def test_single_index_finds_the_plain_form(make_gen):
    g = make_gen(variables=["x_1", "x_2"])
    assert g._multi_indexed_var_name(indexed("x", lit_index(2)), {}) == "x_2"


def test_several_indices_find_the_multi_form(make_gen):
    g = make_gen(variables=["x_1_2"])
    assert g._multi_indexed_var_name(indexed("x", lit_index(1), lit_index(2)), {}) == "x_1_2"


def test_bracketed_tuple_of_all_indices_comes_before_the_multi_form(make_gen):
    g = make_gen(variables=["x_1_2", "x[(1, 2)]"])
    assert g._multi_indexed_var_name(indexed("x", lit_index(1), lit_index(2)), {}) == "x[(1, 2)]"


def test_one_tuple_index_finds_the_tuple_form_first(make_gen):
    g = make_gen(variables=["x_('a',)", "x[('a',)]"])
    dim = {"type": "name_reference_index", "name": "t"}
    assert g._multi_indexed_var_name(indexed("x", dim), {"t": ("a",)}) == "x[('a',)]"


def test_without_an_evaluator_the_env_entry_of_the_dimension_name_is_used(make_gen):
    g = make_gen(variables=["x_3"])
    assert g._multi_indexed_var_name(indexed("x", ref("i")), {"i": 3}) == "x_3"


def test_evaluator_result_pair_in_the_env_is_unwrapped(make_gen):
    g = make_gen(variables=["x_3"])
    assert g._multi_indexed_var_name(indexed("x", ref("i")), {"i": ({}, 3)}) == "x_3"


def test_with_the_index_evaluator(make_gen):
    g = make_gen(variables=["x_4"])
    dim = {"type": "binop", "op": "+", "left": ref("i"), "right": lit_index(1)}
    assert g._multi_indexed_var_name(indexed("x", dim), {"i": 3}, g._eval_index_expr) == "x_4"


def test_with_a_custom_index_evaluator(make_gen):
    g = make_gen(variables=["x_7"])
    seen = []

    def evaluate(dim, env):
        seen.append((dim, env))
        return ({}, 7)

    assert g._multi_indexed_var_name(indexed("x", ref("i")), {"i": 1}, evaluate) == "x_7"
    assert seen == [(ref("i"), {"i": 1})]


def test_number_literal_index_bypasses_the_evaluator(make_gen):
    g = make_gen(variables=["x_2"])

    def evaluate(dim, env):
        raise AssertionError("not to be called")

    assert g._multi_indexed_var_name(indexed("x", lit_index(2)), {}, evaluate) == "x_2"


def test_values_from_the_env_are_printed_as_they_stand(make_gen):
    # Without an index evaluator nothing normalizes 2.0, so x_2 is not found.
    g = make_gen(variables=["x_2"])
    assert g._multi_indexed_var_name(indexed("x", ref("i")), {"i": 2.0}) == "x"
    g = make_gen(variables=["x_2.0", "x_a_None"])
    assert g._multi_indexed_var_name(indexed("x", ref("i")), {"i": 2.0}) == "x_2.0"
    assert g._multi_indexed_var_name(indexed("x", ref("i"), ref("j")), {"i": "a"}) == "x_a_None"


def test_a_data_entry_counts_as_a_match(make_gen):
    g = make_gen(data={"p_1": 5})
    assert g._multi_indexed_var_name(indexed("p", lit_index(1)), {}) == "p_1"


def test_already_expanded_base_is_cleaned_for_the_fallback(make_gen):
    g = make_gen(variables=["y_1_2"])
    assert g._multi_indexed_var_name(indexed("y[1]", lit_index(2)), {}) == "y_1_2"
    # Cleaning drops brackets, parentheses and blanks but keeps the quotes.
    g = make_gen(variables=["y_'a'_1_2"])
    assert g._multi_indexed_var_name(indexed("y[('a', 1)]", lit_index(2)), {}) == "y_'a'_1_2"


def test_no_dimensions_probe_the_empty_tuple_form(make_gen):
    g = make_gen(variables=["x[()]"])
    assert g._multi_indexed_var_name({"type": "indexed_name", "name": "x"}, {}) == "x[()]"
    assert g._multi_indexed_var_name({"type": "indexed_name", "name": "y"}, {}) == "y"


def test_string_index_single_form(make_gen):
    g = make_gen(variables=["x_a"])
    assert g._multi_indexed_var_name(indexed("x", string("a")), {}, g._eval_index_expr) == "x_a"


# ---------------------------------------------------------------- declarations


def test_is_tuple_indexed(make_gen):
    arcs = set_of_tuples("Arcs", "Arc")
    ext = set_of_tuples("Ext", "Arc", external=True)
    plain = typed_set("S", ["a"])
    over_arcs = dvar_indexed("x", named_set_dim("Arcs"))
    over_ext = dvar_indexed("y", named_set_dim("Ext"))
    over_plain = dvar_indexed("z", named_set_dim("S"))
    two_dims = dvar_indexed("w", named_set_dim("Arcs"), range_dim(1, 2))
    over_range = dvar_indexed("v", range_dim(1, 2))
    decls = [tuple_type("Arc", "a", "b"), arcs, ext, plain, over_arcs, over_ext, over_plain, two_dims, over_range]
    g = make_gen(model(decls))
    assert g._is_tuple_indexed(over_arcs) is True
    assert g._is_tuple_indexed(over_ext) is True
    assert g._is_tuple_indexed(over_plain) is False
    assert g._is_tuple_indexed(two_dims) is False
    assert g._is_tuple_indexed(over_range) is False
    assert g._is_tuple_indexed(None) is False
    assert g._is_tuple_indexed(dvar("s")) is False
    assert g._is_tuple_indexed(dvar_indexed("u", named_set_dim("Unknown"))) is False


def test_find_decl_with_a_kind_skips_a_namesake_of_another_kind(make_gen):
    as_range = {"type": "range_declaration_inline", "name": "R", "start": num(1), "end": num(2)}
    as_set = typed_set("R", [1, 2])
    g = make_gen(model([as_set, as_range]))
    assert g._find_decl("R") == as_set
    assert g._find_decl("R", "range_declaration_inline") == as_range
    assert g._find_decls("R", "typed_set") == [as_set]


# ---------------------------------------------------------------- index extraction


def arc_gen(make_gen, data=None):
    g = make_gen(model([tuple_type("Arc", "src", "cap")]), data)
    g._build_variables()
    return g


def test_field_access_index_by_declared_position(make_gen):
    g = arc_gen(make_gen)
    dim = field_index(name("a", sem_type="Arc"), "cap")
    assert g._extract_field_access_index(dim, {"a": ("n1", 7)}) == 7
    dim = field_index(name("a", sem_type="Arc"), "src")
    assert g._extract_field_access_index(dim, {"a": ["n1", 7]}) == "n1"


def test_field_access_index_without_type_takes_the_first_member(make_gen):
    g = arc_gen(make_gen)
    assert g._extract_field_access_index(field_index(name("a"), "cap"), {"a": ("n1", 7)}) == "n1"
    dim = field_index(name("a", sem_type="Arc"), "nope")
    assert g._extract_field_access_index(dim, {"a": ("n1", 7)}) == "n1"
    dim = field_index(name("a", sem_type="Other"), "cap")
    assert g._extract_field_access_index(dim, {"a": ("n1", 7)}) == "n1"


def test_field_access_index_on_an_empty_tuple_is_null(make_gen):
    g = arc_gen(make_gen)
    assert g._extract_field_access_index(field_index(name("a"), "cap"), {"a": ()}) is None


def test_field_access_index_on_a_map(make_gen):
    g = arc_gen(make_gen)
    assert g._extract_field_access_index(field_index(name("a"), "cap"), {"a": {"cap": 3}}) == 3
    assert g._extract_field_access_index(field_index(name("a"), "src"), {"a": {"cap": 3}}) is None


def test_field_access_index_on_a_scalar_or_unbound_name_gives_it_back(make_gen):
    g = arc_gen(make_gen)
    assert g._extract_field_access_index(field_index(name("a"), "cap"), {"a": 4}) == 4
    assert g._extract_field_access_index(field_index(name("k"), "cap"), {}) == "k"


def test_field_access_index_on_an_evaluated_base(make_gen):
    g = arc_gen(make_gen)
    base = dict(tuple_lit(string("n1"), num(7)), sem_type="Arc")
    assert g._extract_field_access_index(field_index(base, "cap"), {}) == 7.0


def test_tuple_index_maps_its_elements(make_gen):
    g = make_gen()
    dim = tuple_lit("a", {"name": "i"}, {"name": "j"}, num(2))
    assert g._extract_tuple_index(dim, {"i": 5}) == ("a", 5, "j", 2.0)


def test_tuple_index_without_elements_is_evaluated(make_gen):
    g = make_gen()
    assert g._extract_tuple_index(num(3), {}) == 3.0
    assert g._extract_tuple_index(name("i"), {"i": ("a", 1)}) == ("a", 1)


def test_normal_index_goes_through_env_then_data(make_gen):
    g = make_gen(data={"n": 7})
    assert g._extract_normal_index(string("i"), {"i": 4}) == 4
    assert g._extract_normal_index(string("n"), {}) == 7
    assert g._extract_normal_index(string("z"), {}) == "z"
    assert g._extract_normal_index(num(2), {}) == 2.0
    assert g._extract_normal_index(string("n"), {"n": "env"}) == "env"
