"""Random logical constraints, drawn from a small grammar over the model's
own variables: implications, Boolean trees, counts and weighted sums of
comparisons, `!=`, negations and literals, nested in any way the grammar
allows. Whatever comes in, generation either succeeds with a script that
compiles and a problem whose rows fit its columns, or raises one of the
Python errors the engine maps to; it never crashes or writes outside a row."""

from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError

EXPECTED = (SemanticError, KeyError, TypeError, ValueError, NotImplementedError, RecursionError, OverflowError,
            IndexError, AttributeError)

DECLS = [
    {"type": "dvar", "name": "x", "var_type": "int+"},
    {"type": "dvar", "name": "y", "var_type": "float"},
    {"type": "dvar", "name": "a", "var_type": "boolean"},
    {"type": "dvar", "name": "b", "var_type": "boolean"},
    {"type": "dvar_indexed", "name": "z", "var_type": "boolean",
     "dimensions": [{"type": "range_index", "start": {"type": "number", "value": 1}, "end": {"type": "number", "value": 2}}]},
]

COMPARISON_OPS = ["<=", ">=", "==", "!=", "<", ">"]


def num(v):
    return {"type": "number", "value": v}


numbers = st.sampled_from([0, 1, 2, -1, 0.5, 3]).map(num)
variables = st.sampled_from([
    {"type": "name", "value": "x"},
    {"type": "name", "value": "y"},
    {"type": "name", "value": "a", "sem_type": "boolean"},
    {"type": "name", "value": "b", "sem_type": "boolean"},
    {"type": "indexed_name", "name": "z", "dimensions": [{"type": "number_literal_index", "value": 1}],
     "sem_type": "boolean"},
    {"type": "indexed_name", "name": "z", "dimensions": [{"type": "name_reference_index", "name": "i"}]},
])
operands = st.one_of(numbers, variables, st.builds(lambda l, r: {"type": "binop", "op": "+", "left": l, "right": r},
                                                   variables, numbers))
literals = st.one_of(numbers, st.builds(lambda v: {"type": "boolean_literal", "value": v, "sem_type": "boolean"},
                                        st.booleans()))
atoms = st.builds(lambda v, k: {"type": "constraint", "op": "==", "left": v, "right": num(k)},
                  variables, st.sampled_from([0, 1]))
comparisons = st.builds(lambda op, l, r: {"type": "binop", "op": op, "left": l, "right": r, "sem_type": "boolean"},
                        st.sampled_from(COMPARISON_OPS), operands, operands)


def trees_of(leaves):
    return st.recursive(
        leaves,
        lambda inner: st.one_of(
            st.builds(lambda l, r: {"type": "and", "left": l, "right": r, "sem_type": "boolean"}, inner, inner),
            st.builds(lambda l, r: {"type": "or", "left": l, "right": r, "sem_type": "boolean"}, inner, inner),
            st.builds(lambda v: {"type": "not", "value": v, "sem_type": "boolean"}, inner),
            st.builds(lambda l, r: {"type": "implies", "left": l, "right": r}, inner, inner),
            st.builds(lambda e: {"type": "parenthesized_expression", "expression": e, "sem_type": "boolean"}, inner),
        ),
        max_leaves=5,
    )


trees = trees_of(st.one_of(atoms, comparisons))
sum_iterators = [{"iterator": "i", "range": {"type": "range_specifier", "start": num(1), "end": num(2)}}]
counts = st.builds(lambda c: {"type": "sum", "iterators": sum_iterators, "expression": c}, comparisons)
weighted = st.builds(
    lambda w, t: {"type": "sum", "iterators": sum_iterators,
                  "expression": {"type": "binop", "op": "*", "left": w, "right": t}},
    st.one_of(numbers, variables), trees)
sides = st.one_of(operands, trees, counts, weighted, literals, comparisons)
constraints = st.one_of(
    st.builds(lambda op, l, r: {"type": "constraint", "op": op, "left": l, "right": r},
              st.sampled_from(COMPARISON_OPS), sides, sides),
    st.builds(lambda a, c: {"type": "implication_constraint", "antecedent": a, "consequent": c},
              st.one_of(atoms, trees, st.builds(lambda op, l, r: {"type": "constraint", "op": op, "left": l, "right": r},
                                                st.sampled_from(COMPARISON_OPS), operands, operands)),
              st.one_of(atoms, st.builds(lambda op, l, r: {"type": "constraint", "op": op, "left": l, "right": r},
                                         st.sampled_from(COMPARISON_OPS), operands, operands))),
    st.builds(lambda body: {"type": "forall_constraint", "iterators": sum_iterators, "constraint": body},
              st.builds(lambda op, l, r: {"type": "constraint", "op": op, "left": l, "right": r},
                        st.sampled_from(COMPARISON_OPS), sides, sides)),
)


@settings(max_examples=300, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(st.lists(constraints, min_size=1, max_size=4))
def test_random_logical_constraints_build_or_fail_cleanly(cons):
    model = {"declarations": DECLS, "objective": {"type": "minimize", "expression": {"type": "name", "value": "x"}},
             "constraints": cons}
    try:
        text = SciPyCSCCodeGenerator(model, {}).generate_code()
        problem = SciPyCSCCodeGenerator(model, {}).build_problem()
    except Exception as err:  # noqa: BLE001 - the kind is what is checked
        assert isinstance(err, EXPECTED), repr(err)
        return
    compile(text, "<generated>", "exec")
    n = len(problem.var_names)
    assert len(problem.bounds) == len(problem.integrality) == len(problem.c) == n
    for matrix, rhs in ((problem.A_ub, problem.b_ub), (problem.A_eq, problem.b_eq)):
        assert len(matrix) == len(rhs)
        if len(rhs):
            assert matrix.tocsr().shape == (len(rhs), n)
