"""Kolva: turns parsed OPL models into SciPy/HiGHS linear and mixed-integer programs."""

__version__ = "0.1.0"
