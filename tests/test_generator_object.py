"""The generator object: construction, data, logging and the code buffer."""

import logging

import pytest

from conftest import GEN_LOGGER, MODULE_LOGGER, dvar, maximize, minimize, model, name, num, param_inline
from kolva.scipy_codegen_base import SciPyCodeGeneratorBase
from kolva.scipy_codegen_csc import BIG_M_DEFAULT, BOOL_EPS, ExpressionEvaluator, SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError

LOG_FORMAT = "[%(levelname)s] %(name)s: %(message)s"


# ---------------------------------------------------------------- constants, types


def test_module_constants():
    assert BIG_M_DEFAULT == 1000000.0
    assert type(BIG_M_DEFAULT) is float
    assert BOOL_EPS == 1e-06
    assert type(BOOL_EPS) is float


def test_generator_is_a_code_generator_base(make_gen):
    assert isinstance(make_gen(), SciPyCodeGeneratorBase)


def test_semantic_error_carries_one_message():
    err = SemanticError("something is wrong")
    assert isinstance(err, Exception)
    assert str(err) == "something is wrong"


# ---------------------------------------------------------------- initial state


def test_fresh_generator_state(make_gen):
    g = make_gen()
    assert g.scipy_code_lines == []
    assert g.indent_level == 0
    assert g.var_names == []
    assert g.var_indices == {}
    assert g.bounds == []
    assert g.c == []
    assert g.obj_const_offset == 0.0
    assert type(g.obj_const_offset) is float
    assert g.A_eq == []
    assert g.A_ub == []
    assert g.b_eq == []
    assert g.b_ub == []
    assert g.results_varname == "results"
    assert g._allow_symbolic_bool is False


def test_integrality_does_not_exist_before_the_variable_phase(make_gen):
    g = make_gen(model([dvar("x", "int")]))
    with pytest.raises(AttributeError):
        g.integrality
    g._build_variables()
    assert g.integrality == [1]


def test_constructor_emits_and_evaluates_nothing(make_gen):
    # An objective that could never be evaluated does not disturb construction.
    g = make_gen(model([], minimize(name("nowhere"))))
    assert g.scipy_code_lines == []
    assert g.var_names == []


def test_attributes_are_fresh_copies(make_gen):
    g = make_gen(model([dvar("x")]), data={"n": 3})
    g._build_variables()
    g.var_names.append("zz")
    g.bounds[0][0] = 99
    g.data_dict["extra"] = 1
    g.scipy_code_lines.append("junk")
    assert g.var_names == ["x"]
    assert g.bounds == [[0, None]]
    assert g.data_dict == {"n": 3}
    assert "junk" not in g.scipy_code_lines


def test_read_only_attributes_refuse_assignment(make_gen):
    g = make_gen()
    with pytest.raises(AttributeError):
        g.var_names = ["x"]
    with pytest.raises(AttributeError):
        g.data_dict = {}


def test_read_write_attributes(make_gen):
    g = make_gen()
    g.results_varname = "out"
    g.indent_level = 3
    g._allow_symbolic_bool = True
    assert g.results_varname == "out"
    assert g.indent_level == 3
    assert g._allow_symbolic_bool is True


# ---------------------------------------------------------------- data dictionary


def test_no_data_gives_an_empty_map_that_still_sees_inline_parameters(make_gen):
    g = make_gen(model([param_inline("p", 3), param_inline("q", "txt")]), data=None)
    assert g.data_dict == {"p": 3, "q": "txt"}
    assert g.data == {"p": 3, "q": "txt"}


def test_no_data_and_no_inline_parameters_gives_an_empty_map(make_gen):
    g = make_gen(model([dvar("x")]))
    assert g.data_dict == {}
    assert g.data == {}


def test_data_entry_beats_an_inline_parameter_of_the_same_name(make_gen):
    g = make_gen(model([param_inline("p", 3), param_inline("q", 4)]), data={"p": 7})
    assert g.data_dict == {"p": 7, "q": 4}
    assert g._lookup_var_or_param("p") == (False, 7.0, False)


def test_first_inline_parameter_of_a_name_wins_over_a_later_one(make_gen):
    g = make_gen(model([param_inline("p", 1), param_inline("p", 2)]))
    assert g.data_dict == {"p": 1}


def test_data_and_data_alias_are_one_map(make_gen):
    g = make_gen(data={"p": ["a", 1, "b", 2]})
    # A lookup rewrites the flat list in place; both names must see it.
    assert g._lookup_var_or_param("p", ["b"]) == (False, 2.0, False)
    assert g.data_dict["p"] == {"a": 1, "b": 2}
    assert g.data["p"] == {"a": 1, "b": 2}


def test_callers_data_is_never_written(make_gen):
    data = {"p": ["a", 1, "b", 2], "n": 5}
    ast = model([param_inline("q", 9)], maximize(name("n")))
    g = make_gen(ast, data=data)
    g._lookup_var_or_param("p", ["a"])
    g.generate_code()
    assert data == {"p": ["a", 1, "b", 2], "n": 5}
    assert g.data_dict["q"] == 9


def test_callers_data_stays_as_given_after_build_problem(make_gen):
    data = {"n": 5}
    g = make_gen(model([param_inline("q", 9)], minimize(name("q"))), data=data)
    g.build_problem()
    assert data == {"n": 5}
    assert g.data_dict == {"n": 5, "q": 9}


def test_inline_parameter_without_name_fails_on_the_key():
    with pytest.raises(KeyError):
        SciPyCSCCodeGenerator(model([{"type": "parameter_inline", "value": 3}]))


def test_inline_parameter_without_value_fails_on_the_key():
    with pytest.raises(KeyError):
        SciPyCSCCodeGenerator(model([{"type": "parameter_inline", "name": "p"}]))


def test_inline_parameter_without_value_is_fine_when_data_has_it():
    g = SciPyCSCCodeGenerator(model([{"type": "parameter_inline", "name": "p"}]), {"p": 2})
    assert g.data_dict == {"p": 2}


def test_tree_without_declarations_is_accepted_by_the_constructor(make_gen):
    g = make_gen({"constraints": []})
    assert g.data_dict == {}


# ---------------------------------------------------------------- loggers


@pytest.fixture
def pristine_gen_logger():
    lg = logging.getLogger(GEN_LOGGER)
    saved_handlers = list(lg.handlers)
    saved_level = lg.level
    for h in saved_handlers:
        lg.removeHandler(h)
    yield lg
    for h in list(lg.handlers):
        lg.removeHandler(h)
    for h in saved_handlers:
        lg.addHandler(h)
    lg.setLevel(saved_level)


def test_default_logger_is_named_and_set_to_info(pristine_gen_logger):
    pristine_gen_logger.setLevel(logging.DEBUG)
    g = SciPyCSCCodeGenerator(model())
    assert g.logger is pristine_gen_logger
    assert g.logger.name == GEN_LOGGER
    assert pristine_gen_logger.level == logging.INFO


def test_default_logger_gets_one_formatted_handler(pristine_gen_logger):
    SciPyCSCCodeGenerator(model())
    assert len(pristine_gen_logger.handlers) == 1
    handler = pristine_gen_logger.handlers[0]
    assert isinstance(handler, logging.StreamHandler)
    assert handler.formatter._fmt == LOG_FORMAT


def test_default_logger_is_not_given_a_second_handler(pristine_gen_logger):
    SciPyCSCCodeGenerator(model())
    SciPyCSCCodeGenerator(model())
    assert len(pristine_gen_logger.handlers) == 1


def test_default_logger_with_a_handler_already_keeps_only_that_one(pristine_gen_logger):
    mine = logging.NullHandler()
    pristine_gen_logger.addHandler(mine)
    SciPyCSCCodeGenerator(model())
    assert pristine_gen_logger.handlers == [mine]
    assert pristine_gen_logger.level == logging.INFO


def test_supplied_logger_keeps_its_level_and_handlers():
    lg = logging.getLogger("kolva-tests.supplied")
    lg.setLevel(logging.WARNING)
    mine = logging.NullHandler()
    lg.addHandler(mine)
    try:
        g = SciPyCSCCodeGenerator(model(), None, lg)
        assert g.logger is lg
        assert lg.level == logging.WARNING
        assert lg.handlers == [mine]
    finally:
        lg.removeHandler(mine)


def test_supplied_logger_without_handlers_gets_none():
    lg = logging.getLogger("kolva-tests.bare")
    lg.setLevel(logging.DEBUG)
    SciPyCSCCodeGenerator(model(), logger=lg)
    assert lg.handlers == []
    assert lg.level == logging.DEBUG


def test_supplied_logger_does_not_touch_the_default_logger(pristine_gen_logger):
    pristine_gen_logger.setLevel(logging.ERROR)
    SciPyCSCCodeGenerator(model(), logger=logging.getLogger("kolva-tests.other"))
    assert pristine_gen_logger.level == logging.ERROR
    assert pristine_gen_logger.handlers == []


def test_module_logger_has_a_debug_handler_with_the_format():
    lg = logging.getLogger(MODULE_LOGGER)
    stream_handlers = [h for h in lg.handlers if isinstance(h, logging.StreamHandler)]
    assert len(stream_handlers) == 1
    assert stream_handlers[0].level == logging.DEBUG
    assert stream_handlers[0].formatter._fmt == LOG_FORMAT


def test_supplied_logger_receives_the_debug_lines(caplog):
    lg = logging.getLogger("kolva-tests.receiver")
    lg.setLevel(logging.DEBUG)
    g = SciPyCSCCodeGenerator(model(), {"p": 3}, lg)
    with caplog.at_level(logging.DEBUG, logger="kolva-tests.receiver"):
        g._lookup_var_or_param("p")
    messages = [r.getMessage() for r in caplog.records if r.name == "kolva-tests.receiver"]
    assert "[resolve_parameter] Found scalar param: 3" in messages


# ---------------------------------------------------------------- code buffer


def test_indent_at_level_zero_is_empty(make_gen):
    assert make_gen()._indent() == ""


def test_indent_is_four_blanks_per_level(make_gen):
    g = make_gen()
    g.indent_level = 3
    assert g._indent() == " " * 12


def test_add_code_line_at_level_two_prefixes_eight_blanks(make_gen):
    g = make_gen()
    g.indent_level = 2
    g._add_code_line("x = 1")
    assert g.scipy_code_lines == ["        x = 1"]


def test_add_code_line_keeps_lines_apart_and_adds_no_line_end(make_gen):
    g = make_gen()
    g._add_code_line("")
    g._add_code_line("a")
    g.indent_level = 1
    g._add_code_line("")
    g.indent_level = 0
    g._add_code_line("b")
    assert g.scipy_code_lines == ["", "a", "    ", "b"]


def test_add_code_line_requires_text(make_gen):
    g = make_gen()
    with pytest.raises(TypeError):
        g._add_code_line(5)


# ---------------------------------------------------------------- evaluator entry


def test_evaluator_keeps_its_parent(make_gen):
    g = make_gen()
    ev = ExpressionEvaluator(g)
    assert ev.parent is g


def test_evaluator_and_generator_entry_agree(make_gen):
    g = make_gen(data={"p": 2}, variables=["x"])
    expr = {"type": "binop", "op": "+", "left": name("x"), "right": name("p")}
    assert g._eval_expr(expr) == ExpressionEvaluator(g).eval(expr) == ({"x": 1.0}, 2.0)


def test_evaluator_is_created_on_first_use(make_gen):
    g = make_gen()
    with pytest.raises(AttributeError):
        g._expr_evaluator
    g._eval_expr(num(1))
    assert isinstance(g._expr_evaluator, ExpressionEvaluator)
    assert g._expr_evaluator.parent is g


def test_generator_keeps_one_evaluator_for_its_lifetime(make_gen):
    g = make_gen()
    g._eval_index_expr({"type": "number_literal_index", "value": 1}, {})
    first = g._expr_evaluator
    g._eval_expr(num(2))
    g._eval_expr(num(3), {"i": 1})
    assert g._expr_evaluator == first
    assert hash(g._expr_evaluator) == hash(first)
    other = make_gen()
    other._eval_expr(num(1))
    assert other._expr_evaluator != first


def test_index_expression_entry_normalizes_integral_floats(make_gen):
    g = make_gen()
    assert g._eval_index_expr({"type": "number_literal_index", "value": 2.0}, {}) == ({}, 2)
    assert type(g._eval_index_expr({"type": "number_literal_index", "value": 2.0}, {})[1]) is int
    ev = ExpressionEvaluator(g)
    assert ev._eval_index_expr({"type": "number_literal_index", "value": 2.5}, {}) == ({}, 2.5)
