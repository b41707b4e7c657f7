"""Shared helpers for the Kolva test-suite: tiny builders for model-tree nodes
and fixtures that give a generator, with or without decision variables."""

import logging

import pytest

GEN_LOGGER = "SciPyCSCCodeGenerator"
MODULE_LOGGER = "kolva.scipy_codegen_csc"

def malformed_errors():
    """Exceptions that a malformed model may legitimately surface as."""
    from kolva.semantic_error import SemanticError

    return (SemanticError, RecursionError, OverflowError, ValueError, TypeError, KeyError)


# ---------------------------------------------------------------- node builders


def num(value):
    return {"type": "number", "value": value}


def boolean(value):
    return {"type": "boolean_literal", "value": value}


def string(value):
    return {"type": "string_literal", "value": value}


def name(value, **extra):
    node = {"type": "name", "value": value}
    node.update(extra)
    return node


def indexed(base, *dims):
    return {"type": "indexed_name", "name": base, "dimensions": list(dims)}


def lit_index(value):
    return {"type": "number_literal_index", "value": value}


def binop(op, left, right, **extra):
    node = {"type": "binop", "op": op, "left": left, "right": right}
    node.update(extra)
    return node


def bool_binop(op, left, right):
    return binop(op, left, right, sem_type="boolean")


def uminus(value):
    return {"type": "uminus", "value": value}


def paren(expr):
    return {"type": "parenthesized_expression", "expression": expr}


def implies(left, right):
    return {"type": "implies", "left": left, "right": right}


def field(base, field_name):
    return {"type": "field_access", "base": base, "field": field_name}


def constraint(op, left, right):
    return {"type": "constraint", "op": op, "left": left, "right": right}


def dvar(var_name, var_type="float+"):
    return {"type": "dvar", "name": var_name, "var_type": var_type}


def param_inline(param_name, value):
    return {"type": "parameter_inline", "name": param_name, "value": value}


def range_index(start, end):
    return {"type": "range_index", "start": num(start), "end": num(end)}


def model(declarations=(), objective=None, constraints=()):
    """A model root. `constraints` is always present: the constraint phase
    reads it by direct key."""
    root = {"declarations": list(declarations), "constraints": list(constraints)}
    if objective is not None:
        root["objective"] = objective
    return root


def minimize(expr):
    return {"type": "minimize", "expression": expr}


def maximize(expr):
    return {"type": "maximize", "expression": expr}


# ---------------------------------------------------------------- fixtures


@pytest.fixture
def make_gen():
    """Factory: make_gen(ast=None, data=None, variables=(), logger=None).

    `variables` are registered through `_add_variable`, in order, so their
    columns are 0, 1, ... ."""
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    def factory(ast=None, data=None, variables=(), logger=None):
        if ast is None:
            ast = model()
        g = SciPyCSCCodeGenerator(ast, data, logger)
        for v in variables:
            g._add_variable(v)
        return g

    return factory


@pytest.fixture
def debug_logs(caplog):
    """Call after constructing the generator: the constructor puts its logger
    back to INFO. Returns a function giving the captured messages."""

    def enable():
        caplog.set_level(logging.DEBUG)
        caplog.set_level(logging.DEBUG, logger=GEN_LOGGER)
        caplog.set_level(logging.DEBUG, logger=MODULE_LOGGER)
        caplog.clear()

        def messages(level=None):
            return [
                r.getMessage()
                for r in caplog.records
                if level is None or r.levelno == level
            ]

        return messages

    return enable
