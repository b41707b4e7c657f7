"""The numeric program produced by a code generator."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, field
from enum import Enum
from typing import Any, List, Optional

import numpy as np


class ObjectiveSense(str, Enum):
    """The two senses an objective can have."""

    MINIMIZE = "minimize"
    MAXIMIZE = "maximize"


def _as_array(values, dtype):
    # The engine hands over raw native-order bytes, or a typed memoryview of
    # them (32-bit column numbers), viewed in place (the sequence is
    # read-only); anything else is a sequence.
    if isinstance(values, memoryview):
        return np.asarray(values)
    if isinstance(values, (bytes, bytearray)):
        return np.frombuffer(values, dtype=dtype)
    return np.asarray(values, dtype=dtype)


class SparseRowSequence(Sequence):
    """Constraint rows kept in compressed sparse row form.

    Reads like a list of dense rows: ``len``, indexing and iteration give
    each row as a new list of floats as wide as the row was when it was made,
    it compares equal to the equivalent list of lists, and its ``repr`` reads
    like one. ``tocsr()`` gives a SciPy CSR matrix with ``shape``; ``nnz``
    counts the stored entries. It is read-only.
    """

    __slots__ = ("_indptr", "_indices", "_data", "_widths", "_n_cols")

    def __init__(self, indptr, indices, data, widths, n_cols):
        self._indptr = _as_array(indptr, np.int64)
        self._indices = _as_array(indices, np.int64)
        self._data = _as_array(data, np.float64)
        self._widths = _as_array(widths, np.int64)
        self._n_cols = int(n_cols)

    @classmethod
    def from_rows(cls, rows, n_cols=None):
        """Build from dense rows (lists of numbers)."""
        indptr, indices, data, widths = [0], [], [], []
        for row in rows:
            for col, value in enumerate(row):
                if value != 0.0:
                    indices.append(col)
                    data.append(float(value))
            indptr.append(len(indices))
            widths.append(len(row))
        if n_cols is None:
            n_cols = max(widths, default=0)
        return cls(indptr, indices, data, widths, n_cols)

    def __len__(self):
        return len(self._widths)

    def _row(self, r):
        dense = [0.0] * int(self._widths[r])
        start, stop = int(self._indptr[r]), int(self._indptr[r + 1])
        for col, value in zip(self._indices[start:stop].tolist(), self._data[start:stop].tolist()):
            dense[col] = value
        return dense

    def __getitem__(self, index):
        if isinstance(index, slice):
            return [self._row(r) for r in range(*index.indices(len(self)))]
        r = index.__index__()
        if r < 0:
            r += len(self)
        if not 0 <= r < len(self):
            raise IndexError("row index out of range")
        return self._row(r)

    def __iter__(self):
        for r in range(len(self)):
            yield self._row(r)

    def __eq__(self, other):
        if isinstance(other, SparseRowSequence):
            return self.tolist() == other.tolist()
        if isinstance(other, (list, tuple)):
            return len(other) == len(self) and all(
                isinstance(row, (list, tuple)) and list(row) == mine for row, mine in zip(other, self)
            )
        return NotImplemented

    __hash__ = None

    def __repr__(self):
        return repr(self.tolist())

    def tolist(self):
        """The rows as a list of lists of floats."""
        return [self._row(r) for r in range(len(self))]

    @property
    def shape(self):
        """(rows, columns): columns is the number of variables."""
        return (len(self), self._n_cols)

    @property
    def nnz(self):
        """The number of stored (non-zero) entries."""
        return int(self._data.size)

    def tocsr(self):
        """A scipy.sparse.csr_matrix of shape ``shape``."""
        from scipy.sparse import csr_matrix

        return csr_matrix((self._data.copy(), self._indices.copy(), self._indptr.copy()), shape=self.shape)

    def __array__(self, dtype=None, copy=None):
        dense = np.zeros(self.shape, dtype=np.float64)
        for r in range(len(self)):
            start, stop = int(self._indptr[r]), int(self._indptr[r + 1])
            dense[r, self._indices[start:stop]] = self._data[start:stop]
        return dense if dtype is None else dense.astype(dtype)


@dataclass
class LinearProblem:
    """A linear or mixed-integer program in the solver's form.

    ``c`` is in the minimizing sense; ``objective_offset`` is the objective's
    constant in the model's own sense. ``bounds`` holds ``[lower, upper]``
    pairs with ``None`` for an unbounded side; ``integrality`` holds 1 for an
    integer column and 0 otherwise.
    """

    sense: str = "minimize"
    var_names: List[str] = field(default_factory=list)
    bounds: List[List[Optional[float]]] = field(default_factory=list)
    integrality: List[int] = field(default_factory=list)
    c: List[float] = field(default_factory=list)
    A_eq: Any = field(default_factory=list)  # a SparseRowSequence from the generator
    b_eq: List[float] = field(default_factory=list)
    A_ub: Any = field(default_factory=list)
    b_ub: List[float] = field(default_factory=list)
    objective_offset: float = 0.0
    # The name of each row of A_ub / A_eq, in row order (empty when unknown).
    row_names_ub: List[str] = field(default_factory=list)
    row_names_eq: List[str] = field(default_factory=list)
