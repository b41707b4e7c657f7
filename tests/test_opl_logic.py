"""Logical OPL constraints solved end to end and checked against brute-force
enumeration of the OPL meaning: the cases where a naive tree would be read
differently by the generator (negated conjunctions, `||` between
constraints, `!=` between integers, strict antecedents at their boundary,
counts holding comparisons, domains that must reach big-M)."""

import itertools
import logging

import pytest

from kolva import opl
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.solve import solve_problem, solve_script


@pytest.fixture(autouse=True)
def _quiet_generator():
    logger = logging.getLogger("SciPyCSCCodeGenerator")
    level = logger.level
    logger.setLevel(logging.ERROR)
    yield
    logger.setLevel(level)


def both_ways(text):
    tree = opl.parse_model(text, filename="logic.mod")
    in_memory = solve_problem(SciPyCSCCodeGenerator(tree, {}).build_problem())
    scripted = solve_script(SciPyCSCCodeGenerator(tree, {}).generate_code())
    return in_memory, scripted


def enumerate_optimum(n, domain, feasible, objective, sense):
    values = [objective(v) for v in itertools.product(domain, repeat=n) if feasible(v)]
    if not values:
        return None
    return max(values) if sense == "max" else min(values)


def check(text, n, domain, feasible, objective, sense):
    expected = enumerate_optimum(n, domain, feasible, objective, sense)
    in_memory, scripted = both_ways(text)
    if expected is None:
        assert in_memory.status == "INFEASIBLE" and scripted.status == "INFEASIBLE"
        return
    assert in_memory.status == "OPTIMAL" and scripted.status == "OPTIMAL"
    assert in_memory.objective_value == pytest.approx(expected, abs=1e-6)
    assert scripted.objective_value == pytest.approx(expected, abs=1e-6)


D6 = range(6)


CASES = {
    "disjunction between constraints": (
        "dvar int x in 0..5; dvar int y in 0..5; maximize 3*x + 2*y;"
        "subject to { x + y <= 6; x >= 4 || y >= 4; x <= 3 || y <= 3; }",
        2, D6, lambda v: v[0] + v[1] <= 6 and (v[0] >= 4 or v[1] >= 4) and (v[0] <= 3 or v[1] <= 3),
        lambda v: 3 * v[0] + 2 * v[1], "max",
    ),
    "not equal between integers": (
        "dvar int x in 0..5; dvar int y in 0..5; maximize x + 2*y; subject to { x + y <= 7; x != y; y != 5; }",
        2, D6, lambda v: v[0] + v[1] <= 7 and v[0] != v[1] and v[1] != 5,
        lambda v: v[0] + 2 * v[1], "max",
    ),
    "implication at the boundary of its antecedent": (
        "dvar int x in 0..5; dvar int y in 0..5; maximize 2*x - y; subject to { x >= 3 => y >= 2; x > 4 => y == 5; }",
        2, D6, lambda v: (v[0] < 3 or v[1] >= 2) and (v[0] <= 4 or v[1] == 5),
        lambda v: 2 * v[0] - v[1], "max",
    ),
    "negated conjunction": (
        "dvar int x in 0..5; dvar int y in 0..5; maximize x + y; subject to { !(x >= 3 && y >= 3); }",
        2, D6, lambda v: not (v[0] >= 3 and v[1] >= 3), lambda v: v[0] + v[1], "max",
    ),
    "conjunction asserted false": (
        "dvar int x in 0..5; dvar int y in 0..5; maximize x + y; subject to { (x >= 2 && y >= 4) == false; }",
        2, D6, lambda v: not (v[0] >= 2 and v[1] >= 4), lambda v: v[0] + v[1], "max",
    ),
    "count at least": (
        "range I = 1..3; dvar int x[I] in 0..4; minimize sum(i in I) x[i]; subject to { sum(i in I) (x[i] >= 2) >= 2; }",
        3, range(5), lambda v: sum(a >= 2 for a in v) >= 2, sum, "min",
    ),
    "count of less-or-equal": (
        "range I = 1..3; dvar int x[I] in 0..4; minimize sum(i in I) x[i];"
        "subject to { sum(i in I) (x[i] <= 1) <= 1; x[1] <= 3; }",
        3, range(5), lambda v: sum(a <= 1 for a in v) <= 1 and v[0] <= 3, sum, "min",
    ),
    "count of equalities": (
        "range I = 1..3; dvar int x[I] in 0..4; maximize sum(i in I) x[i]; subject to { sum(i in I) (x[i] == 2) >= 2; }",
        3, range(5), lambda v: sum(a == 2 for a in v) >= 2, sum, "max",
    ),
    "count with a strict comparison": (
        "range I = 1..3; dvar int x[I] in 0..4; maximize sum(i in I) x[i]; subject to { sum(i in I) (x[i] > 2) == 1; }",
        3, range(5), lambda v: sum(a > 2 for a in v) == 1, sum, "max",
    ),
    "count written as a plus chain": (
        "dvar int x in 0..5; dvar int y in 0..5; minimize x + y; subject to { (x >= 2) + (y >= 3) >= 2; }",
        2, D6, lambda v: (v[0] >= 2) + (v[1] >= 3) >= 2, lambda v: v[0] + v[1], "min",
    ),
    "count against a variable": (
        "range I = 1..3; dvar int x[I] in 0..4; dvar int k in 0..3; maximize k - sum(i in I) x[i];"
        "subject to { k <= sum(i in I) (x[i] >= 3); }",
        4, range(5), lambda v: v[3] <= 3 and v[3] <= sum(a >= 3 for a in v[:3]), lambda v: v[3] - sum(v[:3]), "max",
    ),
    "implication between Boolean variables": (
        "dvar boolean a; dvar boolean b; dvar boolean c; minimize a + b + c; subject to { a == 1; a => b || c; !c; }",
        3, range(2), lambda v: v[0] == 1 and (not v[0] or v[1] or v[2]) and not v[2], sum, "min",
    ),
    "infeasible disjunction": (
        "dvar int x in 0..3; minimize x; subject to { x >= 5 || x <= -1; }",
        1, range(4), lambda v: v[0] >= 5 or v[0] <= -1, sum, "min",
    ),
}


@pytest.mark.parametrize("case", sorted(CASES))
def test_logical_model_reaches_the_enumerated_optimum(case):
    text, n, domain, feasible, objective, sense = CASES[case]
    check(text, n, domain, feasible, objective, sense)


@pytest.mark.parametrize("case", ["disjunction between constraints", "not equal between integers", "count at least"])
def test_the_logical_rules_matter(case):
    """Without its logical rule each model has another optimum, so the checks above test the rule."""
    text, n, domain, feasible, objective, sense = CASES[case]
    relaxed = enumerate_optimum(n, domain, lambda v: True, objective, sense)
    assert relaxed != enumerate_optimum(n, domain, feasible, objective, sense)


def test_domain_bounds_reach_the_disjunction_big_m():
    # Without the domain, big-M would default to a million; the optimum is the same,
    # and the domain rows come first so that the disjunction can use them.
    tree = opl.parse_model("dvar int x in 0..7; dvar int y in 0..7; maximize x + y; subject to { x <= 2 || y <= 2; }")
    first, second, third, fourth = tree["constraints"][:4]
    assert [c["op"] for c in (first, second, third, fourth)] == [">=", "<=", ">=", "<="]
    check(
        "dvar int x in 0..7; dvar int y in 0..7; maximize x + y; subject to { x <= 2 || y <= 2; }",
        2, range(8), lambda v: v[0] <= 2 or v[1] <= 2, sum, "max",
    )


def test_wide_indexed_domain_reaches_big_m_through_bound_rows():
    # Taking x[2] = 1 satisfies the disjunction for a cost of 10, so x[1] may
    # go down to its lower bound: the optimum is -3,000,000 + 10. If the big-M
    # of the first alternative were smaller than its domain's width, its
    # relaxed row would still force x[1] up and the optimum would be wrong.
    text = (
        "dvar int x[1..2] in -3000000..3000000; minimize x[1] + 10 * x[2];"
        "subject to { x[1] >= 2000000 || x[2] >= 1; x[2] >= 0; }"
    )
    in_memory, scripted = both_ways(text)
    assert in_memory.status == "OPTIMAL"
    assert in_memory.objective_value == pytest.approx(-3_000_000 + 10)
    assert scripted.objective_value == pytest.approx(-3_000_000 + 10)


def test_count_holding_a_comparison_with_constant_truth_value():
    # (i >= 2) is decided by the iterator alone: it adds 1 for i = 2, 3.
    text = (
        "range I = 1..3; dvar int x[I] in 0..4; minimize sum(i in I) x[i];"
        "subject to { sum(i in I) ((x[i] >= 3) + (i >= 2)) >= 4; }"
    )
    check(text, 3, range(5), lambda v: sum((a >= 3) + (i >= 2) for i, a in zip((1, 2, 3), v)) >= 4, sum, "min")
