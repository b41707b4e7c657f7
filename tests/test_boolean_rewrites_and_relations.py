"""Comparisons against Boolean literals, every `!=` constraint, Boolean trees
against literals, and declared Boolean variables related to Boolean
expressions.

The forms here sit in the middle of the ordered constraint chain: parenthesis
stripping, `cmp == true`, `cmp == false`, the `!=` forms, `not(...) == literal`,
declared Boolean equals expression, then (after two sum forms) a Boolean tree
against a literal and a Boolean variable against an expression. Earlier forms
(the top-level Boolean tree, bound collection) see every constraint first, so
each test traces its constraint through the chain and names the form that
claims it.

Columns: the declared variables in declaration order, then each new variable
in order of creation."""

import pytest

from builders import dvar_indexed, forall, it, range_dim, range_spec, ref
from conftest import bool_binop, boolean, constraint, dvar, indexed, lit_index, minimize, model, name, num, paren
from kolva.scipy_codegen_csc import BOOL_EPS
from lp_builders import and_, built_rows, or_

XOR = "# encoded != (boolean xor)"
VAR_VS_LITERAL = "# encoded != (boolean var vs literal)"
FALLBACK = "# encoded != via truth var fallback"
NOT_OF_EQ = "# encoded != (NOT of ==)"


# ---------------------------------------------------------------- helpers


def build(declarations, constraints):
    return built_rows(model(declarations, minimize(num(0)), constraints))


def xy():
    return [dvar("x", "float"), dvar("y", "float")]


def booleans(*names):
    return [dvar(v, "boolean") for v in names]


def bname(var):
    return name(var, sem_type="boolean")


def is1(var):
    return constraint("==", name(var), num(1))


def not_(node):
    return {"type": "not", "value": node}


def row(columns, coefs):
    unknown = set(coefs) - set(columns)
    assert not unknown, unknown
    return [float(coefs.get(col, 0.0)) for col in columns]


def comments(g):
    return [line for line in g.scipy_code_lines if line.startswith("# encoded") or line.startswith("# comparison")]


def ab_or():
    return or_(is1("a"), is1("b"))


def ab_and():
    return and_(is1("a"), is1("b"))


# the variable _baux0 (column 2 after a, b) of `(a == 1) or (b == 1)`
OR_COLS = ["a", "b", "_baux0"]
OR_ROWS = [row(OR_COLS, {"_baux0": -1, "a": 1}), row(OR_COLS, {"_baux0": -1, "b": 1}), row(OR_COLS, {"_baux0": 1, "a": -1, "b": -1})]
OR_RHS = [0.0, 0.0, 0.0]


def and_rows(cols, z):
    """Rows of z = (a == 1) and (b == 1)."""
    return (
        [row(cols, {z: 1, "a": -1}), row(cols, {z: 1, "b": -1}), row(cols, {z: -1, "a": 1, "b": 1})],
        [0.0, 0.0, 1.0],
    )


# fallback flag of `x != y` (x, y float, default box): E = x - y, K = 0,
# M = 4001; -E - M z <= -1 - K and -E + M z <= M - 1 - K
XY_COLS = ["x", "y", "cmp_flag_0"]
XY_FLAG_ROWS = [row(XY_COLS, {"x": -1, "y": 1, "cmp_flag_0": -4001}), row(XY_COLS, {"x": -1, "y": 1, "cmp_flag_0": 4001})]
XY_FLAG_RHS = [-1.0, 4000.0]


def assert_xy_fallback(g):
    assert g.var_names == XY_COLS
    assert g.A_ub == XY_FLAG_ROWS
    assert g.b_ub == XY_FLAG_RHS
    assert g.A_eq == [row(XY_COLS, {"cmp_flag_0": 1})]
    assert g.b_eq == [1.0]


# ---------------------------------------------------------------- comparison == true / false

# chain for `(cmp) == true/false` with cmp a Boolean binop over x, y float: no
# parameter on a side; a binop is no Boolean tree; bound collection finds no
# variable against a number (the left side is the binop); no implies, no sum.
# Parentheses are stripped, then the comparison-equals-true/false rewrite.


def test_comparison_equal_to_true_is_the_plain_comparison():
    g = build(xy(), [constraint("==", bool_binop("<=", name("x"), num(3)), boolean(True))])
    # rewritten to x <= 3, which no later form claims: general row
    assert g.var_names == ["x", "y"]
    assert g.A_ub == [[1.0, 0.0]]
    assert g.b_ub == [3.0]
    assert g.A_eq == []
    # bound collection ran on the constraint as written, before the rewrite
    assert "x" not in g._collected_ubs


def test_parenthesized_comparison_equal_to_true():
    g = build(xy(), [constraint("==", paren(bool_binop(">=", name("x"), name("y"))), boolean(True))])
    assert g.A_ub == [[-1.0, 1.0]]
    assert g.b_ub == [0.0]


def test_equality_equal_to_true_gives_an_equality_row():
    g = build(xy(), [constraint("==", bool_binop("==", name("x"), name("y")), boolean(True))])
    assert g.A_eq == [[1.0, -1.0]]
    assert g.b_eq == [0.0]
    assert g.A_ub == []


def test_inequality_equal_to_true_reaches_the_not_equal_forms():
    # rewritten to x != y, which the very next form, the "!=" forms, encodes
    g = build(xy(), [constraint("==", bool_binop("!=", name("x"), name("y")), boolean(True))])
    assert_xy_fallback(g)
    assert comments(g) == ["# comparison truth var for !=", FALLBACK] or comments(g) == [
        FALLBACK,
        "# comparison truth var for !=",
    ]


def test_at_most_equal_to_false_becomes_a_strict_opposite():
    # (x <= 3) == false -> not(x <= 3) == true -> x >= 3 + eps, a general row
    # stored negated
    g = build(xy(), [constraint("==", bool_binop("<=", name("x"), num(3)), boolean(False))])
    assert g.var_names == ["x", "y"]
    assert g.A_ub == [[-1.0, 0.0]]
    assert g.b_ub == [-(3.0 + BOOL_EPS)]
    assert g.A_eq == []
    assert "x" not in g._collected_lbs


def test_at_least_equal_to_false_becomes_a_strict_opposite():
    # (x >= 3) == false -> x <= 3 - eps
    g = build(xy(), [constraint("==", bool_binop(">=", name("x"), num(3)), boolean(False))])
    assert g.A_ub == [[1.0, 0.0]]
    assert g.b_ub == [3.0 - BOOL_EPS]


def test_equality_equal_to_false_becomes_not_equal():
    # (x == y) == false -> not(x == y) == true -> comment, then x != y, which
    # takes the truth-variable fallback
    g = build(xy(), [constraint("==", bool_binop("==", name("x"), name("y")), boolean(False))])
    assert_xy_fallback(g)
    lines = comments(g)
    assert lines[0] == NOT_OF_EQ
    assert sorted(lines[1:]) == sorted(["# comparison truth var for !=", FALLBACK])


def test_inequality_equal_to_false_becomes_equality():
    g = build(xy(), [constraint("==", bool_binop("!=", name("x"), name("y")), boolean(False))])
    assert g.var_names == ["x", "y"]
    assert g.A_eq == [[1.0, -1.0]]
    assert g.b_eq == [0.0]
    assert g.A_ub == []
    assert comments(g) == []


# ---------------------------------------------------------------- not(...) == literal

# A "not" over a comparison binop is no Boolean tree (its value is no tree),
# so these reach the negation-equals-literal form.


def test_negated_comparison_equal_to_false_is_the_comparison():
    # not(x <= 3) == false -> (x <= 3) == true -> x <= 3
    g = build(xy(), [constraint("==", not_(bool_binop("<=", name("x"), num(3))), boolean(False))])
    assert g.A_ub == [[1.0, 0.0]]
    assert g.b_ub == [3.0]


def test_negated_comparison_binop_equal_to_true_goes_through_false():
    # the negated node is a binop, not a constraint node: handled as
    # (x <= 3) == false, i.e. x >= 3 + eps
    g = build(xy(), [constraint("==", not_(bool_binop("<=", name("x"), num(3))), boolean(True))])
    assert g.A_ub == [[-1.0, 0.0]]
    assert g.b_ub == [-(3.0 + BOOL_EPS)]


def test_negated_parenthesized_constraint_equal_to_true_is_its_opposite():
    # one level of parentheses is removed from the negated node, a constraint
    # "<=": handled as x >= 3 + eps
    inner = paren(constraint("<=", name("x"), num(3)))
    g = build(xy(), [constraint("==", not_(inner), boolean(True))])
    assert g.A_ub == [[-1.0, 0.0]]
    assert g.b_ub == [-(3.0 + BOOL_EPS)]


def test_negated_greater_equal_constraint_equal_to_true():
    g = build(xy(), [constraint("==", not_(constraint(">=", name("x"), name("y"))), boolean(True))])
    # x <= y - eps
    assert g.A_ub == [[1.0, -1.0]]
    assert g.b_ub == [-BOOL_EPS]


def test_negated_not_equal_constraint_equal_to_true_is_an_equality():
    g = build(xy(), [constraint("==", not_(constraint("!=", name("x"), name("y"))), boolean(True))])
    assert g.A_eq == [[1.0, -1.0]]
    assert g.b_eq == [0.0]
    assert g.A_ub == []


# ---------------------------------------------------------------- "!=" forms

# chain for `u != v`: no parameter; the left side is no Boolean tree; bound
# collection does nothing for "!=", and plain names are no Boolean
# expressions for pre-registration; no implies, no sum, no "==": the "!="
# forms claim it.


def test_two_declared_booleans_not_equal_is_an_exclusive_or():
    g = build(booleans("a", "b"), [constraint("!=", bname("a"), bname("b"))])
    assert g.var_names == ["a", "b"]
    assert g.A_eq == [[1.0, 1.0]]
    assert g.b_eq == [1.0]
    assert g.A_ub == []
    assert comments(g) == [XOR]


def test_a_boolean_not_equal_to_itself_is_forced_to_one():
    # both coefficients are assigned, not added: one entry 1.0
    g = build(booleans("a", "b"), [constraint("!=", bname("a"), bname("a"))])
    assert g.A_eq == [[1.0, 0.0]]
    assert g.b_eq == [1.0]
    assert comments(g) == [XOR]


def test_indexed_booleans_not_equal():
    decls = [dvar_indexed("b", range_dim(1, 2), var_type="boolean")]
    g = build(decls, [constraint("!=", indexed("b", lit_index(1)), indexed("b", lit_index(2)))])
    assert g.var_names == ["b_1", "b_2"]
    assert g.A_eq == [[1.0, 1.0]]
    assert g.b_eq == [1.0]
    assert comments(g) == [XOR]


@pytest.mark.parametrize(
    "left, right, rhs",
    [
        (bname("a"), num(1), 0.0),
        (num(1), bname("a"), 0.0),
        (bname("a"), num(0), 1.0),
        (num(0), bname("a"), 1.0),
    ],
    ids=["a!=1", "1!=a", "a!=0", "0!=a"],
)
def test_a_boolean_not_equal_to_a_literal_is_fixed(left, right, rhs):
    g = build(booleans("a", "b"), [constraint("!=", left, right)])
    assert g.var_names == ["a", "b"]
    assert g.A_eq == [[1.0, 0.0]]
    assert g.b_eq == [rhs]
    assert g.A_ub == []
    assert comments(g) == [VAR_VS_LITERAL]


def test_indexed_booleans_not_equal_to_zero_under_a_forall():
    decls = [dvar_indexed("b", range_dim(1, 2), var_type="boolean")]
    g = build(decls, [forall([it("i", range_spec(1, 2))], constraint("!=", indexed("b", ref("i")), num(0)))])
    assert g.A_eq == [[1.0, 0.0], [0.0, 1.0]]
    assert g.b_eq == [1.0, 1.0]
    assert comments(g) == [VAR_VS_LITERAL] * 2


def test_two_floats_not_equal_take_the_fallback():
    g = build(xy(), [constraint("!=", name("x"), name("y"))])
    assert_xy_fallback(g)
    assert FALLBACK in comments(g)


def test_a_float_not_equal_to_one_is_no_boolean_literal_case():
    # x is not a declared Boolean: fallback with E = x, K = -1, M = 2001
    g = build(xy(), [constraint("!=", name("x"), num(1))])
    cols = XY_COLS
    assert g.var_names == cols
    assert g.A_ub == [row(cols, {"x": -1, "cmp_flag_0": -2001}), row(cols, {"x": -1, "cmp_flag_0": 2001})]
    assert g.b_ub == [0.0, 2001.0]
    assert g.A_eq == [row(cols, {"cmp_flag_0": 1})]
    assert VAR_VS_LITERAL not in comments(g)


def test_a_tree_not_equal_to_one_is_taken_by_the_not_equal_forms():
    # (a == 1 or b == 1) != 1: the top-level tree form makes _baux0 and its
    # rows, and lets "!=" against 1 fall through; pre-registration needs two
    # Boolean expressions (1 is none); the "!=" forms stand before the tree-
    # against-literal form and take it through the fallback. As expressions the
    # tree is 0.0 and the literal 1.0: E = {}, K = -1, M = 2;
    # -2z <= -1 - K = 0 and 2z <= M - 1 - K = 2, then z = 1.
    g = build(booleans("a", "b"), [constraint("!=", ab_or(), num(1))])
    cols = ["a", "b", "_baux0", "cmp_flag_0"]
    assert g.var_names == cols
    or_rows = [r + [0.0] for r in OR_ROWS]
    assert g.A_ub == or_rows + [row(cols, {"cmp_flag_0": -2}), row(cols, {"cmp_flag_0": 2})]
    assert g.b_ub == OR_RHS + [0.0, 2.0]
    assert g.A_eq == [row(cols, {"cmp_flag_0": 1})]
    assert g.b_eq == [1.0]
    assert FALLBACK in comments(g)


# ---------------------------------------------------------------- declared Boolean equals expression


def test_declared_boolean_equal_to_a_conjunction():
    # chain for `x == (a == 1 and b == 1)`, x declared Boolean: the left side is
    # a name, no tree; bound collection sees no number; the name-equals-sum
    # form needs a comparison on the right; no literal; the declared-Boolean-
    # equals-expression form claims it (before the Boolean-variable-against-
    # expression form, which would post the same row) and posts x - z = 0.
    g = build(booleans("a", "b", "x"), [constraint("==", bname("x"), ab_and())])
    cols = ["a", "b", "x", "_baux0"]
    assert g.var_names == cols
    rows, rhs = and_rows(cols, "_baux0")
    assert g.A_ub == rows
    assert g.b_ub == rhs
    assert g.A_eq == [row(cols, {"x": 1, "_baux0": -1})]
    assert g.b_eq == [0.0]


# ---------------------------------------------------------------- Boolean tree against a literal

# chain for `tree op literal` with the tree on the left: the top-level tree
# form makes the tree's variable _baux0 (and its "or" rows) and claims "=="
# always, ">=" 1 and "!=" 0 (numbers), and skips ">=" 0 and "<=" 1 (numbers)
# as tautologies. Everything else falls through, keeping _baux0, to the
# tree-against-literal form.


def test_tree_at_least_one_posts_its_variable_equal_to_one():
    # claimed already by the top-level tree form, with this very row
    g = build(booleans("a", "b"), [constraint(">=", ab_or(), num(1))])
    assert g.var_names == OR_COLS
    assert g.A_ub == OR_ROWS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [1.0]


def test_tree_at_least_zero_posts_nothing():
    g = build(booleans("a", "b"), [constraint(">=", ab_or(), num(0))])
    assert g.A_ub == OR_ROWS
    assert g.A_eq == []


@pytest.mark.parametrize("right", [num(0), boolean(False)], ids=["zero", "false"])
def test_tree_at_most_zero_posts_its_variable_equal_to_zero(right):
    g = build(booleans("a", "b"), [constraint("<=", ab_or(), right)])
    assert g.var_names == OR_COLS
    assert g.A_ub == OR_ROWS
    assert g.b_ub == OR_RHS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [0.0]


def test_tree_at_least_true_posts_its_variable_equal_to_one():
    g = build(booleans("a", "b"), [constraint(">=", ab_or(), boolean(True))])
    assert g.A_ub == OR_ROWS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [1.0]


@pytest.mark.parametrize(
    "op, right",
    [("<=", boolean(True)), (">=", boolean(False))],
    ids=["at-most-true", "at-least-false"],
)
def test_tree_against_its_trivial_literal_bound_is_dropped(op, right):
    # no target: the constraint ends with no row of its own; the variable and
    # its rows from the top-level tree form stay
    g = build(booleans("a", "b"), [constraint(op, ab_or(), right)])
    assert g.var_names == OR_COLS
    assert g.A_ub == OR_ROWS
    assert g.A_eq == []
    assert g.b_eq == []


def test_tree_equal_to_two_is_not_refused():
    # 2 is no 0/1 literal, but the top-level tree form claims every "==" and
    # posts the variable equal to the number as it stands
    g = build(booleans("a", "b"), [constraint("==", ab_or(), num(2))])
    assert g.A_ub == OR_ROWS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [2.0]


def test_literal_equal_to_a_negated_tree_on_the_right():
    # chain for `0 == not(a == 1)`: the left side is a number, no tree; bound
    # collection needs a variable on a side; the "not" form looks at the left
    # side only; no declared Boolean on a side; the tree-against-literal form
    # swaps the sides: target 0 for "==" on a "not" tree.
    # not(a == 1) is _baux0 with _baux0 + a = 1.
    g = build(booleans("a", "b"), [constraint("==", num(0), not_(is1("a")))])
    cols = ["a", "b", "_baux0"]
    assert g.var_names == cols
    assert g.A_eq == [row(cols, {"_baux0": 1, "a": 1}), row(cols, {"_baux0": 1})]
    assert g.b_eq == [1.0, 0.0]
    assert g.A_ub == []


def test_one_at_most_a_tree_on_the_right_is_read_with_swapped_sides_and_dropped():
    # `1 <= tree`: the sides are swapped but the operator is kept, so it reads
    # as `tree <= 1`, which has no target: no variable is made, no row posted.
    g = build(booleans("a", "b"), [constraint("<=", num(1), ab_or())])
    assert g.var_names == ["a", "b"]
    assert g.A_ub == []
    assert g.A_eq == []


# ---------------------------------------------------------------- Boolean variable against expression

# chain for `x op (Boolean expression)` with x declared Boolean and op "<=" or
# ">=": bound collection needs a number on the other side; the "==" forms do
# not apply; the tree-against-literal form needs a literal beside the tree; the
# Boolean-variable-against-expression form claims it.


def relation_model(constraints):
    return build(booleans("a", "b", "x"), constraints)


RELATION_COLS = ["a", "b", "x", "_baux0"]


def test_tree_at_most_a_boolean_variable():
    # `(a and b) <= x`: the top-level tree form makes _baux0 and lets "<=" with
    # a name fall through; then z - x <= 0
    g = relation_model([constraint("<=", ab_and(), bname("x"))])
    cols = RELATION_COLS
    assert g.var_names == cols
    rows, rhs = and_rows(cols, "_baux0")
    assert g.A_ub == rows + [row(cols, {"_baux0": 1, "x": -1})]
    assert g.b_ub == rhs + [0.0]
    assert g.A_eq == []


def test_boolean_variable_at_most_a_tree():
    g = relation_model([constraint("<=", bname("x"), ab_and())])
    cols = RELATION_COLS
    rows, rhs = and_rows(cols, "_baux0")
    assert g.A_ub == rows + [row(cols, {"x": 1, "_baux0": -1})]
    assert g.b_ub == rhs + [0.0]
    assert g.A_eq == []


def test_tree_at_least_a_boolean_variable():
    # -z + x <= 0
    g = relation_model([constraint(">=", ab_and(), bname("x"))])
    cols = RELATION_COLS
    rows, rhs = and_rows(cols, "_baux0")
    assert g.A_ub == rows + [row(cols, {"_baux0": -1, "x": 1})]
    assert g.b_ub == rhs + [0.0]


def test_boolean_variable_at_least_a_tree():
    # -x + z <= 0
    g = relation_model([constraint(">=", bname("x"), ab_and())])
    cols = RELATION_COLS
    rows, rhs = and_rows(cols, "_baux0")
    assert g.A_ub == rows + [row(cols, {"x": -1, "_baux0": 1})]
    assert g.b_ub == rhs + [0.0]


@pytest.mark.parametrize(
    "constr",
    [
        constraint(">=", bname("x"), is1("x")),
        constraint("<=", bname("x"), and_(is1("x"), is1("x"))),
    ],
    ids=["x>=(x==1)", "x<=(x==1 and x==1)"],
)
def test_an_expression_whose_variable_is_the_variable_itself_posts_nothing(constr):
    g = relation_model([constr])
    assert g.var_names == ["a", "b", "x"]
    assert g.A_ub == []
    assert g.A_eq == []
    assert g.aux_created == []
