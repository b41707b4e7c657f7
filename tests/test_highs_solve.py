"""kolva.solve: the LinearProblem solved through highspy, its options and statuses.

Optima are checked against direct SciPy formulations of the same models, or
against enumeration of their discrete choices."""

import itertools
import math

import numpy as np
import pytest
from scipy.optimize import linprog

import kolva
from kolva import opl
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.solve_highs import (
    MIP_FEASIBILITY_TOLERANCE,
    MIP_INTEGRALITY_TOLERANCE,
    _apply_options,
    load_problem,
    new_highs,
)


def build(tmp_path, model, data=None, name="m"):
    """The LinearProblem of an OPL model text (and data text)."""
    mod = tmp_path / f"{name}.mod"
    mod.write_text(model)
    paths = [mod]
    if data is not None:
        dat = tmp_path / f"{name}.dat"
        dat.write_text(data)
        paths.append(dat)
    tree, data_dict, _ = opl._load_with_warnings(*paths)
    return SciPyCSCCodeGenerator(tree, data_dict).build_problem()


# ---------------------------------------------------------------- LP

SUPPLY = """\
{string} Mills = ...;
{string} Shops = ...;
float stock[Mills] = ...;
float need[Shops] = ...;
float price[Mills][Shops] = ...;
dvar float+ send[Mills][Shops];
minimize sum(m in Mills, s in Shops) price[m][s] * send[m][s] + 7;
subject to {
  forall(m in Mills) ctStock: sum(s in Shops) send[m][s] <= stock[m];
  forall(s in Shops) ctNeed: sum(m in Mills) send[m][s] >= need[s];
}
"""
SUPPLY_DATA = """\
Mills = {"north", "south"};
Shops = {"a", "b", "c"};
stock = [40, 50];
need = [20, 30, 25];
price = [[4, 6, 9], [5, 3, 7]];
"""


def supply_reference():
    price = np.array([[4, 6, 9], [5, 3, 7]], dtype=float)
    stock, need = [40, 50], [20, 30, 25]
    a_ub, b_ub = [], []
    for m in range(2):
        a_ub.append([1.0 if k // 3 == m else 0.0 for k in range(6)])
        b_ub.append(stock[m])
    for s in range(3):
        a_ub.append([-1.0 if k % 3 == s else 0.0 for k in range(6)])
        b_ub.append(-need[s])
    res = linprog(price.ravel(), A_ub=a_ub, b_ub=b_ub, bounds=[(0, None)] * 6, method="highs")
    return res.fun + 7


def test_lp_optimum_matches_a_direct_scipy_formulation(tmp_path):
    problem = build(tmp_path, SUPPLY, SUPPLY_DATA)
    solution = kolva.solve(problem)
    assert solution.status == "OPTIMAL"
    assert solution.objective_value == pytest.approx(supply_reference(), abs=1e-9)
    assert list(solution.values) == problem.var_names
    # The values are a solution: stock and need hold.
    x = np.array([solution.values[name] for name in problem.var_names])
    assert np.all(np.asarray(problem.A_ub) @ x <= np.asarray(problem.b_ub) + 1e-9)


def test_lp_gives_activities_duals_and_reduced_costs_by_name(tmp_path):
    problem = build(tmp_path, SUPPLY, SUPPLY_DATA)
    solution = kolva.solve(problem)
    x = np.array([solution.values[name] for name in problem.var_names])
    activities = np.asarray(problem.A_ub) @ x
    assert list(solution.row_activities.values()) == pytest.approx(list(activities), abs=1e-9)
    assert set(solution.row_duals) == set(solution.row_activities)
    assert list(solution.reduced_costs) == problem.var_names
    # Strong duality for min c.x + 7 s.t. A x <= b, x >= 0: c.x = b.y with y <= 0.
    duals = np.array(list(solution.row_duals.values()))
    assert np.all(duals <= 1e-9)
    assert float(np.asarray(problem.b_ub) @ duals) + 7 == pytest.approx(solution.objective_value, abs=1e-9)
    # Reduced costs: c - A^T y, zero on the basic (positive) columns.
    reduced = np.asarray(problem.c) - np.asarray(problem.A_ub).T @ duals
    assert list(solution.reduced_costs.values()) == pytest.approx(list(reduced), abs=1e-9)
    assert solution.best_bound is None and solution.mip_gap is None


def test_maximization_keeps_the_model_sense_and_constant(tmp_path):
    problem = build(
        tmp_path,
        "dvar float+ x;\ndvar float+ y;\nmaximize 3 * x + 2 * y - 5;\n"
        "subject to {\n  x + y <= 4;\n  x + 3 * y <= 6;\n  x <= 3;\n}\n",
    )
    reference = linprog([-3, -2], A_ub=[[1, 1], [1, 3], [1, 0]], b_ub=[4, 6, 3], method="highs")
    solution = kolva.solve(problem)
    assert solution.status == "OPTIMAL"
    assert solution.objective_value == pytest.approx(-reference.fun - 5, abs=1e-9)
    assert solution.values == pytest.approx({"x": 3.0, "y": 1.0}, abs=1e-9)


def test_equality_rows_follow_the_upper_bound_rows(tmp_path):
    problem = build(
        tmp_path,
        "dvar float+ x;\ndvar float+ y;\nminimize x + 2 * y;\nsubject to {\n  x + y == 3;\n  x <= 1;\n}\n",
    )
    assert len(problem.b_eq) == 1
    solution = kolva.solve(problem)
    assert solution.objective_value == pytest.approx(5.0, abs=1e-9)
    names = list(solution.row_activities)
    # The last row is the equality row, at its right-hand side.
    assert solution.row_activities[names[-1]] == pytest.approx(3.0, abs=1e-9)


def test_unbounded_and_infeasible_lps(tmp_path):
    unbounded = build(tmp_path, "dvar float+ x;\nmaximize x;\nsubject to { x >= 1; }\n", name="u")
    infeasible = build(tmp_path, "dvar float+ x;\nminimize x;\nsubject to { x <= -1; }\n", name="i")
    assert kolva.solve(unbounded).status == "UNBOUNDED"
    solution = kolva.solve(infeasible)
    assert solution.status == "INFEASIBLE"
    assert solution.objective_value is None and solution.values == {}


def test_problem_without_variables():
    from kolva.linear_problem import LinearProblem

    feasible = LinearProblem(objective_offset=4.0, A_ub=[[]], b_ub=[1.0])
    infeasible = LinearProblem(A_ub=[[]], b_ub=[-1.0])
    assert (kolva.solve(feasible).status, kolva.solve(feasible).objective_value) == ("OPTIMAL", 4.0)
    assert kolva.solve(infeasible).status == "INFEASIBLE"


def test_hand_built_problem_with_list_rows():
    from kolva.linear_problem import LinearProblem

    problem = LinearProblem(
        sense="maximize",
        var_names=["a", "b"],
        bounds=[[0, 4], [0, None]],
        integrality=[1, 0],
        c=[-1.0, -1.0],
        A_ub=[[1.0, 2.0]],
        b_ub=[7.5],
        objective_offset=1.0,
    )
    solution = kolva.solve(problem)
    # b = (7.5 - a) / 2, so a + b = 3.75 + a / 2 is largest at a = 4.
    assert solution.status == "OPTIMAL"
    assert solution.objective_value == pytest.approx(1 + 4 + 1.75, abs=1e-9)
    assert solution.values == pytest.approx({"a": 4.0, "b": 1.75}, abs=1e-9)


# ---------------------------------------------------------------- MIP

KNAPSACK = """\
range Items = 1..8;
int weight[Items] = [12, 7, 11, 8, 9, 6, 14, 5];
int worth[Items] = [24, 13, 23, 15, 16, 11, 29, 9];
int room = 34;
dvar boolean take[Items];
maximize sum(i in Items) worth[i] * take[i];
subject to {
  ctRoom: sum(i in Items) weight[i] * take[i] <= room;
}
"""


def knapsack_by_enumeration():
    weight = [12, 7, 11, 8, 9, 6, 14, 5]
    worth = [24, 13, 23, 15, 16, 11, 29, 9]
    best = 0
    for choice in itertools.product((0, 1), repeat=8):
        if sum(w * c for w, c in zip(weight, choice)) <= 34:
            best = max(best, sum(v * c for v, c in zip(worth, choice)))
    return best


def test_mip_optimum_matches_enumeration(tmp_path):
    problem = build(tmp_path, KNAPSACK)
    solution = kolva.solve(problem)
    assert solution.status == "OPTIMAL"
    assert solution.objective_value == pytest.approx(knapsack_by_enumeration(), abs=1e-9)
    assert solution.best_bound == pytest.approx(solution.objective_value, rel=1e-4)
    assert solution.mip_gap is not None and solution.mip_gap <= 1e-4
    assert solution.row_duals == {} and solution.reduced_costs == {}
    assert all(value in (0.0, 1.0) for value in (round(v, 9) for v in solution.values.values()))


# ---------------------------------------------------------------- margins of logical encodings

# Each model puts a strict comparison on a continuous expression (the front end
# adds a margin of 1e-06) next to a big-M row over a wide domain: the optimum
# sits at the margin's boundary.
COUNT_AT_BOUNDARY = """\
range I = 1..4;
dvar float x[I] in 0..100000;
maximize sum(i in I) x[i];
subject to {
  sum(i in I) (x[i] > 2) <= 1;
  forall(i in I) x[i] <= 2.05;
}
"""
IMPLICATION_STRICT = """\
dvar float x in 0..100000;
dvar float y in 0..10;
maximize x + 10 * y;
subject to {
  x > 2 => y <= 1;
  x <= 2.05;
}
"""
IMPLICATION_AT_BOUNDARY = """\
dvar float x in 0..100000;
dvar int y in 0..10;
maximize x + 10 * y;
subject to {
  x >= 2 => y <= 1;
  x <= 2.05;
}
"""
MARGIN = 1e-06


def lp_max(objective, bounds):
    """max objective.x over a box, by SciPy."""
    res = linprog([-c for c in objective], bounds=bounds, method="highs")
    return -res.fun if res.status == 0 else -math.inf


def count_by_enumeration():
    # Each x[i] > 2 is true (x in [2 + margin, 2.05]) or false (x in [0, 2]);
    # at most one may be true.
    best = -math.inf
    for truth in itertools.product((False, True), repeat=4):
        if sum(truth) <= 1:
            bounds = [(2 + MARGIN, 2.05) if t else (0, 2) for t in truth]
            best = max(best, lp_max([1, 1, 1, 1], bounds))
    return best


def implication_by_enumeration(strict):
    # The antecedent is true (then y <= 1) or false (x on the other side).
    best = -math.inf
    for truth in (False, True):
        if strict:  # x > 2
            x_bounds = (2 + MARGIN, 2.05) if truth else (0, 2)
        else:  # x >= 2
            x_bounds = (2, 2.05) if truth else (0, 2 - MARGIN)
        y_range = range(0, 2) if truth else range(0, 11)
        for y in y_range:  # y is an integer in the last model; its optimum is integral in both
            best = max(best, lp_max([1], [x_bounds]) + 10 * y)
    return best


def count_holds(values):
    return sum(values[f"x_{i}"] > 2 for i in range(1, 5)) <= 1


def implication_holds(values, strict):
    fires = values["x"] > 2 if strict else values["x"] >= 2
    return not fires or values["y"] <= 1 + 1e-9


CASES = [
    ("count", COUNT_AT_BOUNDARY, count_by_enumeration, count_holds),
    ("strict", IMPLICATION_STRICT, lambda: implication_by_enumeration(True), lambda v: implication_holds(v, True)),
    (
        "boundary",
        IMPLICATION_AT_BOUNDARY,
        lambda: implication_by_enumeration(False),
        lambda v: implication_holds(v, False),
    ),
]


@pytest.mark.parametrize("label, model, optimum, holds", CASES, ids=[c[0] for c in CASES])
def test_logical_margins_reach_the_enumerated_optimum(tmp_path, label, model, optimum, holds):
    problem = build(tmp_path, model)
    solution = kolva.solve(problem)
    assert solution.status == "OPTIMAL"
    assert solution.objective_value == pytest.approx(optimum(), abs=1e-9)
    assert holds(solution.values)


def run_without_presolve(problem, kolva_tolerances):
    highs = new_highs()
    load_problem(highs, problem)
    if kolva_tolerances:
        _apply_options(highs, problem, None, None, None, None)
    highs.setOptionValue("presolve", "off")
    highs.run()
    return dict(zip(problem.var_names, highs.getSolution().col_value)), highs.getInfo().objective_function_value


@pytest.mark.parametrize("label, model, optimum, holds", CASES, ids=[c[0] for c in CASES])
def test_default_tolerances_break_the_margins_that_kolva_keeps(tmp_path, label, model, optimum, holds):
    # Without presolve's reductions, HiGHS's default tolerances (1e-06 on
    # integrality and MIP rows) accept a point across the margin; the
    # tolerances kolva sets for problems with integer columns do not.
    problem = build(tmp_path, model)
    values, objective = run_without_presolve(problem, kolva_tolerances=False)
    assert not holds(values)
    assert objective > optimum() + 1e-7
    values, objective = run_without_presolve(problem, kolva_tolerances=True)
    assert holds(values)
    assert objective == pytest.approx(optimum(), abs=1e-9)


# ---------------------------------------------------------------- options


def options_after(problem, **options):
    highs = new_highs()
    load_problem(highs, problem)
    _apply_options(
        highs,
        problem,
        options.get("time_limit"),
        options.get("mip_gap"),
        options.get("threads"),
        options.get("tolerance"),
    )
    names = ("time_limit", "mip_rel_gap", "threads", "primal_feasibility_tolerance", "mip_feasibility_tolerance")
    return {name: highs.getOptionValue(name)[1] for name in names}


def test_integer_problems_get_tight_tolerances_and_lps_keep_highs_defaults(tmp_path):
    lp = build(tmp_path, SUPPLY, SUPPLY_DATA, name="lp")
    mip = build(tmp_path, KNAPSACK, name="mip")
    defaults = options_after(lp)
    assert defaults["primal_feasibility_tolerance"] == 1e-07
    assert defaults["mip_feasibility_tolerance"] == 1e-06
    tight = options_after(mip)
    assert tight["primal_feasibility_tolerance"] == MIP_FEASIBILITY_TOLERANCE == 1e-09
    assert tight["mip_feasibility_tolerance"] == MIP_INTEGRALITY_TOLERANCE == 1e-10


def test_options_reach_highs(tmp_path):
    mip = build(tmp_path, KNAPSACK)
    got = options_after(mip, time_limit=2.5, mip_gap=0.01, threads=1, tolerance=1e-08)
    assert got == {
        "time_limit": 2.5,
        "mip_rel_gap": 0.01,
        "threads": 1,
        "primal_feasibility_tolerance": 1e-08,
        "mip_feasibility_tolerance": 1e-09,
    }
    # The integrality tolerance stops at HiGHS's least value.
    assert options_after(mip, tolerance=1e-10)["mip_feasibility_tolerance"] == 1e-10


@pytest.mark.parametrize(
    "options, message",
    [
        ({"time_limit": 0}, "time limit must be a positive number of seconds, not 0"),
        ({"time_limit": float("nan")}, "time limit must be a positive number of seconds, not nan"),
        ({"mip_gap": -0.1}, "MIP gap must be a relative gap of 0 or more, not -0.1"),
        ({"threads": 0}, "threads must be a whole number of 1 or more, not 0"),
        ({"threads": 1.5}, "threads must be a whole number of 1 or more, not 1.5"),
        ({"tolerance": 1e-12}, "tolerance must be between 1e-10 and 0.001, not 1e-12"),
    ],
)
def test_options_out_of_range_are_refused(tmp_path, options, message):
    problem = build(tmp_path, KNAPSACK)
    with pytest.raises(ValueError) as info:
        kolva.solve(problem, **options)
    assert str(info.value) == message


def test_solve_with_all_options_still_finds_the_optimum(tmp_path):
    problem = build(tmp_path, KNAPSACK)
    solution = kolva.solve(problem, time_limit=30, mip_gap=0.0, threads=1, tolerance=1e-08)
    assert solution.objective_value == pytest.approx(knapsack_by_enumeration(), abs=1e-9)


# ---------------------------------------------------------------- log and progress


def test_silent_by_default(tmp_path, capfd):
    problem = build(tmp_path, KNAPSACK)
    kolva.solve(problem)
    out, err = capfd.readouterr()
    assert (out, err) == ("", "")


def test_log_true_streams_highs_log_to_standard_error(tmp_path, capfd):
    problem = build(tmp_path, KNAPSACK)
    kolva.solve(problem, log=True)
    out, err = capfd.readouterr()
    assert out == ""
    assert "MIP has 1 row; 8 cols" in err
    assert "Solving report" in err


def test_log_to_a_function_or_stream(tmp_path, capfd):
    import io

    problem = build(tmp_path, SUPPLY, SUPPLY_DATA)
    pieces = []
    kolva.solve(problem, log=pieces.append)
    stream = io.StringIO()
    kolva.solve(problem, log=stream)
    assert "LP has 5 rows; 6 cols" in "".join(pieces)
    assert "LP has 5 rows; 6 cols" in stream.getvalue()
    assert capfd.readouterr() == ("", "")


MARKET_SPLIT = """\
int m = ...;
int n = ...;
range R = 1..m;
range J = 1..n;
int a[R][J] = ...;
int target[R] = ...;
dvar boolean x[J];
dvar float+ over[R];
dvar float+ under[R];
minimize sum(r in R) (over[r] + under[r]);
subject to {
  forall(r in R)
    ctSplit: sum(j in J) a[r][j] * x[j] - over[r] + under[r] == target[r];
}
"""


def market_split_data(m=5, n=40):
    """Weights from a fixed linear congruential sequence; targets at half the row sums."""
    state = 20261124
    rows = []
    for _ in range(m):
        row = []
        for _ in range(n):
            state = (state * 1103515245 + 12345) % 2**31
            row.append(state % 100)
        rows.append(row)
    targets = [sum(row) // 2 for row in rows]
    text = f"m = {m};\nn = {n};\n"
    text += "a = [" + ",\n  ".join("[" + ", ".join(map(str, row)) + "]" for row in rows) + "];\n"
    text += "target = [" + ", ".join(map(str, targets)) + "];\n"
    return text


def test_time_limit_stops_a_hard_mip_with_its_incumbent(tmp_path):
    problem = build(tmp_path, MARKET_SPLIT, market_split_data())
    solution = kolva.solve(problem, time_limit=0.5)
    assert solution.status == "TIME_LIMIT"
    assert solution.message == "Time limit reached"
    # An incumbent: a point with its objective, and the bound below it.
    assert solution.objective_value is not None
    assert set(solution.values) == set(problem.var_names)
    x = np.array([solution.values[name] for name in problem.var_names])
    assert np.asarray(problem.A_eq) @ x == pytest.approx(np.asarray(problem.b_eq), abs=1e-6)
    assert float(np.asarray(problem.c) @ x) == pytest.approx(solution.objective_value, abs=1e-6)
    assert solution.best_bound is not None and solution.best_bound <= solution.objective_value
    assert solution.mip_gap is not None and solution.mip_gap > 0


def test_progress_reports_bound_and_incumbent_of_a_mip(tmp_path):
    problem = build(tmp_path, MARKET_SPLIT, market_split_data())
    seen = []
    kolva.solve(problem, time_limit=0.5, on_progress=seen.append)
    assert seen
    last = seen[-1]
    assert isinstance(last, kolva.MipProgress)
    assert last.incumbent is not None and last.best_bound is not None
    assert last.best_bound <= last.incumbent
    assert last.nodes >= 0 and last.seconds >= 0


# ---------------------------------------------------------------- conflicts

CONFLICT_LP = """\
dvar float+ a;
dvar float+ b;
dvar float+ c;
minimize a + b + c;
subject to {
  ctCap: a + b <= 4;
  ctA: a - c >= 3;
  ctB: b + c >= 2;
  ctRoom: a + b + c <= 100;
  ctMix: a + 2 * c >= 1;
}
"""

CONFLICT_LOGICAL = """\
dvar float x in 0..10;
dvar float y in 0..10;
minimize x + y;
subject to {
  ctRoom: x + y <= 30;
  ctImp: x >= 5 => y >= 8;
  ctX: x + 0 * y >= 6;
  ctY: y + 0 * x <= 7;
}
"""


def feasible(problem, rows, free_continuous):
    """Whether the problem restricted to HiGHS rows ``rows`` has a point, by SciPy's milp."""
    from scipy.optimize import Bounds, LinearConstraint, milp

    a = np.vstack([np.asarray(problem.A_ub).reshape(-1, len(problem.var_names)),
                   np.asarray(problem.A_eq).reshape(-1, len(problem.var_names))])
    upper = np.concatenate([problem.b_ub, problem.b_eq])
    lower = np.concatenate([np.full(len(problem.b_ub), -np.inf), problem.b_eq])
    rows = sorted(rows)
    bounds = np.array(problem.bounds, dtype=float)
    lo = np.where(np.isnan(bounds[:, 0]), -np.inf, bounds[:, 0])
    hi = np.where(np.isnan(bounds[:, 1]), np.inf, bounds[:, 1])
    integer = np.asarray(problem.integrality)
    if free_continuous:
        lo = np.where(integer == 1, lo, -np.inf)
        hi = np.where(integer == 1, hi, np.inf)
    constraints = [LinearConstraint(a[rows], lower[rows], upper[rows])] if rows else []
    res = milp(np.zeros(len(problem.var_names)), constraints=constraints, integrality=integer, bounds=Bounds(lo, hi))
    return res.status == 0


def assert_irreducible(problem, rows, free_continuous):
    assert not feasible(problem, rows, free_continuous)
    for left_out in rows:
        assert feasible(problem, [r for r in rows if r != left_out], free_continuous)


def test_infeasible_lp_names_exactly_the_conflicting_rows(tmp_path):
    # a >= 3 + c and b >= 2 - c make a + b >= 5 > 4; ctRoom and ctMix play no part.
    problem = build(tmp_path, CONFLICT_LP)
    names = kolva.solve_highs.row_names(problem)
    solution = kolva.solve(problem)
    assert solution.status == "INFEASIBLE"
    assert names[:3] == ["ctCap", "ctA", "ctB"]
    assert [row.row for row in solution.conflict] == names[:3]
    assert solution.conflict_bounds == []
    assert_irreducible(problem, [0, 1, 2], free_continuous=False)


def test_infeasible_logical_model_gets_its_conflict_by_the_deletion_filter(tmp_path):
    # x >= 6 fires the implication, y >= 8 then meets y <= 7; the LP relaxation
    # is feasible (a fractional flag), so the rows are found with integrality.
    problem = build(tmp_path, CONFLICT_LOGICAL)
    names = kolva.solve_highs.row_names(problem)
    solution = kolva.solve(problem)
    assert solution.status == "INFEASIBLE"
    picked = [names.index(row.row) for row in solution.conflict]
    assert picked
    # Domains are rows of their own, so the check may free the continuous columns.
    assert_irreducible(problem, picked, free_continuous=True)
    # ctRoom is no part of it: it is the first row after the domain rows.
    domain_rows = 4
    assert domain_rows not in picked
    assert all(row >= domain_rows for row in picked)


def test_presolve_infeasibility_is_confirmed_without_presolve(tmp_path, monkeypatch):
    problem = build(tmp_path, CONFLICT_LP)
    runs = []
    real = kolva.solve_highs._run

    def counting(highs, callbacks):
        runs.append(highs.getOptionValue("presolve")[1])
        return real(highs, callbacks)

    monkeypatch.setattr(kolva.solve_highs, "_run", counting)
    assert kolva.solve(problem).status == "INFEASIBLE"
    assert runs == ["choose", "off"]


def test_an_exception_in_a_callback_stops_the_solve_and_is_raised(tmp_path):
    problem = build(tmp_path, MARKET_SPLIT, market_split_data())
    calls = []

    def failing(progress):
        calls.append(progress)
        raise RuntimeError("progress display failed")

    with pytest.raises(RuntimeError, match="progress display failed"):
        kolva.solve(problem, time_limit=20, on_progress=failing)
    assert len(calls) == 1

    def failing_log(text):
        raise OSError("log closed")

    with pytest.raises(OSError, match="log closed"):
        kolva.solve(problem, time_limit=20, log=failing_log)
