"""Errors at the Python boundary have Python types from the documented family."""

import pytest
from builders import dvar_indexed, named_range_dim
from conftest import dvar, minimize, model, num

from kolva._engine import _ConstraintBuildState
from kolva.scipy_codegen_csc import ExpressionEvaluator, SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError


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


# ---------------------------------------------------------------- private helpers given bad positions

def half_built():
    """A generator whose _build_variables failed after recording the column
    of x: its names and its columns are apart."""
    gen = SciPyCSCCodeGenerator(model([dvar("x"), dvar_indexed("y", named_range_dim("Missing"))], minimize(num(0))),
                                {})
    with pytest.raises(SemanticError):
        gen._build_variables()
    assert gen.var_names == []
    return gen


@pytest.mark.parametrize("call", [lambda g: g._make_constraint_row({"x": 1.0}),
                                  lambda g: g._append_sparse_coef_row(_ConstraintBuildState(), {"x": 1.0}, 2.0,
                                                                      sense="<=")])
def test_a_column_past_the_end_is_an_index_error(call):
    with pytest.raises(IndexError, match="^variable 'x' has column 0 but there are 0 columns$"):
        call(half_built())


def state_with(rows, cols, data, rhs):
    state = _ConstraintBuildState()
    state.A_ub_rows, state.A_ub_cols, state.A_ub_data, state.b_ub = rows, cols, data, rhs
    return state


@pytest.mark.parametrize("rows,cols,data,rhs,error,message", [
    ([0, 5], [0, 0], [1.0, 1.0], [1.0], IndexError, r"^A_ub_rows\[1\] is 5, not a row of the 1 right-hand sides$"),
    ([-1], [0], [1.0], [1.0], IndexError, r"^A_ub_rows\[0\] is -1, not a row of the 1 right-hand sides$"),
    ([0], [3], [1.0], [1.0], IndexError, r"^A_ub_cols\[0\] is 3, not one of the 1 columns$"),
    ([0], [-2], [1.0], [1.0], IndexError, r"^A_ub_cols\[0\] is -2, not one of the 1 columns$"),
    ([0, 0], [0], [1.0], [1.0], ValueError, "^A_ub_rows, A_ub_cols and A_ub_data must have the same length$"),
])
def test_triplets_outside_the_problem_are_refused(rows, cols, data, rhs, error, message):
    gen = SciPyCSCCodeGenerator(model([dvar("x")], minimize(num(0))), {})
    gen._build_variables()
    with pytest.raises(error, match=message):
        gen._finalize_constraint_state(state_with(rows, cols, data, rhs))


def test_triplets_inside_the_problem_are_taken():
    gen = SciPyCSCCodeGenerator(model([dvar("x")], minimize(num(0))), {})
    gen._build_variables()
    gen._finalize_constraint_state(state_with([0], [0], [2.0], [4.0]))
    assert gen.A_ub == [[2.0]] and gen.b_ub == [4.0]
