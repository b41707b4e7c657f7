"""A logging handler that calls back into the generator that is logging
gets a clear error; the build goes on unharmed. The generator may be
halfway through rewriting a node of its tree when it logs."""

import logging

import pytest
from conftest import bool_binop, boolean, constraint, dvar, maximize, model, name, num

from kolva.scipy_codegen_csc import ExpressionEvaluator, SciPyCSCCodeGenerator

REFUSED = "^this SciPyCSCCodeGenerator is in the middle of a call and cannot take another one until it returns"


class CallingBack(logging.Handler):
    """Calls `call(generator)` on every record and keeps what it raised."""

    def __init__(self, call):
        super().__init__(logging.DEBUG)
        self.call = call
        self.generator = None
        self.raised = []

    def emit(self, record):
        try:
            self.call(self.generator)
        except Exception as e:  # what the generator answers is the test's subject
            self.raised.append(e)


def rewritten_model():
    # (x <= 3) == true, (y >= 1) == false and x != y: Boolean literal
    # rewrites in place, and the != forms, all logging at DEBUG.
    return model([dvar("x", "int"), dvar("y", "int")], maximize(name("x")),
                 [constraint("==", bool_binop("<=", name("x"), num(3)), boolean(True)),
                  constraint("==", bool_binop(">=", name("y"), num(1)), boolean(False)),
                  constraint("<=", name("y"), num(5)), constraint(">=", name("y"), num(-5)),
                  constraint(">=", name("x"), num(-5)),
                  constraint("!=", name("x"), name("y"))])


CALLS = {
    "evaluate": lambda g: g._eval_expr(name("x"), {}),
    "find a declaration": lambda g: g._find_decl("x"),
    "build the constraints": lambda g: g._build_constraints(),
    "build": lambda g: g.build_problem(),
    "an evaluator": lambda g: ExpressionEvaluator(g).eval(name("x"), None),
}


@pytest.mark.parametrize("call", list(CALLS))
@pytest.mark.parametrize("build", ["build_problem", "generate_code"])
def test_a_handler_calling_back_is_refused_and_the_build_is_unharmed(call, build):
    log = logging.Logger("reentrant", logging.DEBUG)
    handler = CallingBack(CALLS[call])
    log.addHandler(handler)
    gen = SciPyCSCCodeGenerator(rewritten_model(), {}, log)
    handler.generator = gen
    result = getattr(gen, build)()
    assert handler.raised, "the handler was called during the build"
    for e in handler.raised:
        assert isinstance(e, ValueError)
        assert e.args[0].startswith(REFUSED[1:]) or "already built" in e.args[0]
    # The same model built without the handler.
    plain = getattr(SciPyCSCCodeGenerator(rewritten_model(), {}), build)()
    if build == "generate_code":
        assert result == plain
    else:
        assert (result.c, result.b_ub, result.b_eq, result.var_names, result.bounds) == \
               (plain.c, plain.b_ub, plain.b_eq, plain.var_names, plain.bounds)
        assert result.A_ub.tolist() == plain.A_ub.tolist() and result.A_eq.tolist() == plain.A_eq.tolist()


def test_reading_attributes_from_a_handler_is_allowed():
    # Properties are copies of the state at that moment, not calls into the
    # build: reading them is safe.
    log = logging.Logger("reentrant", logging.DEBUG)
    handler = CallingBack(lambda g: g.var_names)
    log.addHandler(handler)
    gen = SciPyCSCCodeGenerator(rewritten_model(), {}, log)
    handler.generator = gen
    gen.build_problem()
    assert not handler.raised


def test_the_generator_takes_calls_again_once_the_call_returned():
    gen = SciPyCSCCodeGenerator(rewritten_model(), {})
    gen._build_variables()
    assert gen._find_decl("x")["name"] == "x"
