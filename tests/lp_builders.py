"""Helpers for tests of constraint rows and whole linear programs: logical
nodes, parameters without data, reading the sparse triplets back out of an
emitted script, running a script, and solving a LinearProblem with SciPy.

They complement conftest.py and builders.py."""

import copy
import itertools

import numpy as np

from builders import literal_line
from conftest import boolean

# ---------------------------------------------------------------- nodes


def and_(left, right):
    return {"type": "and", "left": left, "right": right}


def or_(left, right):
    return {"type": "or", "left": left, "right": right}


def asserted(node):
    """`node == true` as a top-level constraint."""
    return {"type": "constraint", "op": "==", "left": node, "right": boolean(True)}


def param_external(param_name):
    return {"type": "parameter_external", "name": param_name}


def forall_many(iterators, constraints, index_constraint=None):
    """A forall over a list of bodies (the `constraints` key)."""
    node = {"type": "forall_constraint", "iterators": list(iterators), "constraints": list(constraints)}
    if index_constraint is not None:
        node["index_constraint"] = index_constraint
    return node


# ---------------------------------------------------------------- generators


def generator(ast, data=None, logger=None):
    """A fresh generator on private copies of the model and the data."""
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    return SciPyCSCCodeGenerator(copy.deepcopy(ast), copy.deepcopy(data), logger)


def built_rows(ast, data=None):
    """A generator after the variable, objective and constraint phases."""
    g = generator(ast, data)
    g._build_variables()
    g._build_objective()
    g._build_constraints()
    return g


def script_lines(ast, data=None):
    return generator(ast, data).generate_code().split("\n")


def triplets(lines, kind):
    """(rows, cols, data, rhs) of the "eq" or "ub" system as the script lists them."""
    prefix = "A_" + kind + "_"
    return (
        literal_line(lines, prefix + "rows = "),
        literal_line(lines, prefix + "cols = "),
        literal_line(lines, prefix + "data = "),
        literal_line(lines, "b_" + kind + " = "),
    )


def csr_triplets(matrix):
    """(rows, cols, data) of a CSR matrix in stored order."""
    csr = matrix.tocsr()
    rows = []
    for r in range(csr.shape[0]):
        rows.extend([r] * (csr.indptr[r + 1] - csr.indptr[r]))
    return rows, csr.indices.tolist(), csr.data.tolist()


# ---------------------------------------------------------------- running and solving


def run_script(text):
    """Run an emitted script the way a host does; gives its result map."""
    ns = {"results_container": {}}
    exec(compile(text, "<kolva script>", "exec"), ns)
    return ns["results_container"]["scipy_output"]


def solve_problem(problem):
    """Solve a LinearProblem with HiGHS; gives (objective in the model's own
    sense with the offset added, x)."""
    from scipy.optimize import linprog

    a_ub = problem.A_ub.tocsr() if len(problem.b_ub) else None
    a_eq = problem.A_eq.tocsr() if len(problem.b_eq) else None
    res = linprog(
        problem.c,
        A_ub=a_ub,
        b_ub=problem.b_ub or None,
        A_eq=a_eq,
        b_eq=problem.b_eq or None,
        bounds=problem.bounds,
        integrality=problem.integrality,
        method="highs",
    )
    assert res.status == 0, res.message
    value = -res.fun if problem.sense == "maximize" else res.fun
    return value + problem.objective_offset, res.x


def lp_vertex_optimum(c, a_ub, b_ub, a_eq=(), b_eq=(), maximize=False):
    """Optimum of a small bounded LP by enumerating its basic solutions.

    Variables are all >= 0 (those rows are added here). Each choice of n
    active constraints among the inequalities, together with all the
    equalities, is solved as a square system; feasible points are compared.
    Independent of any solver: plain numpy linear algebra."""
    c = np.asarray(c, dtype=float)
    n = len(c)
    ineq = [(np.asarray(r, dtype=float), float(b)) for r, b in zip(a_ub, b_ub)]
    ineq += [(-np.eye(n)[k], 0.0) for k in range(n)]
    eqs = [(np.asarray(r, dtype=float), float(b)) for r, b in zip(a_eq, b_eq)]
    best = None
    for active in itertools.combinations(range(len(ineq)), n - len(eqs)):
        rows = [r for r, _ in eqs] + [ineq[k][0] for k in active]
        rhs = [b for _, b in eqs] + [ineq[k][1] for k in active]
        m = np.array(rows)
        if abs(np.linalg.det(m)) < 1e-9:
            continue
        x = np.linalg.solve(m, np.array(rhs))
        if all(r @ x <= b + 1e-7 for r, b in ineq) and all(abs(r @ x - b) <= 1e-7 for r, b in eqs):
            value = float(c @ x)
            if best is None or (value > best if maximize else value < best):
                best = value
    assert best is not None, "infeasible"
    return best
