"""Solving a LinearProblem with HiGHS through its own Python binding (highspy).

The problem goes to HiGHS as it is stored: the upper-bound rows' CSR arrays
are handed over as they are (column numbers already 32-bit, values float64),
and the equality rows follow through ``addRows``. HiGHS rows are therefore the
upper-bound rows in order, then the equality rows in order; the objective
goes over in the model's own sense (``c`` negated back for a maximization)
with its constant, so that HiGHS's objective value, duals and written files
read as the model does.

Tolerances. Logical encodings carry strict margins: the OPL front end takes
``x > a`` on continuous expressions as ``x >= a + 1e-06``, and big-M rows turn
a binary's integrality error into a row error M times larger. HiGHS's default
tolerances (1e-07 on rows, 1e-06 on integrality) can let a solution through
that breaks such a margin, so every problem with integer columns is solved
with a primal feasibility tolerance of 1e-09 and an integrality tolerance of
1e-10 (the least HiGHS takes). ``tolerance`` sets the feasibility tolerance of
any problem, and the integrality tolerance to a tenth of it (at least 1e-10).
An infeasible verdict reached in presolve is checked by a second solve with
presolve off before it is reported.
"""

from __future__ import annotations

import math
import signal
import sys
import threading
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Callable, Dict, List, Optional, TextIO, Tuple, Union

from kolva.solve import ConflictRow, Solution

if TYPE_CHECKING:
    from kolva.linear_problem import LinearProblem

#: Feasibility tolerance for problems with integer columns (logical encodings).
MIP_FEASIBILITY_TOLERANCE = 1e-09
#: Integrality tolerance for problems with integer columns: HiGHS's least.
MIP_INTEGRALITY_TOLERANCE = 1e-10
#: The range ``tolerance`` may take.
TOLERANCE_RANGE = (1e-10, 1e-03)

_MATRIX_ROWWISE = 2


@dataclass
class MipProgress:
    """A MIP's state while HiGHS searches: objective values in the model's sense.

    ``incumbent`` is ``None`` until a feasible solution is found, and ``gap``
    (relative, as HiGHS measures it) with it.
    """

    best_bound: Optional[float]
    incumbent: Optional[float]
    gap: Optional[float]
    nodes: int
    seconds: float


LogTarget = Union[bool, None, TextIO, Callable[[str], None]]


class SolveError(Exception):
    """HiGHS refused the problem or an option (the message says which)."""


def row_names(problem: "LinearProblem") -> List[str]:
    """The names of HiGHS's rows: the upper-bound rows', then the equality rows'.

    Rows without names (a problem built by hand) are called ``ub<N>`` and
    ``eq<N>`` by their position in ``A_ub`` and ``A_eq``.
    """
    ub = getattr(problem, "row_names_ub", None)
    eq = getattr(problem, "row_names_eq", None)
    n_ub, n_eq = len(problem.b_ub), len(problem.b_eq)
    if ub is None or len(ub) != n_ub:
        ub = [f"ub{i}" for i in range(n_ub)]
    if eq is None or len(eq) != n_eq:
        eq = [f"eq{i}" for i in range(n_eq)]
    return [*ub, *eq]


def _csr_arrays(rows, n_cols: int):
    """(starts, indices, values) of a row sequence, as HiGHS takes them."""
    import numpy as np

    from kolva.linear_problem import SparseRowSequence

    if not isinstance(rows, SparseRowSequence):
        rows = SparseRowSequence.from_rows(rows, n_cols)
    indptr = rows._indptr
    if indptr.size and indptr[-1] > np.iinfo(np.int32).max:
        raise SolveError("the problem has more than 2**31 - 1 nonzeros, more than HiGHS takes")
    starts = np.ascontiguousarray(indptr[:-1], dtype=np.int32)
    indices = np.ascontiguousarray(rows._indices, dtype=np.int32)
    values = np.ascontiguousarray(rows._data, dtype=np.float64)
    return starts, indices, values


def _column_arrays(problem):
    """Costs in the model's sense, lower and upper bounds (None as infinite), integrality."""
    import numpy as np

    n = len(problem.var_names)
    cost = np.asarray(problem.c, dtype=np.float64).reshape(n)
    if problem.sense == "maximize":
        cost = -cost
    bounds = np.array(problem.bounds, dtype=np.float64).reshape(n, 2) if n else np.zeros((0, 2))
    lower = np.where(np.isnan(bounds[:, 0]), -np.inf, bounds[:, 0])
    upper = np.where(np.isnan(bounds[:, 1]), np.inf, bounds[:, 1])
    integrality = np.asarray(problem.integrality, dtype=np.int32).reshape(n)
    return cost, np.ascontiguousarray(lower), np.ascontiguousarray(upper), integrality


def new_highs():
    """A silent HiGHS instance (no banner, no log) of highspy's core class."""
    try:
        from highspy._core import _Highs
    except ImportError:
        raise SolveError("highspy, HiGHS's Python binding, is not installed (pip install highspy)") from None

    highs = _Highs()
    highs.setOptionValue("output_flag", False)
    return highs


def load_problem(highs, problem) -> None:
    """Pass ``problem`` to ``highs``: columns, upper-bound rows, then equality rows."""
    import highspy
    import numpy as np

    n = len(problem.var_names)
    cost, lower, upper, integrality = _column_arrays(problem)
    sense = highspy.ObjSense.kMaximize if problem.sense == "maximize" else highspy.ObjSense.kMinimize
    b_ub = np.asarray(problem.b_ub, dtype=np.float64)
    starts, indices, values = _csr_arrays(problem.A_ub, n)
    _check(
        highs.passModel(
            n,
            len(b_ub),
            len(values),
            _MATRIX_ROWWISE,
            int(sense),
            float(problem.objective_offset),
            cost,
            lower,
            upper,
            np.full(len(b_ub), -np.inf),
            b_ub,
            starts,
            indices,
            values,
            integrality,
        ),
        "pass the problem to HiGHS",
    )
    b_eq = np.asarray(problem.b_eq, dtype=np.float64)
    if len(b_eq):
        starts, indices, values = _csr_arrays(problem.A_eq, n)
        _check(highs.addRows(len(b_eq), b_eq, b_eq, len(values), starts, indices, values), "add the equality rows")


def _check(status, what: str) -> None:
    import highspy

    if status == highspy.HighsStatus.kError:
        raise SolveError(f"HiGHS could not {what}")


def _set_option(highs, name: str, value: Any) -> None:
    _check(highs.setOptionValue(name, value), f"set its option {name} to {value!r}")


def _has_integers(problem) -> bool:
    return any(problem.integrality)


def check_options(
    time_limit: Optional[float] = None,
    mip_gap: Optional[float] = None,
    threads: Optional[int] = None,
    tolerance: Optional[float] = None,
) -> None:
    """Raise ValueError naming the first option out of its range."""
    if time_limit is not None and not (time_limit > 0 and not math.isnan(time_limit)):
        raise ValueError(f"time limit must be a positive number of seconds, not {time_limit!r}")
    if mip_gap is not None and not (0 <= mip_gap < math.inf):
        raise ValueError(f"MIP gap must be a relative gap of 0 or more, not {mip_gap!r}")
    if threads is not None and not (isinstance(threads, int) and threads >= 1):
        raise ValueError(f"threads must be a whole number of 1 or more, not {threads!r}")
    low, high = TOLERANCE_RANGE
    if tolerance is not None and not (low <= tolerance <= high):
        raise ValueError(f"tolerance must be between {low:g} and {high:g}, not {tolerance!r}")


def _apply_options(highs, problem, time_limit, mip_gap, threads, tolerance) -> None:
    if time_limit is not None:
        _set_option(highs, "time_limit", float(time_limit))
    if mip_gap is not None:
        _set_option(highs, "mip_rel_gap", float(mip_gap))
    if threads is not None:
        # HiGHS's thread pool is global and keeps the size it was first made
        # with: end it so that the next run makes one of the size asked for.
        highs.resetGlobalScheduler(True)
        _set_option(highs, "threads", int(threads))
    if tolerance is not None:
        _set_option(highs, "primal_feasibility_tolerance", float(tolerance))
        _set_option(highs, "mip_feasibility_tolerance", max(TOLERANCE_RANGE[0], float(tolerance) / 10))
    elif _has_integers(problem):
        _set_option(highs, "primal_feasibility_tolerance", MIP_FEASIBILITY_TOLERANCE)
        _set_option(highs, "mip_feasibility_tolerance", MIP_INTEGRALITY_TOLERANCE)


def _log_writer(log: LogTarget) -> Optional[Callable[[str], None]]:
    if log is None or log is False:
        return None
    if log is True:
        return lambda text: (sys.stderr.write(text), sys.stderr.flush())
    if callable(log):
        return log
    stream = log
    return lambda text: (stream.write(text), stream.flush())


class _Callbacks:
    """HiGHS's callbacks: its log, a MIP's progress, and Ctrl-C as an interrupt."""

    def __init__(self, highs, write_log, on_progress, problem_has_integers: bool):
        import highspy

        self.types = highspy.cb.HighsCallbackType
        self.write_log = write_log
        self.on_progress = on_progress
        self.interrupted = False
        self.failure: Optional[BaseException] = None
        self.highs = highs
        highs.setCallback(self._fire, None)
        if write_log is not None:
            _set_option(highs, "output_flag", True)
            _set_option(highs, "log_to_console", False)
            highs.startCallback(self.types.kCallbackLogging)
        highs.startCallback(self.types.kCallbackSimplexInterrupt)
        highs.startCallback(self.types.kCallbackIpmInterrupt)
        if problem_has_integers:
            highs.startCallback(self.types.kCallbackMipInterrupt)

    def _fire(self, kind, message, data_out, data_in, _user):
        # An exception must not unwind through HiGHS: keep it, stop the
        # solve, and raise it once HiGHS has returned.
        try:
            if kind == self.types.kCallbackLogging:
                if self.failure is None:
                    self.write_log(message)
                return
            if kind == self.types.kCallbackMipInterrupt and self.on_progress is not None and self.failure is None:
                self.on_progress(_mip_progress(data_out))
        except BaseException as err:  # noqa: BLE001 - re-raised by raise_failure
            self.failure = err
        if (self.interrupted or self.failure is not None) and data_in is not None:
            data_in.user_interrupt = True

    def raise_failure(self) -> None:
        """Raise what a callback raised, if anything."""
        if self.failure is not None:
            failure, self.failure = self.failure, None
            raise failure

    def close(self) -> None:
        self.highs.setCallback(None, None)


def _finite(value: float) -> Optional[float]:
    return float(value) if math.isfinite(value) else None


def _mip_progress(data_out) -> MipProgress:
    incumbent = _finite(data_out.mip_primal_bound)
    gap = _finite(data_out.mip_gap) if incumbent is not None else None
    return MipProgress(
        best_bound=_finite(data_out.mip_dual_bound),
        incumbent=incumbent,
        gap=gap,
        nodes=int(data_out.mip_node_count),
        seconds=float(data_out.running_time),
    )


class _InterruptAsFlag:
    """While HiGHS runs, Ctrl-C asks it to stop (through the callbacks) instead of raising."""

    def __init__(self, callbacks: _Callbacks):
        self.callbacks = callbacks
        self.previous: Any = None

    def __enter__(self):
        if threading.current_thread() is threading.main_thread():
            self.previous = signal.signal(signal.SIGINT, self._handle)
        return self

    def _handle(self, _signum, _frame):
        self.callbacks.interrupted = True

    def __exit__(self, *exc):
        if self.previous is not None:
            signal.signal(signal.SIGINT, self.previous)
        return False


# Anything else is "ERROR", as the script says (an "unbounded or infeasible"
# that a solve without presolve still cannot tell apart among them).
_STATUS_WORDS = {
    "kOptimal": "OPTIMAL",
    "kInfeasible": "INFEASIBLE",
    "kUnbounded": "UNBOUNDED",
    "kTimeLimit": "TIME_LIMIT",
    "kIterationLimit": "ITERATION_LIMIT",
}


def solve(
    problem: "LinearProblem",
    *,
    time_limit: Optional[float] = None,
    mip_gap: Optional[float] = None,
    threads: Optional[int] = None,
    tolerance: Optional[float] = None,
    log: LogTarget = False,
    on_progress: Optional[Callable[[MipProgress], None]] = None,
) -> Solution:
    """Solve a ``LinearProblem`` with HiGHS and return a :class:`Solution`.

    Args:
        problem: what ``SciPyCSCCodeGenerator.build_problem()`` returns.
        time_limit: seconds after which HiGHS stops; the status is then
            "TIME_LIMIT", with the best solution found if there is one.
        mip_gap: the relative gap at which a MIP counts as solved (HiGHS's
            ``mip_rel_gap``, 1e-4 by default).
        threads: the number of threads HiGHS may use.
        tolerance: the primal feasibility tolerance (the integrality
            tolerance becomes a tenth of it); by default HiGHS's own for LPs
            and 1e-09 (integrality 1e-10) for problems with integer columns.
        log: where HiGHS's log goes: ``False`` nowhere, ``True`` standard
            error, or a text stream or a function taking each piece of text.
        on_progress: called with a :class:`MipProgress` as a MIP search goes on.

    Returns:
        The solution; for an infeasible problem, ``conflict`` holds the rows of
        an irreducible infeasible subset when one is found, and
        ``conflict_bounds`` the column bounds in it.

    Raises:
        ValueError: an option is out of range.
        SolveError: HiGHS refused the problem or an option.
        KeyboardInterrupt: Ctrl-C stopped the solve.
    """
    check_options(time_limit, mip_gap, threads, tolerance)
    names = row_names(problem)
    if not problem.var_names:
        return _solve_without_columns(problem, names)
    highs = new_highs()
    callbacks = _Callbacks(highs, _log_writer(log), on_progress, _has_integers(problem))
    try:
        load_problem(highs, problem)
        _apply_options(highs, problem, time_limit, mip_gap, threads, tolerance)
        with _InterruptAsFlag(callbacks):
            status = _run(highs, callbacks)
            if status in ("kInfeasible", "kUnboundedOrInfeasible") and _presolve_decided(highs, status):
                # Presolve's reductions are made with its own tolerances; a
                # verdict it reaches alone is confirmed on the whole problem.
                _set_option(highs, "presolve", "off")
                highs.clearSolver()
                status = _run(highs, callbacks)
        solution = _read_solution(highs, problem, names, status)
        if solution.status == "INFEASIBLE" and status == "kInfeasible":
            tolerances = {
                name: highs.getOptionValue(name)[1]
                for name in ("primal_feasibility_tolerance", "mip_feasibility_tolerance")
            }
            solution.conflict, solution.conflict_bounds = _conflict(problem, names, tolerances)
        return solution
    finally:
        callbacks.close()


def _run(highs, callbacks: _Callbacks) -> str:
    highs.run()
    callbacks.raise_failure()
    status = highs.getModelStatus().name
    if status in ("kInterrupt", "kHighsInterrupt") and callbacks.interrupted:
        raise KeyboardInterrupt
    return status


def _presolve_decided(highs, status: str) -> bool:
    import highspy

    if status == "kUnboundedOrInfeasible":
        return True
    return highs.getModelPresolveStatus() == highspy.HighsPresolveStatus.kInfeasible


def _solve_without_columns(problem, names: List[str]) -> Solution:
    """A problem with no variables: each row reads 0 <= b_ub or 0 == b_eq."""
    feasible = all(abs(v) <= 1e-09 for v in problem.b_eq) and all(v >= -1e-09 for v in problem.b_ub)
    if not feasible:
        return Solution("INFEASIBLE", None, message="a row without variables cannot hold")
    return Solution("OPTIMAL", float(problem.objective_offset), row_activities={name: 0.0 for name in names})


def _read_solution(highs, problem, names: List[str], status: str) -> Solution:
    word = _STATUS_WORDS.get(status, "ERROR")
    message = "" if word == "OPTIMAL" else highs.modelStatusToString(highs.getModelStatus())
    info = highs.getInfo()
    is_mip = _has_integers(problem)
    solution = Solution(word, None, message=message)
    if is_mip:
        solution.best_bound = _finite(info.mip_dual_bound)
    if word not in ("OPTIMAL", "TIME_LIMIT", "ITERATION_LIMIT"):
        return solution
    result = highs.getSolution()
    if not result.value_valid or info.primal_solution_status != 2:  # 2: feasible
        return solution
    solution.objective_value = float(info.objective_function_value)
    solution.values = dict(zip(problem.var_names, result.col_value))
    solution.row_activities = dict(zip(names, result.row_value))
    if is_mip:
        solution.mip_gap = _finite(info.mip_gap)
    elif result.dual_valid:
        solution.row_duals = dict(zip(names, result.row_dual))
        solution.reduced_costs = dict(zip(problem.var_names, result.col_dual))
    return solution


#: The deletion filter of a MIP's conflict tries at most this many rows ...
CONFLICT_FILTER_MAX_ROWS = 2000
#: ... within this many seconds in all.
CONFLICT_FILTER_SECONDS = 10.0


def _conflict(problem, names: List[str], options: Dict[str, Any]) -> Tuple[List[ConflictRow], List[str]]:
    """Rows (and column bounds) of an irreducible infeasible subset; empty lists if none is found.

    Column bounds that a one-variable row states as well (a domain or a simple
    bound the generator also tightened into the column) are relaxed first: the
    feasible set stays the same, and the subset then names the constraint
    rather than the column. HiGHS's IIS search works on the LP (for a MIP,
    its LP relaxation); when the relaxation is feasible, a deletion filter
    over the rows, each tried with integrality kept, finds the subset.
    """
    import highspy

    highs = new_highs()
    load_problem(highs, problem)
    for name, value in options.items():
        _set_option(highs, name, value)
    relaxed = _relax_bounds_stated_by_rows(highs, problem)
    _set_option(highs, "iis_strategy", int(highspy.IisStrategy.kIisStrategyIrreducible))
    status, iis = highs.getIis()
    if status != highspy.HighsStatus.kError and iis.valid_ and (len(iis.row_index_) or len(iis.col_index_)):
        rows = [ConflictRow(names[int(row)]) for row in iis.row_index_]
        bounds = _bound_texts(problem, highs, iis, relaxed)
        return rows, bounds
    if not _has_integers(problem) or len(names) > CONFLICT_FILTER_MAX_ROWS:
        return [], []
    kept = _deletion_filter(highs, len(names))
    return [ConflictRow(names[row]) for row in kept], []


def _relax_bounds_stated_by_rows(highs, problem):
    """Free the column bounds that a one-variable upper-bound row states too; return them."""
    import numpy as np

    from kolva.linear_problem import SparseRowSequence

    n = len(problem.var_names)
    rows = problem.A_ub if isinstance(problem.A_ub, SparseRowSequence) else SparseRowSequence.from_rows(problem.A_ub, n)
    indptr = rows._indptr
    singleton = np.flatnonzero(np.diff(indptr) == 1)
    _, lower, upper, _ = _column_arrays(problem)
    if singleton.size == 0:
        return lower, upper
    cols = np.asarray(rows._indices)[indptr[singleton]]
    coefs = np.asarray(rows._data)[indptr[singleton]]
    implied = np.asarray(problem.b_ub, dtype=np.float64)[singleton] / coefs
    stated_upper = np.full(n, np.inf)
    stated_lower = np.full(n, -np.inf)
    np.minimum.at(stated_upper, cols[coefs > 0], implied[coefs > 0])
    np.maximum.at(stated_lower, cols[coefs < 0], implied[coefs < 0])
    new_lower = np.where(np.isclose(lower, stated_lower, rtol=1e-12, atol=1e-12), -np.inf, lower)
    new_upper = np.where(np.isclose(upper, stated_upper, rtol=1e-12, atol=1e-12), np.inf, upper)
    changed = np.flatnonzero((new_lower != lower) | (new_upper != upper)).astype(np.int32)
    if changed.size:
        highs.changeColsBounds(int(changed.size), changed, new_lower[changed], new_upper[changed])
    return new_lower, new_upper


def _bound_texts(problem, highs, iis, relaxed) -> List[str]:
    """``name >= lower`` / ``name <= upper`` for the column bounds in the subset."""
    lower, upper = relaxed
    texts = []
    for col, kind in zip(iis.col_index_, iis.col_bound_):
        col = int(col)
        name = problem.var_names[col]
        kind = int(kind)
        if kind in (2, 4) and math.isfinite(lower[col]):  # lower, boxed
            texts.append(f"{name} >= {_bound_text(lower[col])}")
        if kind in (3, 4) and math.isfinite(upper[col]):  # upper, boxed
            texts.append(f"{name} <= {_bound_text(upper[col])}")
    return texts


def _bound_text(value: float) -> str:
    return str(int(value)) if float(value).is_integer() else repr(float(value))


def _deletion_filter(highs, n_rows: int) -> List[int]:
    """Rows that stay infeasible together, each one needed: drop a row for good while the rest stay infeasible."""
    import time

    import highspy
    import numpy as np

    lp = highs.getLp()
    row_lower, row_upper = np.array(lp.row_lower_), np.array(lp.row_upper_)
    n_cols = highs.getNumCol()
    highs.changeColsCost(n_cols, np.arange(n_cols, dtype=np.int32), np.zeros(n_cols))
    deadline = time.monotonic() + CONFLICT_FILTER_SECONDS
    kept = []
    for row in range(n_rows):
        remaining = deadline - time.monotonic()
        if remaining <= 0:
            return []
        _set_option(highs, "time_limit", remaining)
        highs.changeRowBounds(row, -np.inf, np.inf)
        highs.run()
        status = highs.getModelStatus()
        if status == highspy.HighsModelStatus.kInfeasible:
            continue
        if status != highspy.HighsModelStatus.kOptimal:
            return []
        highs.changeRowBounds(row, float(row_lower[row]), float(row_upper[row]))
        kept.append(row)
    return kept
