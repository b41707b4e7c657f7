"""The code generator: a C++ engine behind a thin Python face.

``SciPyCSCCodeGenerator(ast, data_dict=None, logger=None)`` takes a parsed
model tree and a data dictionary; ``generate_code()`` returns a stand-alone
Python script that solves the model with SciPy's HiGHS, and
``build_problem()`` returns the same program as a ``LinearProblem``.
"""

from __future__ import annotations

import logging

from kolva import _engine
from kolva.scipy_codegen_base import SciPyCodeGeneratorBase

BIG_M_DEFAULT = _engine.BIG_M_DEFAULT
BOOL_EPS = _engine.BOOL_EPS
ExpressionEvaluator = _engine.ExpressionEvaluator

_LOG_FORMAT = "[%(levelname)s] %(name)s: %(message)s"

logger = logging.getLogger(__name__)
if not logger.handlers:
    _handler = logging.StreamHandler()
    _handler.setLevel(logging.DEBUG)
    _handler.setFormatter(logging.Formatter(_LOG_FORMAT))
    logger.addHandler(_handler)


def _default_generator_logger() -> logging.Logger:
    generator_logger = logging.getLogger("SciPyCSCCodeGenerator")
    if not generator_logger.handlers:
        handler = logging.StreamHandler()
        handler.setFormatter(logging.Formatter(_LOG_FORMAT))
        generator_logger.addHandler(handler)
    generator_logger.setLevel(logging.INFO)
    return generator_logger


class SciPyCSCCodeGenerator(_engine._Generator, SciPyCodeGeneratorBase):
    """Generates a SciPy/HiGHS script and a LinearProblem from one model.

    A supplied ``logger`` is used as it is; otherwise the logger named
    "SciPyCSCCodeGenerator" is set to INFO. The caller's ``data_dict`` is
    never modified: the generator works on its own copy.
    """

    def __init__(self, ast, data_dict=None, logger=None):
        if logger is None:
            logger = _default_generator_logger()
        super().__init__(ast, data_dict, logger)


__all__ = [
    "BIG_M_DEFAULT",
    "BOOL_EPS",
    "ExpressionEvaluator",
    "SciPyCSCCodeGenerator",
    "logger",
]
