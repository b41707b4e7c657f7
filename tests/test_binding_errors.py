"""Errors at the Python boundary have Python types from the documented family."""

import pytest

from kolva.scipy_codegen_csc import ExpressionEvaluator, SciPyCSCCodeGenerator


@pytest.mark.parametrize(
    "call",
    [
        lambda: ExpressionEvaluator(object()),
        lambda: SciPyCSCCodeGenerator({"declarations": []})._find_decl("x", 3),
        lambda: SciPyCSCCodeGenerator({"declarations": []})._update_vector_from_coef_dict({"a": 1.0}, ["z"]),
    ],
    ids=["evaluator-parent", "find-decl-type", "vector-entry"],
)
def test_arguments_of_the_wrong_type_raise_type_error(call):
    with pytest.raises(TypeError, match="wrong type"):
        call()


def test_build_problem_after_generate_code_is_refused():
    model = {
        "declarations": [{"type": "dvar", "name": "x", "var_type": "float"}],
        "objective": {"type": "minimize", "expression": {"type": "name", "value": "x"}},
        "constraints": [],
    }
    g = SciPyCSCCodeGenerator(model)
    g.generate_code()
    with pytest.raises(ValueError, match="create a new one"):
        g.build_problem()
