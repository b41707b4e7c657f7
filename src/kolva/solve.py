"""Solving a generated program: through HiGHS itself, SciPy's linprog, or its script.

``Solution`` is what every path returns. :func:`kolva.solve` (in
:mod:`kolva.solve_highs`) passes the ``LinearProblem`` to HiGHS's own Python
binding; :func:`solve_problem` keeps SciPy's ``linprog(method='highs')``, and
:func:`solve_script` runs a generated script and reads its result map.
"""

from __future__ import annotations

import os
import sys
from contextlib import contextmanager
from dataclasses import dataclass, field
from typing import Dict, List, Optional

_STATUS = {0: "OPTIMAL", 1: "ITERATION_LIMIT", 2: "INFEASIBLE", 3: "UNBOUNDED"}


@dataclass
class ConflictRow:
    """One row of an irreducible infeasible subset, and where it was written.

    ``source`` is the ``FILE:LINE:COL`` place of the OPL constraint (or domain
    bound) the row came from and ``label`` that constraint's label; both are
    ``None`` when the row's constraint carries no such annotation.
    """

    row: str
    source: Optional[str] = None
    label: Optional[str] = None


@dataclass
class Solution:
    """What a solve found.

    Attributes:
        status: "OPTIMAL", "INFEASIBLE", "UNBOUNDED", "ITERATION_LIMIT",
            "TIME_LIMIT" or "ERROR".
        objective_value: the objective in the model's own sense (constant
            included), or ``None`` without a solution. Under "TIME_LIMIT" it
            is the best solution found, when there is one.
        values: column name to value, in column order (empty without a
            solution).
        message: the solver's words when the status is not "OPTIMAL".
        row_activities: row name to the row's value at the solution (an
            upper-bound row as stored, a ``>=`` constraint negated).
        row_duals: row name to its dual value; LPs solved through HiGHS only.
        reduced_costs: column name to its reduced cost; LPs through HiGHS only.
        best_bound: a MIP's best bound on the objective (model's sense).
        mip_gap: a MIP's relative gap between ``objective_value`` and
            ``best_bound``.
        conflict: for "INFEASIBLE", the rows of an irreducible infeasible
            subset when the solver found one (empty otherwise).
        conflict_bounds: the column bounds in that subset, as texts
            ``name >= value`` or ``name <= value``.
    """

    status: str
    objective_value: Optional[float]
    values: Dict[str, float] = field(default_factory=dict)
    message: str = ""
    row_activities: Dict[str, float] = field(default_factory=dict)
    row_duals: Dict[str, float] = field(default_factory=dict)
    reduced_costs: Dict[str, float] = field(default_factory=dict)
    best_bound: Optional[float] = None
    mip_gap: Optional[float] = None
    conflict: List[ConflictRow] = field(default_factory=list)
    conflict_bounds: List[str] = field(default_factory=list)


def solve_problem(problem) -> Solution:
    """Solve a LinearProblem through its sparse matrices with linprog(method='highs')."""
    import numpy as np
    from scipy.optimize import linprog

    if not problem.var_names:
        feasible = all(abs(v) <= 1e-09 for v in problem.b_eq) and all(v >= -1e-09 for v in problem.b_ub)
        return Solution("OPTIMAL" if feasible else "INFEASIBLE", problem.objective_offset if feasible else None)
    kwargs = {}
    if len(problem.b_ub):
        kwargs.update(A_ub=problem.A_ub.tocsr(), b_ub=np.asarray(problem.b_ub, dtype=float))
    if len(problem.b_eq):
        kwargs.update(A_eq=problem.A_eq.tocsr(), b_eq=np.asarray(problem.b_eq, dtype=float))
    if any(problem.integrality):
        kwargs["integrality"] = problem.integrality
    res = linprog(problem.c, bounds=problem.bounds, method="highs", **kwargs)
    status = _STATUS.get(res.status, "ERROR")
    if not (res.success and res.status == 0):
        return Solution(status, None, message=str(res.message))
    objective = -res.fun if problem.sense == "maximize" else res.fun
    values = {name: float(x) for name, x in zip(problem.var_names, res.x)}
    return Solution(status, float(objective + problem.objective_offset), values)


@contextmanager
def _quiet_stdout():
    """Silence the script's prints and the solver's log, both at the file-descriptor level."""
    sys.stdout.flush()
    saved = os.dup(1)
    try:
        with open(os.devnull, "w") as devnull:
            os.dup2(devnull.fileno(), 1)
            yield
    finally:
        sys.stdout.flush()
        os.dup2(saved, 1)
        os.close(saved)


def solve_script(script: str, filename: str = "<kolva script>") -> Solution:
    """Run a generated script and read its result map."""
    namespace = {"results_container": {}}
    code = compile(script, filename, "exec")
    with _quiet_stdout():
        exec(code, namespace)
    result = namespace["results_container"]["scipy_output"]
    values = {name: float(x) for name, x in result.get("solution", {}).items()}
    objective = result.get("objective_value")
    return Solution(
        result["status"],
        None if objective is None else float(objective),
        values,
        message=str(result.get("message", "")),
    )
