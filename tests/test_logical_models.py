"""Small mixed-integer models with logical constraints, end to end.

Each model is compiled twice: once into a script that is run, and once into a
LinearProblem that is solved with HiGHS. Both optima must equal the optimum
that the test finds on its own, by enumerating every assignment of the
model's integer and Boolean variables and checking the logical constraints
directly in Python.

The models only use logical forms whose linear encoding is exact over the
declared domains, so that the enumerated optimum is the optimum of the
compiled program too. Next to each constraint stands the encoding that
claims it and why it loses nothing. Forms that are deliberately one-way or
lossy (a truth flag of `==`, `!=` between two Boolean expressions, an
equality antecedent, a conjunction asserted true as an antecedent, a Boolean
tree asserted `== 1`) are left out. Flags that are separated from their
comparison by a tiny epsilon are left out as well: the epsilon lies inside
the solver's integrality tolerance, so those models would test HiGHS rather
than the compiler.

Every test also checks that the logical constraints bind: the enumerated
optimum without them is different, so a compiler that dropped them could not
pass."""

import itertools

import pytest

from builders import dvar_indexed, forall, it, param_indexed, range_dim, range_spec, ref, sum_of
from conftest import binop, bool_binop, boolean, constraint, dvar, indexed, lit_index, maximize, minimize, model, name, num
from lp_builders import and_, asserted, generator, or_, run_script, solve_problem

# ---------------------------------------------------------------- helpers


def over(i, lo, hi):
    return it(i, range_spec(lo, hi))


def bvar(var_name):
    """A reference to a declared Boolean variable."""
    return name(var_name, sem_type="boolean")


def is_one(var):
    """The test `var == 1` as a leaf of a Boolean tree."""
    return constraint("==", var, num(1))


def is_zero(var):
    return constraint("==", var, num(0))


def implication(antecedent, consequent):
    return {"type": "implication_constraint", "antecedent": antecedent, "consequent": consequent}


def logical(kind, left, right, **extra):
    node = {"type": kind, "left": left, "right": right}
    node.update(extra)
    return node


def not_(value):
    return {"type": "not", "value": value}


def implies_node(left, right):
    return {"type": "implies", "left": left, "right": right}


def plus(*terms):
    expr = terms[0]
    for term in terms[1:]:
        expr = binop("+", expr, term)
    return expr


def times(k, expr):
    return binop("*", num(k), expr)


def imp(p, q):
    """Material implication on Python truth values."""
    return (not p) or q


def enumerate_optimum(domains, objective, constraints, sense):
    """(best value, list of the assignments reaching it) over the product of
    the domains; `constraints` are predicates on an assignment map."""
    names = list(domains)
    best, argbest = None, []
    for combo in itertools.product(*domains.values()):
        v = dict(zip(names, combo))
        if not all(check(v) for check in constraints):
            continue
        value = objective(v)
        if best is None or (value > best if sense == "max" else value < best):
            best, argbest = value, [v]
        elif value == best:
            argbest.append(v)
    assert best is not None, "infeasible"
    return best, argbest


def solved_both_ways(m, data=None):
    """(script result map, problem, problem objective, problem x)."""
    out = run_script(generator(m, data).generate_code())
    problem = generator(m, data).build_problem()
    value, x = solve_problem(problem)
    return out, problem, value, x


def check_optimum(m, data, expected):
    out, problem, value, x = solved_both_ways(m, data)
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == pytest.approx(expected, abs=1e-6)
    assert value == pytest.approx(expected, abs=1e-6)
    return out, problem, x


def solution_of(problem, x, names):
    """The rounded values of the named columns in a solution vector."""
    return {n: round(x[problem.var_names.index(n)]) for n in names}


BOOL = (0, 1)


# ---------------------------------------------------------------- indicators with a Boolean antecedent


def indicator_model():
    x, y, b, c = name("x"), name("y"), bvar("b"), bvar("c")
    obj = maximize(plus(times(2, x), times(-1, y), times(3, b), times(4, c)))
    cons = [
        constraint("<=", x, num(5)),
        constraint("<=", y, num(5)),
        # b == 1 => linear inequality: x + M*b <= 3 + M. With b = 1 it is
        # x <= 3; with b = 0 it is x <= 3 + M, implied by x <= 5.
        implication(is_one(b), constraint("<=", x, num(3))),
        # the same with ">=": stored negated, -(x + y) + M*c <= -7 + M.
        # With c = 0 it asks x + y >= 7 - M, implied by x, y >= 0.
        implication(is_one(c), constraint(">=", binop("+", x, y), num(7))),
    ]
    return model([dvar("x", "int+"), dvar("y", "int+"), dvar("b", "boolean"), dvar("c", "boolean")], obj, cons)


def test_indicators_switch_linear_rows_on_and_off():
    domains = {"x": range(6), "y": range(6), "b": BOOL, "c": BOOL}
    objective = lambda v: 2 * v["x"] - v["y"] + 3 * v["b"] + 4 * v["c"]
    on_b = lambda v: imp(v["b"] == 1, v["x"] <= 3)
    on_c = lambda v: imp(v["c"] == 1, v["x"] + v["y"] >= 7)
    expected, argbest = enumerate_optimum(domains, objective, [on_b, on_c], "max")
    # By hand: b = 1 costs x <= 3; c = 1 costs y >= 7 - x. Best is b = 0,
    # c = 1, x = 5, y = 2: 10 - 2 + 4 = 12 (b = 1, c = 1 gives 6 - 4 + 7 = 9).
    assert expected == 12
    assert argbest == [{"x": 5, "y": 2, "b": 0, "c": 1}]
    # either indicator dropped gives a better (wrong) optimum
    assert enumerate_optimum(domains, objective, [on_c], "max")[0] == 15
    assert enumerate_optimum(domains, objective, [on_b], "max")[0] == 14
    out, problem, x = check_optimum(indicator_model(), None, expected)
    # one row per indicator and no new column
    assert problem.var_names == ["x", "y", "b", "c"]
    assert solution_of(problem, x, ["x", "y", "b", "c"]) == argbest[0]


# ---------------------------------------------------------------- implications between Boolean choices

KNAP_VALUE = [4, 4, 4, 7, 9]
KNAP_WEIGHT = [1, 1, 5, 2, 3]
KNAP_CAP = 13


def choice_model():
    take = lambda k: indexed("take", lit_index(k))
    decls = [
        param_indexed("value", range_dim(1, 5)),
        param_indexed("weight", range_dim(1, 5)),
        dvar_indexed("take", range_dim(1, 5), var_type="boolean"),
    ]
    each = indexed("take", ref("k"))
    obj = maximize(sum_of([over("k", 1, 5)], binop("*", indexed("value", ref("k")), each)))
    cons = [
        constraint("<=", sum_of([over("k", 1, 5)], binop("*", indexed("weight", ref("k")), each)), num(KNAP_CAP)),
        # b == 1 => y == 1 is the row b - y <= 0: exactly "b implies y" on 0/1.
        implication(is_one(take(2)), is_one(take(1))),
        # b == 1 => y == 0 is the row b + y <= 1: "not both".
        implication(is_one(take(3)), is_zero(take(4))),
        # the same two rows for the consequents y >= 1 and y <= 0
        implication(is_one(take(5)), constraint(">=", take(3), num(1))),
        implication(is_one(take(1)), constraint("<=", take(5), num(0))),
    ]
    return model(decls, obj, cons), {"value": KNAP_VALUE, "weight": KNAP_WEIGHT}


def test_knapsack_with_requirements_and_exclusions():
    domains = {k: BOOL for k in range(1, 6)}
    objective = lambda v: sum(KNAP_VALUE[k - 1] * v[k] for k in v)
    capacity = lambda v: sum(KNAP_WEIGHT[k - 1] * v[k] for k in v) <= KNAP_CAP
    rules = [
        lambda v: imp(v[2] == 1, v[1] == 1),
        lambda v: imp(v[3] == 1, v[4] == 0),
        lambda v: imp(v[5] == 1, v[3] >= 1),
        lambda v: imp(v[1] == 1, v[5] <= 0),
    ]
    expected, argbest = enumerate_optimum(domains, objective, [capacity, *rules], "max")
    # By hand: without rules everything fits (weight 12) for 28. Item 5
    # needs 3, which excludes 4, and item 1 excludes 5, so 5 can only come
    # with 3: {3, 5} = 13. Without 5: {1, 2, 4} = 15 beats {1, 2, 3} = 12.
    assert expected == 15
    assert argbest == [{1: 1, 2: 1, 3: 0, 4: 1, 5: 0}]
    for k in range(4):
        assert enumerate_optimum(domains, objective, [capacity, *rules[:k], *rules[k + 1:]], "max")[0] > expected
    m, data = choice_model()
    out, problem, x = check_optimum(m, data, expected)
    assert problem.var_names == ["take_1", "take_2", "take_3", "take_4", "take_5"]
    assert solution_of(problem, x, problem.var_names) == {"take_1": 1, "take_2": 1, "take_3": 0, "take_4": 1, "take_5": 0}


# ---------------------------------------------------------------- fixed-charge links


def fixed_charge_model():
    xa, xb, ya, yb = name("xa"), name("xb"), bvar("ya"), bvar("yb")
    obj = minimize(plus(times(2, xa), times(3, xb), times(20, ya), times(4, yb)))
    cons = [
        # the capacities come first, so that their upper bounds are known
        # when the links below look for their big-M
        constraint("<=", xa, num(10)),
        constraint("<=", xb, num(6)),
        constraint(">=", binop("+", xa, xb), num(6)),
        # x > 0 => y == 1 is the row x - U*y <= 0 with U the collected upper
        # bound of x: y = 0 forces x <= 0, and with x >= 0 that is x = 0;
        # y = 1 leaves x <= U, which the capacity already says.
        implication(constraint(">", xa, num(0)), is_one(ya)),
        implication(constraint(">", xb, num(0)), is_one(yb)),
    ]
    return model([dvar("xa", "int+"), dvar("xb", "int+"), dvar("ya", "boolean"), dvar("yb", "boolean")], obj, cons)


def test_fixed_charge_production():
    domains = {"xa": range(11), "xb": range(7), "ya": BOOL, "yb": BOOL}
    objective = lambda v: 2 * v["xa"] + 3 * v["xb"] + 20 * v["ya"] + 4 * v["yb"]
    demand = lambda v: v["xa"] + v["xb"] >= 6
    link_a = lambda v: imp(v["xa"] > 0, v["ya"] == 1)
    link_b = lambda v: imp(v["xb"] > 0, v["yb"] == 1)
    expected, argbest = enumerate_optimum(domains, objective, [demand, link_a, link_b], "min")
    # By hand: line b alone makes the 6 units for 18 + 4 = 22; line a alone
    # costs 12 + 20 = 32, and sharing pays both set-ups.
    assert expected == 22
    assert argbest == [{"xa": 0, "xb": 6, "ya": 0, "yb": 1}]
    assert enumerate_optimum(domains, objective, [demand, link_b], "min")[0] == 12
    assert enumerate_optimum(domains, objective, [demand, link_a], "min")[0] == 18
    out, problem, x = check_optimum(fixed_charge_model(), None, expected)
    assert problem.var_names == ["xa", "xb", "ya", "yb"]
    assert problem.bounds == [[0, 10.0], [0, 6.0], [0, 1], [0, 1]]
    assert solution_of(problem, x, problem.var_names) == argbest[0]


# ---------------------------------------------------------------- implications between comparisons


def comparison_implication_model(objective):
    x, y = name("x"), name("y")
    cons = [
        constraint("<=", x, num(4)),
        constraint("<=", y, num(5)),
        constraint("<=", binop("+", x, y), num(7)),
        # A flag f stands for the antecedent D + d >= 0 (here x - 1): f = 1
        # forces x >= 1, f = 0 forces x <= 1, so any x >= 2 forces f = 1 and
        # with it the consequent y + 3f <= 5, i.e. y <= 2. At x = 1 the flag
        # is free: that is exactly right for the strict antecedent x > 1,
        # which is false there (a non-strict x >= 1 would lose x = 1).
        implication(constraint(">", x, num(1)), constraint("<=", y, num(2))),
        # y < 1 reads 1 - y >= 0: y = 0 forces the flag and x + f <= 4, i.e.
        # x <= 3; y = 1 leaves it free, where y < 1 is false anyway.
        implication(constraint("<", y, num(1)), constraint("<=", x, num(3))),
    ]
    return model([dvar("x", "int+"), dvar("y", "int+")], objective, cons)


@pytest.mark.parametrize(
    "weights, expected_by_hand, without_first, without_second",
    [
        # 3x + 2y: x = 4 needs y <= 2 (first rule), so 12 + 4 = 16; without
        # the first rule x = 4, y = 3 gives 18; the second never binds.
        ((3, 2), 16, 18, 16),
        # 3x - y: x = 4 with y = 0 breaks the second rule, so y = 1: 11;
        # x = 3, y = 0 gives 9; without the second rule 12.
        ((3, -1), 11, 11, 12),
    ],
    ids=["first-binds", "second-binds"],
)
def test_implications_between_comparisons(weights, expected_by_hand, without_first, without_second):
    wx, wy = weights
    domains = {"x": range(5), "y": range(6)}
    objective = lambda v: wx * v["x"] + wy * v["y"]
    box = lambda v: v["x"] + v["y"] <= 7
    first = lambda v: imp(v["x"] > 1, v["y"] <= 2)
    second = lambda v: imp(v["y"] < 1, v["x"] <= 3)
    expected, _ = enumerate_optimum(domains, objective, [box, first, second], "max")
    assert expected == expected_by_hand
    assert enumerate_optimum(domains, objective, [box, second], "max")[0] == without_first
    assert enumerate_optimum(domains, objective, [box, first], "max")[0] == without_second
    assert expected in (without_first, without_second) and without_first != without_second
    m = comparison_implication_model(maximize(plus(times(wx, name("x")), times(wy, name("y")))))
    out, problem, x = check_optimum(m, None, expected)
    # one flag per implication, numbered from 0
    assert problem.var_names == ["x", "y", "implication_flag_c0", "implication_flag_c1"]
    assert problem.integrality == [1, 1, 1, 1]


# ---------------------------------------------------------------- disjunctions


def either_or_model(w1, w2):
    s1, s2 = name("s1"), name("s2")
    cons = [
        constraint("<=", s1, num(10)),
        constraint("<=", s2, num(10)),
        constraint(">=", s2, num(2)),
        # Job 1 (3 long) before job 2 (4 long), or the other way round.
        # Each branch gets a flag z and the row lhs - rhs + M*z <= M; with
        # z = 1 the branch holds, with z = 0 the row is slack because M
        # comes from the bounds of s1 and s2; one more row asks z1 + z2 >= 1.
        asserted(or_(bool_binop("<=", binop("+", s1, num(3)), s2), bool_binop("<=", binop("+", s2, num(4)), s1))),
    ]
    return model([dvar("s1", "int+"), dvar("s2", "int+")], minimize(plus(times(w1, s1), times(w2, s2))), cons)


@pytest.mark.parametrize(
    "w1, w2, expected_by_hand, order",
    [
        # job 1 first: s1 = 0, s2 = 3 costs 6; job 2 first: s2 = 2, s1 = 6 costs 22
        (3, 2, 6, (0, 3)),
        # job 1 first costs 24, job 2 first 6 + 16 = 22
        (1, 8, 22, (6, 2)),
    ],
    ids=["job-1-first", "job-2-first"],
)
def test_either_or_scheduling(w1, w2, expected_by_hand, order):
    domains = {"s1": range(11), "s2": range(2, 11)}
    objective = lambda v: w1 * v["s1"] + w2 * v["s2"]
    apart = lambda v: v["s1"] + 3 <= v["s2"] or v["s2"] + 4 <= v["s1"]
    expected, argbest = enumerate_optimum(domains, objective, [apart], "min")
    assert expected == expected_by_hand
    assert argbest == [{"s1": order[0], "s2": order[1]}]
    # overlapping is cheaper: s1 = 0, s2 = 2
    assert enumerate_optimum(domains, objective, [], "min")[0] == 2 * w2
    out, problem, x = check_optimum(either_or_model(w1, w2), None, expected)
    assert problem.var_names == ["s1", "s2", "or_flag_0", "or_flag_1"]
    assert solution_of(problem, x, ["s1", "s2"]) == argbest[0]


def holes_model():
    x, y = name("x"), name("y")
    cons = [
        constraint("<=", x, num(8)),
        constraint("<=", y, num(8)),
        constraint(">=", binop("+", x, y), num(4)),
        # A branch that is a conjunction shares one flag among its rows:
        # with z0 = 1 both x <= 2 and y >= 4 hold.
        asserted(or_(and_(bool_binop("<=", x, num(2)), bool_binop(">=", y, num(4))), bool_binop(">=", x, num(5)))),
    ]
    return model([dvar("x", "int+"), dvar("y", "int+")], minimize(plus(times(3, x), times(4, y))), cons)


def test_disjunction_with_a_conjunctive_branch():
    domains = {"x": range(9), "y": range(9)}
    objective = lambda v: 3 * v["x"] + 4 * v["y"]
    cover = lambda v: v["x"] + v["y"] >= 4
    branches = lambda v: (v["x"] <= 2 and v["y"] >= 4) or v["x"] >= 5
    expected, argbest = enumerate_optimum(domains, objective, [cover, branches], "min")
    # By hand: the first branch costs at least 4*4 = 16, the second 3*5 = 15.
    assert expected == 15
    assert argbest == [{"x": 5, "y": 0}]
    # without the rule x = 4 costs 12; reading the first branch as x <= 2
    # alone would allow x = 2, y = 2 for 14
    assert enumerate_optimum(domains, objective, [cover], "min")[0] == 12
    loose = lambda v: v["x"] <= 2 or v["x"] >= 5
    assert enumerate_optimum(domains, objective, [cover, loose], "min")[0] == 14
    out, problem, x = check_optimum(holes_model(), None, expected)
    assert problem.var_names == ["x", "y", "or_flag_0", "or_flag_1"]
    assert solution_of(problem, x, ["x", "y"]) == argbest[0]


# ---------------------------------------------------------------- inequality on Boolean variables


def xor_model():
    a, b, c, d = bvar("a"), bvar("b"), bvar("c"), bvar("d")
    obj = maximize(plus(times(5, a), times(3, b), times(4, c), times(-2, d)))
    cons = [
        constraint("<=", plus(times(3, a), b, times(3, c), d), num(5)),
        # two Boolean variables: a + b = 1
        constraint("!=", a, b),
        # a Boolean variable against a literal: c = 1 - 1 and d = 1 - 0
        constraint("!=", c, num(1)),
        constraint("!=", d, num(0)),
    ]
    decls = [dvar(v, "boolean") for v in "abcd"]
    return model(decls, obj, cons)


def test_not_equal_on_boolean_variables():
    domains = {k: BOOL for k in "abcd"}
    objective = lambda v: 5 * v["a"] + 3 * v["b"] + 4 * v["c"] - 2 * v["d"]
    weight = lambda v: 3 * v["a"] + v["b"] + 3 * v["c"] + v["d"] <= 5
    rules = [lambda v: v["a"] != v["b"], lambda v: v["c"] != 1, lambda v: v["d"] != 0]
    expected, argbest = enumerate_optimum(domains, objective, [weight, *rules], "max")
    # By hand: c = 0, d = 1 are forced; a beats b: 5 - 2 = 3.
    assert expected == 3
    assert argbest == [{"a": 1, "b": 0, "c": 0, "d": 1}]
    for k in range(3):
        assert enumerate_optimum(domains, objective, [weight, *rules[:k], *rules[k + 1:]], "max")[0] > expected
    out, problem, x = check_optimum(xor_model(), None, expected)
    assert problem.var_names == ["a", "b", "c", "d"]
    assert solution_of(problem, x, problem.var_names) == argbest[0]


# ---------------------------------------------------------------- counting true comparisons


def level_model():
    line = indexed("x", ref("i"))
    level = name("level")
    decls = [dvar_indexed("x", range_dim(1, 3), var_type="int+"), dvar("level", "int+")]
    xk = lambda k: indexed("x", lit_index(k))
    obj = maximize(binop("-", times(4, level), plus(xk(1), times(2, xk(2)), times(3, xk(3)))))
    cons = [
        forall([over("i", 1, 3)], constraint("<=", line, num(5))),
        constraint("<=", xk(1), num(3)),
        constraint("<=", level, num(4)),
        # At least two lines run at the common level or above. Each term gets
        # a binary z with -D + M*z <= M - d and D - M*z <= -d, where D is
        # x[i] - level and d is the constant part, here 0: z = 1 forces
        # x[i] >= level and z = 0 forces x[i] <= level. A line above the
        # level may count (z = 1), a line below it may not, and a line at
        # the level may do either: so sum(z) >= 2 holds exactly when two lines
        # reach the level. With a constant threshold (x[i] >= 1) d would be
        # -1 and the rows would lose the meaning; the threshold is therefore
        # a variable here.
        constraint(">=", sum_of([over("i", 1, 3)], bool_binop(">=", line, level)), num(2)),
    ]
    return model(decls, obj, cons)


def test_count_of_lines_reaching_a_level():
    domains = {"x1": range(4), "x2": range(6), "x3": range(6), "level": range(5)}
    objective = lambda v: 4 * v["level"] - (v["x1"] + 2 * v["x2"] + 3 * v["x3"])
    count = lambda v: sum(v[k] >= v["level"] for k in ("x1", "x2", "x3")) >= 2
    expected, argbest = enumerate_optimum(domains, objective, [count], "max")
    # By hand: the two cheapest lines, 1 and 2, run at the level, which
    # line 1 caps at 3: 12 - 3 - 6 = 3. Lines 2 and 3 at level 4 give -4.
    assert expected == 3
    assert argbest == [{"x1": 3, "x2": 3, "x3": 0, "level": 3}]
    assert enumerate_optimum(domains, objective, [], "max")[0] == 16
    out, problem, x = check_optimum(level_model(), None, expected)
    assert problem.var_names == ["x_1", "x_2", "x_3", "level", "cmp_sum", "cmp_sum_1", "cmp_sum_2"]
    assert solution_of(problem, x, ["x_1", "x_2", "x_3", "level"]) == {"x_1": 3, "x_2": 3, "x_3": 0, "level": 3}


PAIR_WEIGHT = [2, 3, 4]
COST_U = [1, 4, 2]
COST_V = [3, 1, 5]


def pairing_model():
    u, v = indexed("u", ref("i")), indexed("v", ref("i"))
    decls = [
        param_indexed("w", range_dim(1, 3)),
        param_indexed("cu", range_dim(1, 3)),
        param_indexed("cv", range_dim(1, 3)),
        dvar_indexed("u", range_dim(1, 3), var_type="boolean"),
        dvar_indexed("v", range_dim(1, 3), var_type="boolean"),
    ]
    obj = minimize(
        sum_of(
            [over("i", 1, 3)],
            binop("+", binop("*", indexed("cu", ref("i")), u), binop("*", indexed("cv", ref("i")), v)),
        )
    )
    # A weighted sum of pairs, each pair an exact "and" of two Booleans
    # (z <= u, z <= v, z >= u + v - 1): sum(w[i] * z[i]) >= 5.
    both = logical("and", is_one(u), is_one(v), sem_type="boolean")
    cons = [constraint(">=", sum_of([over("i", 1, 3)], binop("*", indexed("w", ref("i")), both)), num(5))]
    return model(decls, obj, cons), {"w": PAIR_WEIGHT, "cu": COST_U, "cv": COST_V}


def test_weighted_sum_of_complete_pairs():
    domains = {(side, i): BOOL for side in "uv" for i in range(3)}
    objective = lambda s: sum(COST_U[i] * s["u", i] + COST_V[i] * s["v", i] for i in range(3))
    enough = lambda s: sum(PAIR_WEIGHT[i] * (s["u", i] and s["v", i]) for i in range(3)) >= 5
    expected, argbest = enumerate_optimum(domains, objective, [enough], "min")
    # By hand: pairs cost 4, 5, 7 and weigh 2, 3, 4; weight 5 needs two
    # pairs, and pairs 1 and 2 are the cheapest: 9.
    assert expected == 9
    assert len(argbest) == 1
    # counting a pair when only one of its two is chosen would cost 2
    loose = lambda s: sum(PAIR_WEIGHT[i] * (s["u", i] or s["v", i]) for i in range(3)) >= 5
    assert enumerate_optimum(domains, objective, [loose], "min")[0] == 2
    m, data = pairing_model()
    out, problem, x = check_optimum(m, data, expected)
    assert problem.var_names == ["u_1", "u_2", "u_3", "v_1", "v_2", "v_3", "_baux0", "_baux1", "_baux2"]
    assert solution_of(problem, x, ["u_1", "u_2", "u_3", "v_1", "v_2", "v_3"]) == {
        "u_1": 1, "u_2": 1, "u_3": 0, "v_1": 1, "v_2": 1, "v_3": 0,
    }


# ---------------------------------------------------------------- Boolean variables tied to trees


def bundle_model():
    a, b, c, both, anyone = bvar("a"), bvar("b"), bvar("c"), bvar("both"), bvar("anyone")
    obj = maximize(plus(times(4, a), times(3, b), times(5, c), times(6, both), times(-2, anyone)))
    cons = [
        constraint("<=", plus(times(3, a), times(4, b), times(5, c)), num(8)),
        # A declared Boolean related to a tree on both sides: the tree gets
        # its auxiliary z with exact "and" / "or" rows, `tree >= v` posts
        # v - z <= 0 and `tree <= v` posts z - v <= 0, so v == z. The tree
        # stands on the left: `v == tree` with a plain name on the left is
        # first read as a bound by the tightening pass, where the tree
        # evaluates to the constant 0.0 and would fix v to 0.
        constraint(">=", and_(is_one(a), is_one(b)), both),
        constraint("<=", and_(is_one(a), is_one(b)), both),
        constraint(">=", or_(is_one(b), is_one(c)), anyone),
        constraint("<=", or_(is_one(b), is_one(c)), anyone),
    ]
    decls = [dvar(v, "boolean") for v in ("a", "b", "c", "both", "anyone")]
    return model(decls, obj, cons)


def test_booleans_tied_to_and_and_or():
    domains = {k: BOOL for k in ("a", "b", "c", "both", "anyone")}
    objective = lambda v: 4 * v["a"] + 3 * v["b"] + 5 * v["c"] + 6 * v["both"] - 2 * v["anyone"]
    weight = lambda v: 3 * v["a"] + 4 * v["b"] + 5 * v["c"] <= 8
    tie_and = lambda v: v["both"] == (v["a"] and v["b"])
    tie_or = lambda v: v["anyone"] == (v["b"] or v["c"])
    expected, argbest = enumerate_optimum(domains, objective, [weight, tie_and, tie_or], "max")
    # By hand: a and b fit (7) and earn the bonus: 4 + 3 + 6 - 2 = 11;
    # a and c fit (8) but give 4 + 5 - 2 = 7.
    assert expected == 11
    assert argbest == [{"a": 1, "b": 1, "c": 0, "both": 1, "anyone": 1}]
    # an untied bonus is taken for free, an untied penalty is dodged
    assert enumerate_optimum(domains, objective, [weight, tie_or], "max")[0] == 13
    assert enumerate_optimum(domains, objective, [weight, tie_and], "max")[0] == 13
    out, problem, x = check_optimum(bundle_model(), None, expected)
    assert problem.var_names == ["a", "b", "c", "both", "anyone", "_baux0", "_baux1"]
    assert solution_of(problem, x, ["a", "b", "c", "both", "anyone"]) == argbest[0]


# ---------------------------------------------------------------- Boolean trees against literals

SITE_COST = [2, 9, 2, 4]


def cover_model():
    s = [None] + [bvar("s%d" % k) for k in range(1, 5)]
    obj = minimize(plus(*(times(SITE_COST[k - 1], s[k]) for k in range(1, 5))))
    cons = [
        # `tree >= 1` and `tree != 0` fix the tree's auxiliary to 1; the
        # "or" rows z >= each leaf, z <= sum of leaves make that exact.
        constraint(">=", or_(is_one(s[1]), is_one(s[2])), num(1)),
        constraint("!=", or_(is_one(s[2]), is_one(s[3])), num(0)),
        constraint(">=", or_(or_(is_one(s[1]), is_one(s[3])), is_one(s[4])), num(1)),
        constraint(">=", or_(is_one(s[2]), is_one(s[4])), num(1)),
        # `tree == 0` fixes the "and" auxiliary to 0: not both sites
        constraint("==", and_(is_one(s[1]), is_one(s[3])), num(0)),
    ]
    return model([dvar("s%d" % k, "boolean") for k in range(1, 5)], obj, cons)


def test_set_cover_with_boolean_trees():
    domains = {k: BOOL for k in range(1, 5)}
    objective = lambda v: sum(SITE_COST[k - 1] * v[k] for k in v)
    covers = [
        lambda v: v[1] or v[2],
        lambda v: v[2] or v[3],
        lambda v: v[1] or v[3] or v[4],
        lambda v: v[2] or v[4],
    ]
    conflict = lambda v: not (v[1] and v[3])
    expected, argbest = enumerate_optimum(domains, objective, [*covers, conflict], "min")
    # By hand: without the conflict sites 1, 3, 4 cover all for 8. With
    # it, elements 1 and 2 need site 2 unless both 1 and 3 are open, and
    # site 2 plus one of 1 or 3 covers everything: 11.
    assert expected == 11
    assert enumerate_optimum(domains, objective, covers, "min")[0] == 8
    assert enumerate_optimum(domains, objective, [conflict], "min")[0] == 0
    assert len(argbest) == 2
    out, problem, x = check_optimum(cover_model(), None, expected)
    assert problem.var_names[:4] == ["s1", "s2", "s3", "s4"]
    assert solution_of(problem, x, ["s1", "s2", "s3", "s4"]) in [{"s%d" % k: v[k] for k in v} for v in argbest]


def rules_model():
    p, q, r, s = bvar("p"), bvar("q"), bvar("r"), bvar("s")
    obj = maximize(plus(times(6, p), times(3, q), times(4, r), times(-1, s)))
    cons = [
        constraint("<=", plus(times(2, p), times(2, q), times(2, r), times(2, s)), num(6)),
        # an implies node asserted true: it becomes (not p) or q, whose
        # auxiliary is fixed to 1
        constraint("==", implies_node(is_one(p), is_one(q)), boolean(True)),
        # negations are exact: the auxiliary w of `not q` has w + q = 1
        constraint(">=", or_(not_(is_one(q)), not_(is_one(r))), num(1)),
        constraint(">=", or_(is_one(r), is_one(s)), num(1)),
    ]
    return model([dvar(v, "boolean") for v in "pqrs"], obj, cons)


def test_rules_with_implies_and_not():
    domains = {k: BOOL for k in "pqrs"}
    objective = lambda v: 6 * v["p"] + 3 * v["q"] + 4 * v["r"] - v["s"]
    weight = lambda v: 2 * (v["p"] + v["q"] + v["r"] + v["s"]) <= 6
    rules = [
        lambda v: imp(v["p"], v["q"]),
        lambda v: not v["q"] or not v["r"],
        lambda v: v["r"] or v["s"],
    ]
    expected, argbest = enumerate_optimum(domains, objective, [weight, *rules], "max")
    # By hand: p needs q, q excludes r, so r or s means s: 6 + 3 - 1 = 8;
    # without p, r alone gives 4.
    assert expected == 8
    assert argbest == [{"p": 1, "q": 1, "r": 0, "s": 1}]
    for k in range(3):
        assert enumerate_optimum(domains, objective, [weight, *rules[:k], *rules[k + 1:]], "max")[0] > expected
    out, problem, x = check_optimum(rules_model(), None, expected)
    assert problem.var_names[:4] == ["p", "q", "r", "s"]
    assert solution_of(problem, x, ["p", "q", "r", "s"]) == argbest[0]


# ---------------------------------------------------------------- facility location with indicators

FIXED = [10, 6, 8]
EXPAND = [3, 5, 2]
UNIT = [1, 2, 2]
DEMAND = 9


def facility_model():
    opened, expanded, ship = indexed("open", ref("j")), indexed("ext", ref("j")), indexed("ship", ref("j"))
    decls = [
        param_indexed("fixed", range_dim(1, 3)),
        param_indexed("expand", range_dim(1, 3)),
        param_indexed("unit", range_dim(1, 3)),
        dvar_indexed("open", range_dim(1, 3), var_type="boolean"),
        dvar_indexed("ext", range_dim(1, 3), var_type="boolean"),
        dvar_indexed("ship", range_dim(1, 3), var_type="int+", upper_bound=num(6)),
    ]
    cost = plus(
        binop("*", indexed("fixed", ref("j")), opened),
        binop("*", indexed("expand", ref("j")), expanded),
        binop("*", indexed("unit", ref("j")), ship),
    )
    cons = [
        constraint(">=", sum_of([over("j", 1, 3)], ship), num(DEMAND)),
        # y == 0 => x == 0 writes only x - U*y <= 0 (U = 6, the declared
        # upper bound of ship): the lower side is the variable's own bound
        # 0, so a closed site ships exactly nothing.
        forall([over("j", 1, 3)], implication(is_zero(opened), constraint("==", ship, num(0)))),
        # y == 0 => x <= 2 is x - U*y <= 2: 2 without the extension, and
        # 2 + 6 with it, above the declared bound.
        forall([over("j", 1, 3)], implication(is_zero(expanded), constraint("<=", ship, num(2)))),
    ]
    data = {"fixed": FIXED, "expand": EXPAND, "unit": UNIT}
    return model(decls, minimize(sum_of([over("j", 1, 3)], cost)), cons), data


def test_facility_location_with_closing_and_expansion_indicators():
    domains = {}
    for j in range(3):
        domains["open", j] = BOOL
        domains["ext", j] = BOOL
        domains["ship", j] = range(7)
    objective = lambda v: sum(FIXED[j] * v["open", j] + EXPAND[j] * v["ext", j] + UNIT[j] * v["ship", j] for j in range(3))
    demand = lambda v: sum(v["ship", j] for j in range(3)) >= DEMAND
    closed = lambda v: all(imp(v["open", j] == 0, v["ship", j] == 0) for j in range(3))
    small = lambda v: all(imp(v["ext", j] == 0, v["ship", j] <= 2) for j in range(3))
    expected, argbest = enumerate_optimum(domains, objective, [demand, closed, small], "min")
    # By hand: site 1 expanded ships 6 for 10 + 3 + 6 = 19, site 3 expanded
    # ships 3 for 8 + 2 + 6 = 16: 35.
    assert expected == 35
    assert len(argbest) == 1
    # without the closing rule the fixed costs are dodged; without the
    # expansion rule site 1 ships 6 and site 2 ships 3 unexpanded
    assert enumerate_optimum(domains, objective, [demand, small], "min")[0] == 15
    assert enumerate_optimum(domains, objective, [demand, closed], "min")[0] == 28
    m, data = facility_model()
    out, problem, x = check_optimum(m, data, expected)
    assert problem.var_names == ["open_1", "open_2", "open_3", "ext_1", "ext_2", "ext_3", "ship_1", "ship_2", "ship_3"]
    best = argbest[0]
    assert solution_of(problem, x, ["ship_1", "ship_2", "ship_3"]) == {"ship_%d" % (j + 1): best["ship", j] for j in range(3)}
