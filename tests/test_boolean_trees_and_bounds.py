"""Boolean trees on the left of a top-level comparison, the tautologies that
need no row, comparisons over an `implies` node, and the collection of simple
variable bounds that feeds the big-M constants of the same build.

Every test traces its constraint through the ordered chain of constraint
forms (parameter check, top-level Boolean tree, log line, bound collection,
implies node, implication, comparison forms...) and says which form claims it.

Column layout used throughout: the declared variables first, in declaration
order, then every auxiliary in order of creation."""

import logging

import pytest

from builders import dvar_indexed, forall, it, range_dim, range_spec, ref, sum_of
from conftest import (
    GEN_LOGGER,
    binop,
    boolean,
    constraint,
    dvar,
    implies,
    indexed,
    lit_index,
    minimize,
    model,
    name,
    num,
    param_inline,
)
from lp_builders import and_, built_rows, generator, or_

# ---------------------------------------------------------------- helpers


def ab_model(constraints, extra=()):
    """Two declared Booleans `a` (column 0) and `b` (column 1)."""
    return model([dvar("a", "boolean"), dvar("b", "boolean"), *extra], minimize(num(0)), constraints)


def atom(var, value=1):
    """`var == value`, the leaf form of a variable inside a Boolean tree."""
    return constraint("==", name(var), num(value))


def built_with_debug(caplog, ast, data=None):
    g = generator(ast, data)
    g._build_variables()
    g._build_objective()
    caplog.set_level(logging.DEBUG, logger=GEN_LOGGER)
    g.logger.setLevel(logging.DEBUG)
    caplog.clear()
    g._build_constraints()
    return g, [r.getMessage() for r in caplog.records if r.levelno == logging.DEBUG]


def handle_logs(messages):
    return [m for m in messages if m.startswith("[SciPyCSCCodeGenerator] handle_constraint: ")]


# The auxiliary _baux0 (column 2) of `(a == 1) and (b == 1)`: both leaves are
# the variables themselves, so one auxiliary z with
#   z - a <= 0,  z - b <= 0,  -z + a + b <= 1.
AND_ROWS = [[-1.0, 0.0, 1.0], [0.0, -1.0, 1.0], [1.0, 1.0, -1.0]]
AND_RHS = [0.0, 0.0, 1.0]

# The auxiliary _baux0 (column 2) of `(a == 1) or (b == 1)`:
#   -z + a <= 0,  -z + b <= 0,  z - a - b <= 0.
OR_ROWS = [[1.0, 0.0, -1.0], [0.0, 1.0, -1.0], [-1.0, -1.0, 1.0]]
OR_RHS = [0.0, 0.0, 0.0]


def conj():
    return and_(atom("a"), atom("b"))


def disj():
    return or_(atom("a"), atom("b"))


# ---------------------------------------------------------------- top-level Boolean trees


@pytest.mark.parametrize("right", [num(1), boolean(True)], ids=["one", "true"])
def test_conjunction_equal_to_one_is_skipped_as_a_tautology(caplog, right):
    # chain: no parameter on a side; the left side is a tree of "and" over
    # `var == 1` leaves, so the top-level Boolean tree form makes its
    # auxiliary; "==" against 1/true counts as tautological and the form
    # returns before the constraint is logged. The auxiliary keeps its
    # defining rows and is NOT fixed to 1 by an equality row.
    left = conj()
    g, messages = built_with_debug(caplog, ab_model([constraint("==", left, right)]))
    assert g.var_names == ["a", "b", "_baux0"]
    assert g.aux_created == ["_baux0"]
    assert g.bounds[2] == [0, 1]
    assert g.integrality == [1, 1, 1]
    assert g.A_ub == AND_ROWS
    assert g.b_ub == AND_RHS
    assert g.A_eq == []
    assert g.b_eq == []
    assert "[DEBUG] Created auxiliary _baux0 for boolean expr: " + repr(left) in messages
    assert "[DEBUG] Skipping tautological constraint: _baux0 == " + repr(right) in messages
    assert handle_logs(messages) == []


@pytest.mark.parametrize("op, value", [(">=", 0), ("<=", 1)], ids=["at-least-zero", "at-most-one"])
def test_disjunction_against_its_trivial_bound_is_skipped(caplog, op, value):
    # chain: top-level Boolean tree form; ">= 0" and "<= 1" are tautologies:
    # only the defining rows of the auxiliary remain.
    right = num(value)
    g, messages = built_with_debug(caplog, ab_model([constraint(op, disj(), right)]))
    assert g.var_names == ["a", "b", "_baux0"]
    assert g.A_ub == OR_ROWS
    assert g.b_ub == OR_RHS
    assert (g.A_eq, g.b_eq) == ([], [])
    assert "[DEBUG] Skipping tautological constraint: _baux0 " + op + " " + repr(right) in messages
    assert handle_logs(messages) == []


def test_disjunction_at_least_one_fixes_its_auxiliary_to_one():
    # chain: top-level Boolean tree form, ">=" against the number 1: one
    # equality row 1.0 * _baux0 == 1.0 after the three defining rows.
    g = built_rows(ab_model([constraint(">=", disj(), num(1))]))
    assert g.var_names == ["a", "b", "_baux0"]
    assert g.A_ub == OR_ROWS
    assert g.b_ub == OR_RHS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [1.0]


@pytest.mark.parametrize("right", [num(0), boolean(False)], ids=["zero", "false"])
def test_disjunction_equal_to_zero_fixes_its_auxiliary_to_zero(right):
    # chain: top-level Boolean tree form, "==" and no tautology: the equality
    # row takes the float of the literal's value, 0.0.
    g = built_rows(ab_model([constraint("==", disj(), right)]))
    assert g.var_names == ["a", "b", "_baux0"]
    assert g.A_ub == OR_ROWS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [0.0]


def test_conjunction_equal_to_zero_gives_a_zero_row_on_its_auxiliary():
    g = built_rows(ab_model([constraint("==", conj(), num(0))]))
    assert g.A_ub == AND_ROWS
    assert g.b_ub == AND_RHS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [0.0]


def test_disjunction_not_equal_to_zero_fixes_its_auxiliary_to_one():
    # chain: top-level Boolean tree form, "!=" against the number 0.
    g = built_rows(ab_model([constraint("!=", disj(), num(0))]))
    assert g.var_names == ["a", "b", "_baux0"]
    assert g.A_ub == OR_ROWS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [1.0]


def test_disjunction_at_most_zero_passes_on_and_keeps_its_auxiliary(caplog):
    # chain: the top-level Boolean tree form makes _baux0 but none of its
    # cases matches "<= 0", so the constraint goes on: it is logged, bound
    # collection finds no variable against a number, no implies node, no
    # sum forms, no "==" or "!=" rewrite; the Boolean-tree-against-literal
    # form claims it ("<=" with the literal 0 gives the target 0) and finds
    # the very same auxiliary in the subtree cache: one row _baux0 == 0 and
    # no second auxiliary.
    constr = constraint("<=", disj(), num(0))
    g, messages = built_with_debug(caplog, ab_model([constr]))
    assert g.var_names == ["a", "b", "_baux0"]
    assert g.A_ub == OR_ROWS
    assert g.b_ub == OR_RHS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [0.0]
    assert len(handle_logs(messages)) == 1
    assert not any(m.startswith("[DEBUG] Skipping tautological constraint") for m in messages)


def test_the_same_tree_twice_shares_one_auxiliary():
    # The second constraint finds the tree's key in the subtree cache.
    g = built_rows(ab_model([constraint(">=", disj(), num(1)), constraint("==", disj(), num(1))]))
    assert g.var_names == ["a", "b", "_baux0"]
    assert g.A_ub == OR_ROWS
    assert g.A_eq == [[0.0, 0.0, 1.0]]
    assert g.b_eq == [1.0]


# ---------------------------------------------------------------- comparison over an implies node


def implies_rows():
    # `a == 1 => b == 1` becomes `not(a == 1) or (b == 1)`:
    #   not(a == 1): _baux0 (column 2) with _baux0 + a == 1 (equality row)
    #   or: _baux1 (column 3) with -_baux1 + _baux0 <= 0, -_baux1 + b <= 0,
    #       _baux1 - _baux0 - b <= 0
    a_ub = [[0.0, 0.0, 1.0, -1.0], [0.0, 1.0, 0.0, -1.0], [0.0, -1.0, -1.0, 1.0]]
    return a_ub, [0.0, 0.0, 0.0]


@pytest.mark.parametrize("right, rhs", [(boolean(True), 1.0), (num(1), 1.0), (boolean(False), 0.0), (num(0), 0.0)])
def test_implies_node_against_a_literal_fixes_its_auxiliary(caplog, right, rhs):
    # chain: an implies node is not a Boolean tree (the first form passes),
    # the constraint is logged, no variable against a number for the bounds,
    # then the implies-node form: auxiliary of the rewritten disjunction and
    # one equality row on it.
    left = implies(atom("a"), atom("b"))
    g, messages = built_with_debug(caplog, ab_model([constraint("==", left, right)]))
    assert g.var_names == ["a", "b", "_baux0", "_baux1"]
    assert g.aux_created == ["_baux0", "_baux1"]
    a_ub, b_ub = implies_rows()
    assert g.A_ub == a_ub
    assert g.b_ub == b_ub
    # the negation's row comes first, then the fixing row of the implication
    assert g.A_eq == [[1.0, 0.0, 1.0, 0.0], [0.0, 0.0, 0.0, 1.0]]
    assert g.b_eq == [1.0, rhs]
    assert "[DEBUG] Created auxiliary _baux1 for implies expr: " + repr(left) in messages
    assert len(handle_logs(messages)) == 1


# ---------------------------------------------------------------- bound collection


def x_array_model(constraints, n=2):
    return model([dvar_indexed("x", range_dim(1, n))], minimize(num(0)), constraints)


def x_at(k):
    return indexed("x", lit_index(k))


def test_lower_bounds_by_full_name_and_first_value_under_the_base_symbol():
    # chain for each: not a tree, logged, bound collection records the full
    # name; under the base symbol `x` the later 5 is not below the recorded
    # 2, so it is not offered; both rows still reach the general linear form.
    g = built_rows(x_array_model([constraint(">=", x_at(1), num(2)), constraint(">=", x_at(2), num(5))]))
    assert g._collected_lbs == {"x_1": 2.0, "x_2": 5.0, "x": 2.0}
    assert g._collected_ubs == {}
    assert g.A_ub == [[-1.0, 0.0], [0.0, -1.0]]
    assert g.b_ub == [-2.0, -5.0]


def test_the_first_value_stays_under_the_base_symbol_in_reverse_order_too():
    # 5 first: `x` gets 5. Then 2 is below 5, so it is offered under `x`,
    # but tightening only raises a lower bound: 5 stays.
    g = built_rows(x_array_model([constraint(">=", x_at(2), num(5)), constraint(">=", x_at(1), num(2))]))
    assert g._collected_lbs == {"x_2": 5.0, "x_1": 2.0, "x": 5.0}
    assert g.A_ub == [[0.0, -1.0], [-1.0, 0.0]]
    assert g.b_ub == [-5.0, -2.0]


def test_upper_bounds_on_indexed_names_keep_the_first_under_the_base_symbol():
    g = built_rows(x_array_model([constraint("<=", x_at(1), num(3)), constraint("<=", x_at(2), num(1))]))
    # 1 is not above the recorded 3 under `x`, so it is not offered there
    assert g._collected_ubs == {"x_1": 3.0, "x_2": 1.0, "x": 3.0}
    assert g._collected_lbs == {}
    assert g.A_ub == [[1.0, 0.0], [0.0, 1.0]]
    assert g.b_ub == [3.0, 1.0]


def test_number_on_the_left_greater_equal_records_an_upper_bound():
    # `5 >= x`: the mirror case, ">" with the variable on the right bounds it
    # from above. The general row is -x (from the right side) with
    # rhs_value -5, stored negated: x <= 5.
    m = model([dvar("x", "float+")], minimize(num(0)), [constraint(">=", num(5), name("x"))])
    g = built_rows(m)
    assert g._collected_ubs == {"x": 5.0}
    assert g._collected_lbs == {}
    assert g.A_ub == [[1.0]]
    assert g.b_ub == [5.0]


def test_number_on_the_left_of_indexed_names_mirrors_both_directions():
    # `7 <= x[2]` is a lower bound 7, `3 >= x[1]` an upper bound 3, each also
    # under the base symbol.
    g = built_rows(x_array_model([constraint("<=", num(7), x_at(2)), constraint(">=", num(3), x_at(1))]))
    assert g._collected_lbs == {"x_2": 7.0, "x": 7.0}
    assert g._collected_ubs == {"x_1": 3.0, "x": 3.0}
    # 7 <= x_2: row -x_2, rhs 0 - 7; 3 >= x_1: row -x_1, rhs -3, negated
    assert g.A_ub == [[0.0, -1.0], [1.0, 0.0]]
    assert g.b_ub == [-7.0, 3.0]


def test_equality_records_both_bounds_and_keeps_its_row():
    g = built_rows(x_array_model([constraint("==", x_at(1), num(4))]))
    assert g._collected_lbs == {"x_1": 4.0, "x": 4.0}
    assert g._collected_ubs == {"x_1": 4.0, "x": 4.0}
    assert g.A_eq == [[1.0, 0.0]]
    assert g.b_eq == [4.0]
    assert g.A_ub == []


def test_greater_equal_zero_is_recorded_and_still_emitted_as_a_row():
    # chain: bound collection records the lower bound 0 and never returns;
    # nothing later claims `x >= 0` until the general linear comparison,
    # which stores -x <= -0.
    m = model([dvar("x", "float")], minimize(num(0)), [constraint(">=", name("x"), num(0))])
    g = built_rows(m)
    assert g._collected_lbs == {"x": 0.0}
    assert g.A_ub == [[-1.0]]
    assert g.b_ub == [0.0]
    assert (g.A_eq, g.b_eq) == ([], [])


def test_bound_on_a_name_without_a_decision_variable_is_recorded_and_harmless():
    # `p >= 3` with p an inline parameter of value 5: bound collection only
    # looks at the node types, so `p` gets an entry. The general row has no
    # variable: 0 <= -(3 - 5), an empty row with right-hand side 2. The next
    # constraint is unaffected.
    m = model(
        [dvar("x", "float+"), param_inline("p", 5)],
        minimize(num(0)),
        [constraint(">=", name("p"), num(3)), constraint("<=", name("x"), num(7))],
    )
    g = built_rows(m)
    assert g._collected_lbs == {"p": 3.0}
    assert g._collected_ubs == {"x": 7.0}
    assert g.var_names == ["x"]
    assert g.A_ub == [[0.0], [1.0]]
    assert g.b_ub == [2.0, 7.0]


def count_sum(op=">="):
    x_i = indexed("x", ref("i"))
    return constraint(">=", sum_of([it("i", range_spec(1, 2))], binop(op, x_i, num(1), sem_type="boolean")), num(1))


def box_constraints():
    x_i = indexed("x", ref("i"))
    return [
        forall([it("i", range_spec(1, 2))], constraint(">=", x_i, num(0))),
        forall([it("i", range_spec(1, 2))], constraint("<=", x_i, num(10))),
    ]


def test_collected_bounds_shrink_the_big_m_of_later_terms():
    # The two foralls record x_i in [0, 10] (and post their four rows). The
    # sum of comparisons then asks the big-M of x_i - 1 over [0, 10]:
    # f_min -1, f_max 9, width 10, M = 10 + 1 = 11. Per term
    #   -x_i + 11 z <= 11 - (-1) = 12   and   x_i - 11 z <= 1,
    # and the count row -z0 - z1 <= -1.
    g = built_rows(x_array_model(box_constraints() + [count_sum()]))
    assert g.var_names == ["x_1", "x_2", "cmp_sum", "cmp_sum_1"]
    assert g.A_ub == [
        [-1.0, 0.0, 0.0, 0.0],
        [0.0, -1.0, 0.0, 0.0],
        [1.0, 0.0, 0.0, 0.0],
        [0.0, 1.0, 0.0, 0.0],
        [-1.0, 0.0, 11.0, 0.0],
        [1.0, 0.0, -11.0, 0.0],
        [0.0, -1.0, 0.0, 11.0],
        [0.0, 1.0, 0.0, -11.0],
        [0.0, 0.0, -1.0, -1.0],
    ]
    assert g.b_ub == [0.0, 0.0, 10.0, 10.0, 12.0, 1.0, 12.0, 1.0, -1.0]


def test_bounds_found_later_do_not_reach_earlier_constraints():
    # Same model with the count first: x_i - 1 is still in the default box
    # [-1000, 1000]: f_min -1001, f_max 999, width 2000, M 2001.
    g = built_rows(x_array_model([count_sum()] + box_constraints()))
    assert g.A_ub[:5] == [
        [-1.0, 0.0, 2001.0, 0.0],
        [1.0, 0.0, -2001.0, 0.0],
        [0.0, -1.0, 0.0, 2001.0],
        [0.0, 1.0, 0.0, -2001.0],
        [0.0, 0.0, -1.0, -1.0],
    ]
    assert g.b_ub[:5] == [2002.0, 1.0, 2002.0, 1.0, -1.0]
    assert g._collected_lbs == {"x_1": 0.0, "x_2": 0.0, "x": 0.0}
    assert g._collected_ubs == {"x_1": 10.0, "x_2": 10.0, "x": 10.0}
