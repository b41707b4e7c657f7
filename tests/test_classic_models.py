"""Classic small optimization models end to end: the emitted script is run,
the LinearProblem of a second generator is solved with HiGHS, and both must
reach the optimum that each test works out on its own (by enumeration or by
hand, as written next to it)."""

import itertools
from fractions import Fraction

import pytest

from builders import (
    dvar_indexed,
    field_index,
    forall,
    it,
    named_set,
    named_set_dim,
    param_indexed,
    range_dim,
    range_spec,
    ref,
    set_of_tuples,
    sum_of,
    tuple_type,
)
from conftest import binop, constraint, dvar, field, indexed, maximize, minimize, model, name, num
from lp_builders import generator, lp_vertex_optimum, run_script, solve_problem


def over(i, lo, hi):
    return it(i, range_spec(lo, hi))


def solved_both_ways(m, data=None):
    """(script result map, problem, problem objective, problem x)."""
    text = generator(m, data).generate_code()
    out = run_script(text)
    problem = generator(m, data).build_problem()
    value, x = solve_problem(problem)
    return out, problem, value, x, text


def check_optimum(m, data, expected):
    out, problem, value, x, text = solved_both_ways(m, data)
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == pytest.approx(expected, abs=1e-6)
    assert value == pytest.approx(expected, abs=1e-6)
    return out, problem, x, text


# ---------------------------------------------------------------- transportation

COST = [[2, 4, 5], [3, 1, 7]]
SUPPLY = [20, 30]
DEMAND = [10, 25, 15]


def transportation_model():
    x = indexed("x", ref("i"), ref("j"))
    decls = [
        param_indexed("cost", range_dim(1, 2), range_dim(1, 3)),
        param_indexed("supply", range_dim(1, 2)),
        param_indexed("demand", range_dim(1, 3)),
        dvar_indexed("x", range_dim(1, 2), range_dim(1, 3)),
    ]
    obj = minimize(sum_of([over("i", 1, 2), over("j", 1, 3)], binop("*", indexed("cost", ref("i"), ref("j")), x)))
    cons = [
        forall([over("i", 1, 2)], constraint("<=", sum_of([over("j", 1, 3)], x), indexed("supply", ref("i")))),
        forall([over("j", 1, 3)], constraint(">=", sum_of([over("i", 1, 2)], x), indexed("demand", ref("j")))),
    ]
    return model(decls, obj, cons), {"cost": COST, "supply": SUPPLY, "demand": DEMAND}


def transportation_by_enumeration():
    # Supply equals demand (50), so every feasible plan uses every row and
    # column to the full: x11, x12 fix the rest. The constraint matrix is
    # totally unimodular, so an integral plan is optimal.
    best = None
    for x11 in range(0, 11):
        for x12 in range(0, 21):
            x13 = SUPPLY[0] - x11 - x12
            x21, x22 = DEMAND[0] - x11, DEMAND[1] - x12
            x23 = DEMAND[2] - x13
            plan = [[x11, x12, x13], [x21, x22, x23]]
            if min(x13, x21, x22, x23) < 0:
                continue
            cost = sum(COST[i][j] * plan[i][j] for i in range(2) for j in range(3))
            best = cost if best is None else min(best, cost)
    return best


def test_transportation():
    # By hand: x11=5, x13=15, x21=5, x22=25 costs 10 + 75 + 15 + 25 = 125;
    # with u = (0, 1), v = (2, 0, 5) the reduced costs of x12 (4 - 0) and
    # x23 (7 - 6) are non-negative, so it is optimal.
    expected = transportation_by_enumeration()
    assert expected == 125
    m, data = transportation_model()
    out, problem, x, text = check_optimum(m, data, expected)
    assert problem.var_names == ["x_1_1", "x_1_2", "x_1_3", "x_2_1", "x_2_2", "x_2_3"]
    assert problem.c == [2.0, 4.0, 5.0, 3.0, 1.0, 7.0]
    assert problem.b_ub == [20.0, 30.0, -10.0, -25.0, -15.0]
    assert sum(out["solution"].values()) == pytest.approx(50.0)


# ---------------------------------------------------------------- diet

FOOD_COST = [2, 3.5, 8]
NUTRIENTS = [[4, 8, 7], [130, 100, 420]]
REQUIRED = [20, 1000]


def diet_model():
    decls = [
        param_indexed("price", range_dim(1, 3)),
        param_indexed("amount", range_dim(1, 2), range_dim(1, 3)),
        param_indexed("need", range_dim(1, 2)),
        dvar_indexed("serve", range_dim(1, 3), upper_bound=num(4)),
    ]
    s = indexed("serve", ref("f"))
    obj = minimize(sum_of([over("f", 1, 3)], binop("*", indexed("price", ref("f")), s)))
    body = constraint(">=", sum_of([over("f", 1, 3)], binop("*", indexed("amount", ref("n"), ref("f")), s)), indexed("need", ref("n")))
    data = {"price": FOOD_COST, "amount": NUTRIENTS, "need": REQUIRED}
    return model(decls, obj, [forall([over("n", 1, 2)], body)]), data


def test_diet():
    # By hand: protein turns out slack, so this is the cheapest way to buy
    # 1000 calories with at most 4 servings each. Cost per calorie: food 1
    # 2/130, food 3 8/420, food 2 3.5/100. Take 4 of food 1 (520 cal), then
    # 480/420 = 8/7 of food 3: cost 8 + 64/7 = 120/7. Protein 16 + 8 >= 20.
    hand = Fraction(120, 7)
    a_ub = [[-v for v in row] for row in NUTRIENTS] + [[1, 0, 0], [0, 1, 0], [0, 0, 1]]
    b_ub = [-r for r in REQUIRED] + [4, 4, 4]
    expected = lp_vertex_optimum(FOOD_COST, a_ub, b_ub)
    assert expected == pytest.approx(float(hand))
    m, data = diet_model()
    out, problem, x, text = check_optimum(m, data, expected)
    assert problem.bounds == [[0, 4.0]] * 3
    assert list(x) == pytest.approx([4.0, 0.0, 8 / 7])


# ---------------------------------------------------------------- production planning

PERIOD_DEMAND = [20, 30, 25]
PERIOD_COST = [5, 7, 6]
CAPACITY = 30
HOLD = 1


def production_model():
    prod, inv = indexed("prod", ref("t")), indexed("inv", ref("t"))
    decls = [
        param_indexed("d", range_dim(1, 3)),
        param_indexed("pc", range_dim(1, 3)),
        {"type": "parameter_inline", "name": "cap", "value": CAPACITY},
        {"type": "parameter_inline", "name": "hold", "value": HOLD},
        dvar_indexed("prod", range_dim(1, 3)),
        dvar_indexed("inv", range_dim(1, 3)),
    ]
    obj = minimize(
        sum_of(
            [over("t", 1, 3)],
            binop("+", binop("*", indexed("pc", ref("t")), prod), binop("*", name("hold"), inv)),
        )
    )
    previous = indexed("inv", binop("-", name("t"), num(1)))
    cons = [
        forall([over("t", 1, 3)], constraint("<=", prod, name("cap"))),
        # the first period starts from empty stock
        constraint("==", indexed("inv", num(1)), binop("-", indexed("prod", num(1)), indexed("d", num(1)))),
        forall(
            [over("t", 1, 3)],
            constraint("==", inv, binop("-", binop("+", previous, prod), indexed("d", ref("t")))),
            binop(">=", name("t"), num(2)),
        ),
    ]
    return model(decls, obj, cons), {"d": PERIOD_DEMAND, "pc": PERIOD_COST}


def test_production_planning():
    # By hand: period 1 must be made in period 1 (5 each). Period 3 is
    # cheapest in period 3 (6 < 5 + 2 < 7 + 1). Period 2 is cheapest from
    # period 1 with one period of stock (5 + 1 = 6 < 7), but only 30 - 20 =
    # 10 units are spare. So prod = (30, 20, 25), inv = (10, 0, 0):
    # 150 + 140 + 150 + 10 = 450.
    # columns: prod1 prod2 prod3 inv1 inv2 inv3
    c = PERIOD_COST + [HOLD] * 3
    a_eq = [[1, 0, 0, -1, 0, 0], [0, 1, 0, 1, -1, 0], [0, 0, 1, 0, 1, -1]]
    a_ub = [[1, 0, 0, 0, 0, 0], [0, 1, 0, 0, 0, 0], [0, 0, 1, 0, 0, 0]]
    expected = lp_vertex_optimum(c, a_ub, [CAPACITY] * 3, a_eq, PERIOD_DEMAND)
    assert expected == pytest.approx(450.0)
    m, data = production_model()
    out, problem, x, text = check_optimum(m, data, expected)
    assert problem.var_names == ["prod_1", "prod_2", "prod_3", "inv_1", "inv_2", "inv_3"]
    assert len(problem.b_eq) == 3
    assert list(x) == pytest.approx([30.0, 20.0, 25.0, 10.0, 0.0, 0.0])


# ---------------------------------------------------------------- knapsack

VALUES = [10, 13, 7, 8, 5]
WEIGHTS = [5, 6, 4, 3, 2]
CAP = 12


def knapsack_model():
    take = indexed("take", ref("k"))
    decls = [
        param_indexed("value", range_dim(1, 5)),
        param_indexed("weight", range_dim(1, 5)),
        dvar_indexed("take", range_dim(1, 5), var_type="boolean"),
    ]
    obj = maximize(sum_of([over("k", 1, 5)], binop("*", indexed("value", ref("k")), take)))
    cons = [constraint("<=", sum_of([over("k", 1, 5)], binop("*", indexed("weight", ref("k")), take)), num(CAP))]
    return model(decls, obj, cons), {"value": VALUES, "weight": WEIGHTS}


def test_knapsack():
    expected = max(
        sum(v * t for v, t in zip(VALUES, pick))
        for pick in itertools.product((0, 1), repeat=5)
        if sum(w * t for w, t in zip(WEIGHTS, pick)) <= CAP
    )
    # items 2, 4 and 5: weight 11, value 13 + 8 + 5
    assert expected == 26
    m, data = knapsack_model()
    out, problem, x, text = check_optimum(m, data, expected)
    assert problem.integrality == [1] * 5
    assert problem.sense == "maximize"
    assert problem.c == [-10.0, -13.0, -7.0, -8.0, -5.0]
    assert "integrality=integrality" in text
    assert [round(v) for v in x] == [0, 1, 0, 1, 1]


# ---------------------------------------------------------------- assignment

ASSIGN = [[9, 2, 7], [6, 4, 3], [5, 8, 1]]


def assignment_model():
    x = indexed("a", ref("w"), ref("j"))
    decls = [param_indexed("cost", range_dim(1, 3), range_dim(1, 3)), dvar_indexed("a", range_dim(1, 3), range_dim(1, 3), var_type="boolean")]
    obj = minimize(sum_of([over("w", 1, 3), over("j", 1, 3)], binop("*", indexed("cost", ref("w"), ref("j")), x)))
    cons = [
        forall([over("w", 1, 3)], constraint("==", sum_of([over("j", 1, 3)], x), num(1))),
        forall([over("j", 1, 3)], constraint("==", sum_of([over("w", 1, 3)], x), num(1))),
    ]
    return model(decls, obj, cons), {"cost": ASSIGN}


def test_assignment():
    best = None
    for bits in itertools.product((0, 1), repeat=9):
        grid = [bits[0:3], bits[3:6], bits[6:9]]
        if all(sum(r) == 1 for r in grid) and all(sum(grid[w][j] for w in range(3)) == 1 for j in range(3)):
            cost = sum(ASSIGN[w][j] * grid[w][j] for w in range(3) for j in range(3))
            best = cost if best is None else min(best, cost)
    # worker 1 -> job 2, worker 2 -> job 1, worker 3 -> job 3: 2 + 6 + 1
    assert best == 9
    m, data = assignment_model()
    out, problem, x, text = check_optimum(m, data, best)
    assert len(problem.b_eq) == 6
    assert out["solution"]["a_1_2"] == pytest.approx(1.0)
    assert out["solution"]["a_2_1"] == pytest.approx(1.0)
    assert out["solution"]["a_3_3"] == pytest.approx(1.0)


# ---------------------------------------------------------------- forall with filters


def filtered_model():
    v = indexed("v", ref("i"))
    nxt = indexed("v", binop("+", name("i"), num(1)))
    decls = [dvar_indexed("v", range_dim(1, 4), var_type="int+")]
    obj = minimize(sum_of([over("i", 1, 4)], v))
    cons = [
        # v[i] >= i for every i but 2
        forall([over("i", 1, 4)], constraint(">=", v, name("i")), binop("!=", name("i"), num(2))),
        # v[i] + v[i+1] >= 6 for i = 2, 3 only
        forall([over("i", 1, 3)], constraint(">=", binop("+", v, nxt), num(6)), binop(">=", name("i"), num(2))),
    ]
    return model(decls, obj, cons)


def test_forall_filters():
    best = None
    for v1, v2, v3, v4 in itertools.product(range(8), repeat=4):
        if v1 >= 1 and v3 >= 3 and v4 >= 4 and v2 + v3 >= 6 and v3 + v4 >= 6:
            total = v1 + v2 + v3 + v4
            best = total if best is None else min(best, total)
    # v1 = 1, v4 = 4, v2 + v3 = 6: 11
    assert best == 11
    out, problem, x, text = check_optimum(filtered_model(), None, best)
    assert problem.A_ub == [
        [-1.0, 0.0, 0.0, 0.0],
        [0.0, 0.0, -1.0, 0.0],
        [0.0, 0.0, 0.0, -1.0],
        [0.0, -1.0, -1.0, 0.0],
        [0.0, 0.0, -1.0, -1.0],
    ]
    assert problem.b_ub == [-1.0, -3.0, -4.0, -6.0, -6.0]


# ---------------------------------------------------------------- tuple-set indexed flows

ARCS = [[1, 2, 4], [1, 3, 2], [3, 2, 1], [2, 4, 5], [3, 4, 8]]
NET = [1, 0, 0, -1]


def path_model():
    a = name("a", sem_type="Arc")
    flow = indexed("flow", ref("a"))
    decls = [
        tuple_type("Arc", "orig", "dest", "cost"),
        set_of_tuples("Arcs", "Arc"),
        param_indexed("net", range_dim(1, 4)),
        dvar_indexed("flow", named_set_dim("Arcs")),
    ]
    obj = minimize(sum_of([it("a", named_set("Arcs"))], binop("*", field(a, "cost"), flow)))
    out_flow = sum_of([it("a", named_set("Arcs"))], flow, binop("==", field(a, "orig"), name("n")))
    in_flow = sum_of([it("a", named_set("Arcs"))], flow, binop("==", field(a, "dest"), name("n")))
    cons = [forall([over("n", 1, 4)], constraint("==", binop("-", out_flow, in_flow), indexed("net", ref("n"))))]
    return model(decls, obj, cons), {"Arcs": ARCS, "net": NET}


def test_shortest_path_over_a_tuple_set():
    best = None
    for use in itertools.product((0, 1), repeat=len(ARCS)):
        balance = [0] * 4
        for (o, d, _), u in zip(ARCS, use):
            balance[o - 1] += u
            balance[d - 1] -= u
        if balance == NET:
            cost = sum(c * u for (_, _, c), u in zip(ARCS, use))
            best = cost if best is None else min(best, cost)
    # 1 -> 3 -> 2 -> 4: 2 + 1 + 5 (1 -> 2 -> 4 is 9, 1 -> 3 -> 4 is 10)
    assert best == 8
    m, data = path_model()
    out, problem, x, text = check_optimum(m, data, best)
    assert problem.var_names == ["flow[(1, 2, 4)]", "flow[(1, 3, 2)]", "flow[(3, 2, 1)]", "flow[(2, 4, 5)]", "flow[(3, 4, 8)]"]
    assert problem.c == [4.0, 2.0, 1.0, 5.0, 8.0]
    assert list(x) == pytest.approx([0.0, 1.0, 1.0, 1.0, 0.0])


def test_tuple_field_as_an_index():
    # capacity per origin node, indexed by the arc's origin field:
    # sum(a in Arcs: a.orig == 1) flow[a] <= cap[a.orig] is cap[1] = 1
    a = name("a", sem_type="Arc")
    m, data = path_model()
    m["declarations"].append(param_indexed("cap", range_dim(1, 4)))
    m["constraints"].append(
        forall(
            [it("a", named_set("Arcs"))],
            constraint("<=", indexed("flow", ref("a")), indexed("cap", field_index(a, "orig"))),
        )
    )
    data["cap"] = [1, 0, 1, 0]
    # arcs leaving node 2 get capacity 0, so 2 -> 4 is closed: 1 -> 3 -> 4 = 10
    best = None
    for use in itertools.product((0, 1), repeat=len(ARCS)):
        if any(u > data["cap"][o - 1] for (o, _, _), u in zip(ARCS, use)):
            continue
        balance = [0] * 4
        for (o, d, _), u in zip(ARCS, use):
            balance[o - 1] += u
            balance[d - 1] -= u
        if balance == NET:
            cost = sum(c * u for (_, _, c), u in zip(ARCS, use))
            best = cost if best is None else min(best, cost)
    assert best == 10
    check_optimum(m, data, best)


# ---------------------------------------------------------------- maximization with a constant


def profit_model():
    x, y = name("x"), name("y")
    obj = maximize(binop("-", binop("+", binop("*", num(5), x), binop("*", num(4), y)), num(10)))
    cons = [
        constraint("<=", binop("+", binop("*", num(6), x), binop("*", num(4), y)), num(24)),
        constraint("<=", binop("+", x, binop("*", num(2), y)), num(6)),
        constraint("<=", binop("-", y, x), num(1)),
        constraint("<=", y, num(2)),
    ]
    return model([dvar("x"), dvar("y")], obj, cons)


def test_maximization_with_an_objective_constant():
    # By hand: 6x + 4y = 24 and x + 2y = 6 meet at x = 3, y = 1.5, giving
    # 5*3 + 4*1.5 = 21; the other vertices (0,0) 0, (4,0) 20, (0,1) 4,
    # (1,2) 13, (2,2) 18 are worse. Minus the constant 10: 11.
    a_ub = [[6, 4], [1, 2], [-1, 1], [0, 1]]
    vertex = lp_vertex_optimum([5, 4], a_ub, [24, 6, 1, 2], maximize=True)
    assert vertex == pytest.approx(21.0)
    expected = vertex - 10
    out, problem, x, text = check_optimum(profit_model(), None, expected)
    assert problem.objective_offset == -10.0
    assert problem.c == [-5.0, -4.0]
    assert "objective_offset = -10.0" in text.split("\n")
    assert list(x) == pytest.approx([3.0, 1.5])
    assert out["solution"] == {"x": pytest.approx(3.0), "y": pytest.approx(1.5)}
