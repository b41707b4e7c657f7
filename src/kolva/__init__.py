"""Kolva: turns parsed OPL models into SciPy/HiGHS linear and mixed-integer programs.

The solving and writing surface is here::

    import kolva
    from kolva import opl
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    tree, data = opl.load("examples/transport.mod", "examples/transport.dat")
    problem = SciPyCSCCodeGenerator(tree, data).build_problem()
    solution = kolva.solve(problem, time_limit=10)   # a kolva.Solution
    kolva.write_mps(problem, "transport.mps")

``kolva.solve`` is the function of :mod:`kolva.solve_highs`; the module
:mod:`kolva.solve` (``from kolva.solve import solve_problem``) keeps the
SciPy and script paths and the ``Solution`` record.
"""

from kolva.solve import ConflictRow, Solution  # noqa: I001  (loads the module kolva.solve first)
from kolva.solve_highs import MipProgress, SolveError, solve
from kolva.export import write_lp, write_mps

__version__ = "0.1.0"

__all__ = ["ConflictRow", "MipProgress", "Solution", "SolveError", "solve", "write_lp", "write_mps"]
