"""Comparison keys and the binary truth variables (`cmp_flag_<n>`) that stand
for a comparison inside a logical expression.

A comparison reaches its truth variable through forms of the constraint chain:
a top-level `!=` over non-Boolean sides goes to the truth-variable fallback, a
declared Boolean related to a comparison goes through the Boolean expression
variable, and a weighted Boolean sum makes one variable per term. Each row test
traces its constraint through the chain in order and names the form that
claims it.

Notation in the comments: the comparison reads E + K op 0 (E the linear part of
left minus right, K the constant part), M is the big-M of the comparison and
z the flag. With no collected bounds every variable lies in [-1000, 1000] for
the big-M, whatever its declared type; M = max(|f_min|, |f_max|, width) + 1."""

import pytest

from builders import dvar_indexed, forall, it, range_dim, range_spec, ref, sum_of
from conftest import (
    binop,
    bool_binop,
    boolean,
    constraint,
    dvar,
    indexed,
    lit_index,
    minimize,
    model,
    name,
    num,
    param_inline,
    paren,
    string,
)
from kolva.scipy_codegen_csc import BIG_M_DEFAULT, BOOL_EPS
from kolva.semantic_error import SemanticError
from lp_builders import built_rows, generator

FALLBACK = "# encoded != via truth var fallback"
CONJ_COMMENT = "# comparison truth var for conjunction of sum-comparisons"
NOT_A_TRUTH_COMPARISON = "Not a supported comparison binop for truth var"


def truth_comment(op):
    return "# comparison truth var for " + op


# ---------------------------------------------------------------- helpers


def build(declarations, constraints, data=None):
    return built_rows(model(declarations, minimize(num(0)), constraints), data)


def xy():
    return [dvar("x", "float"), dvar("y", "float")]


def bname(var):
    """A reference to a declared Boolean variable."""
    return name(var, sem_type="boolean")


def row(columns, coefs):
    """A dense row over `columns` from a map of column name to coefficient."""
    unknown = set(coefs) - set(columns)
    assert not unknown, unknown
    return [float(coefs.get(col, 0.0)) for col in columns]


def count(g, line):
    return g.scipy_code_lines.count(line)


def x_sum(op, bound, lo=1, hi=3, index_constraint=None):
    """`sum(i in lo..hi) (x[i] op bound)`."""
    return sum_of(
        [it("i", range_spec(lo, hi))],
        bool_binop(op, indexed("x", ref("i")), num(bound)),
        index_constraint,
    )


def weighted_sum(factor, lo=1, hi=1, weight=1):
    """`sum(j in lo..hi) weight * factor`: a weighted Boolean sum, whose factor
    goes through the Boolean expression variable with errors passing through."""
    return sum_of([it("j", range_spec(lo, hi))], binop("*", num(weight), factor))


def failed_build(declarations, constraints):
    g = generator(model(declarations, minimize(num(0)), constraints))
    g._build_variables()
    g._build_objective()
    with pytest.raises(SemanticError) as err:
        g._build_constraints()
    return g, str(err.value)


# ---------------------------------------------------------------- comparison keys


@pytest.fixture
def keyed():
    """A generator with scalar x, y and an array x2[1..3] known as columns."""
    decls = [*xy(), dvar_indexed("x2", range_dim(1, 3), var_type="float")]
    return build(decls, [])


@pytest.mark.parametrize("op", ["==", "!="])
def test_equality_and_inequality_keys_put_their_sides_in_order(keyed, op):
    a_b = keyed._comparison_key(bool_binop(op, name("x"), name("y")))
    b_a = keyed._comparison_key(bool_binop(op, name("y"), name("x")))
    assert a_b == b_a == ("cmp", op, ("name", "x"), ("name", "y"))


@pytest.mark.parametrize("op", ["<=", ">="])
def test_ordering_comparison_keys_keep_the_written_order(keyed, op):
    assert keyed._comparison_key(bool_binop(op, name("y"), name("x"))) == ("cmp", op, ("name", "y"), ("name", "x"))
    assert keyed._comparison_key(bool_binop(op, name("x"), name("y"))) == ("cmp", op, ("name", "x"), ("name", "y"))


def test_less_equal_and_its_mirror_have_different_keys(keyed):
    assert keyed._comparison_key(bool_binop("<=", name("x"), name("y"))) != keyed._comparison_key(
        bool_binop(">=", name("y"), name("x"))
    )


def test_variable_against_a_number_orders_name_before_number(keyed):
    # "name" < "number" at their second letter, so the name side comes first
    # whichever way the equality is written.
    expected = ("cmp", "==", ("name", "x"), ("number", 3))
    assert keyed._comparison_key(bool_binop("==", name("x"), num(3))) == expected
    assert keyed._comparison_key(bool_binop("==", num(3), name("x"))) == expected


def test_operand_keys_by_node_type(keyed):
    k = keyed._comparison_key
    assert k(bool_binop("<=", string("s"), boolean(True))) == (
        "cmp",
        "<=",
        ("string_literal", "s"),
        ("boolean_literal", True),
    )
    # a value that is not a node keys as a literal
    assert k(bool_binop("<=", name("x"), 3)) == ("cmp", "<=", ("name", "x"), ("lit", 3))
    # arithmetic keeps its operands in the written order
    assert k(bool_binop("<=", binop("+", name("y"), name("x")), num(1))) == (
        "cmp",
        "<=",
        ("binop", "+", ("name", "y"), ("name", "x")),
        ("number", 1),
    )


def test_parentheses_are_stripped_from_operands_at_every_depth(keyed):
    node = bool_binop("<=", paren(paren(name("x"))), paren(num(2)))
    assert keyed._comparison_key(node) == ("cmp", "<=", ("name", "x"), ("number", 2))


def test_a_name_bound_in_the_environment_keys_on_its_value(keyed):
    node = bool_binop("<=", name("i"), num(3))
    assert keyed._comparison_key(node, {"i": 2}) == ("cmp", "<=", ("name", 2), ("number", 3))
    assert keyed._comparison_key(node, {"i": 2}) != keyed._comparison_key(node, {"i": 5})
    assert keyed._comparison_key(node) == ("cmp", "<=", ("name", "i"), ("number", 3))


def test_an_indexed_name_keys_on_its_resolved_column_name(keyed):
    node = bool_binop("<=", indexed("x2", ref("i")), num(3))
    assert keyed._comparison_key(node, {"i": 2}) == ("cmp", "<=", ("indexed", "x2_2"), ("number", 3))
    literal = bool_binop("<=", indexed("x2", lit_index(2)), num(3))
    assert keyed._comparison_key(literal) == keyed._comparison_key(node, {"i": 2})


def test_an_indexed_name_that_cannot_be_named_keys_raw(keyed):
    # without a `name` key the column name cannot be formed: the failure is
    # swallowed and the key holds the raw parts.
    broken = {"type": "indexed_name", "dimensions": [lit_index(1)]}
    key = keyed._comparison_key(bool_binop("<=", broken, num(0)))
    assert key[:2] == ("cmp", "<=")
    assert key[2][:2] == ("indexed_raw", None)
    assert isinstance(key[2][2], str) and len(key[2]) == 3
    assert key[3] == ("number", 0)


def test_any_other_operand_keys_on_its_type_and_printed_form(keyed):
    neg = {"type": "uminus", "value": name("x")}
    key = keyed._comparison_key(bool_binop("<=", neg, num(0)))
    assert key[2][0] == "uminus"
    assert isinstance(key[2][1], str) and len(key[2]) == 2
    other = keyed._comparison_key(bool_binop("<=", {"type": "uminus", "value": name("y")}, num(0)))
    assert other[2] != key[2]


def sum_key(g, env):
    # sum(i in 1..3) x2[i] <= 4, keyed under `env`; the operand key of the sum
    return g._comparison_key(
        bool_binop("<=", sum_of([it("i", range_spec(1, 3))], indexed("x2", ref("i"))), num(4)), env
    )[2]


def test_a_sum_key_holds_only_the_outer_bindings(keyed):
    k = sum_key(keyed, {"k": 1, "i": 7})
    assert k[0] == "sum"
    assert isinstance(k[1], str)
    # the sum's own iterator `i` is left out of the bindings
    assert len(k[2]) == 1 and k[2][0][0] == "k"
    # x2[i] with i = 7 names no column: the operand keys on the base name
    assert k[3] == ("indexed", "x2")
    assert k[4] == ("lit", None)
    assert sum_key(keyed, {})[2] == ()


def test_a_sum_key_depends_on_the_outer_bindings_only(keyed):
    # i = 7 and i = 8 both leave x2[i] unresolved, so only `k` can matter
    assert sum_key(keyed, {"k": 1, "i": 7}) == sum_key(keyed, {"k": 1, "i": 8})
    assert sum_key(keyed, {"k": 1}) != sum_key(keyed, {"k": 2})


@pytest.mark.parametrize(
    "low, high",
    [
        (None, 2),  # None before numbers
        (2, "a"),  # numbers before strings
        (0.5, True),  # a bool counts as the number 1
        (True, 2),
        ("z", ("k",)),  # strings before tuples
        (None, "a"),
    ],
    ids=["none-number", "number-string", "half-true", "true-two", "string-tuple", "none-string"],
)
def test_unlike_literal_values_order_none_numbers_strings_tuples(keyed, low, high):
    expected = ("cmp", "==", ("lit", low), ("lit", high))
    assert keyed._comparison_key(bool_binop("==", high, low)) == expected
    assert keyed._comparison_key(bool_binop("==", low, high)) == expected


def test_unlike_number_node_values_order_the_same_way(keyed):
    expected = ("cmp", "!=", ("number", 2), ("number", "a"))
    assert keyed._comparison_key(bool_binop("!=", num("a"), num(2))) == expected
    assert keyed._comparison_key(bool_binop("!=", num(2), num("a"))) == expected


# ---------------------------------------------------------------- numeric helpers


def test_coerce_numeric_converts_numbers_bools_and_numeric_strings(keyed):
    for value, expected in [(3, 3.0), (2.5, 2.5), (True, 1.0), (False, 0.0), ("2.5", 2.5), ("-4", -4.0)]:
        got = keyed._coerce_numeric(value)
        assert got == expected and isinstance(got, float), value


def test_coerce_numeric_refuses_a_non_numeric_string(keyed):
    with pytest.raises(SemanticError) as err:
        keyed._coerce_numeric("abc")
    assert str(err.value) == "Non-numeric term 'abc' in linear comparison; cannot linearize"


@pytest.mark.parametrize("value", [None, [1], ("a", 1)], ids=["none", "list", "tuple"])
def test_coerce_numeric_refuses_other_types(keyed, value):
    with pytest.raises(SemanticError) as err:
        keyed._coerce_numeric(value)
    message = str(err.value)
    assert message.startswith("Unsupported constant type ")
    assert message.endswith(" in linear comparison")


def test_ground_numeric_value_of_ground_expressions():
    g = build([*xy(), param_inline("p", 7)], [])
    for expr, env, expected in [
        (num(3), None, 3.0),
        (boolean(True), None, 1.0),
        (boolean(False), None, 0.0),
        (binop("+", num(1), num(2)), None, 3.0),
        (name("i"), {"i": 4}, 4.0),
        (name("p"), None, 7.0),
        (sum_of([it("i", range_spec(1, 3))], name("i")), None, 6.0),
    ]:
        got = g._ground_numeric_value(expr, env)
        assert got == expected and isinstance(got, float), expr


def test_ground_numeric_value_is_none_for_variables_and_text():
    g = build(xy(), [])
    assert g._ground_numeric_value(name("x")) is None
    assert g._ground_numeric_value(binop("*", num(0), name("x"))) is None  # {x: 0.0} is still a variable
    assert g._ground_numeric_value(string("abc")) is None


def test_ground_numeric_value_does_not_change_the_callers_environment():
    g = build(xy(), [])
    env = {"i": 2}
    assert g._ground_numeric_value(sum_of([it("i", range_spec(1, 2))], name("i")), env) == 3.0
    assert env == {"i": 2}


# ---------------------------------------------------------------- "!=" through the fallback

# chain for `x != y` with x, y declared float: no parameter on a side; the left
# side is no Boolean tree; bound collection ignores "!=" and the sides are not
# Boolean expressions; no implies, no sum; no parentheses; op is not "==";
# the inequality form finds no declared Boolean and no 0/1 literal, so it takes
# the truth-variable fallback and fixes the flag to 1.


def test_not_equal_of_two_floats_gets_a_flag_with_default_big_m():
    g = build(xy(), [constraint("!=", name("x"), name("y"))])
    cols = ["x", "y", "cmp_flag_0"]
    assert g.var_names == cols
    # E = x - y, K = 0; f_min = -2000, f_max = 2000, width 4000 -> M = 4001
    #   -E - M z <= -1 - K      and     -E + M z <= M - 1 - K
    assert g.A_ub == [
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": -4001}),
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": 4001}),
    ]
    assert g.b_ub == [-1.0, 4000.0]
    assert g.A_eq == [row(cols, {"cmp_flag_0": 1})]
    assert g.b_eq == [1.0]
    assert count(g, truth_comment("!=")) == 1
    assert count(g, FALLBACK) == 1
    assert g._comparison_truth_cache == {("cmp", "!=", ("name", "x"), ("name", "y")): "cmp_flag_0"}
    assert g._bool_subtree_cache == {}


def test_a_flag_is_a_binary_column_with_a_zero_cost():
    g = build(xy(), [constraint("!=", name("x"), name("y"))])
    assert g.bounds[2] == [0, 1]
    assert g.integrality == [0, 0, 1]
    assert g.c == [0.0, 0.0, 0.0]
    assert g.aux_created == []  # flags are not Boolean auxiliaries


def test_not_equal_written_both_ways_shares_one_flag_and_its_two_rows():
    g = build(xy(), [constraint("!=", name("x"), name("y")), constraint("!=", name("y"), name("x"))])
    cols = ["x", "y", "cmp_flag_0"]
    assert g.var_names == cols
    assert len(g.b_ub) == 2  # the flag's rows are made once
    assert g.A_eq == [row(cols, {"cmp_flag_0": 1})] * 2
    assert g.b_eq == [1.0, 1.0]
    assert count(g, truth_comment("!=")) == 1
    assert count(g, FALLBACK) == 2


def test_collected_bounds_shrink_the_big_m_of_a_later_flag():
    # `x >= 0` and `x <= 10` reach bound collection (number on the right) and
    # then the general linear row; x is then in [0, 10] for the big-M, y keeps
    # the default box.
    g = build(
        xy(),
        [
            constraint(">=", name("x"), num(0)),
            constraint("<=", name("x"), num(10)),
            constraint("!=", name("x"), name("y")),
        ],
    )
    cols = ["x", "y", "cmp_flag_0"]
    assert g.var_names == cols
    assert g._collected_lbs["x"] == 0.0 and g._collected_ubs["x"] == 10.0
    # E = x - y: f_min = 0 - 1000 = -1000, f_max = 10 + 1000 = 1010,
    # width 2010 -> M = 2011
    assert g.A_ub == [
        row(cols, {"x": -1}),
        row(cols, {"x": 1}),
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": -2011}),
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": 2011}),
    ]
    assert g.b_ub == [0.0, 10.0, -1.0, 2010.0]


def test_an_upper_bound_from_a_number_on_the_left_shrinks_the_big_m():
    # `5 >= x` records the upper bound 5 for x and still gives x <= 5.
    g = build(xy(), [constraint(">=", num(5), name("x")), constraint("!=", name("x"), num(3))])
    cols = ["x", "y", "cmp_flag_0"]
    # E = x, K = -3, x in [-1000, 5]: f_min = -1003, f_max = 2, width 1005
    # -> M = 1006.   -x - 1006 z <= -1 + 3   and   -x + 1006 z <= 1006 - 1 + 3
    assert g.A_ub == [
        row(cols, {"x": 1}),
        row(cols, {"x": -1, "cmp_flag_0": -1006}),
        row(cols, {"x": -1, "cmp_flag_0": 1006}),
    ]
    assert g.b_ub == [5.0, 2.0, 1008.0]


def test_a_bound_collected_after_the_flag_does_not_change_its_big_m():
    g = build(xy(), [constraint("!=", name("x"), name("y")), constraint(">=", name("x"), num(0))])
    cols = ["x", "y", "cmp_flag_0"]
    assert g.A_ub[:2] == [
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": -4001}),
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": 4001}),
    ]
    assert g.b_ub[:2] == [-1.0, 4000.0]


def test_a_declared_boolean_against_two_still_uses_the_default_box():
    # `a != 2`: a is Boolean but 2 is no 0/1 literal, so the fallback takes it.
    # The big-M reads collected bounds only, not the declared [0, 1]:
    # E = a, K = -2: f_min = -1002, f_max = 998, width 2000 -> M = 2001.
    g = build([dvar("a", "boolean")], [constraint("!=", bname("a"), num(2))])
    cols = ["a", "cmp_flag_0"]
    assert g.var_names == cols
    assert g.A_ub == [row(cols, {"a": -1, "cmp_flag_0": -2001}), row(cols, {"a": -1, "cmp_flag_0": 2001})]
    assert g.b_ub == [1.0, 2002.0]
    assert g.A_eq == [row(cols, {"cmp_flag_0": 1})]


def test_one_flag_per_distinct_resolved_name_under_a_forall():
    # forall(i in 1..3) x[i] != 3, then forall(i in 1..2) x[1] != 3: the first
    # makes one flag per column x_i; the second resolves to x_1 both times and
    # reuses cmp_flag_0 with no new row. E = x_i, K = -3 -> M = 2001.
    decls = [dvar_indexed("x", range_dim(1, 3), var_type="float")]
    constraints = [
        forall([it("i", range_spec(1, 3))], constraint("!=", indexed("x", ref("i")), num(3))),
        forall([it("i", range_spec(1, 2))], constraint("!=", indexed("x", lit_index(1)), num(3))),
    ]
    g = build(decls, constraints)
    flags = ["cmp_flag_0", "cmp_flag_1", "cmp_flag_2"]
    cols = ["x_1", "x_2", "x_3", *flags]
    assert g.var_names == cols
    expected_rows, expected_rhs = [], []
    for xi, z in zip(["x_1", "x_2", "x_3"], flags):
        expected_rows += [row(cols, {xi: -1, z: -2001}), row(cols, {xi: -1, z: 2001})]
        expected_rhs += [2.0, 2003.0]
    assert g.A_ub == expected_rows
    assert g.b_ub == expected_rhs
    assert g.A_eq == [row(cols, {z: 1}) for z in flags] + [row(cols, {"cmp_flag_0": 1})] * 2
    assert g._comparison_truth_cache == {
        ("cmp", "!=", ("indexed", xi), ("number", 3)): z for xi, z in zip(["x_1", "x_2", "x_3"], flags)
    }


def test_a_string_constant_that_reads_as_a_number_is_taken_as_that_number():
    # `x != "2.5"`: K = 0 - 2.5 = -2.5. The big-M cannot subtract the string
    # constant, so it falls back to BIG_M_DEFAULT.
    g = build(xy(), [constraint("!=", name("x"), string("2.5"))])
    cols = ["x", "y", "cmp_flag_0"]
    assert g.var_names == cols
    m = BIG_M_DEFAULT
    assert g.A_ub == [row(cols, {"x": -1, "cmp_flag_0": -m}), row(cols, {"x": -1, "cmp_flag_0": m})]
    assert g.b_ub == [-1.0 + 2.5, m - 1.0 + 2.5]


def test_a_non_numeric_string_constant_fails_and_leaves_no_flag():
    g, message = failed_build(xy(), [constraint("!=", name("x"), string("abc"))])
    assert message == "Non-numeric term 'abc' in linear comparison; cannot linearize"
    assert g.var_names == ["x", "y"]
    assert g._comparison_truth_cache == {}


# ---------------------------------------------------------------- the four operators


def bxy():
    return [*xy(), dvar("b", "boolean")]


def test_less_equal_flag_through_a_declared_boolean_equality():
    # chain for `b == (x <= 3)`, b declared Boolean: left is no tree; bound
    # collection sees no number on a side; the name-equals-sum form needs a
    # ">=" over a sum; no literal on the right; the declared-Boolean-equals-
    # expression form turns the right side into its variable (the truth flag)
    # and posts b - z = 0.
    g = build(bxy(), [constraint("==", bname("b"), bool_binop("<=", name("x"), num(3)))])
    cols = ["x", "y", "b", "cmp_flag_0"]
    assert g.var_names == cols
    # E = x, K = -3: f_min = -1003, f_max = 997, width 2000 -> M = 2001
    #   E + M z <= M - K         x + 2001 z <= 2004
    #   -E - M z <= K - eps     -x - 2001 z <= -3 - eps
    assert g.A_ub == [row(cols, {"x": 1, "cmp_flag_0": 2001}), row(cols, {"x": -1, "cmp_flag_0": -2001})]
    assert g.b_ub == [2004.0, -3.0 - BOOL_EPS]
    assert g.A_eq == [row(cols, {"b": 1, "cmp_flag_0": -1})]
    assert g.b_eq == [0.0]
    assert count(g, truth_comment("<=")) == 1
    key = ("cmp", "<=", ("name", "x"), ("number", 3))
    assert g._comparison_truth_cache == {key: "cmp_flag_0"}
    assert g._bool_subtree_cache == {key: "cmp_flag_0"}


def test_greater_equal_flag_through_a_declared_boolean_at_most_relation():
    # chain for `b <= (x >= 2)`: nothing before the comparison forms claims a
    # "<=" between a name and a comparison; no side is a Boolean tree; the
    # Boolean-variable-against-expression form makes z for the right side and
    # posts b - z <= 0.
    g = build(bxy(), [constraint("<=", bname("b"), bool_binop(">=", name("x"), num(2)))])
    cols = ["x", "y", "b", "cmp_flag_0"]
    assert g.var_names == cols
    # E = x, K = -2 -> M = 2001
    #   -E + M z <= M + K        -x + 2001 z <= 1999
    #   E - M z <= -K - eps       x - 2001 z <= 2 - eps
    assert g.A_ub == [
        row(cols, {"x": -1, "cmp_flag_0": 2001}),
        row(cols, {"x": 1, "cmp_flag_0": -2001}),
        row(cols, {"b": 1, "cmp_flag_0": -1}),
    ]
    assert g.b_ub == [1999.0, 2.0 - BOOL_EPS, 0.0]
    assert g.A_eq == []
    assert count(g, truth_comment(">=")) == 1


def test_equality_flag_is_a_one_way_link():
    # `b == (x == y)`: as for "<=" above, claimed by the declared-Boolean-
    # equals-expression form. E = x - y, K = 0 -> M = 4001.
    #   E + M z <= M - K   and   -E + M z <= M + K
    # Both rows hold for z = 0 whatever x and y are: nothing forces z to 1.
    g = build(bxy(), [constraint("==", bname("b"), bool_binop("==", name("x"), name("y")))])
    cols = ["x", "y", "b", "cmp_flag_0"]
    assert g.var_names == cols
    assert g.A_ub == [
        row(cols, {"x": 1, "y": -1, "cmp_flag_0": 4001}),
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": 4001}),
    ]
    assert g.b_ub == [4001.0, 4001.0]
    assert g.A_eq == [row(cols, {"b": 1, "cmp_flag_0": -1})]
    assert count(g, truth_comment("==")) == 1


def test_equality_written_both_ways_makes_one_flag_and_two_rows():
    # The Boolean subtree keys of `x == y` and `y == x` differ (their sides are
    # not ordered), but the comparison key is ordered: the second request finds
    # cmp_flag_0 and emits nothing.
    g = build(
        bxy(),
        [
            constraint("==", bname("b"), bool_binop("==", name("x"), name("y"))),
            constraint("==", bname("b"), bool_binop("==", name("y"), name("x"))),
        ],
    )
    cols = ["x", "y", "b", "cmp_flag_0"]
    assert g.var_names == cols
    assert len(g.b_ub) == 2
    assert g.A_eq == [row(cols, {"b": 1, "cmp_flag_0": -1})] * 2
    assert count(g, truth_comment("==")) == 1
    assert list(g._comparison_truth_cache.values()) == ["cmp_flag_0"]


def test_less_equal_and_its_mirror_make_two_flags():
    # `b <= (x <= y)` and `b <= (y >= x)`, both claimed by the Boolean-variable-
    # against-expression form.
    g = build(
        bxy(),
        [
            constraint("<=", bname("b"), bool_binop("<=", name("x"), name("y"))),
            constraint("<=", bname("b"), bool_binop(">=", name("y"), name("x"))),
        ],
    )
    cols = ["x", "y", "b", "cmp_flag_0", "cmp_flag_1"]
    assert g.var_names == cols
    # first: E = x - y, K = 0, M = 4001, op "<="
    # second: E = y - x, K = 0, M = 4001, op ">="
    assert g.A_ub == [
        row(cols, {"x": 1, "y": -1, "cmp_flag_0": 4001}),
        row(cols, {"x": -1, "y": 1, "cmp_flag_0": -4001}),
        row(cols, {"b": 1, "cmp_flag_0": -1}),
        row(cols, {"y": -1, "x": 1, "cmp_flag_1": 4001}),
        row(cols, {"y": 1, "x": -1, "cmp_flag_1": -4001}),
        row(cols, {"b": 1, "cmp_flag_1": -1}),
    ]
    assert g.b_ub == [4001.0, -BOOL_EPS, 0.0, 4001.0, -BOOL_EPS, 0.0]


def test_comparisons_of_a_weighted_sum_get_one_flag_per_resolved_column():
    # chain for `sum(i in 1..3) 1 * (x[i] <= 3) >= 1`: left is a sum, not a
    # tree; no bound; the weighted Boolean sum (first comparison form) claims
    # it, with one variable per term. Then `sum(i in 1..2) 1 * (x[1] <= 3) >= 1`
    # names x_1 twice: both terms find cmp_flag_0 and its weight adds up.
    decls = [dvar_indexed("x", range_dim(1, 3), var_type="float")]
    first = sum_of([it("i", range_spec(1, 3))], binop("*", num(1), bool_binop("<=", indexed("x", ref("i")), num(3))))
    second = sum_of([it("i", range_spec(1, 2))], binop("*", num(1), bool_binop("<=", indexed("x", lit_index(1)), num(3))))
    g = build(decls, [constraint(">=", first, num(1)), constraint(">=", second, num(1))])
    flags = ["cmp_flag_0", "cmp_flag_1", "cmp_flag_2"]
    cols = ["x_1", "x_2", "x_3", *flags]
    assert g.var_names == cols
    # per term: E = x_i, K = -3, M = 2001
    expected_rows, expected_rhs = [], []
    for xi, z in zip(["x_1", "x_2", "x_3"], flags):
        expected_rows += [row(cols, {xi: 1, z: 2001}), row(cols, {xi: -1, z: -2001})]
        expected_rhs += [2004.0, -3.0 - BOOL_EPS]
    expected_rows += [row(cols, {z: -1 for z in flags}), row(cols, {"cmp_flag_0": -2})]
    expected_rhs += [-1.0, -1.0]
    assert g.A_ub == expected_rows
    assert g.b_ub == expected_rhs
    assert count(g, truth_comment("<=")) == 3


# ---------------------------------------------------------------- counts of comparisons


def conj_model(rhs_node, sum_on_left=True, index_constraint=None, hi=3):
    decls = [dvar_indexed("x", range_dim(1, hi), var_type="float"), dvar("c", "boolean")]
    total = x_sum("<=", 1, 1, hi, index_constraint)
    cmp = bool_binop("==", total, rhs_node) if sum_on_left else bool_binop("==", rhs_node, total)
    # chain for `c == (sum(...) == n)`: the name-equals-sum form wants a ">="
    # or ">" on the right, so the declared-Boolean-equals-expression form
    # claims it and posts c - y = 0 with y the variable of the right side.
    return decls, [constraint("==", bname("c"), cmp)]


@pytest.mark.parametrize("sum_on_left", [True, False], ids=["sum-left", "sum-right"])
def test_a_count_equal_to_its_size_becomes_a_conjunction(sum_on_left):
    g = build(*conj_model(num(3), sum_on_left))
    flags = ["cmp_flag_0", "cmp_flag_1", "cmp_flag_2"]
    y = "cmp_flag_3"  # named after the cache, which holds the three by then
    cols = ["x_1", "x_2", "x_3", "c", *flags, y]
    assert g.var_names == cols
    expected_rows, expected_rhs = [], []
    for xi, z in zip(["x_1", "x_2", "x_3"], flags):
        # E = x_i, K = -1: f_min = -1001, f_max = 999, width 2000 -> M = 2001
        expected_rows += [row(cols, {xi: 1, z: 2001}), row(cols, {xi: -1, z: -2001})]
        expected_rhs += [2002.0, -1.0 - BOOL_EPS]
    for z in flags:  # y - z <= 0
        expected_rows.append(row(cols, {y: 1, z: -1}))
        expected_rhs.append(0.0)
    expected_rows.append(row(cols, {**{z: 1 for z in flags}, y: -1}))  # z1 + z2 + z3 - y <= 2
    expected_rhs.append(2.0)
    assert g.A_ub == expected_rows
    assert g.b_ub == expected_rhs
    assert g.A_eq == [row(cols, {"c": 1, y: -1})]
    assert g.b_eq == [0.0]
    assert count(g, CONJ_COMMENT) == 1
    assert count(g, truth_comment("<=")) == 3
    assert count(g, truth_comment("==")) == 0
    assert len(g._comparison_truth_cache) == 4
    assert y in g._comparison_truth_cache.values()


def test_a_count_with_no_surviving_instance_against_zero():
    # the filter i > 5 drops both instances: n = 0 meets the size test, there
    # is no y - z row, and the last row reads -y <= -1.
    g = build(*conj_model(num(0), index_constraint=bool_binop(">", name("i"), num(5)), hi=2))
    cols = ["x_1", "x_2", "c", "cmp_flag_0"]
    assert g.var_names == cols
    assert g.A_ub == [row(cols, {"cmp_flag_0": -1})]
    assert g.b_ub == [-1.0]
    assert g.A_eq == [row(cols, {"c": 1, "cmp_flag_0": -1})]
    assert count(g, CONJ_COMMENT) == 1


def test_a_count_below_its_size_keeps_its_flags_and_takes_the_general_form():
    # sum(i in 1..3) (i <= 1) == 2 with ground terms: each term still gets its
    # flag (E = {}, K = i - 1, M = |K| + 1), the size test fails (2 != 3), and
    # the general "==" form evaluates the sum to 1.0: E = {}, K = 1 - 2 = -1,
    # M = 2, rows 2y <= M - K = 3 and 2y <= M + K = 1.
    count_node = bool_binop("==", sum_of([it("i", range_spec(1, 3))], bool_binop("<=", name("i"), num(1))), num(2))
    g = build([dvar("c", "boolean")], [constraint("==", bname("c"), count_node)])
    cols = ["c", "cmp_flag_0", "cmp_flag_1", "cmp_flag_2", "cmp_flag_3"]
    assert g.var_names == cols
    assert g.A_ub == [
        row(cols, {"cmp_flag_0": 1}),  # i = 1: K = 0, M = 1:  z <= 1
        row(cols, {"cmp_flag_0": -1}),  #                     -z <= 0 - eps
        row(cols, {"cmp_flag_1": 2}),  # i = 2: K = 1, M = 2: 2z <= 1
        row(cols, {"cmp_flag_1": -2}),  #                    -2z <= 1 - eps
        row(cols, {"cmp_flag_2": 3}),  # i = 3: K = 2, M = 3: 3z <= 1
        row(cols, {"cmp_flag_2": -3}),  #                    -3z <= 2 - eps
        row(cols, {"cmp_flag_3": 2}),
        row(cols, {"cmp_flag_3": 2}),
    ]
    assert g.b_ub == [1.0, -BOOL_EPS, 1.0, 1.0 - BOOL_EPS, 1.0, 2.0 - BOOL_EPS, 3.0, 1.0]
    assert g.A_eq == [row(cols, {"c": 1, "cmp_flag_3": -1})]
    assert count(g, CONJ_COMMENT) == 0
    assert count(g, truth_comment("<=")) == 3
    assert count(g, truth_comment("==")) == 1


def test_a_count_below_its_size_over_variables_keeps_the_flags_of_its_terms():
    # In a weighted Boolean sum errors pass through: the count
    # sum(i in 1..3) (x[i] <= 1) == 2 makes its three flags, fails the size
    # test, and the general form cannot turn the symbolic sum into a number.
    decls = [dvar_indexed("x", range_dim(1, 3), var_type="float")]
    factor = bool_binop("==", x_sum("<=", 1), num(2))
    g, message = failed_build(decls, [constraint(">=", weighted_sum(factor), num(1))])
    assert message.startswith("Non-numeric term '")
    assert message.endswith("' in linear comparison; cannot linearize")
    assert g.var_names == ["x_1", "x_2", "x_3", "cmp_flag_0", "cmp_flag_1", "cmp_flag_2"]
    assert len(g._comparison_truth_cache) == 3


def test_a_strict_comparison_inside_a_count_is_refused():
    # the count accepts "<" as a term, the truth variable does not; the error
    # comes before any flag is made.
    decls = [dvar_indexed("x", range_dim(1, 2), var_type="float")]
    factor = bool_binop("==", x_sum("<", 1, 1, 2), num(2))
    g, message = failed_build(decls, [constraint(">=", weighted_sum(factor), num(1))])
    assert message == NOT_A_TRUTH_COMPARISON
    assert g.var_names == ["x_1", "x_2"]
    assert g._comparison_truth_cache == {}


# ---------------------------------------------------------------- caches outlive a build


def test_the_flag_cache_outlives_a_build():
    g = build(xy(), [constraint("!=", name("x"), name("y"))])
    cols = ["x", "y", "cmp_flag_0"]
    assert len(g.b_ub) == 2
    g._build_constraints()
    # the second build finds cmp_flag_0 in the cache: no new column, none of
    # its rows in the fresh row lists, only the fallback's own equality row
    assert g.var_names == cols
    assert g.A_ub == []
    assert g.b_ub == []
    assert g.A_eq == [row(cols, {"cmp_flag_0": 1})]
    assert g.b_eq == [1.0]
    assert count(g, truth_comment("!=")) == 1
    assert count(g, FALLBACK) == 2
    assert g._comparison_truth_cache == {("cmp", "!=", ("name", "x"), ("name", "y")): "cmp_flag_0"}
