"""Boolean expression variables: one binary per Boolean tree, linked to its
parts by rows, shared between structurally equal trees.

Trees reach this machinery through forms of the constraint chain: a Boolean
tree on the left of a top-level comparison, a declared Boolean set equal to an
expression, an `implies` node compared with a literal, the terms of a weighted
Boolean sum, and the pre-registration of a top-level `!=` between two Boolean
expressions. Each row test traces its constraint through the chain and names
the form that claims it.

Auxiliaries are `_baux<n>`, n being the length of `aux_created` when made;
columns are the declared variables, then every new variable in order."""

import pytest

from builders import dvar_indexed, it, range_dim, range_spec, ref, sum_of
from conftest import (
    binop,
    bool_binop,
    constraint,
    dvar,
    implies,
    indexed,
    lit_index,
    minimize,
    model,
    name,
    num,
    paren,
)
from kolva.semantic_error import SemanticError
from lp_builders import and_, built_rows, generator, or_

UNRESOLVABLE = "Unsupported or non-resolvable boolean expression node type: "


# ---------------------------------------------------------------- helpers


def build(declarations, constraints):
    return built_rows(model(declarations, minimize(num(0)), constraints))


def booleans(*names):
    return [dvar(v, "boolean") for v in names]


def is1(var):
    """`var == 1`, the leaf of a variable inside a Boolean tree."""
    return constraint("==", name(var), num(1))


def is0(var):
    return constraint("==", name(var), num(0))


def not_(node):
    return {"type": "not", "value": node}


def bname(var):
    return name(var, sem_type="boolean")


def bool_and(left, right):
    """An "and" that carries its Boolean sense, as a composite operand."""
    return {"type": "and", "left": left, "right": right, "sem_type": "boolean"}


def row(columns, coefs):
    unknown = set(coefs) - set(columns)
    assert not unknown, unknown
    return [float(coefs.get(col, 0.0)) for col in columns]


def and_rows(cols, z, left, right):
    """z <= left, z <= right, left + right - z <= 1."""
    return (
        [row(cols, {z: 1, left: -1}), row(cols, {z: 1, right: -1}), row(cols, {z: -1, left: 1, right: 1})],
        [0.0, 0.0, 1.0],
    )


def or_rows(cols, z, left, right):
    """left <= z, right <= z, z <= left + right."""
    return (
        [row(cols, {z: -1, left: 1}), row(cols, {z: -1, right: 1}), row(cols, {z: 1, left: -1, right: -1})],
        [0.0, 0.0, 0.0],
    )


def at_least_one(tree):
    """`tree >= 1`: the top-level Boolean tree form fixes the tree's variable
    to 1 by one equality row, so the row shows which variable the tree got."""
    return constraint(">=", tree, num(1))


AB_KEY = ("and", (("atom", "a", 1), ("atom", "b", 1)))


# ---------------------------------------------------------------- structural keys


@pytest.fixture
def keyed():
    return build([*booleans("a", "b", "c", "y"), dvar_indexed("x", range_dim(1, 3), var_type="boolean")], [])


def test_atom_keys_in_either_order_and_for_indexed_names(keyed):
    assert keyed._bool_struct_key(is1("a")) == ("atom", "a", 1)
    assert keyed._bool_struct_key(is0("a")) == ("atom", "a", 0)
    assert keyed._bool_struct_key(constraint("==", num(1), name("a"))) == ("atom", "a", 1)
    assert keyed._bool_struct_key(constraint("==", indexed("x", lit_index(2)), num(0))) == ("atom", "x_2", 0)
    assert keyed._bool_struct_key(constraint("==", indexed("x", ref("i")), num(1)), {"i": 3}) == ("atom", "x_3", 1)


def test_not_and_or_keys_are_built_from_their_operands(keyed):
    assert keyed._bool_struct_key(not_(is1("a"))) == ("not", ("atom", "a", 1))
    assert keyed._bool_struct_key(paren(not_(paren(is0("b"))))) == ("not", ("atom", "b", 0))
    assert keyed._bool_struct_key(and_(is1("a"), is1("b"))) == AB_KEY
    assert keyed._bool_struct_key(or_(is1("b"), is0("a"))) == ("or", (("atom", "a", 0), ("atom", "b", 1)))


def test_and_and_or_are_commutative_under_the_key(keyed):
    k = keyed._bool_struct_key
    assert k(and_(is1("b"), is1("a"))) == k(and_(is1("a"), is1("b")))
    assert k(or_(not_(is1("c")), and_(is1("a"), is1("b")))) == k(or_(and_(is1("b"), is1("a")), not_(is1("c"))))
    assert k(and_(is1("a"), is1("b"))) != k(or_(is1("a"), is1("b")))


def test_comparison_keys_here_keep_the_written_order(keyed):
    # unlike the comparison key of truth variables, no ordering of "==" sides
    node = bool_binop("==", name("y"), name("c"))
    assert keyed._bool_struct_key(node) == ("cmp", "==", ("name", "y"), ("name", "c"))
    assert keyed._comparison_key(node) == ("cmp", "==", ("name", "c"), ("name", "y"))
    assert keyed._bool_struct_key(bool_binop("<=", binop("+", name("a"), name("b")), num(1))) == (
        "cmp",
        "<=",
        ("binop", "+", ("name", "a"), ("name", "b")),
        ("number", 1),
    )


def test_a_boolean_name_tied_to_a_composite_keys_as_a_link(keyed):
    composite = bool_and(is1("a"), is1("b"))
    assert keyed._bool_struct_key(bool_binop("==", bname("y"), composite)) == ("eq_link", ("name", "y"), AB_KEY)
    # the variable may stand on the right
    assert keyed._bool_struct_key(bool_binop("==", composite, bname("y"))) == ("eq_link", ("name", "y"), AB_KEY)


def test_an_or_over_a_link_keys_as_over_the_bare_composite(keyed):
    composite = bool_and(is1("a"), is1("b"))
    linked = or_(bool_binop("==", bname("y"), composite), is1("c"))
    bare = or_(composite, is1("c"))
    # "and" < "atom" at the second letter
    assert keyed._bool_struct_key(linked) == keyed._bool_struct_key(bare) == ("or", (AB_KEY, ("atom", "c", 1)))


def test_nodes_without_a_structural_form_key_apart(keyed):
    # a plain name and a non-atomic equality have no structural form: each
    # keys on its own identity, so two of them in one tree differ
    key = keyed._bool_struct_key(and_(name("a"), name("a")))
    assert key[0] == "and"
    assert key[1][0][0] == key[1][1][0] == "unknown"
    assert key[1][0] != key[1][1]
    assert keyed._bool_struct_key(constraint("==", name("a"), num(2)))[0] == "unknown"
    assert keyed._bool_struct_key(constraint("==", name("a"), name("b")))[0] == "unknown"


# ---------------------------------------------------------------- atomic leaves


def test_atomic_leaf_gives_name_and_polarity(keyed):
    assert tuple(keyed._atomic_bool_var(is1("a"))) == ("a", 1)
    assert tuple(keyed._atomic_bool_var(is0("a"))) == ("a", -1)
    assert tuple(keyed._atomic_bool_var(constraint("==", num(1), name("b")))) == ("b", 1)
    assert tuple(keyed._atomic_bool_var(constraint("==", num(0), name("b")))) == ("b", -1)
    assert tuple(keyed._atomic_bool_var(constraint("==", indexed("x", ref("i")), num(0)), {"i": 2})) == ("x_2", -1)


@pytest.mark.parametrize("node", [5, "a", None, [is1("a")]], ids=["number", "string", "none", "list"])
def test_atomic_leaf_that_is_not_a_node(keyed, node):
    with pytest.raises(SemanticError) as err:
        keyed._atomic_bool_var(node)
    assert str(err.value) == "Non-dict atomic boolean node"


@pytest.mark.parametrize(
    "node",
    [
        constraint("==", name("a"), num(2)),
        constraint("<=", name("a"), num(1)),
        constraint("==", name("a"), name("b")),
        bool_binop("==", name("a"), num(1)),
        not_(is1("a")),
    ],
    ids=["value-2", "less-equal", "two-names", "binop", "not"],
)
def test_atomic_leaf_of_another_shape(keyed, node):
    with pytest.raises(SemanticError) as err:
        keyed._atomic_bool_var(node)
    assert str(err.value) == "Unsupported atomic boolean literal"


# ---------------------------------------------------------------- and / or through the chain

# chain for `tree >= 1` with a tree of and/or/not over `var == 0/1` leaves: no
# parameter on a side; the left side is a Boolean tree (and `tree == 1` is no
# tree itself), so the top-level Boolean tree form makes its variable; ">="
# against 1 is not tautological and posts the variable = 1.


def test_a_conjunction_written_both_ways_shares_one_auxiliary():
    g = build(booleans("a", "b"), [at_least_one(and_(is1("a"), is1("b"))), at_least_one(and_(is1("b"), is1("a")))])
    cols = ["a", "b", "_baux0"]
    assert g.var_names == cols
    assert g.aux_created == ["_baux0"]
    rows, rhs = and_rows(cols, "_baux0", "a", "b")
    assert g.A_ub == rows
    assert g.b_ub == rhs
    assert g.A_eq == [row(cols, {"_baux0": 1})] * 2
    assert g.b_eq == [1.0, 1.0]
    assert g._bool_subtree_cache == {("atom", "a", 1): "a", ("atom", "b", 1): "b", AB_KEY: "_baux0"}
    assert g._comparison_truth_cache == {}


def test_a_conjunction_of_one_leaf_with_itself_is_that_variable():
    g = build(booleans("a", "b"), [at_least_one(and_(is1("a"), is1("a")))])
    assert g.var_names == ["a", "b"]
    assert g.aux_created == []
    assert g.A_ub == []
    assert g.A_eq == [[1.0, 0.0]]  # the tree's variable is `a` itself
    assert g.b_eq == [1.0]


def test_a_negative_leaf_gets_one_auxiliary_shared_with_the_negation():
    # (a == 0) >= 1 twice, then not(a == 1) >= 1: all three are _baux0, whose
    # only defining row is _baux0 + a = 1.
    g = build(
        booleans("a", "b"),
        [at_least_one(is0("a")), at_least_one(is0("a")), at_least_one(not_(is1("a")))],
    )
    cols = ["a", "b", "_baux0"]
    assert g.var_names == cols
    assert g.aux_created == ["_baux0"]
    assert g.A_ub == []
    assert g.A_eq == [row(cols, {"_baux0": 1, "a": 1})] + [row(cols, {"_baux0": 1})] * 3
    assert g.b_eq == [1.0] * 4


def test_negating_a_negative_leaf_makes_a_new_auxiliary():
    # not(a == 0): z = _baux0 with z + a = 1 for the leaf, then w = _baux1 with
    # w + z = 1 for the negation; w is not `a`.
    g = build(booleans("a", "b"), [at_least_one(not_(is0("a")))])
    cols = ["a", "b", "_baux0", "_baux1"]
    assert g.var_names == cols
    assert g.aux_created == ["_baux0", "_baux1"]
    assert g.A_eq == [
        row(cols, {"_baux0": 1, "a": 1}),
        row(cols, {"_baux1": 1, "_baux0": 1}),
        row(cols, {"_baux1": 1}),
    ]
    assert g.b_eq == [1.0, 1.0, 1.0]
    assert g.A_ub == []


def test_a_disjunction_with_a_negative_leaf():
    # (a == 1 or b == 0) == 0: the top-level tree form posts the or-variable = 0
    g = build(booleans("a", "b"), [constraint("==", or_(is1("a"), is0("b")), num(0))])
    cols = ["a", "b", "_baux0", "_baux1"]
    assert g.var_names == cols
    rows, rhs = or_rows(cols, "_baux1", "a", "_baux0")
    assert g.A_ub == rows
    assert g.b_ub == rhs
    assert g.A_eq == [row(cols, {"_baux0": 1, "b": 1}), row(cols, {"_baux1": 1})]
    assert g.b_eq == [1.0, 0.0]


def test_an_implies_node_is_a_disjunction_with_a_negated_left_side():
    # chain for `(a == 1 => b == 1) == 1`: an implies node is no Boolean tree;
    # bound collection sees no variable against a number; the form over an
    # implies node makes its variable and posts it = 1.
    # a => b is (not a) or b: _baux0 + a = 1, then _baux1 over (_baux0, b).
    g = build(booleans("a", "b"), [constraint("==", implies(is1("a"), is1("b")), num(1))])
    cols = ["a", "b", "_baux0", "_baux1"]
    assert g.var_names == cols
    rows, rhs = or_rows(cols, "_baux1", "_baux0", "b")
    assert g.A_ub == rows
    assert g.b_ub == rhs
    assert g.A_eq == [row(cols, {"_baux0": 1, "a": 1}), row(cols, {"_baux1": 1})]
    assert g.b_eq == [1.0, 1.0]


# ---------------------------------------------------------------- ties and inequalities

# chain for `c == <Boolean binop>` with c declared Boolean: the left side is a
# name, no tree; bound collection sees no number; the name-equals-sum form
# needs a ">=" or ">" on the right; no literal on the right; the operator is
# "=="; no "not" on the left; so the declared-Boolean-equals-expression form
# takes the variable of the right side and posts c - v = 0.


def test_a_boolean_name_tied_to_a_composite_is_that_name():
    tie = bool_binop("==", bname("y"), bool_and(is1("a"), is1("b")))
    g = build(booleans("a", "b", "c", "y"), [constraint("==", bname("c"), tie)])
    cols = ["a", "b", "c", "y", "_baux0"]
    assert g.var_names == cols
    rows, rhs = and_rows(cols, "_baux0", "a", "b")
    assert g.A_ub == rows
    assert g.b_ub == rhs
    # y = _baux0 ties the name to the composite; the tie's variable is y
    assert g.A_eq == [row(cols, {"y": 1, "_baux0": -1}), row(cols, {"c": 1, "y": -1})]
    assert g.b_eq == [0.0, 0.0]
    assert g._bool_subtree_cache == {
        ("atom", "a", 1): "a",
        ("atom", "b", 1): "b",
        AB_KEY: "_baux0",
        ("eq_link", ("name", "y"), AB_KEY): "y",
    }


def test_inequality_of_two_boolean_leaves_keeps_its_four_rows():
    # a != b as a Boolean binop: x = a, y = b, z = _baux0 and the four rows
    #   z - x + y <= 0,  z + x - y <= 0,  -z + x + y <= 0,  z + x + y <= 2
    xor = bool_binop("!=", is1("a"), is1("b"))
    g = build(booleans("a", "b", "c"), [constraint("==", bname("c"), xor)])
    cols = ["a", "b", "c", "_baux0"]
    assert g.var_names == cols
    assert g.A_ub == [
        row(cols, {"_baux0": 1, "a": -1, "b": 1}),
        row(cols, {"_baux0": 1, "a": 1, "b": -1}),
        row(cols, {"_baux0": -1, "a": 1, "b": 1}),
        row(cols, {"_baux0": 1, "a": 1, "b": 1}),
    ]
    assert g.b_ub == [0.0, 0.0, 0.0, 2.0]
    assert g.A_eq == [row(cols, {"c": 1, "_baux0": -1})]
    assert g.b_eq == [0.0]


def test_top_level_inequality_of_two_trees():
    # chain for `(a == 1 and b == 1) != (a == 1 or b == 1)`:
    # - the left side is a tree: the top-level tree form makes _baux0 (and
    #   rows); "!=" against a non-number falls through, keeping it;
    # - pre-registration: "!=" with two Boolean expressions asks for the
    #   variable of the whole constraint: the "or" gets _baux1, the
    #   inequality _baux2 with its four rows over (_baux2, _baux0, _baux1);
    #   the result is dropped;
    # - the inequality form finds no declared Boolean and no literal: truth-
    #   variable fallback. Both sides evaluate to 0.0 as expressions (their
    #   leaves are constraint nodes), so E = {}, K = 0, M = 1:
    #   -z <= -1 - K  and  z <= M - 1 - K = 0, then z = 1.
    left, right = and_(is1("a"), is1("b")), or_(is1("a"), is1("b"))
    g = build(booleans("a", "b"), [constraint("!=", left, right)])
    cols = ["a", "b", "_baux0", "_baux1", "_baux2", "cmp_flag_0"]
    assert g.var_names == cols
    assert g.aux_created == ["_baux0", "_baux1", "_baux2"]
    a_rows, a_rhs = and_rows(cols, "_baux0", "a", "b")
    o_rows, o_rhs = or_rows(cols, "_baux1", "a", "b")
    x_rows = [
        row(cols, {"_baux2": 1, "_baux0": -1, "_baux1": 1}),
        row(cols, {"_baux2": 1, "_baux0": 1, "_baux1": -1}),
        row(cols, {"_baux2": -1, "_baux0": 1, "_baux1": 1}),
        row(cols, {"_baux2": 1, "_baux0": 1, "_baux1": 1}),
    ]
    f_rows = [row(cols, {"cmp_flag_0": -1}), row(cols, {"cmp_flag_0": 1})]
    assert g.A_ub == a_rows + o_rows + x_rows + f_rows
    assert g.b_ub == a_rhs + o_rhs + [0.0, 0.0, 0.0, 2.0] + [-1.0, 0.0]
    assert g.A_eq == [row(cols, {"cmp_flag_0": 1})]
    assert g.b_eq == [1.0]
    assert "# encoded != via truth var fallback" in g.scipy_code_lines


# ---------------------------------------------------------------- failures


def weighted(factor):
    """`sum(j in 1..1) 2 * factor >= 1`: the weighted Boolean sum (the first
    comparison form) asks for the factor's variable and lets errors through."""
    return constraint(">=", sum_of([it("j", range_spec(1, 1))], binop("*", num(2), factor)), num(1))


def test_a_plain_name_leaf_is_refused_and_earlier_operands_stay():
    # the factor's left operand not(b == 1) gets _baux0 before the plain name
    # `a` on its right is refused
    factor = bool_and(not_(is1("b")), bname("a"))
    g = generator(model(booleans("a", "b"), minimize(num(0)), [weighted(factor)]))
    g._build_variables()
    g._build_objective()
    with pytest.raises(SemanticError) as err:
        g._build_constraints()
    message = str(err.value)
    assert message.startswith(UNRESOLVABLE + "name (")
    assert message.endswith(")")
    assert g.var_names == ["a", "b", "_baux0"]


# ---------------------------------------------------------------- numbering and caches


def count_constraint():
    # sum(i in 1..1) (x[i] >= 1) >= 1: the sum-of-comparisons form, whose
    # per-term binary comes from _ensure_aux_binary("cmp_sum") and is entered
    # in aux_created too
    return constraint(">=", sum_of([it("i", range_spec(1, 1))], bool_binop(">=", indexed("x", ref("i")), num(1))), num(1))


def test_auxiliaries_are_numbered_after_every_entry_of_aux_created():
    decls = [dvar_indexed("x", range_dim(1, 1), var_type="float"), *booleans("a", "b")]
    g = build(decls, [count_constraint(), at_least_one(and_(is1("a"), is1("b")))])
    assert g.var_names == ["x_1", "a", "b", "cmp_sum", "_baux1"]
    assert g.aux_created == ["cmp_sum", "_baux1"]


def test_the_subtree_cache_outlives_a_build_and_aux_created_starts_again():
    decls = [dvar_indexed("x", range_dim(1, 1), var_type="float"), *booleans("a", "b")]
    g = build(decls, [count_constraint(), at_least_one(and_(is1("a"), is1("b")))])
    cache = dict(g._bool_subtree_cache)
    g._build_constraints()
    # aux_created was emptied: the new per-term binary is its first entry.
    # The tree is found in the cache: no new auxiliary, none of its rows, only
    # the equality row of the top-level form on the old _baux1.
    assert g.aux_created == ["cmp_sum_1"]
    cols = ["x_1", "a", "b", "cmp_sum", "_baux1", "cmp_sum_1"]
    assert g.var_names == cols
    assert g.A_eq == [row(cols, {"_baux1": 1})]
    assert g.b_eq == [1.0]
    assert g._bool_subtree_cache == cache
    assert cache[AB_KEY] == "_baux1"


def test_a_second_build_posts_no_second_set_of_tree_rows():
    g = build(booleans("a", "b"), [at_least_one(and_(is1("a"), is1("b")))])
    cols = ["a", "b", "_baux0"]
    assert len(g.b_ub) == 3
    assert g.aux_created == ["_baux0"]
    g._build_constraints()
    assert g.var_names == cols
    assert g.aux_created == []
    assert g.A_ub == []
    assert g.b_ub == []
    assert g.A_eq == [row(cols, {"_baux0": 1})]
    assert g.b_eq == [1.0]
    assert g._bool_subtree_cache[AB_KEY] == "_baux0"
