"""The evaluator's entry point: dispatch by node kind, the shape of results,
the literal fallback, the implication rewrite and plain names."""

import logging
import re

import pytest

from conftest import binop, boolean, constraint, field, implies, name, num, string
from kolva.scipy_codegen_csc import ExpressionEvaluator
from kolva.semantic_error import SemanticError

MISSING_TYPE = "Semantic Error: Unsupported expr type: missing or non-string 'type'"


@pytest.fixture
def ev(make_gen):
    return ExpressionEvaluator(make_gen(variables=["x"]))


# ---------------------------------------------------------------- entry


def test_evaluator_without_env_behaves_as_with_an_empty_one(make_gen):
    g = make_gen(data={"p": 2}, variables=["x"])
    ev = ExpressionEvaluator(g)
    expr = binop("+", name("x"), name("p"))
    assert ev.eval(expr) == ev.eval(expr, None) == ev.eval(expr, {}) == ({"x": 1.0}, 2.0)


@pytest.mark.parametrize(
    "node",
    [{"value": 3}, {"type": 5, "value": 3}, {"type": None}, {"type": ["number"], "value": 1}, {}],
    ids=["no-type", "int-type", "none-type", "list-type", "empty"],
)
def test_node_without_a_string_type_is_rejected(ev, node):
    with pytest.raises(SemanticError) as excinfo:
        ev.eval(node)
    assert str(excinfo.value) == MISSING_TYPE


@pytest.mark.parametrize("thing", [5, "number", None, [num(1)], 2.5])
def test_non_map_expression_is_an_unsupported_expr(ev, thing):
    with pytest.raises(SemanticError) as excinfo:
        ev.eval(thing)
    assert str(excinfo.value).startswith("Semantic Error: Unsupported expr type: ")
    assert str(excinfo.value) != MISSING_TYPE


def test_non_map_operand_inside_an_expression_is_an_unsupported_expr(ev):
    with pytest.raises(SemanticError, match=re.escape("Semantic Error: Unsupported expr type: ")):
        ev.eval(binop("+", num(1), 7))


@pytest.mark.parametrize(
    "node",
    [
        constraint("<=", name("x"), num(3)),
        {"type": "constraint"},
        {"type": "constraint", "op": "??", "left": 5, "right": {"type": "bogus"}},
    ],
)
def test_constraint_node_gives_zero_whatever_it_holds(ev, node):
    result = ev.eval(node)
    assert result == ({}, 0.0)
    assert type(result[1]) is float


def test_unknown_kind_is_not_implemented_not_a_model_error(ev):
    with pytest.raises(NotImplementedError) as excinfo:
        ev.eval({"type": "matrix_power", "value": 2})
    assert not isinstance(excinfo.value, SemanticError)
    assert str(excinfo.value) == "Expression type 'matrix_power' is not supported by the SciPy code generator."


def test_unknown_kind_nested_in_arithmetic_still_surfaces(ev):
    with pytest.raises(NotImplementedError):
        ev.eval(binop("*", num(2), {"type": "lambda"}))


# ---------------------------------------------------------------- literals


def test_number_comes_back_as_float(ev):
    result = ev.eval(num(3))
    assert result == ({}, 3.0)
    assert type(result[1]) is float
    assert type(result[0]) is dict


def test_number_literal_index_keeps_the_integer(ev):
    result = ev.eval({"type": "number_literal_index", "value": 3})
    assert result == ({}, 3)
    assert type(result[1]) is int


def test_number_literal_index_passes_its_value_through(ev):
    assert ev.eval({"type": "number_literal_index", "value": 2.5}) == ({}, 2.5)
    assert ev.eval({"type": "number_literal_index", "value": "k"}) == ({}, "k")


def test_boolean_number_value_becomes_a_float(ev):
    result = ev.eval(num(True))
    assert result == ({}, 1.0)
    assert type(result[1]) is float


def test_float_number_is_kept_exactly(ev):
    assert ev.eval(num(0.1)) == ({}, 0.1)
    assert ev.eval(num(-0.0))[1] == 0.0
    assert str(ev.eval(num(-0.0))[1]) == "-0.0"


def test_string_literal_gives_its_text(ev):
    assert ev.eval(string("abc")) == ({}, "abc")
    assert ev.eval(string("")) == ({}, "")


def test_string_literal_without_value_fails_on_the_key(ev):
    with pytest.raises(KeyError):
        ev.eval({"type": "string_literal"})


@pytest.mark.parametrize(
    "node, expected",
    [
        ({"type": "boolean_literal"}, 0.0),
        (boolean(True), 1.0),
        (boolean(False), 0.0),
        (boolean(0), 0.0),
        (boolean(2), 1.0),
        (boolean("yes"), 1.0),
        (boolean(""), 0.0),
        (boolean([]), 0.0),
        (boolean(None), 0.0),
    ],
)
def test_boolean_literal_follows_truthiness(ev, node, expected):
    result = ev.eval(node)
    assert result == ({}, expected)
    assert type(result[1]) is float


# ---------------------------------------------------------------- implication


@pytest.mark.parametrize(
    "left, right, expected",
    [(True, False, 0.0), (False, False, 1.0), (True, True, 1.0), (False, True, 1.0)],
)
def test_implication_with_ground_operands(ev, left, right, expected):
    assert ev.eval(implies(boolean(left), boolean(right))) == ({}, expected)


def test_implication_between_ground_comparisons(ev):
    # 1 < 2 => 3 < 2 is false; 2 < 1 => anything is true.
    assert ev.eval(implies(binop("<", num(1), num(2)), binop("<", num(3), num(2)))) == ({}, 0.0)
    assert ev.eval(implies(binop("<", num(2), num(1)), binop("<", num(3), num(2)))) == ({}, 1.0)


def test_implication_does_not_change_the_given_node(ev):
    node = implies(boolean(True), boolean(False))
    snapshot = {"type": "implies", "left": boolean(True), "right": boolean(False)}
    ev.eval(node)
    assert node == snapshot


# ---------------------------------------------------------------- names


def test_name_of_a_variable_is_a_unit_term(ev):
    assert ev.eval(name("x")) == ({"x": 1.0}, 0.0)


def test_name_of_numeric_parameters(make_gen):
    g = make_gen(data={"n": 4, "f": 2.5, "t": True})
    ev = ExpressionEvaluator(g)
    assert ev.eval(name("n")) == ({}, 4.0)
    assert type(ev.eval(name("n"))[1]) is float
    assert ev.eval(name("f")) == ({}, 2.5)
    assert ev.eval(name("t")) == ({}, 1.0)
    assert type(ev.eval(name("t"))[1]) is float


def test_name_of_a_string_parameter(make_gen):
    ev = ExpressionEvaluator(make_gen(data={"s": "hello"}))
    assert ev.eval(name("s")) == ({}, "hello")


def test_iterator_values_come_back_converted(ev):
    assert ev.eval(name("i"), {"i": 3}) == ({}, 3.0)
    assert type(ev.eval(name("i"), {"i": 3})[1]) is float
    assert ev.eval(name("i"), {"i": "a"}) == ({}, "a")
    assert ev.eval(name("i"), {"i": (1, "a")}) == ({}, (1, "a"))


def test_unknown_name_fails_in_the_lookup(ev):
    with pytest.raises(SemanticError) as excinfo:
        ev.eval(name("nowhere"))
    assert str(excinfo.value) == "Parameter or variable 'nowhere' with indices None not found in environment."


# ---------------------------------------------------------------- result checks


def test_list_valued_name_is_a_non_tuple_result(ev):
    with pytest.raises(SemanticError) as excinfo:
        ev.eval(name("i"), {"i": [1, 2]})
    assert str(excinfo.value) == (
        "ExpressionEvaluator.eval: handler for type 'name' returned non-tuple result: ({}, [1, 2])"
    )


def test_null_valued_name_is_a_non_tuple_result(ev):
    with pytest.raises(SemanticError) as excinfo:
        ev.eval(name("i"), {"i": None})
    assert str(excinfo.value) == (
        "ExpressionEvaluator.eval: handler for type 'name' returned non-tuple result: ({}, None)"
    )


def test_map_valued_name_outside_a_field_access_is_refused(ev):
    with pytest.raises(SemanticError) as excinfo:
        ev.eval(name("t"), {"t": {"a": 1}})
    assert str(excinfo.value) == (
        "ExpressionEvaluator.eval: handler for type 'name' returned tuple with dict value: "
        "({}, {'a': 1}), which is not allowed by type signature."
    )


def test_map_valued_name_as_the_base_of_a_field_access_succeeds(ev):
    result = ev.eval(field(name("t"), "a"), {"t": {"a": 1}})
    assert result == ({}, 1.0)
    assert type(result[1]) is float


def test_map_valued_name_is_refused_again_after_a_field_access(ev):
    env = {"t": {"a": 1}}
    ev.eval(field(name("t"), "a"), env)
    with pytest.raises(SemanticError, match=re.escape("returned tuple with dict value")):
        ev.eval(name("t"), env)


def test_field_access_failure_does_not_leave_map_values_allowed(ev):
    env = {"t": {"a": 1}}
    with pytest.raises(SemanticError):
        ev.eval(field(name("nowhere"), "a"), env)
    with pytest.raises(SemanticError, match=re.escape("returned tuple with dict value")):
        ev.eval(name("t"), env)


# ---------------------------------------------------------------- logging


def test_entry_and_handler_debug_lines(make_gen, debug_logs):
    g = make_gen()
    ev = ExpressionEvaluator(g)
    messages = debug_logs()
    ev.eval(num(3))
    logged = messages(logging.DEBUG)
    assert "[EVAL_ENTRY] type=number, expr={'type': 'number', 'value': 3}, env=None" in logged
    assert any(m.startswith("[EVAL] Handler for type 'number' returned: ({}, 3) (type: ") for m in logged)
    assert any(
        m.startswith("[EVAL] Handler for type 'number' returned tuple: coef={}, val=3 (type(val): ")
        for m in logged
    )


def test_entry_debug_line_shows_the_env_given(make_gen, debug_logs):
    g = make_gen()
    messages = debug_logs()
    g._eval_expr(name("i"), {"i": 2})
    assert "[EVAL_ENTRY] type=name, expr={'type': 'name', 'value': 'i'}, env={'i': 2}" in messages(logging.DEBUG)


def test_entry_debug_line_for_a_node_without_type(make_gen, debug_logs):
    g = make_gen()
    messages = debug_logs()
    with pytest.raises(SemanticError):
        g._eval_expr({"value": 1}, {})
    assert "[EVAL_ENTRY] type=None, expr={'value': 1}, env={}" in messages(logging.DEBUG)


def test_non_tuple_result_is_logged_as_an_error(make_gen, debug_logs):
    g = make_gen()
    messages = debug_logs()
    with pytest.raises(SemanticError):
        g._eval_expr(name("i"), {"i": [1, 2]})
    assert "[EVAL] Handler for type 'name' returned non-tuple result: ({}, [1, 2])" in messages(logging.ERROR)


def test_dict_value_result_is_logged_as_an_error(make_gen, debug_logs):
    g = make_gen()
    messages = debug_logs()
    with pytest.raises(SemanticError):
        g._eval_expr(name("t"), {"t": {"a": 1}})
    assert (
        "[EVAL] Handler for type 'name' returned tuple with dict value: ({}, {'a': 1}), "
        "which is not allowed by type signature."
    ) in messages(logging.ERROR)


def test_error_lines_are_logged_at_the_default_level(make_gen, caplog):
    g = make_gen()
    with caplog.at_level(logging.ERROR):
        with pytest.raises(SemanticError):
            g._eval_expr(name("i"), {"i": [1, 2]})
    errors = [r.getMessage() for r in caplog.records if r.levelno == logging.ERROR]
    assert "[EVAL] Handler for type 'name' returned non-tuple result: ({}, [1, 2])" in errors


class _Collect(logging.Handler):
    def __init__(self):
        super().__init__(logging.DEBUG)
        self.records = []

    def emit(self, record):
        self.records.append(record)


def test_no_debug_lines_reach_handlers_at_info_level(make_gen):
    from conftest import GEN_LOGGER, MODULE_LOGGER

    g = make_gen(variables=["x"])
    collect = _Collect()
    loggers = [logging.getLogger(GEN_LOGGER), logging.getLogger(MODULE_LOGGER)]
    saved = [lg.level for lg in loggers]
    loggers[0].setLevel(logging.INFO)
    loggers[1].setLevel(logging.INFO)
    for lg in loggers:
        lg.addHandler(collect)
    try:
        g._eval_expr(binop("+", name("x"), num(1)))
        g._lookup_var_or_param("x")
    finally:
        for lg, level in zip(loggers, saved):
            lg.removeHandler(collect)
            lg.setLevel(level)
    assert [r.getMessage() for r in collect.records if r.levelno < logging.INFO] == []
