"""Generators, their loggers and evaluators in reference cycles are freed by
Python's garbage collector."""

import gc
import logging
import weakref

from conftest import minimize, model, name

from kolva.scipy_codegen_csc import ExpressionEvaluator, SciPyCSCCodeGenerator

TREE = model([{"type": "dvar", "name": "x", "var_type": "float+"}], minimize(name("x")))


def collected(make_cycle):
    """Whether the generator made by make_cycle() (which gives a weak
    reference to it and drops every strong one) is freed by a collection."""
    gc.collect()
    ref = make_cycle()
    gc.collect()
    return ref() is None


class KeepingHandler(logging.Handler):
    """A handler that keeps what it is given, as test harnesses do."""

    def __init__(self):
        super().__init__()
        self.kept = []

    def emit(self, record):
        self.kept.append(record)


def test_a_logger_that_refers_back_to_its_generator():
    def cycle():
        log = logging.Logger("own")  # not registered, so only the cycle holds it
        gen = SciPyCSCCodeGenerator(TREE, {}, log)
        log.generator = gen
        return weakref.ref(gen)

    assert collected(cycle)


def test_a_handler_that_refers_back_to_its_generator():
    def cycle():
        log = logging.Logger("own")
        handler = KeepingHandler()
        log.addHandler(handler)
        gen = SciPyCSCCodeGenerator(TREE, {}, log)
        handler.kept.append(gen)
        gen.build_problem()
        return weakref.ref(gen)

    assert collected(cycle)


def test_an_evaluator_kept_on_its_generator():
    def cycle():
        gen = SciPyCSCCodeGenerator(TREE, {})
        gen.evaluator = ExpressionEvaluator(gen)
        assert gen.evaluator.eval({"type": "number", "value": 3}, None) is not None
        return weakref.ref(gen)

    assert collected(cycle)


def test_evaluators_kept_in_a_list_on_the_generator_and_the_generator_on_itself():
    def cycle():
        gen = SciPyCSCCodeGenerator(TREE, {})
        gen.evaluators = [ExpressionEvaluator(gen) for _ in range(3)]
        gen.me = gen
        return weakref.ref(gen)

    assert collected(cycle)


def test_a_generator_without_cycles_goes_at_once():
    gen = SciPyCSCCodeGenerator(TREE, {})
    ref = weakref.ref(gen)
    del gen
    assert ref() is None
