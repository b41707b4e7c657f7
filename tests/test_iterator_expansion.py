"""Turning iterator lists into index values: the up-front expander, the
dynamic one, their bound evaluators, and the sum-term filter helper."""

import pytest

from builders import (
    indexed_set,
    it,
    maxl,
    minl,
    named_range,
    named_set,
    range_decl,
    range_spec,
    ref,
    set_decl,
    set_of_tuples,
    tuple_lit,
    tuple_type,
    typed_set,
)
from conftest import binop, indexed, lit_index, model, name, num, paren, string, uminus
from kolva.semantic_error import SemanticError


def unrolled(g, iterators, env=None):
    loop_vars, loop_ranges = g._unroll_iterators(iterators, env)
    return list(loop_vars), [list(r) for r in loop_ranges]


def combos(g, iterators, outer_env=None):
    return [(env, tuple(idx)) for env, idx in g._iterate_iterators_dynamic(iterators, outer_env or {})]


def error_text(fn, *args):
    with pytest.raises(SemanticError) as excinfo:
        fn(*args)
    return str(excinfo.value)


# The sum node itself is passed along but not read by the helper.
SUM = {"type": "sum", "iterators": [], "expression": num(0)}

DECLS = [
    range_decl("R", 2, 4),
    set_decl("P"),
    set_decl("PV", [7, 8]),
    typed_set("T", ["u", "v"]),
    typed_set("TE", external=True),
    tuple_type("Arc", "src", "n"),
    set_of_tuples("Arcs", "Arc"),
    {"type": "range_declaration_external", "name": "RX"},
]
DATA = {"P": ["p", "q"], "TE": [1, 2, 3], "Arcs": [["a", 1], ["b", 2]], "n": 3}


@pytest.fixture
def g(make_gen):
    return make_gen(model(DECLS), dict(DATA))


# ---------------------------------------------------------------- _unroll_iterators


def test_literal_range(g):
    assert unrolled(g, [it("i", range_spec(1, 3))]) == (["i"], [[1, 2, 3]])


def test_literal_range_ending_before_its_start_is_empty(g):
    assert unrolled(g, [it("i", range_spec(1, 0))]) == (["i"], [[]])


def test_literal_range_bounds_are_evaluated_and_cut(g):
    assert unrolled(g, [it("i", range_spec(1.0, 2.9))]) == (["i"], [[1, 2]])
    assert unrolled(g, [it("i", range_spec(1, name("n")))]) == (["i"], [[1, 2, 3]])
    assert unrolled(g, [it("i", range_spec(binop("-", name("n"), num(1)), binop("*", num(2), name("n"))))]) == (
        ["i"],
        [[2, 3, 4, 5, 6]],
    )


def test_unknown_name_in_a_bound_counts_as_one(g):
    assert unrolled(g, [it("i", range_spec(0, name("unknown")))]) == (["i"], [[0, 1]])


def test_named_range(g):
    assert unrolled(g, [it("r", named_range("R"))]) == (["r"], [[2, 3, 4]])


def test_named_range_and_named_set_are_treated_alike(g):
    assert unrolled(g, [it("r", named_set("R"))]) == (["r"], [[2, 3, 4]])
    assert unrolled(g, [it("s", named_range("P"))]) == (["s"], [["p", "q"]])


def test_sets(g):
    assert unrolled(g, [it("s", named_set("P"))]) == (["s"], [["p", "q"]])
    assert unrolled(g, [it("s", named_set("PV"))]) == (["s"], [[7, 8]])
    assert unrolled(g, [it("s", named_set("T"))]) == (["s"], [["u", "v"]])
    assert unrolled(g, [it("s", named_set("TE"))]) == (["s"], [[1, 2, 3]])


def test_set_declaration_without_data_or_value_is_empty(make_gen):
    g = make_gen(model([set_decl("S"), typed_set("T")]))
    assert unrolled(g, [it("s", named_set("S")), it("t", named_set("T"))]) == (["s", "t"], [[], []])


def test_data_wins_over_an_inline_typed_set_value(make_gen):
    g = make_gen(model([typed_set("T", ["u"])]), {"T": ["w", "z"]})
    assert unrolled(g, [it("t", named_set("T"))]) == (["t"], [["w", "z"]])


def test_tuple_set_members_are_tuples(g):
    assert unrolled(g, [it("e", named_set("Arcs"))]) == (["e"], [[("a", 1), ("b", 2)]])


def test_unknown_range_or_set(g):
    assert error_text(g._unroll_iterators, [it("q", named_set("Q"))], None) == "Not found: range or set 'Q'"
    assert error_text(g._unroll_iterators, [it("q", named_range("RX"))], None) == "Not found: range or set 'RX'"


def test_unknown_iterator_range_kind(g):
    assert error_text(g._unroll_iterators, [it("q", {"type": "weird"})], None) == (
        "Semantic Error: Unsupported iterator range type type: weird"
    )


def test_several_iterators_keep_their_order(g):
    iters = [it("s", named_set("T")), it("i", range_spec(1, 2)), it("r", named_range("R"))]
    assert unrolled(g, iters) == (["s", "i", "r"], [["u", "v"], [1, 2], [2, 3, 4]])


def test_indexed_set_over_lists_is_one_based(make_gen):
    g = make_gen(data={"A": [[10, 20], [30]]})
    assert unrolled(g, [it("a", indexed_set("A", lit_index(1)))]) == (["a"], [[10, 20]])
    assert unrolled(g, [it("a", indexed_set("A", ref("i")))], {"i": 2}) == (["a"], [[30]])
    assert unrolled(g, [it("a", indexed_set("A", lit_index(2.0)))]) == (["a"], [[30]])


def test_indexed_set_over_maps_and_nesting(make_gen):
    g = make_gen(data={"M": {"k": ["x", "y"]}, "N": [{"k": [7, 8]}]})
    assert unrolled(g, [it("a", indexed_set("M", {"type": "string_literal", "value": "k"}))]) == (["a"], [["x", "y"]])
    assert unrolled(g, [it("a", indexed_set("N", lit_index(1), {"type": "string_literal", "value": "k"}))]) == (
        ["a"],
        [[7, 8]],
    )


def test_indexed_set_without_data_or_on_a_scalar_is_empty(make_gen):
    g = make_gen(data={"S": 5, "Z": [[]]})
    assert unrolled(g, [it("a", {"type": "indexed_set", "name": "Missing"})]) == (["a"], [[]])
    assert unrolled(g, [it("a", indexed_set("S", lit_index(1)))]) == (["a"], [[]])
    assert unrolled(g, [it("a", indexed_set("Z", lit_index(1)))]) == (["a"], [[]])


def test_indexed_set_without_dimensions_is_the_whole_entry(make_gen):
    g = make_gen(data={"S": [4, 5]})
    assert unrolled(g, [it("a", {"type": "indexed_set", "name": "S"})]) == (["a"], [[4, 5]])


# ---------------------------------------------------------------- _iterate_iterators_dynamic


def test_dynamic_empty_range_gives_no_combination(g):
    assert combos(g, [it("i", range_spec(1, 0))]) == []


def test_dynamic_triangle_in_nested_loop_order(g):
    iters = [it("i", range_spec(1, 3)), it("j", range_spec(name("i"), 3))]
    result = combos(g, iters)
    assert [idx for _, idx in result] == [(1, 1), (1, 2), (1, 3), (2, 2), (2, 3), (3, 3)]
    pairs = [(1, 1), (1, 2), (1, 3), (2, 2), (2, 3), (3, 3)]
    assert [env for env, _ in result] == [{"i": i, "j": j} for i, j in pairs]


def test_dynamic_without_iterators_gives_one_empty_combination(g):
    outer = {"k": 5}
    result = g._iterate_iterators_dynamic([], outer)
    assert [(env, tuple(idx)) for env, idx in result] == [({"k": 5}, ())]


def test_dynamic_envs_are_copies_and_keep_the_outer_env(g):
    outer = {"k": 5}
    result = combos(g, [it("i", range_spec(1, 2))], outer)
    assert result == [({"k": 5, "i": 1}, (1,)), ({"k": 5, "i": 2}, (2,))]
    assert outer == {"k": 5}


def test_dynamic_iterator_shadows_the_outer_env_and_then_removes_it(g):
    result = combos(g, [it("i", range_spec(1, 2))], {"i": 9})
    assert result == [({"i": 1}, (1,)), ({"i": 2}, (2,))]


def test_dynamic_unknown_named_range_is_empty_not_an_error(g):
    assert combos(g, [it("r", named_range("NoSuchRange"))]) == []
    assert combos(g, [it("r", named_range("P"))]) == []


def test_dynamic_named_range(g):
    assert [idx for _, idx in combos(g, [it("r", named_range("R"))])] == [(2,), (3,), (4,)]


def test_dynamic_sets(make_gen):
    arcs = set_of_tuples("Arcs", "Arc", [tuple_lit(string("a"), num(1))])
    decls = [typed_set("T", ["u", "v"]), tuple_type("Arc", "src", "n"), arcs, set_decl("PV", [1])]
    g = make_gen(model(decls), {"E": {"elements": [1, 2]}, "L": ["x"]})
    assert [idx for _, idx in combos(g, [it("s", named_set("E"))])] == [(1,), (2,)]
    assert [idx for _, idx in combos(g, [it("s", named_set("T"))])] == [("u",), ("v",)]
    assert [idx for _, idx in combos(g, [it("s", {"type": "named_set_dimension", "name": "T"})])] == [("u",), ("v",)]
    assert [idx for _, idx in combos(g, [it("s", named_set("Arcs"))])] == [(("a", 1),)]
    assert [idx for _, idx in combos(g, [it("s", named_set("L"))])] == [("x",)]
    assert combos(g, [it("s", named_set("PV"))]) == []
    assert combos(g, [it("s", named_set("Nowhere"))]) == []


def test_dynamic_indexed_set_depending_on_an_earlier_iterator(make_gen):
    g = make_gen(data={"A": [[10, 20], [30]]})
    iters = [it("i", range_spec(1, 2)), it("a", indexed_set("A", ref("i")))]
    assert [idx for _, idx in combos(g, iters)] == [(1, 10), (1, 20), (2, 30)]


def test_dynamic_indexed_set_with_index_one_takes_the_first_member(make_gen):
    g = make_gen(data={"A": [["first"], ["second"]]})
    assert [idx for _, idx in combos(g, [it("a", indexed_set("A", lit_index(1)))])] == [("first",)]


def test_dynamic_unknown_range_kind(g):
    with pytest.raises(SemanticError) as excinfo:
        g._iterate_iterators_dynamic([it("q", {"type": "weird"})], {})
    assert str(excinfo.value) == "Semantic Error: Unsupported iterator range type type: weird"


def test_dynamic_bounds_see_the_outer_env(g):
    result = combos(g, [it("j", range_spec(name("m"), name("m")))], {"m": 4})
    assert result == [({"m": 4, "j": 4}, (4,))]


# ---------------------------------------------------------------- _eval_bound_dynamic


def test_env_wins_over_data_in_a_dynamic_bound(make_gen):
    g = make_gen(data={"n": 5})
    assert g._eval_bound_dynamic(name("n"), {"n": 2}) == 2
    assert g._eval_bound_dynamic(name("n"), {}) == 5


def test_division_in_a_dynamic_bound_is_floor_division(make_gen):
    g = make_gen()
    val = g._eval_bound_dynamic(binop("/", num(7), num(2)), {})
    assert val == 3 and type(val) is int
    assert g._eval_bound_dynamic(binop("/", num(-7), num(2)), {}) == -4


def test_dynamic_bound_arithmetic(make_gen):
    g = make_gen()
    assert g._eval_bound_dynamic(binop("+", num(2), binop("*", num(3), name("i"))), {"i": 4}) == 14
    assert g._eval_bound_dynamic(binop("-", num(2), num(5)), {}) == -3
    assert g._eval_bound_dynamic(uminus(num(3)), {}) == -3
    assert g._eval_bound_dynamic(paren(num(6)), {}) == 6
    assert g._eval_bound_dynamic(minl(num(4), name("i")), {"i": 2}) == 2
    assert g._eval_bound_dynamic(maxl(num(4), name("i")), {"i": 2}) == 4


def test_dynamic_number_literals(make_gen):
    g = make_gen()
    cut = g._eval_bound_dynamic(num(2.7), {})
    assert cut == 2 and type(cut) is int
    assert g._eval_bound_dynamic(num(-2.7), {}) == -2
    flag = g._eval_bound_dynamic(num(True), {})
    assert flag == 1 and type(flag) is int
    assert g._eval_bound_dynamic({"type": "number"}, {}) == 0


def test_dynamic_number_literal_of_another_kind(make_gen):
    text = error_text(make_gen()._eval_bound_dynamic, num("5"), {})
    assert text.startswith("Semantic Error: Unsupported number literal in index bound type: ")


def test_dynamic_names(make_gen):
    g = make_gen(model([range_decl("R", 1, binop("+", num(2), num(3)))]), {"f": 3.9, "s": "abc"})
    val = g._eval_bound_dynamic(name("f"), {})
    assert val == 3 and type(val) is int
    assert g._eval_bound_dynamic(name("R"), {}) == 5
    assert g._eval_bound_dynamic(name("i"), {"i": 2.0}) == 2
    refused = "Semantic Error: Unsupported name in index bound type: "
    assert error_text(g._eval_bound_dynamic, name("zz"), {}) == refused + "zz"
    assert error_text(g._eval_bound_dynamic, name("s"), {}) == refused + "s"


def test_dynamic_bound_refusals(make_gen):
    g = make_gen()
    assert error_text(g._eval_bound_dynamic, binop("%", num(7), num(2)), {}).startswith(
        "Semantic Error: Unsupported operator in "
    )
    for bad in (5, {"value": 3}, {"type": "string_literal", "value": "a"}, minl(), maxl()):
        assert error_text(g._eval_bound_dynamic, bad, {}).startswith(
            "Semantic Error: Unsupported expr in index bound type: "
        ), bad


def test_unknown_name_differs_between_the_two_bound_evaluators(make_gen):
    g = make_gen()
    assert g._eval_bound(name("zz")) == 1
    with pytest.raises(SemanticError):
        g._eval_bound_dynamic(name("zz"), {})


# ---------------------------------------------------------------- _should_include_sum_term


def test_include_without_a_filter(make_gen):
    g = make_gen()
    env2, keep = g._should_include_sum_term(["i", "j"], (1, "a"), set(), {"k": 0}, None, SUM)
    assert (env2, keep) == ({"k": 0, "i": 1, "j": "a"}, True)


def test_include_with_no_env(make_gen):
    g = make_gen()
    assert tuple(g._should_include_sum_term(["i"], (2,), set(), None, None, SUM)) == ({"i": 2}, True)


def test_include_binds_tuple_set_iterators_as_tuples(make_gen):
    g = make_gen()
    env2, keep = g._should_include_sum_term(["e", "i"], (["a", 1], [2]), {"e"}, {}, None, SUM)
    assert keep is True
    assert env2 == {"e": ("a", 1), "i": [2]}
    assert type(env2["e"]) is tuple


def test_include_applies_the_filter(make_gen):
    g = make_gen()
    cond = binop(">", name("i"), num(1))
    assert tuple(g._should_include_sum_term(["i"], (1,), set(), {}, cond, SUM)) == ({"i": 1}, False)
    assert tuple(g._should_include_sum_term(["i"], (2,), set(), {}, cond, SUM)) == ({"i": 2}, True)


def test_include_when_the_filter_fails(make_gen):
    g = make_gen()
    cond = binop(">", indexed("missing", ref("i")), num(1))
    assert tuple(g._should_include_sum_term(["i"], (1,), set(), {}, cond, SUM)) == ({"i": 1}, True)


def test_include_does_not_change_the_given_env(make_gen):
    g = make_gen()
    env = {"k": 1}
    g._should_include_sum_term(["i"], (1,), set(), env, None, SUM)
    assert env == {"k": 1}
