"""Malformed, huge or odd input must end in a Python exception, never in a
crash of the interpreter."""

import math
import subprocess
import sys
import textwrap

import pytest

from conftest import binop, dvar, malformed_errors, minimize, model, name, num, param_inline
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError

DEPTH = 100_000


def deep_uminus(depth=DEPTH):
    node = num(1)
    for _ in range(depth):
        node = {"type": "uminus", "value": node}
    return node


def deep_binop(depth=DEPTH):
    node = num(1)
    for _ in range(depth):
        node = binop("+", node, num(1))
    return node


def deep_list(depth=DEPTH):
    value = [1]
    for _ in range(depth):
        value = [value]
    return value


# ---------------------------------------------------------------- shapes


@pytest.mark.parametrize("ast", [[1, 2], "model", 5, None], ids=["list", "str", "int", "none"])
def test_tree_that_is_not_a_map(ast):
    with pytest.raises(malformed_errors()):
        SciPyCSCCodeGenerator(ast).generate_code()


@pytest.mark.parametrize(
    "declarations",
    [5, "dvar", [5], [None], [["dvar"]], [{"name": "x"}], [{"type": 3, "name": "x"}]],
    ids=["int", "str", "int-entry", "none-entry", "list-entry", "no-type", "int-type"],
)
def test_declarations_of_the_wrong_shape(declarations):
    ast = {"declarations": declarations, "objective": minimize(num(0)), "constraints": []}
    with pytest.raises(malformed_errors()):
        SciPyCSCCodeGenerator(ast).generate_code()


def test_declaration_without_type_is_an_unsupported_declaration():
    ast = model([{"name": "x"}], minimize(num(0)))
    with pytest.raises(SemanticError) as excinfo:
        SciPyCSCCodeGenerator(ast).generate_code()
    assert str(excinfo.value) == "Unsupported declaration type: None"


def test_data_that_is_not_a_map():
    with pytest.raises(malformed_errors()):
        SciPyCSCCodeGenerator(model(), 5).generate_code()


def test_objective_of_the_wrong_shape():
    with pytest.raises(malformed_errors()):
        SciPyCSCCodeGenerator(model([], "minimize x")).generate_code()


def test_expression_nodes_that_are_not_maps(make_gen):
    g = make_gen()
    for bad in (5, "x", None, [num(1)], 1.5, True):
        with pytest.raises(SemanticError) as excinfo:
            g._eval_expr(bad)
        assert str(excinfo.value).startswith("Semantic Error: Unsupported expr type: ")


def test_nested_node_without_type(make_gen):
    g = make_gen()
    with pytest.raises(SemanticError) as excinfo:
        g._eval_expr(binop("*", num(2), {"value": 3}))
    assert str(excinfo.value) == "Semantic Error: Unsupported expr type: missing or non-string 'type'"


def test_binop_missing_an_operand(make_gen):
    g = make_gen()
    with pytest.raises(malformed_errors()):
        g._eval_expr({"type": "binop", "op": "+", "left": num(1)})
    with pytest.raises(malformed_errors()):
        g._eval_expr({"type": "binop", "left": num(1), "right": num(2)})


def test_python_objects_that_are_no_values(make_gen):
    g = make_gen()
    with pytest.raises(malformed_errors()):
        g._eval_expr(num(object()))
    with pytest.raises(malformed_errors()):
        SciPyCSCCodeGenerator(model(), {"p": object()})._lookup_var_or_param("p")


def test_generator_still_works_after_malformed_input(make_gen):
    g = make_gen(variables=["x"])
    for bad in (5, {"value": 1}, {"type": "number"}, num(2**70)):
        with pytest.raises(malformed_errors()):
            g._eval_expr(bad)
    assert g._eval_expr(binop("+", name("x"), num(1))) == ({"x": 1.0}, 1.0)


# ---------------------------------------------------------------- big integers


def test_integer_beyond_64_bits_in_an_expression(make_gen):
    with pytest.raises(OverflowError):
        make_gen()._eval_expr(num(2**70))


def test_integer_beyond_64_bits_in_an_env(make_gen):
    with pytest.raises(OverflowError):
        make_gen()._eval_expr(name("i"), {"i": 2**64})


def test_integer_beyond_64_bits_in_the_data():
    with pytest.raises(OverflowError):
        SciPyCSCCodeGenerator(model(), {"p": 2**70})._lookup_var_or_param("p")


def test_integer_beyond_64_bits_nested_in_the_data():
    with pytest.raises(OverflowError):
        SciPyCSCCodeGenerator(model(), {"p": {"k": [1, -(2**70)]}})._lookup_var_or_param("p", ["k"])


def test_integer_beyond_64_bits_in_the_tree():
    ast = model([param_inline("p", 2**70)], minimize(name("p")))
    with pytest.raises(OverflowError):
        SciPyCSCCodeGenerator(ast).generate_code()


def test_integer_beyond_64_bits_as_a_subscript(make_gen):
    g = make_gen(data={"p": [1, 2]})
    with pytest.raises(OverflowError):
        g._lookup_var_or_param("p", [2**65])


def test_largest_64_bit_integers_are_accepted(make_gen):
    g = make_gen()
    assert g._eval_expr(num(2**63 - 1)) == ({}, float(2**63 - 1))
    assert g._eval_expr(num(-(2**63))) == ({}, float(-(2**63)))


# ---------------------------------------------------------------- NaN and infinities


def test_nan_in_the_data_is_carried_as_a_float(make_gen):
    g = make_gen(data={"p": float("nan")})
    is_var, val, is_symbolic = g._lookup_var_or_param("p")
    assert (is_var, is_symbolic) == (False, False)
    assert math.isnan(val)
    coef, const = g._eval_expr(binop("+", name("p"), num(1)))
    assert coef == {}
    assert math.isnan(const)


def test_nan_compares_unequal_and_unordered(make_gen):
    g = make_gen(data={"p": float("nan")})
    assert g._eval_expr(binop("==", name("p"), name("p"))) == ({}, 0.0)
    assert g._eval_expr(binop("<", name("p"), num(1))) == ({}, 0.0)
    assert g._eval_expr(binop(">=", name("p"), num(1))) == ({}, 0.0)
    assert g._eval_expr(binop("!=", name("p"), name("p"))) == ({}, 1.0)


def test_nan_divisor_is_not_a_division_by_zero(make_gen):
    g = make_gen(data={"p": float("nan")})
    coef, const = g._eval_expr(binop("/", num(1), name("p")))
    assert math.isnan(const)


def test_infinite_data_values(make_gen):
    g = make_gen(data={"p": float("inf")})
    assert g._eval_expr(binop("*", name("p"), num(-1))) == ({}, float("-inf"))
    assert math.isnan(g._eval_expr(binop("-", name("p"), name("p")))[1])


def test_nan_objective_without_variables_is_refused_before_the_script():
    # Printed, it would be a bare `nan` that the script cannot run.
    with pytest.raises(SemanticError, match=r"^The objective's constant is nan; it must be a finite number\.$"):
        SciPyCSCCodeGenerator(model([], minimize(name("p"))), {"p": float("nan")}).generate_code()


# ---------------------------------------------------------------- depth


def test_deep_unary_chain_is_a_recursion_error(make_gen):
    g = make_gen()
    with pytest.raises(RecursionError):
        g._eval_expr(deep_uminus())
    assert g._eval_expr(num(2)) == ({}, 2.0)


def test_deep_sum_chain_is_a_recursion_error(make_gen):
    g = make_gen()
    with pytest.raises(RecursionError):
        g._eval_expr(deep_binop())
    assert g._eval_expr(binop("+", num(1), num(1))) == ({}, 2.0)


def test_deep_objective_is_a_recursion_error():
    with pytest.raises(RecursionError):
        SciPyCSCCodeGenerator(model([dvar("x")], minimize(deep_uminus()))).generate_code()


def test_deep_data_is_a_recursion_error():
    with pytest.raises(RecursionError):
        g = SciPyCSCCodeGenerator(model(), {"p": deep_list()})
        g._lookup_var_or_param("p", [1])


def test_deep_value_in_the_value_hooks():
    from kolva import _engine

    with pytest.raises(RecursionError):
        _engine._value_repr(deep_list())


def test_moderately_deep_expressions_still_evaluate(make_gen):
    g = make_gen(variables=["x"])
    assert g._eval_expr(deep_uminus(250)) == ({}, 1.0)
    chain = name("x")
    for _ in range(250):
        chain = binop("+", chain, num(1))
    assert g._eval_expr(chain) == ({"x": 1.0}, 250.0)


# ---------------------------------------------------------------- in a child interpreter

CHILD_PRELUDE = textwrap.dedent(
    """
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    def report(fn):
        try:
            fn()
        except BaseException as exc:
            print(type(exc).__name__, flush=True)
        else:
            print("no-error", flush=True)

    def tree():
        return {"declarations": [], "constraints": []}

    node = {"type": "number", "value": 1}
    for _ in range(100000):
        node = {"type": "uminus", "value": node}
    chain = {"type": "number", "value": 1}
    for _ in range(100000):
        chain = {"type": "binop", "op": "+", "left": chain, "right": {"type": "number", "value": 1}}
    deep = [1]
    for _ in range(100000):
        deep = [deep]
    """
)


def run_child(body):
    code = CHILD_PRELUDE + textwrap.dedent(body)
    proc = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=300)
    return proc


def test_deep_expressions_do_not_crash_a_child_interpreter():
    proc = run_child(
        """
        g = SciPyCSCCodeGenerator(tree())
        report(lambda: g._eval_expr(node))
        report(lambda: g._eval_expr(chain))
        report(lambda: g._eval_expr(node, {}))
        print("alive", g._eval_expr({"type": "number", "value": 3}), flush=True)
        """
    )
    assert proc.returncode == 0, proc.stderr[-2000:]
    assert proc.stdout.split("\n")[:4] == [
        "RecursionError",
        "RecursionError",
        "RecursionError",
        "alive ({}, 3.0)",
    ]


def test_deep_models_and_data_do_not_crash_a_child_interpreter():
    proc = run_child(
        """
        t = tree()
        t["objective"] = {"type": "minimize", "expression": node}
        report(lambda: SciPyCSCCodeGenerator(t).generate_code())
        report(lambda: SciPyCSCCodeGenerator(tree(), {"p": deep})._lookup_var_or_param("p", [1]))
        print("done", flush=True)
        """
    )
    assert proc.returncode == 0, proc.stderr[-2000:]
    assert proc.stdout.split("\n")[:3] == ["RecursionError", "RecursionError", "done"]


def test_big_integers_do_not_crash_a_child_interpreter():
    proc = run_child(
        """
        report(lambda: SciPyCSCCodeGenerator(tree(), {"p": 2**70})._lookup_var_or_param("p"))
        report(lambda: SciPyCSCCodeGenerator(tree())._eval_expr({"type": "number", "value": -2**90}))
        print("done", flush=True)
        """
    )
    assert proc.returncode == 0, proc.stderr[-2000:]
    assert proc.stdout.split("\n")[:3] == ["OverflowError", "OverflowError", "done"]
