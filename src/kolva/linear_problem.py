"""The numeric program produced by a code generator."""

from __future__ import annotations

from dataclasses import dataclass, field
from enum import Enum
from typing import Any, List, Optional


class ObjectiveSense(str, Enum):
    """The two senses an objective can have."""

    MINIMIZE = "minimize"
    MAXIMIZE = "maximize"


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
    A_eq: Any = field(default_factory=list)
    b_eq: List[float] = field(default_factory=list)
    A_ub: Any = field(default_factory=list)
    b_ub: List[float] = field(default_factory=list)
    objective_offset: float = 0.0
