"""End-to-end tests of the OPL example corpus in examples/.

Each model is read from its .mod/.dat files by kolva.opl and solved three
ways: the in-memory program, the emitted stand-alone script, and the command
line. All three must reach the optimum that the test works out on its own,
from the same data written again below as Python literals, with a direct
SciPy formulation (opl_reference.Program) or by enumeration.

Dropping a constraint group from a reference must change its optimum: this
shows that the data makes every group matter, so a front end that loses one
would be caught. For the models with logical constraints this is the proof
that the logic itself is exercised.

| model          | OPL features exercised                                                   |
|----------------|--------------------------------------------------------------------------|
| transport      | string sets, 2-D arrays in array form, scalar inline param, execute      |
| diet           | `dvar float x[f in F] in 0..ub[f]`, filtered forall, /* */ comments      |
| blending       | `using CPLEX;`, `constraints { }`, equality row, two-sided composition   |
| production     | `int T = ...; range 1..T`, range from expression, `inv[t-1]`, forall block|
| knapsack       | `dvar boolean`, maximize, `execute NAME { }`                             |
| setcover       | 0/1 matrix data, inline `{int}` set, `d in Critical` filter             |
| facility       | fixed charge, `x[i][j] <= demand[j] * open[i]` linking, scalar dexpr     |
| assignment     | boolean assignment, filter on data (`skill[w][t] == 0`)                  |
| scheduling     | `||` disjunctions on `dvar int ... in 0..H`, `a < b` pair filter         |
| netflow        | tuple set of arcs, `a.cost`, `<i,j,c,u> in Arcs`, `flow[<i,j,c,u>]`, `a.to == n` filters |
| nurses         | 3-D booleans, string literal subscripts, `d+1` subscripts                |
| cutstock       | `{int}` index set, `dvar int+`, given patterns                          |
| setup          | `=>` implications with integer antecedents at their boundary             |
| coloring       | `!=` on integer variables through tuple fields `color[e.u]`             |
| counts         | counting comparisons `sum(i in I) (x[i] >= 2) >= k`                      |
| notand         | `!( ... && ... )`, `!(x == k)`, `=>` with a conjunction consequent       |
| derived        | `card`, `sum` in data, comprehension `{i | i in I: w[i] > 10}`, `range R = 1..n` |
| productmix     | scalar and indexed `dexpr` in objective and constraints, maximize        |
| crews          | `union`, `inter`, `diff`, `symdiff`, `#[ ]#` data for computed sets      |
| lanes          | `#< >#` named tuples (fields in any order), `#[ ]#`, array of tuples `window[s].low` |
| farm           | inline data only, inline arrays, generated array `c[i in I][j in J]`     |
| trucks         | `int+`/`float+` parameters, `dvar int+`, `dvar int n in 0..3`            |
| callcentre     | `ceil`, `floor`, `maxl`, `minl`, `?:`, `mod` in data and filters         |
| batching       | `div`, `mod`, `abs`, `?:` in generated arrays, comprehension over them   |
"""

import itertools
import math
import re
from functools import lru_cache
from pathlib import Path

import pytest

from opl_reference import INF, Program, best_by_enumeration

EXAMPLES = Path(__file__).resolve().parent.parent / "examples"


def pairs(rows, cols, matrix):
    """A dict (row, col) -> value from a list of lists in row order."""
    return {(r, c): matrix[i][j] for i, r in enumerate(rows) for j, c in enumerate(cols)}


# ====================================================================== transport

T_PLANTS = ["seattle", "san-diego"]
T_MARKETS = ["new-york", "chicago", "topeka"]
T_CAPACITY = {"seattle": 350, "san-diego": 600}
T_DEMAND = {"new-york": 325, "chicago": 300, "topeka": 275}
T_DISTANCE = pairs(T_PLANTS, T_MARKETS, [[2.5, 1.7, 1.8], [2.5, 1.8, 1.4]])
T_FREIGHT = 90


def ref_transport(drop=frozenset()):
    p = Program()
    for i in T_PLANTS:
        for j in T_MARKETS:
            p.var(("ship", i, j))
    p.minimize(
        [(T_FREIGHT * T_DISTANCE[i, j] / 1000, ("ship", i, j)) for i in T_PLANTS for j in T_MARKETS]
    )
    if "supply" not in drop:
        for i in T_PLANTS:
            p.le([(1, ("ship", i, j)) for j in T_MARKETS], T_CAPACITY[i])
    if "demand" not in drop:
        for j in T_MARKETS:
            p.ge([(1, ("ship", i, j)) for i in T_PLANTS], T_DEMAND[j])
    return p.solve()


# ====================================================================== diet

D_FOODS = ["oats", "milk", "beans", "rice", "apple"]
D_NUTRIENTS = ["energy", "protein", "fibre"]
D_COST = {"oats": 0.30, "milk": 0.45, "beans": 0.55, "rice": 0.25, "apple": 0.40}
D_CONTENT = pairs(
    D_FOODS,
    D_NUTRIENTS,
    [
        [380, 13, 10],
        [150, 8, 0],
        [230, 15, 13],
        [200, 4, 1],
        [95, 0.5, 4.4],
    ],
)
D_MIN = {"energy": 1700, "protein": 90, "fibre": 30}
D_MAX = {"energy": 1900, "protein": 0, "fibre": 0}
D_MAX_SERVINGS = {"oats": 3, "milk": 4, "beans": 2, "rice": 4, "apple": 3}


def ref_diet(drop=frozenset()):
    p = Program()
    for f in D_FOODS:
        p.var(f, 0, INF if "bounds" in drop else D_MAX_SERVINGS[f])
    p.minimize([(D_COST[f], f) for f in D_FOODS])
    for n in D_NUTRIENTS:
        terms = [(D_CONTENT[f, n], f) for f in D_FOODS]
        if "floor" not in drop:
            p.ge(terms, D_MIN[n])
        if "ceiling" not in drop and D_MAX[n] > 0:
            p.le(terms, D_MAX[n])
    return p.solve()


# ====================================================================== blending

B_ALLOYS = ["scrapA", "scrapB", "scrapC", "pureTin", "pureLead"]
B_ELEMENTS = ["tin", "lead", "antimony"]
B_PCT = pairs(
    B_ALLOYS,
    B_ELEMENTS,
    [
        [0.60, 0.40, 0.00],
        [0.25, 0.70, 0.05],
        [0.45, 0.50, 0.05],
        [1.00, 0.00, 0.00],
        [0.00, 1.00, 0.00],
    ],
)
B_COST = {"scrapA": 8.2, "scrapB": 4.0, "scrapC": 6.8, "pureTin": 14.0, "pureLead": 2.4}
B_STOCK = {"scrapA": 300, "scrapB": 500, "scrapC": 400, "pureTin": 1000, "pureLead": 1000}
B_LOW = {"tin": 0.40, "lead": 0.52, "antimony": 0.0}
B_HIGH = {"tin": 0.45, "lead": 0.58, "antimony": 0.03}
B_BATCH = 1000


def ref_blending(drop=frozenset()):
    p = Program()
    for a in B_ALLOYS:
        p.var(a)
    p.minimize([(B_COST[a], a) for a in B_ALLOYS])
    if "batch" not in drop:
        p.eq([(1, a) for a in B_ALLOYS], B_BATCH)
    for e in B_ELEMENTS:
        terms = [(B_PCT[a, e], a) for a in B_ALLOYS]
        if "low" not in drop:
            p.ge(terms, B_LOW[e] * B_BATCH)
        if "high" not in drop:
            p.le(terms, B_HIGH[e] * B_BATCH)
    if "stock" not in drop:
        for a in B_ALLOYS:
            p.le([(1, a)], B_STOCK[a])
    return p.solve()


# ====================================================================== production

P_T = 6
P_PERIODS = range(1, P_T + 1)
P_DEMAND = dict(zip(P_PERIODS, [120, 160, 300, 310, 90, 200]))
P_REG_CAP = dict(zip(P_PERIODS, [200, 200, 180, 200, 200, 150]))
P_REG_COST = dict(zip(P_PERIODS, [10, 10, 11, 11, 12, 12]))
P_OT_CAP = 60
P_OT_COST = 15
P_HOLD = 2
P_INIT_INV = 30
P_MAX_INV = 120
P_END_INV = 40


def ref_production(drop=frozenset()):
    p = Program()
    for t in range(0, P_T + 1):
        p.var(("inv", t))
    for t in P_PERIODS:
        p.var(("reg", t))
        p.var(("ot", t))
    p.minimize(
        [(P_REG_COST[t], ("reg", t)) for t in P_PERIODS]
        + [(P_OT_COST, ("ot", t)) for t in P_PERIODS]
        + [(P_HOLD, ("inv", t)) for t in P_PERIODS]
    )
    if "start" not in drop:
        p.eq([(1, ("inv", 0))], P_INIT_INV)
    for t in P_PERIODS:
        if "balance" not in drop:
            p.eq([(1, ("inv", t - 1)), (1, ("reg", t)), (1, ("ot", t)), (-1, ("inv", t))], P_DEMAND[t])
        if "regular" not in drop:
            p.le([(1, ("reg", t))], P_REG_CAP[t])
        if "overtime" not in drop:
            p.le([(1, ("ot", t))], P_OT_CAP)
        if "store" not in drop:
            p.le([(1, ("inv", t))], P_MAX_INV)
    if "end" not in drop:
        p.ge([(1, ("inv", P_T))], P_END_INV)
    return p.solve()


# ====================================================================== knapsack

K_ITEMS = ["tent", "stove", "rope", "lamp", "radio", "kit", "book", "camera", "tarp", "knife"]
K_WEIGHT = dict(zip(K_ITEMS, [11, 7, 3, 4, 5, 6, 2, 9, 8, 1]))
K_VALUE = dict(zip(K_ITEMS, [30, 18, 9, 12, 11, 20, 4, 22, 17, 6]))
K_CAPACITY = 30


def ref_knapsack(drop=frozenset()):
    return best_by_enumeration(
        {i: (0, 1) for i in K_ITEMS},
        lambda x: "capacity" in drop or sum(K_WEIGHT[i] * x[i] for i in K_ITEMS) <= K_CAPACITY,
        lambda x: sum(K_VALUE[i] * x[i] for i in K_ITEMS),
        sense="max",
    )


# ====================================================================== setcover

S_SITES = ["hill", "dock", "mill", "park", "yard", "gate", "farm"]
S_DISTRICTS = range(1, 9)
S_CRITICAL = [2, 5]
S_COST = dict(zip(S_SITES, [12, 9, 14, 7, 10, 8, 6]))
S_COVERS = pairs(
    S_SITES,
    S_DISTRICTS,
    [
        [1, 1, 0, 0, 0, 0, 1, 0],
        [0, 1, 1, 0, 0, 0, 0, 0],
        [0, 0, 1, 1, 1, 0, 0, 1],
        [1, 0, 0, 1, 0, 0, 0, 0],
        [0, 0, 0, 0, 1, 1, 0, 0],
        [0, 0, 0, 0, 0, 1, 1, 1],
        [0, 1, 0, 0, 1, 0, 0, 0],
    ],
)


def ref_setcover(drop=frozenset()):
    def covered(x, d):
        return sum(S_COVERS[s, d] * x[s] for s in S_SITES)

    def feasible(x):
        if "cover" not in drop and any(covered(x, d) < 1 for d in S_DISTRICTS):
            return False
        if "double" not in drop and any(covered(x, d) < 2 for d in S_CRITICAL):
            return False
        return True

    return best_by_enumeration(
        {s: (0, 1) for s in S_SITES}, feasible, lambda x: sum(S_COST[s] * x[s] for s in S_SITES)
    )


# ====================================================================== facility

F_SITES = ["north", "east", "south", "west"]
F_CUSTOMERS = ["c1", "c2", "c3", "c4", "c5"]
F_FIXED = dict(zip(F_SITES, [400, 350, 500, 300]))
F_CAPACITY = dict(zip(F_SITES, [90, 70, 120, 60]))
F_DEMAND = dict(zip(F_CUSTOMERS, [30, 25, 40, 20, 35]))
F_UNIT = pairs(
    F_SITES,
    F_CUSTOMERS,
    [
        [2, 4, 7, 6, 3],
        [5, 2, 3, 8, 6],
        [6, 5, 2, 3, 7],
        [4, 7, 5, 2, 2],
    ],
)


def ref_facility(drop=frozenset()):
    p = Program()
    for i in F_SITES:
        p.binary(("open", i))
        for j in F_CUSTOMERS:
            p.var(("x", i, j))
    p.minimize(
        [(F_FIXED[i], ("open", i)) for i in F_SITES]
        + [(F_UNIT[i, j], ("x", i, j)) for i in F_SITES for j in F_CUSTOMERS]
    )
    if "demand" not in drop:
        for j in F_CUSTOMERS:
            p.eq([(1, ("x", i, j)) for i in F_SITES], F_DEMAND[j])
    if "capacity" not in drop:
        for i in F_SITES:
            p.le([(1, ("x", i, j)) for j in F_CUSTOMERS], F_CAPACITY[i])
    if "link" not in drop:
        for i in F_SITES:
            for j in F_CUSTOMERS:
                p.le([(1, ("x", i, j)), (-F_DEMAND[j], ("open", i))], 0)
    return p.solve()


# ====================================================================== assignment

A_WORKERS = ["ana", "ben", "caz", "dia", "eli"]
A_TASKS = ["weld", "paint", "wire", "test"]
A_COST = pairs(
    A_WORKERS,
    A_TASKS,
    [
        [9, 4, 7, 6],
        [3, 8, 5, 9],
        [6, 5, 4, 8],
        [7, 6, 9, 3],
        [4, 3, 6, 5],
    ],
)
A_SKILL = pairs(
    A_WORKERS,
    A_TASKS,
    [
        [1, 1, 1, 1],
        [0, 1, 1, 1],
        [1, 1, 0, 1],
        [1, 1, 1, 0],
        [1, 0, 1, 1],
    ],
)


def ref_assignment(drop=frozenset()):
    """Every task gets one worker; with "worker" dropped a worker may take several."""
    best = None
    choices = itertools.product(A_WORKERS, repeat=len(A_TASKS))
    for pick in choices:
        if "worker" not in drop and len(set(pick)) < len(pick):
            continue
        if "skill" not in drop and any(A_SKILL[w, t] == 0 for w, t in zip(pick, A_TASKS)):
            continue
        cost = sum(A_COST[w, t] for w, t in zip(pick, A_TASKS))
        best = cost if best is None else min(best, cost)
    return best


# ====================================================================== scheduling

J_JOBS = [1, 2, 3, 4]
J_DUR = dict(zip(J_JOBS, [3, 2, 4, 1]))
J_RELEASE = dict(zip(J_JOBS, [0, 1, 0, 5]))
J_WEIGHT = dict(zip(J_JOBS, [2, 1, 3, 2]))
J_HORIZON = 15


def ref_scheduling(drop=frozenset()):
    def lowest(j):
        return 0 if "release" in drop else J_RELEASE[j]

    def feasible(s):
        if "disjunctive" in drop:
            return True
        return all(
            s[a] + J_DUR[a] <= s[b] or s[b] + J_DUR[b] <= s[a]
            for a in J_JOBS
            for b in J_JOBS
            if a < b
        )

    return best_by_enumeration(
        {j: range(lowest(j), J_HORIZON + 1) for j in J_JOBS},
        feasible,
        lambda s: sum(J_WEIGHT[j] * (s[j] + J_DUR[j]) for j in J_JOBS),
    )


# ====================================================================== netflow

N_NODES = ["s1", "s2", "a", "b", "c", "t1", "t2"]
N_SUPPLY = {"s1": 20, "s2": 15, "a": 0, "b": 0, "c": 0, "t1": -18, "t2": -17}
N_ARCS = [
    ("s1", "a", 4, 15),
    ("s1", "b", 6, 12),
    ("s2", "b", 3, 10),
    ("s2", "c", 5, 12),
    ("a", "b", 1, 8),
    ("a", "c", 2, 10),
    ("a", "t1", 7, 12),
    ("b", "t1", 5, 10),
    ("b", "t2", 4, 9),
    ("c", "t2", 3, 10),
    ("c", "t1", 8, 6),
]


def ref_netflow(drop=frozenset()):
    p = Program()
    for arc in N_ARCS:
        p.var(arc, 0, INF if "cap" in drop else arc[3])
    p.minimize([(arc[2], arc) for arc in N_ARCS])
    if "balance" not in drop:
        for n in N_NODES:
            p.eq(
                [(1, arc) for arc in N_ARCS if arc[0] == n] + [(-1, arc) for arc in N_ARCS if arc[1] == n],
                N_SUPPLY[n],
            )
    return p.solve()


# ====================================================================== nurses

R_NURSES = ["ann", "bob", "cho", "dev"]
R_DAYS = [1, 2, 3]
R_SHIFTS = ["early", "late", "night"]
R_NEED = pairs(R_DAYS, R_SHIFTS, [[1, 1, 1], [2, 1, 1], [1, 2, 1]])
R_MAX_SHIFTS = dict(zip(R_NURSES, [4, 3, 2, 3]))
R_PREF = pairs(R_NURSES, R_SHIFTS, [[1, 5, 2], [4, 3, 3], [4, 1, 1], [4, 2, 3]])


def ref_nurses(drop=frozenset()):
    p = Program()
    for n in R_NURSES:
        for d in R_DAYS:
            for s in R_SHIFTS:
                p.binary((n, d, s))
    p.minimize([(R_PREF[n, s], (n, d, s)) for n in R_NURSES for d in R_DAYS for s in R_SHIFTS])
    if "cover" not in drop:
        for d in R_DAYS:
            for s in R_SHIFTS:
                p.ge([(1, (n, d, s)) for n in R_NURSES], R_NEED[d, s])
    for n in R_NURSES:
        if "one" not in drop:
            for d in R_DAYS:
                p.le([(1, (n, d, s)) for s in R_SHIFTS], 1)
        if "max" not in drop:
            p.le([(1, (n, d, s)) for d in R_DAYS for s in R_SHIFTS], R_MAX_SHIFTS[n])
        if "rest" not in drop:
            for d in R_DAYS:
                if d < len(R_DAYS):
                    p.le([(1, (n, d, "night")), (1, (n, d + 1, "early"))], 1)
    return p.solve()


# ====================================================================== cutstock

C_ROLL = 100
C_WIDTHS = [45, 36, 31, 14]
C_DEMAND = dict(zip(C_WIDTHS, [12, 30, 22, 18]))
C_PATTERNS = range(1, 9)
C_PATTERN = pairs(
    C_PATTERNS,
    C_WIDTHS,
    [
        [2, 0, 0, 0],
        [0, 2, 0, 2],
        [0, 1, 2, 0],
        [1, 1, 0, 1],
        [0, 0, 3, 0],
        [1, 0, 1, 1],
        [0, 2, 0, 1],
        [0, 0, 2, 2],
    ],
)


def ref_cutstock(drop=frozenset()):
    assert all(sum(w * C_PATTERN[p, w] for w in C_WIDTHS) <= C_ROLL for p in C_PATTERNS)
    p = Program()
    for k in C_PATTERNS:
        p.var(k, integer=True)
    p.minimize([(1, k) for k in C_PATTERNS])
    if "demand" not in drop:
        for w in C_WIDTHS:
            p.ge([(C_PATTERN[k, w], k) for k in C_PATTERNS], C_DEMAND[w])
    return p.solve()


# ====================================================================== setup

U_PRODUCTS = [1, 2, 3]
U_PROFIT = dict(zip(U_PRODUCTS, [5, 4, 6]))
U_HOURS = dict(zip(U_PRODUCTS, [2, 1, 3]))
U_SETUP = dict(zip(U_PRODUCTS, [3, 2, 4]))
U_SURCHARGE = dict(zip(U_PRODUCTS, [2, 3, 1]))
U_CAPACITY = 10
U_MAX_MAKE = 4
U_BIG_BATCH = 3


def ref_setup(drop=frozenset(), strict=False):
    """`strict` reads each antecedent `make >= k` as `make > k`: the optimum
    must move, so the models' boundaries are really exercised."""
    shift = 1 if strict else 0
    domains = {("make", p): range(0, U_MAX_MAKE + 1) for p in U_PRODUCTS}
    domains.update({("setup", p): (0, 1) for p in U_PRODUCTS})
    domains.update({("big", p): (0, 1) for p in U_PRODUCTS})

    def feasible(v):
        if "capacity" not in drop and sum(U_HOURS[p] * v["make", p] for p in U_PRODUCTS) > U_CAPACITY:
            return False
        for p in U_PRODUCTS:
            if "setup" not in drop and v["make", p] >= 1 + shift and v["setup", p] != 1:
                return False
            if "big" not in drop and v["make", p] >= U_BIG_BATCH + shift and v["big", p] != 1:
                return False
        return True

    return best_by_enumeration(
        domains,
        feasible,
        lambda v: sum(
            U_PROFIT[p] * v["make", p] - U_SETUP[p] * v["setup", p] - U_SURCHARGE[p] * v["big", p]
            for p in U_PRODUCTS
        ),
        sense="max",
    )


# ====================================================================== coloring

G_NODES = [1, 2, 3, 4, 5]
G_EDGES = [(1, 2), (2, 3), (3, 1), (3, 4), (4, 5), (5, 1), (2, 4)]
G_WEIGHT = dict(zip(G_NODES, [3, 1, 2, 4, 2]))


def ref_coloring(drop=frozenset()):
    return best_by_enumeration(
        {n: (1, 2, 3) for n in G_NODES},
        lambda c: "diff" in drop or all(c[u] != c[v] for u, v in G_EDGES),
        lambda c: sum(G_WEIGHT[n] * c[n] for n in G_NODES),
    )


# ====================================================================== counts

Q_ITEMS = [1, 2, 3, 4]
Q_VALUE = dict(zip(Q_ITEMS, [3, 1, 8, 5]))
Q_SIZE = dict(zip(Q_ITEMS, [2, 3, 3, 4]))
Q_BUDGET = 15
Q_MIN_MEDIUM = 2
Q_MAX_FULL = 1
Q_UPPER = 4


def ref_counts(drop=frozenset(), strict=False):
    """`strict` counts `x > 2` and `x > 3` instead: the optimum must move."""
    shift = 1 if strict else 0

    def feasible(x):
        if "budget" not in drop and sum(Q_SIZE[i] * x[i] for i in Q_ITEMS) > Q_BUDGET:
            return False
        if "medium" not in drop and sum(1 for i in Q_ITEMS if x[i] >= 2 + shift) < Q_MIN_MEDIUM:
            return False
        if "full" not in drop and sum(1 for i in Q_ITEMS if x[i] >= 3 + shift) > Q_MAX_FULL:
            return False
        return True

    return best_by_enumeration(
        {i: range(0, Q_UPPER + 1) for i in Q_ITEMS},
        feasible,
        lambda x: sum(Q_VALUE[i] * x[i] for i in Q_ITEMS),
        sense="max",
    )


# ====================================================================== notand

L_ITEMS = [1, 2, 3]
L_VALUE = dict(zip(L_ITEMS, [8, 3, 8]))
L_SIZE = dict(zip(L_ITEMS, [3, 1, 2]))
L_BUDGET = 12
L_BONUS = 4


def ref_notand(drop=frozenset()):
    domains = {i: range(0, 4) for i in L_ITEMS}
    domains["y"] = (0, 1)

    def feasible(v):
        if "budget" not in drop and sum(L_SIZE[i] * v[i] for i in L_ITEMS) > L_BUDGET:
            return False
        if "notboth" not in drop and (v[1] >= 2 and v[2] >= 2):
            return False
        if "notop" not in drop and v[3] == 3:
            return False
        if "bonus" not in drop and v["y"] == 1 and not (v[3] >= 1 and v[1] <= 1):
            return False
        return True

    return best_by_enumeration(
        domains,
        feasible,
        lambda v: sum(L_VALUE[i] * v[i] for i in L_ITEMS) + L_BONUS * v["y"],
        sense="max",
    )


# ====================================================================== derived

V_ITEMS = ["anvil", "bell", "chain", "drum", "easel", "flute"]
V_WEIGHT = dict(zip(V_ITEMS, [14, 6, 11, 4, 9, 16]))
V_VALUE = dict(zip(V_ITEMS, [20, 9, 15, 7, 12, 21]))
V_PENALTY = 1.5


def ref_derived(drop=frozenset()):
    n = len(V_ITEMS)
    total = sum(V_WEIGHT.values())
    big = [i for i in V_ITEMS if V_WEIGHT[i] > 10]
    p = Program()
    for i in V_ITEMS:
        p.var(("x", i), 0, 1)
    for k in range(1, n + 1):
        p.var(("y", k), 0, 1)
    p.maximize(
        [(V_VALUE[i], ("x", i)) for i in V_ITEMS] + [(-V_PENALTY * k, ("y", k)) for k in range(1, n + 1)]
    )
    if "weight" not in drop:
        p.le([(V_WEIGHT[i], ("x", i)) for i in V_ITEMS], total / 2)
    if "big" not in drop:
        p.le([(1, ("x", i)) for i in big], 1)
    if "count" not in drop:
        p.eq([(1, ("y", k)) for k in range(1, n + 1)] + [(-1, ("x", i)) for i in V_ITEMS], 0)
    return p.solve()


# ====================================================================== productmix

M_PRODUCTS = ["chair", "table", "desk"]
M_MACHINES = ["saw", "lathe", "paint"]
M_PRICE = dict(zip(M_PRODUCTS, [45, 120, 150]))
M_MATERIAL = dict(zip(M_PRODUCTS, [12, 40, 55]))
M_TIME = pairs(M_PRODUCTS, M_MACHINES, [[0.5, 0.8, 0.3], [1.2, 0.6, 1.0], [1.5, 0.5, 1.6]])
M_HOURS = dict(zip(M_MACHINES, [120, 90, 110]))
M_MARKET = dict(zip(M_PRODUCTS, [120, 60, 50]))
M_BUDGET = 3500


def ref_productmix(drop=frozenset()):
    p = Program()
    for q in M_PRODUCTS:
        p.var(q)
    p.maximize([(M_PRICE[q] - M_MATERIAL[q], q) for q in M_PRODUCTS])
    if "load" not in drop:
        for m in M_MACHINES:
            p.le([(M_TIME[q, m], q) for q in M_PRODUCTS], M_HOURS[m])
    if "budget" not in drop:
        p.le([(M_MATERIAL[q], q) for q in M_PRODUCTS], M_BUDGET)
    if "market" not in drop:
        for q in M_PRODUCTS:
            p.le([(1, q)], M_MARKET[q])
    return p.solve()


# ====================================================================== crews

W_DAY_CREW = ["ava", "ben", "cleo", "dan"]
W_NIGHT_CREW = ["cleo", "dan", "eve", "finn"]
W_WAGE = {"ava": 20, "ben": 22, "cleo": 18, "dan": 19, "eve": 24, "finn": 21}
W_MAX_HOURS = {"ava": 40, "ben": 40, "cleo": 30, "dan": 40, "eve": 40, "finn": 40}
W_FLEX_PREMIUM = 3
W_DAY_NEED = 100
W_NIGHT_NEED = 90
W_FLEX_CAP = 60
W_SINGLE_MAX = 35


def ref_crews(drop=frozenset()):
    day, night = set(W_DAY_CREW), set(W_NIGHT_CREW)
    crew = sorted(day | night)
    flex, day_only, night_only, single = day & night, day - night, night - day, day ^ night
    p = Program()
    for c in crew:
        p.var(("day", c))
        p.var(("night", c))
    p.minimize(
        [(W_WAGE[c], ("day", c)) for c in crew]
        + [(W_WAGE[c], ("night", c)) for c in crew]
        + [(W_FLEX_PREMIUM, ("night", c)) for c in flex]
    )
    if "dayneed" not in drop:
        p.ge([(1, ("day", c)) for c in crew], W_DAY_NEED)
    if "nightneed" not in drop:
        p.ge([(1, ("night", c)) for c in crew], W_NIGHT_NEED)
    if "nonight" not in drop:
        for c in day_only:
            p.eq([(1, ("night", c))], 0)
    if "noday" not in drop:
        for c in night_only:
            p.eq([(1, ("day", c))], 0)
    if "max" not in drop:
        for c in crew:
            p.le([(1, ("day", c)), (1, ("night", c))], W_MAX_HOURS[c])
    if "flexcap" not in drop:
        p.le([(1, (s, c)) for c in flex for s in ("day", "night")], W_FLEX_CAP)
    if "single" not in drop:
        for c in single:
            p.le([(1, ("day", c)), (1, ("night", c))], W_SINGLE_MAX)
    return p.solve()


# ====================================================================== lanes

Y_DEPOTS = ["north", "south"]
Y_SHOPS = ["mall", "market", "corner"]
Y_LANES = [
    ("north", "mall", 4, 30),
    ("north", "market", 6, 25),
    ("north", "corner", 5, 20),
    ("south", "mall", 7, 25),
    ("south", "market", 3, 15),
    ("south", "corner", 4, 15),
]
Y_STOCK = {"north": 50, "south": 50}
Y_PRICE = {"mall": 9, "market": 5, "corner": 10}
Y_WINDOW = {"mall": (20, 40), "market": (25, 35), "corner": (20, 30)}


def ref_lanes(drop=frozenset()):
    p = Program()
    for lane in Y_LANES:
        p.var(lane, 0, INF if "cap" in drop else lane[3])
    p.maximize([(Y_PRICE[lane[1]] - lane[2], lane) for lane in Y_LANES])
    if "stock" not in drop:
        for d in Y_DEPOTS:
            p.le([(1, lane) for lane in Y_LANES if lane[0] == d], Y_STOCK[d])
    for s in Y_SHOPS:
        terms = [(1, lane) for lane in Y_LANES if lane[1] == s]
        if "low" not in drop:
            p.ge(terms, Y_WINDOW[s][0])
        if "high" not in drop:
            p.le(terms, Y_WINDOW[s][1])
    return p.solve()


# ====================================================================== farm

H_CROPS = ["wheat", "corn", "soy"]
H_FIELDS = [1, 2, 3]
H_ACRES = dict(zip(H_FIELDS, [40, 25, 35]))
H_PRICE = dict(zip(H_CROPS, [210, 180, 340]))
H_BASE_YIELD = dict(zip(H_CROPS, [3.0, 4.2, 2.5]))
H_FIELD_FACTOR = dict(zip(H_FIELDS, [1.0, 0.8, 1.1]))
H_WATER = dict(zip(H_CROPS, [1.2, 1.8, 2.2]))
H_WATER_CAP = 150
H_SOY_MARKET = 60


def ref_farm(drop=frozenset()):
    yield_of = {(f, c): H_BASE_YIELD[c] * H_FIELD_FACTOR[f] for f in H_FIELDS for c in H_CROPS}
    p = Program()
    for f in H_FIELDS:
        for c in H_CROPS:
            p.var((f, c))
    p.maximize([(H_PRICE[c] * yield_of[f, c], (f, c)) for f in H_FIELDS for c in H_CROPS])
    if "land" not in drop:
        for f in H_FIELDS:
            p.le([(1, (f, c)) for c in H_CROPS], H_ACRES[f])
    if "water" not in drop:
        p.le([(H_WATER[c], (f, c)) for f in H_FIELDS for c in H_CROPS], H_WATER_CAP)
    if "soy" not in drop:
        p.le([(yield_of[f, "soy"], (f, "soy")) for f in H_FIELDS], H_SOY_MARKET)
    return p.solve()


# ====================================================================== trucks

Z_GOODS = ["boxes", "crates", "drums"]
Z_NEED = dict(zip(Z_GOODS, [14, 9, 6]))
Z_VOLUME = dict(zip(Z_GOODS, [1.0, 2.5, 4.0]))
Z_COURIER = dict(zip(Z_GOODS, [3.0, 6.5, 9.0]))
Z_TRUCK_VOLUME = 15.0
Z_TRUCK_COST = 30
Z_MAX_TRUCKS = 3


def ref_trucks(drop=frozenset()):
    p = Program()
    for g in Z_GOODS:
        p.var(("crates", g), integer=True)
        p.var(("courier", g))
    p.var("trucks", 0, INF if "domain" in drop else Z_MAX_TRUCKS, integer=True)
    p.minimize([(Z_TRUCK_COST, "trucks")] + [(Z_COURIER[g], ("courier", g)) for g in Z_GOODS])
    if "need" not in drop:
        for g in Z_GOODS:
            p.ge([(1, ("crates", g)), (1, ("courier", g))], Z_NEED[g])
    if "load" not in drop:
        p.le([(Z_VOLUME[g], ("crates", g)) for g in Z_GOODS] + [(-Z_TRUCK_VOLUME, "trucks")], 0)
    return p.solve()


# ====================================================================== callcentre

E_BLOCKS = 8
E_LOAD = [40, 25, 60, 130, 170, 150, 110, 70]
E_PER_AGENT = 12
E_SHIFT = 3
E_FLOOR_STAFF = 4
E_MAX_AGENTS = 5
E_DAY_WAGE = 10
E_NIGHT_WAGE = 14


def ref_callcentre(drop=frozenset()):
    blocks = range(E_BLOCKS)
    need = [max(E_FLOOR_STAFF, math.ceil(E_LOAD[b] / E_PER_AGENT)) for b in blocks]
    cap = min(E_MAX_AGENTS, math.floor(max(E_LOAD) / E_PER_AGENT))
    wage = [E_NIGHT_WAGE if (b < 2 or b >= 7) else E_DAY_WAGE for b in blocks]
    p = Program()
    for s in blocks:
        p.var(s, 0, INF if "cap" in drop else cap, integer=True)
    p.minimize([(E_SHIFT * wage[s], s) for s in blocks])
    if "cover" not in drop:
        for h in blocks:
            p.ge([(1, s) for s in blocks if (h - s + E_BLOCKS) % E_BLOCKS < E_SHIFT], need[h])
    return p.solve()


# ====================================================================== batching

X_PARTS = ["gear", "shaft", "valve", "plate"]
X_LINES = ["old", "new"]
X_ORDER = dict(zip(X_PARTS, [23, 17, 30, 8]))
X_BATCH = 5
X_NOMINAL = dict(zip(X_PARTS, [10.0, 25.0, 8.0, 40.0]))
X_MEASURED = dict(zip(X_PARTS, [10.3, 24.2, 8.05, 40.6]))
X_TOLERANCE = 0.5
X_TIME = pairs(X_PARTS, X_LINES, [[2, 3], [2, 3], [1, 2], [3, 4]])


def ref_batching(drop=frozenset()):
    batches = {q: X_ORDER[q] // X_BATCH + (1 if X_ORDER[q] % X_BATCH > 0 else 0) for q in X_PARTS}
    rework = [q for q in X_PARTS if abs(X_MEASURED[q] - X_NOMINAL[q]) > X_TOLERANCE]
    p = Program()
    for q in X_PARTS:
        for line in X_LINES:
            p.var((q, line), integer=True)
    p.var("makespan")
    p.minimize([(1, "makespan")])
    if "batches" not in drop:
        for q in X_PARTS:
            p.eq([(1, (q, line)) for line in X_LINES], batches[q])
    if "load" not in drop:
        for line in X_LINES:
            p.le([(X_TIME[q, line], (q, line)) for q in X_PARTS] + [(-1, "makespan")], 0)
    if "rework" not in drop:
        for q in rework:
            p.eq([(1, (q, "old"))], 0)
    return p.solve()


# ====================================================================== the corpus

# model -> (reference, constraint groups whose removal must move the optimum)
CASES = {
    # the supply rows are slack at this data: the cheapest lanes already fit
    "transport": (ref_transport, ["demand"]),
    "diet": (ref_diet, ["floor", "ceiling", "bounds"]),
    "blending": (ref_blending, ["batch", "low", "high", "stock"]),
    "production": (ref_production, ["start", "balance", "regular", "overtime", "store", "end"]),
    "knapsack": (ref_knapsack, ["capacity"]),
    "setcover": (ref_setcover, ["cover", "double"]),
    "facility": (ref_facility, ["demand", "capacity", "link"]),
    "assignment": (ref_assignment, ["worker", "skill"]),
    "scheduling": (ref_scheduling, ["disjunctive", "release"]),
    "netflow": (ref_netflow, ["balance", "cap"]),
    "nurses": (ref_nurses, ["cover", "one", "max", "rest"]),
    "cutstock": (ref_cutstock, ["demand"]),
    "setup": (ref_setup, ["capacity", "setup", "big"]),
    "coloring": (ref_coloring, ["diff"]),
    "counts": (ref_counts, ["budget", "medium", "full"]),
    "notand": (ref_notand, ["budget", "notboth", "notop", "bonus"]),
    "derived": (ref_derived, ["weight", "big", "count"]),
    "productmix": (ref_productmix, ["load", "budget", "market"]),
    # night-only crew are fully used at night here, so ctNoDay is slack; the
    # diff that builds NightOnly still shapes the model through ctSingle
    "crews": (ref_crews, ["dayneed", "nightneed", "nonight", "max", "flexcap", "single"]),
    "lanes": (ref_lanes, ["stock", "low", "high", "cap"]),
    "farm": (ref_farm, ["land", "water", "soy"]),
    "trucks": (ref_trucks, ["need", "load", "domain"]),
    "callcentre": (ref_callcentre, ["cover", "cap"]),
    "batching": (ref_batching, ["batches", "load", "rework"]),
}

# models with logical constraints -> the groups that hold the logic
LOGICAL = {
    "scheduling": ["disjunctive"],
    "setup": ["setup", "big"],
    "coloring": ["diff"],
    "counts": ["medium", "full"],
    "notand": ["notboth", "notop", "bonus"],
}

MODELS = sorted(CASES)
TOLERANCE = dict(rel=1e-6, abs=1e-6)


@lru_cache(maxsize=None)
def reference(name):
    value = CASES[name][0]()
    assert value is not None, f"reference for {name} is infeasible"
    return value


def paths(name):
    return str(EXAMPLES / f"{name}.mod"), str(EXAMPLES / f"{name}.dat")


def load(name):
    """A fresh (tree, data) pair read from the example's files."""
    import kolva.opl

    return kolva.opl.load(*paths(name))


# ---------------------------------------------------------------- references


def test_corpus_is_complete():
    mods = {p.stem for p in EXAMPLES.glob("*.mod")}
    assert mods == set(CASES)
    assert len(mods) >= 22
    for name in mods:
        assert (EXAMPLES / f"{name}.dat").is_file(), name


def test_transport_reference_is_the_textbook_value():
    # 325 + 275 from the cheaper plant per market, chicago from seattle:
    # 0.09 * (325 * 2.5 + 300 * 1.7 + 275 * 1.4) thousand dollars
    assert reference("transport") == pytest.approx(0.09 * (325 * 2.5 + 300 * 1.7 + 275 * 1.4))
    assert reference("transport") == pytest.approx(153.675)


@pytest.mark.parametrize(
    "name, group", [(name, group) for name in MODELS for group in CASES[name][1]]
)
def test_dropping_a_group_moves_the_reference(name, group):
    without = CASES[name][0](frozenset([group]))
    assert without != pytest.approx(reference(name), **TOLERANCE)


@pytest.mark.parametrize("name", sorted(LOGICAL))
def test_logic_changes_the_optimum(name):
    without_logic = CASES[name][0](frozenset(LOGICAL[name]))
    assert without_logic is not None
    assert without_logic != pytest.approx(reference(name), **TOLERANCE)


@pytest.mark.parametrize("ref", [ref_setup, ref_counts], ids=["setup", "counts"])
def test_comparison_boundaries_matter(ref):
    # reading `x >= k` as `x > k` gives another optimum, so the corpus
    # catches a lowering that gets the boundary wrong
    assert ref(strict=True) != ref()


# ---------------------------------------------------------------- Kolva


@pytest.mark.parametrize("name", MODELS)
def test_in_memory_problem(name):
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_problem

    tree, data = load(name)
    solution = solve_problem(SciPyCSCCodeGenerator(tree, data).build_problem())
    assert solution.status == "OPTIMAL", solution.message
    assert solution.objective_value == pytest.approx(reference(name), **TOLERANCE)


@pytest.mark.parametrize("name", MODELS)
def test_emitted_script(name):
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_script

    tree, data = load(name)
    script = SciPyCSCCodeGenerator(tree, data).generate_code()
    solution = solve_script(script, f"<{name} script>")
    assert solution.status == "OPTIMAL", solution.message
    assert solution.objective_value == pytest.approx(reference(name), **TOLERANCE)


@pytest.mark.parametrize("name", MODELS)
def test_command_line(name, capsys):
    from kolva.cli import main

    status = main(["solve", *paths(name)])
    out = capsys.readouterr().out
    assert status == 0, out
    assert re.search(r"^status: OPTIMAL$", out, re.MULTILINE), out
    found = re.search(r"^objective: (\S+)$", out, re.MULTILINE)
    assert found, out
    assert float(found.group(1)) == pytest.approx(reference(name), **TOLERANCE)
