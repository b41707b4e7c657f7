"""Sums whose terms are Boolean: weighted sums of Boolean expressions
(`sum(i in I) w * (x[i] >= 1) >= k`), counts of true comparisons
(`sum(i in I) (x[i] >= 1) >= k`) and a variable tied to such a count
(`y == (sum(i in I) (x[i] >= 1) >= k)`).

Each of them is claimed by one of the first tests of the comparison part of
the constraint chain, before any parenthesis stripping or Boolean rewrite,
expands the sum term by term with one binary per term, and writes its rows
into the same eq/ub systems as the rows of those binaries, in creation order.

With no bound collected for x[i], the big-M of a term `x[i] - c` is taken
over the default box [-1000, 1000]: f_min = -1000 - c, f_max = 1000 - c,
width 2000, so M = 2000 + 1 = 2001 for every small c >= 0."""

import pytest

from builders import dvar_indexed, it, named_range, range_decl, range_dim, range_spec, ref, sum_of
from conftest import binop, bool_binop, constraint, dvar, indexed, lit_index, minimize, model, name, num, paren
from kolva.scipy_codegen_csc import BOOL_EPS
from kolva.semantic_error import SemanticError
from lp_builders import built_rows, generator

# ---------------------------------------------------------------- helpers


def x_i():
    return indexed("x", ref("i"))


def cmp_i(op=">=", value=1):
    """`(x[i] op value)` as it stands inside a sum: a parenthesized comparison."""
    return paren(bool_binop(op, x_i(), num(value)))


def over(start, end):
    return [it("i", range_spec(start, end))]


def xs_model(constraints, n, extra=()):
    """x over 1..n (float+, columns 0..n-1) after the `extra` declarations."""
    return model([*extra, dvar_indexed("x", range_dim(1, n))], minimize(num(0)), constraints)


def dense(n, entries):
    row = [0.0] * n
    for col, value in entries.items():
        row[col] = value
    return row


def count_term_rows(n, x_col, z_col, big_m=2001.0, d=-1.0):
    """The two rows of one counted comparison with binary z:
    -D + M*z <= M - d and D - M*z <= -d, D being the single x column."""
    return [dense(n, {x_col: -1.0, z_col: big_m}), dense(n, {x_col: 1.0, z_col: -big_m})], [big_m - d, -d]


def truth_rows(n, x_col, z_col, big_m=2001.0, k=-1.0):
    """The two rows of a ">=" truth flag z of `x >= c` (E = x, K = -c):
    -E + M z <= M + K and E - M z <= -K - eps."""
    return [dense(n, {x_col: -1.0, z_col: big_m}), dense(n, {x_col: 1.0, z_col: -big_m})], [big_m + k, -k - BOOL_EPS]


def expected(blocks):
    rows, rhs = [], []
    for r, b in blocks:
        rows += r
        rhs += b
    return rows, rhs


# ---------------------------------------------------------------- sums of comparisons


def test_count_at_least_two_makes_one_binary_per_term():
    # chain: no parameter on a side; a sum is no Boolean tree; bound
    # collection sees no variable against a number; no implies node; not an
    # implication; the weighted-sum test fails (the body is a comparison,
    # not a product); the sum-of-comparisons test holds (sum of a simple
    # comparison, a number, ">="): it claims the constraint, which never
    # reaches the general linear row.
    decls = [range_decl("I", 1, 3)]
    total = sum_of([it("i", named_range("I"))], cmp_i())
    g = built_rows(xs_model([constraint(">=", total, num(2))], 3, decls))
    assert g.var_names == ["x_1", "x_2", "x_3", "cmp_sum", "cmp_sum_1", "cmp_sum_2"]
    assert g.aux_created == ["cmp_sum", "cmp_sum_1", "cmp_sum_2"]
    rows, rhs = expected([count_term_rows(6, 0, 3), count_term_rows(6, 1, 4), count_term_rows(6, 2, 5)])
    # closing row: -(z0 + z1 + z2) <= -2
    rows.append(dense(6, {3: -1.0, 4: -1.0, 5: -1.0}))
    rhs.append(-2.0)
    assert g.A_ub == rows
    assert g.b_ub == rhs
    assert (g.A_eq, g.b_eq) == ([], [])


def test_count_equal_to_one_ends_with_an_equality_row():
    # chain as above with "=="; two terms: cmp_sum and cmp_sum_1, four
    # upper-bound rows, then z0 + z1 == 1.
    total = sum_of(over(1, 2), cmp_i())
    g = built_rows(xs_model([constraint("==", total, num(1))], 2))
    assert g.var_names == ["x_1", "x_2", "cmp_sum", "cmp_sum_1"]
    assert g.bounds[2:] == [[0, 1], [0, 1]]
    assert g.integrality == [0, 0, 1, 1]
    assert g.c == [0.0, 0.0, 0.0, 0.0]
    rows, rhs = expected([count_term_rows(4, 0, 2), count_term_rows(4, 1, 3)])
    assert g.A_ub == rows
    assert g.b_ub == rhs
    assert g.A_eq == [[0.0, 0.0, 1.0, 1.0]]
    assert g.b_eq == [1.0]


@pytest.mark.parametrize("inner_op", ["<=", ">=", "==", "<", ">"])
def test_inner_operator_is_not_consulted(inner_op):
    # `(x[i] op 3)`: D = {x_i: 1}, d = -3, M = 2001 whatever op is:
    #   -x_i + 2001 z <= 2001 + 3   and   x_i - 2001 z <= 3
    total = sum_of(over(1, 2), cmp_i(inner_op, 3))
    g = built_rows(xs_model([constraint(">=", total, num(1))], 2))
    assert g.var_names == ["x_1", "x_2", "cmp_sum", "cmp_sum_1"]
    assert g.A_ub == [
        [-1.0, 0.0, 2001.0, 0.0],
        [1.0, 0.0, -2001.0, 0.0],
        [0.0, -1.0, 0.0, 2001.0],
        [0.0, 1.0, 0.0, -2001.0],
        [0.0, 0.0, -1.0, -1.0],
    ]
    assert g.b_ub == [2004.0, 3.0, 2004.0, 3.0, -1.0]


def test_count_does_not_read_the_sum_filter():
    # the filter i != 2 is not read by this form: all three terms count
    total = sum_of(over(1, 3), cmp_i(), index_constraint=binop("!=", name("i"), num(2)))
    g = built_rows(xs_model([constraint(">=", total, num(1))], 3))
    assert g.var_names[3:] == ["cmp_sum", "cmp_sum_1", "cmp_sum_2"]
    assert g.A_ub[-1] == dense(6, {3: -1.0, 4: -1.0, 5: -1.0})
    assert g.b_ub[-1] == -1.0
    assert len(g.A_ub) == 7


def test_a_second_count_continues_the_names():
    first = constraint(">=", sum_of(over(1, 2), cmp_i()), num(1))
    second = constraint("==", sum_of(over(1, 2), cmp_i()), num(2))
    g = built_rows(xs_model([first, second], 2))
    assert g.var_names == ["x_1", "x_2", "cmp_sum", "cmp_sum_1", "cmp_sum_2", "cmp_sum_3"]
    assert g.A_eq == [[0.0, 0.0, 0.0, 0.0, 1.0, 1.0]]
    assert g.b_eq == [2.0]
    # the second count's first term uses cmp_sum_2 (column 4) with x_1
    assert g.A_ub[5] == [-1.0, 0.0, 0.0, 0.0, 2001.0, 0.0]


# ---------------------------------------------------------------- a name equal to a count


def tied(total, op=">=", k=2, target="y"):
    return constraint("==", name(target), paren(bool_binop(op, total, num(k))))


@pytest.mark.parametrize("op", [">=", ">"])
def test_variable_equal_to_a_threshold_on_a_count(op):
    # chain: `y` is no parameter and no tree; bound collection finds no
    # number on the right; the weighted and count tests need a sum on the
    # left; the name-equals-count test holds ("==", a name, a comparison
    # ">=" or ">" of a sum of a simple comparison with a number).
    # y: column 0, x_1..x_4: columns 1..4, cmp_sum..cmp_sum_3: columns 5..8.
    # N = 4, k = 2 (">" is read as ">=", k is not moved):
    #   row A: 2 y - sum z <= 0
    #   row B: sum z - (4 - 2 + 1) y <= 2 - 1
    total = sum_of(over(1, 4), cmp_i())
    g = built_rows(xs_model([tied(total, op)], 4, [dvar("y", "boolean")]))
    assert g.var_names == ["y", "x_1", "x_2", "x_3", "x_4", "cmp_sum", "cmp_sum_1", "cmp_sum_2", "cmp_sum_3"]
    rows, rhs = expected([count_term_rows(9, 1 + j, 5 + j) for j in range(4)])
    rows.append(dense(9, {0: 2.0, 5: -1.0, 6: -1.0, 7: -1.0, 8: -1.0}))
    rows.append(dense(9, {0: -3.0, 5: 1.0, 6: 1.0, 7: 1.0, 8: 1.0}))
    rhs += [0.0, 1.0]
    assert g.A_ub == rows
    assert g.b_ub == rhs
    assert (g.A_eq, g.b_eq) == ([], [])


def test_variable_equal_to_a_count_honours_the_sum_filter():
    # terms i = 1 and i = 3 only: N = 2, k = 1
    #   row A: y - z0 - z1 <= 0;  row B: z0 + z1 - 2 y <= 0
    total = sum_of(over(1, 3), cmp_i(), index_constraint=binop("!=", name("i"), num(2)))
    g = built_rows(xs_model([tied(total, k=1)], 3, [dvar("y", "boolean")]))
    assert g.var_names == ["y", "x_1", "x_2", "x_3", "cmp_sum", "cmp_sum_1"]
    rows, rhs = expected([count_term_rows(6, 1, 4), count_term_rows(6, 3, 5)])
    rows.append(dense(6, {0: 1.0, 4: -1.0, 5: -1.0}))
    rows.append(dense(6, {0: -2.0, 4: 1.0, 5: 1.0}))
    rhs += [0.0, 0.0]
    assert g.A_ub == rows
    assert g.b_ub == rhs


def test_undeclared_name_equal_to_a_count_becomes_a_binary():
    # `w` has no column: it is made after the terms' binaries
    total = sum_of(over(1, 2), cmp_i())
    g = built_rows(xs_model([tied(total, k=1, target="w")], 2))
    assert g.var_names == ["x_1", "x_2", "cmp_sum", "cmp_sum_1", "w"]
    assert g.aux_created == ["cmp_sum", "cmp_sum_1", "w"]
    assert g.bounds[4] == [0, 1]
    assert g.integrality[4] == 1
    assert g.A_ub[4:] == [[0.0, 0.0, -1.0, -1.0, 1.0], [0.0, 0.0, 1.0, 1.0, -2.0]]
    assert g.b_ub[4:] == [0.0, 0.0]


# ---------------------------------------------------------------- weighted Boolean sums


def weighted(weight, factor):
    return binop("*", weight, factor)


def test_weighted_sum_strict_greater_moves_k_by_a_billionth():
    # chain: no tree, no bound, no implies; the weighted-sum test holds:
    # body `2 * (x[i] >= 1)` has a numeric weight and a Boolean factor that
    # is no plain name, the right side 3 is a pure constant. k = 3 + 1e-09.
    # Each term's factor becomes a truth flag cmp_flag_<n> (columns 3..5)
    # with its two ">=" rows (M 2001, K = -1); then the sum row, negated for
    # ">": -2 on each flag, right-hand side -3.000000001.
    total = sum_of(over(1, 3), weighted(num(2), cmp_i()))
    g = built_rows(xs_model([constraint(">", total, num(3))], 3))
    assert g.var_names == ["x_1", "x_2", "x_3", "cmp_flag_0", "cmp_flag_1", "cmp_flag_2"]
    assert g.integrality == [0, 0, 0, 1, 1, 1]
    rows, rhs = expected([truth_rows(6, 0, 3), truth_rows(6, 1, 4), truth_rows(6, 2, 5)])
    rows.append(dense(6, {3: -2.0, 4: -2.0, 5: -2.0}))
    rhs.append(-(3.0 + 1e-09))
    assert g.A_ub == rows
    assert g.b_ub[:-1] == pytest.approx(rhs[:-1], abs=1e-12)
    assert g.b_ub[-1] == -(3.0 + 1e-09)
    assert (g.A_eq, g.b_eq) == ([], [])
    assert g._comparison_truth_cache == {
        ("cmp", ">=", ("indexed", "x_1"), ("number", 1)): "cmp_flag_0",
        ("cmp", ">=", ("indexed", "x_2"), ("number", 1)): "cmp_flag_1",
        ("cmp", ">=", ("indexed", "x_3"), ("number", 1)): "cmp_flag_2",
    }
    assert g.scipy_code_lines.count("# comparison truth var for >=") == 3


def test_weighted_sum_strict_less_moves_k_down():
    total = sum_of(over(1, 2), weighted(num(2), cmp_i()))
    g = built_rows(xs_model([constraint("<", total, num(3))], 2))
    assert g.A_ub[-1] == [0.0, 0.0, 2.0, 2.0]
    assert g.b_ub[-1] == 3.0 - 1e-09


def test_weighted_sum_equality_with_the_weight_on_the_right():
    # `(x[i] >= 1) * 3`: the pair (left, right) has no Boolean factor on the
    # right, the pair (right, left) has. "==" writes an equality row, no
    # epsilon.
    total = sum_of(over(1, 2), weighted(cmp_i(), num(3)))
    g = built_rows(xs_model([constraint("==", total, num(3))], 2))
    assert g.var_names == ["x_1", "x_2", "cmp_flag_0", "cmp_flag_1"]
    rows, rhs = expected([truth_rows(4, 0, 2), truth_rows(4, 1, 3)])
    assert g.A_ub == rows
    assert g.b_ub == pytest.approx(rhs, abs=1e-12)
    assert g.A_eq == [[0.0, 0.0, 3.0, 3.0]]
    assert g.b_eq == [3.0]


def test_weighted_sum_meeting_one_flag_twice_accumulates_its_weight():
    # every term is `3 * (x[1] >= 1)`: the second term finds the flag of
    # the first, adds no row, and the sum row holds 3 + 3 on it.
    factor = paren(bool_binop(">=", indexed("x", lit_index(1)), num(1)))
    total = sum_of(over(1, 2), weighted(num(3), factor))
    g = built_rows(xs_model([constraint("<=", total, num(4))], 2))
    assert g.var_names == ["x_1", "x_2", "cmp_flag_0"]
    rows, rhs = expected([truth_rows(3, 0, 2)])
    assert g.A_ub == rows + [[0.0, 0.0, 6.0]]
    assert g.b_ub == pytest.approx(rhs + [4.0], abs=1e-12)


def test_weighted_sum_skips_filtered_terms():
    total = sum_of(over(1, 3), weighted(num(2), cmp_i()), index_constraint=binop("!=", name("i"), num(2)))
    g = built_rows(xs_model([constraint(">=", total, num(1))], 3))
    # flags for x_1 (column 3) and x_3 (column 4) only
    assert g.var_names == ["x_1", "x_2", "x_3", "cmp_flag_0", "cmp_flag_1"]
    rows, rhs = expected([truth_rows(5, 0, 3), truth_rows(5, 2, 4)])
    assert g.A_ub == rows + [[0.0, 0.0, 0.0, -2.0, -2.0]]
    assert g.b_ub == pytest.approx(rhs + [-1.0], abs=1e-12)


def test_weight_with_a_decision_variable_is_refused():
    # the weight is evaluated before the factor's flag is made
    decls = [dvar_indexed("w", range_dim(1, 2))]
    total = sum_of(over(1, 2), weighted(indexed("w", ref("i")), cmp_i()))
    g = generator(xs_model([constraint(">=", total, num(1))], 2, decls))
    g._build_variables()
    g._build_objective()
    with pytest.raises(SemanticError) as err:
        g._build_constraints()
    assert str(err.value) == "Weighted boolean sums require numeric weights"
    assert g.var_names == ["w_1", "w_2", "x_1", "x_2"]


def test_weighted_sum_against_a_variable_passes_on_to_the_general_row():
    # the right side `y` has coefficients, so the weighted form does not
    # apply; the count forms need a number on the right; `y` is no declared
    # Boolean; so the general linear comparison takes it. There a term
    # `2 * (x[i] >= 1)` is a product with a symbolic comparison and adds
    # nothing: only -y remains on the left minus right, stored negated as
    # y <= 0. No flag is made.
    total = sum_of(over(1, 2), weighted(num(2), cmp_i()))
    g = built_rows(xs_model([constraint(">=", total, name("y"))], 2, [dvar("y", "float+")]))
    assert g.var_names == ["y", "x_1", "x_2"]
    assert g.A_ub == [[1.0, 0.0, 0.0]]
    assert g.b_ub == [0.0]
    assert g._comparison_truth_cache == {}


def test_weighted_plain_boolean_names_are_an_ordinary_linear_sum():
    # `2 * b[i]` with b[i] a Boolean name is not claimed by the weighted
    # form (its factor is a name); it is a plain linear row -2 b1 - 2 b2 <= -1.
    b_i = indexed("b", ref("i"))
    b_i["sem_type"] = "boolean"
    m = model(
        [dvar_indexed("b", range_dim(1, 2), var_type="boolean")],
        minimize(num(0)),
        [constraint(">=", sum_of(over(1, 2), weighted(num(2), b_i)), num(1))],
    )
    g = built_rows(m)
    assert g.var_names == ["b_1", "b_2"]
    assert g.A_ub == [[-2.0, -2.0]]
    assert g.b_ub == [-1.0]
