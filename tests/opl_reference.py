"""Reference optima for the OPL example corpus, worked out without Kolva.

`Program` is a tiny hand-built LP/MIP: named columns, rows given as
(coefficient, column) pairs, solved directly with scipy.optimize.milp.
`best_by_enumeration` walks every point of a small integer domain. The
corpus tests write each example's data again as Python literals and build
the model with one of these, so the number they compare Kolva against never
comes from Kolva itself."""

import itertools
import math

import numpy as np
from scipy.optimize import Bounds, LinearConstraint, milp

INF = math.inf


class Program:
    """A linear or mixed-integer program written row by row."""

    def __init__(self):
        self._cols = {}
        self._lb = []
        self._ub = []
        self._integer = []
        self._rows = []
        self._objective = {}
        self._constant = 0.0
        self._sign = 1.0

    def var(self, key, lb=0.0, ub=INF, integer=False):
        if key in self._cols:
            raise ValueError(f"column {key!r} declared twice")
        self._cols[key] = len(self._lb)
        self._lb.append(lb)
        self._ub.append(ub)
        self._integer.append(1 if integer else 0)
        return key

    def binary(self, key):
        return self.var(key, 0, 1, integer=True)

    def _collect(self, terms):
        coeffs = {}
        for coef, key in terms:
            if key not in self._cols:
                raise KeyError(f"unknown column {key!r}")
            coeffs[key] = coeffs.get(key, 0.0) + coef
        return coeffs

    def row(self, terms, lo=-INF, hi=INF):
        self._rows.append((self._collect(terms), lo, hi))

    def le(self, terms, rhs):
        self.row(terms, hi=rhs)

    def ge(self, terms, rhs):
        self.row(terms, lo=rhs)

    def eq(self, terms, rhs):
        self.row(terms, lo=rhs, hi=rhs)

    def minimize(self, terms, constant=0.0):
        self._objective, self._constant, self._sign = self._collect(terms), constant, 1.0

    def maximize(self, terms, constant=0.0):
        self._objective, self._constant, self._sign = self._collect(terms), constant, -1.0

    def solve(self):
        """The optimum in the program's own sense, or None when infeasible."""
        n = len(self._lb)
        c = np.zeros(n)
        for key, coef in self._objective.items():
            c[self._cols[key]] = self._sign * coef
        kwargs = {}
        if self._rows:
            a = np.zeros((len(self._rows), n))
            lo = np.empty(len(self._rows))
            hi = np.empty(len(self._rows))
            for r, (coeffs, row_lo, row_hi) in enumerate(self._rows):
                for key, coef in coeffs.items():
                    a[r, self._cols[key]] = coef
                lo[r], hi[r] = row_lo, row_hi
            kwargs["constraints"] = LinearConstraint(a, lo, hi)
        res = milp(
            c,
            integrality=np.array(self._integer),
            bounds=Bounds(np.array(self._lb, dtype=float), np.array(self._ub, dtype=float)),
            **kwargs,
        )
        if res.status == 2:
            return None
        if res.status != 0:
            raise RuntimeError(f"reference solve failed: {res.message}")
        return self._sign * res.fun + self._constant


def best_by_enumeration(domains, feasible, objective, sense="min"):
    """Best objective over the product of `domains` (a dict name -> values).

    `feasible` and `objective` receive a dict name -> value. None when no
    point is feasible."""
    names = list(domains)
    best = None
    for values in itertools.product(*(domains[name] for name in names)):
        point = dict(zip(names, values))
        if not feasible(point):
            continue
        value = objective(point)
        if best is None or (value < best if sense == "min" else value > best):
            best = value
    return best
