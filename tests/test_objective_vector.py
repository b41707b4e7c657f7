"""The objective vector `c`, its constant `objective_offset`, and the
comment that records the shape of an objective sum."""

import pytest

from builders import dvar_indexed, it, named_range, range_decl, range_dim, range_spec, ref, sum_of
from conftest import binop, dvar, indexed, maximize, minimize, model, name, num, param_inline
from kolva.semantic_error import SemanticError
from lp_builders import generator, run_script


def objective_phase(objective, declarations=None, data=None):
    """A generator after its objective phase, with the lines that phase added."""
    decls = declarations if declarations is not None else [dvar_indexed("x", range_dim(1, 3)), dvar("y")]
    g = generator(model(decls, objective, []), data)
    g._build_variables()
    before = len(g.scipy_code_lines)
    g._build_objective()
    return g, g.scipy_code_lines[before:]


def weighted_x():
    """sum(i in 1..3) i * x[i]"""
    return sum_of([it("i", range_spec(1, 3))], binop("*", name("i"), indexed("x", ref("i"))))


SUM_COMMENT = "# Symbolic objective: sum((i * x[i]) for i in range(1, 3 + 1))"


# ---------------------------------------------------------------- plain expressions


def test_maximize_negates_c_but_not_the_offset():
    g, lines = objective_phase(maximize(binop("+", binop("*", num(3), name("x")), num(5))), [dvar("x")])
    assert g.c == [-3.0]
    assert g.obj_const_offset == 5.0
    assert lines == ["# Objective vector c", "c = [-3.0]", "objective_offset = 5.0"]


def test_maximize_leaves_negative_zeros_for_unused_columns():
    g, lines = objective_phase(maximize(binop("*", num(3), name("y"))), [dvar("x"), dvar("y")])
    assert lines == ["# Objective vector c", "c = [-0.0, -3.0]", "objective_offset = 0.0"]


def test_integer_constant_is_written_as_a_float():
    g, lines = objective_phase(minimize(binop("+", name("x"), num(7))), [dvar("x")])
    assert lines[-1] == "objective_offset = 7.0"
    assert type(g.obj_const_offset) is float


def test_constant_objective_fills_only_the_offset():
    g, lines = objective_phase(minimize(num(4)), [dvar("x"), dvar("y")])
    assert g.c == [0.0, 0.0]
    assert lines == ["# Objective vector c", "c = [0.0, 0.0]", "objective_offset = 4.0"]


def test_inline_parameter_in_the_objective():
    g, lines = objective_phase(minimize(binop("*", name("k"), name("x"))), [param_inline("k", 2.5), dvar("x")])
    assert g.c == [2.5]


@pytest.mark.parametrize("missing", ["type", "expression"])
def test_objective_without_a_key_is_a_key_error(missing):
    objective = {"type": "minimize", "expression": name("x")}
    del objective[missing]
    g = generator(model([dvar("x")], objective, []))
    g._build_variables()
    with pytest.raises(KeyError):
        g._build_objective()


def test_model_without_objective_is_a_key_error():
    g = generator({"declarations": [dvar("x")], "constraints": []})
    g._build_variables()
    with pytest.raises(KeyError):
        g._build_objective()


# ---------------------------------------------------------------- sums


def test_sum_objective_comment_and_vector():
    g, lines = objective_phase(minimize(weighted_x()))
    assert lines == ["# Objective vector c", SUM_COMMENT, "c = [1.0, 2.0, 3.0, 0.0]", "objective_offset = 0.0"]


def test_sum_filter_that_cannot_be_evaluated_includes_all_terms():
    expr = sum_of([it("i", range_spec(1, 3))], indexed("x", ref("i")), binop("==", name("i"), name("unknown_thing")))
    g, lines = objective_phase(minimize(expr))
    assert g.c == [1.0, 1.0, 1.0, 0.0]


def test_sum_filter_skips_false_terms():
    expr = sum_of([it("i", range_spec(1, 3))], indexed("x", ref("i")), binop("!=", name("i"), num(2)))
    g, lines = objective_phase(minimize(expr))
    assert g.c == [1.0, 0.0, 1.0, 0.0]


def test_sum_over_an_empty_range_still_comments():
    expr = sum_of([it("i", range_spec(1, 0))], indexed("x", ref("i")))
    g, lines = objective_phase(minimize(expr))
    assert lines == [
        "# Objective vector c",
        "# Symbolic objective: sum(x[i] for i in range(1, 0 + 1))",
        "c = [0.0, 0.0, 0.0, 0.0]",
        "objective_offset = 0.0",
    ]


def test_sum_comment_names_a_named_range_and_symbolic_bounds():
    decls = [range_decl("R", 1, 2), param_inline("n", 2), dvar_indexed("x", range_dim(1, 3)), dvar("y")]
    expr = sum_of([it("i", named_range("R")), it("j", range_spec(1, name("n")))], indexed("x", ref("i")))
    g, lines = objective_phase(minimize(expr), decls)
    assert lines[1] == "# Symbolic objective: sum(x[i] for i in R, j in range(1, n + 1))"
    # two values of j for each i
    assert g.c == [2.0, 2.0, 0.0, 0.0]


def test_sum_of_constants_goes_to_the_offset():
    expr = sum_of([it("i", range_spec(1, 4))], name("i"))
    g, lines = objective_phase(minimize(expr))
    assert g.c == [0.0, 0.0, 0.0, 0.0]
    assert lines[-1] == "objective_offset = 10.0"


def test_sum_minus_a_scaled_variable():
    g, lines = objective_phase(minimize(binop("-", weighted_x(), binop("*", num(2), name("y")))))
    assert g.c == [1.0, 2.0, 3.0, -2.0]
    assert lines[1] == SUM_COMMENT


def test_sum_plus_an_expression_with_a_constant():
    g, lines = objective_phase(minimize(binop("+", weighted_x(), binop("+", name("y"), num(7)))))
    assert g.c == [1.0, 2.0, 3.0, 1.0]
    assert g.obj_const_offset == 7.0


def test_sum_minus_a_constant():
    g, lines = objective_phase(minimize(binop("-", weighted_x(), num(3))))
    assert g.obj_const_offset == -3.0


def test_sum_times_a_number_is_an_operator_error():
    g = generator(model([dvar_indexed("x", range_dim(1, 3)), dvar("y")], minimize(binop("*", weighted_x(), num(2))), []))
    g._build_variables()
    with pytest.raises(SemanticError) as err:
        g._build_objective()
    assert str(err.value) == "Semantic Error: Unsupported operator in objective binop: *"


def test_number_times_a_sum_subtracts_the_sum():
    # the right-hand sum takes sign -1 for any operator but "+", and the
    # left value 2 goes to the offset
    g, lines = objective_phase(minimize(binop("*", num(2), weighted_x())))
    assert g.c == [-1.0, -2.0, -3.0, 0.0]
    assert g.obj_const_offset == 2.0


def test_constant_minus_a_sum():
    g, lines = objective_phase(minimize(binop("-", num(10), weighted_x())))
    assert g.c == [-1.0, -2.0, -3.0, 0.0]
    assert lines[-1] == "objective_offset = 10.0"


def test_two_sums_added_and_subtracted():
    other = sum_of([it("i", range_spec(2, 3))], indexed("x", ref("i")))
    g, lines = objective_phase(minimize(binop("-", weighted_x(), other)))
    assert g.c == [1.0, 1.0, 2.0, 0.0]
    assert lines == [
        "# Objective vector c",
        SUM_COMMENT,
        "# Symbolic objective: sum(x[i] for i in range(2, 3 + 1))",
        "c = [1.0, 1.0, 2.0, 0.0]",
        "objective_offset = 0.0",
    ]
    g, lines = objective_phase(minimize(binop("+", weighted_x(), other)))
    assert g.c == [1.0, 3.0, 4.0, 0.0]


def test_two_sums_multiplied_is_an_operator_error():
    g = generator(model([dvar_indexed("x", range_dim(1, 3)), dvar("y")], minimize(binop("*", weighted_x(), weighted_x())), []))
    g._build_variables()
    with pytest.raises(SemanticError) as err:
        g._build_objective()
    assert str(err.value) == "Semantic Error: Unsupported operator in objective binop: *"


def test_maximized_sum_with_an_offset_in_the_script():
    # maximize sum(i) i*x[i] + 4 with x[i] <= 1: 1 + 2 + 3 + 4 = 10
    decls = [dvar_indexed("x", range_dim(1, 3), upper_bound=num(1)), dvar("y")]
    g = generator(model(decls, maximize(binop("+", weighted_x(), num(4))), []))
    text = g.generate_code()
    assert "c = [-1.0, -2.0, -3.0, -0.0]" in text.split("\n")
    assert "objective_offset = 4.0" in text.split("\n")
    out = run_script(text)
    assert out["status"] == "OPTIMAL"
    assert out["objective_value"] == pytest.approx(10.0)
