"""Random model trees never crash the engine: every failure is a Python exception."""

from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError

# The error kinds the engine maps its failures to; anything else (say a
# RuntimeError from an unmapped C++ exception) is a defect.
EXPECTED = (SemanticError, KeyError, TypeError, ValueError, NotImplementedError, RecursionError, OverflowError,
            IndexError, AttributeError)

NODE_TYPES = [
    "number", "name", "binop", "uminus", "indexed_name", "sum", "conditional", "minl", "maxl", "not", "and", "or",
    "implies", "field_access", "tuple_literal", "parenthesized_expression", "boolean_literal", "string_literal",
    "name_reference_index", "number_literal_index", "constraint", "forall_constraint", "range_specifier",
    "named_set", "range_index", "dvar", "dvar_indexed", "parameter_inline", "typed_set", "mystery",
]
KEYS = ["type", "value", "name", "op", "left", "right", "dimensions", "iterators", "iterator", "range", "start", "end",
        "expression", "index_constraint", "condition", "then", "else", "args", "base", "field", "elements",
        "var_type", "sem_type", "constraint", "constraints"]
OPS = ["+", "-", "*", "/", "==", "!=", "<=", ">=", "<", ">", "and", "or", "%"]

scalars = st.one_of(
    st.none(), st.booleans(), st.integers(-5, 5), st.floats(allow_nan=True, allow_infinity=True),
    st.sampled_from(["x", "y", "p", "S", "i", "a b", ""]), st.sampled_from(OPS), st.sampled_from(NODE_TYPES),
)


def nodes(children):
    return st.dictionaries(st.sampled_from(KEYS), children, max_size=6).map(
        lambda d: d if "type" not in d or not isinstance(d["type"], str) else d
    ) | st.builds(lambda t, d: {**d, "type": t}, st.sampled_from(NODE_TYPES),
                  st.dictionaries(st.sampled_from(KEYS), children, max_size=5))


trees = st.recursive(scalars, lambda children: st.one_of(st.lists(children, max_size=4), nodes(children)), max_leaves=30)

MODEL_DECLS = [
    {"type": "dvar", "name": "x", "var_type": "float+"},
    {"type": "dvar_indexed", "name": "y", "var_type": "boolean",
     "dimensions": [{"type": "range_index", "start": {"type": "number", "value": 1}, "end": {"type": "number", "value": 2}}]},
    {"type": "parameter_inline", "name": "p", "value": 3},
    {"type": "typed_set", "name": "S", "value": ["a", "b"]},
]


@settings(max_examples=400, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(trees)
def test_evaluating_random_trees_only_raises_python_errors(tree):
    g = SciPyCSCCodeGenerator({"declarations": MODEL_DECLS, "constraints": []})
    g._build_variables()
    for allow in (False, True):
        g._allow_symbolic_bool = allow
        try:
            g._eval_expr(tree, {"i": 1})
        except Exception as err:  # noqa: BLE001 - the kind is what is checked
            assert isinstance(err, EXPECTED), repr(err)


@settings(max_examples=200, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(st.lists(trees, max_size=3), trees)
def test_generating_random_models_only_raises_python_errors(constraints, objective):
    ast = {"declarations": MODEL_DECLS, "objective": {"type": "minimize", "expression": objective},
           "constraints": constraints}
    try:
        text = SciPyCSCCodeGenerator(ast, {"S": ["a", "b"]}).generate_code()
    except Exception as err:  # noqa: BLE001 - the kind is what is checked
        assert isinstance(err, EXPECTED), repr(err)
        return
    assert text.startswith("import numpy as np")
    compile(text, "<generated>", "exec")
