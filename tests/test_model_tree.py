"""How the generator reads the shapes of the model tree."""

import pytest

from conftest import (
    constraint,
    dvar,
    indexed,
    lit_index,
    minimize,
    model,
    name,
    num,
    paren,
)
from kolva.semantic_error import SemanticError


def test_name_node_keeps_its_name_under_value(make_gen):
    g = make_gen(variables=["x"])
    assert g._eval_expr(name("x")) == ({"x": 1.0}, 0.0)


def test_name_node_with_the_name_under_name_fails_on_the_missing_key(make_gen):
    g = make_gen(variables=["x"])
    with pytest.raises(KeyError):
        g._eval_expr({"type": "name", "name": "x"})


def test_indexed_name_with_the_name_under_value_fails_on_the_missing_key(make_gen):
    good = indexed("x", lit_index(1))
    swapped = {"type": "indexed_name", "value": "x", "dimensions": [lit_index(1)]}
    g = make_gen(model([], None, [constraint("==", good, num(1))]), variables=["x_1"])
    g._apply_top_level_binary_assignments()
    assert g.b_eq == [1.0]
    g = make_gen(model([], None, [constraint("==", swapped, num(1))]), variables=["x_1"])
    with pytest.raises(KeyError):
        g._apply_top_level_binary_assignments()


def test_dexpr_declarations_create_no_column_and_raise_nothing(make_gen):
    ast = model(
        [
            dvar("x"),
            {"type": "dexpr", "name": "d", "expression": name("x")},
            {"type": "dexpr_indexed", "name": "e", "expression": name("x")},
            dvar("y", "int"),
        ]
    )
    g = make_gen(ast)
    g._build_variables()
    assert g.var_names == ["x", "y"]
    assert g.var_indices == {"x": 0, "y": 1}
    assert g.bounds == [[0, None], [None, None]]
    assert g.integrality == [0, 1]


def test_unknown_declaration_kind_is_rejected_by_the_variable_phase(make_gen):
    g = make_gen(model([dvar("x"), {"type": "dvar_weird", "name": "w"}]))
    with pytest.raises(SemanticError) as excinfo:
        g._build_variables()
    assert str(excinfo.value) == "Unsupported declaration type: dvar_weird"


def test_variable_phase_reads_declarations_by_direct_key(make_gen):
    g = make_gen({"constraints": []})
    with pytest.raises(KeyError):
        g._build_variables()


def test_objective_without_type_counts_as_minimization(make_gen):
    ast = {"declarations": [dvar("x")], "objective": {"expression": num(4)}, "constraints": []}
    g = make_gen(ast)
    g._build_variables()
    assert g._snapshot_linear_problem().sense == "minimize"


def test_missing_objective_counts_as_minimization_in_the_snapshot(make_gen):
    g = make_gen({"declarations": [], "constraints": []})
    g._build_variables()
    assert g._snapshot_linear_problem().sense == "minimize"


def test_snapshot_needs_the_variable_phase_first(make_gen):
    g = make_gen(model([dvar("x")], minimize(num(0))))
    with pytest.raises(AttributeError):
        g._snapshot_linear_problem()


def test_parenthesized_variable_is_not_read_as_a_plain_name(make_gen):
    # The top-level 0/1 assignment reader looks for a bare name; a parenthesis
    # around it is a different shape and is passed over.
    ast = model([dvar("x", "boolean")], constraints=[constraint("==", paren(name("x")), num(1))])
    g = make_gen(ast)
    g._build_variables()
    g._apply_top_level_binary_assignments()
    assert g.A_eq == []
    assert g.b_eq == []


def test_parenthesized_number_is_not_read_as_a_number(make_gen):
    ast = model([dvar("x", "boolean")], constraints=[constraint("==", name("x"), paren(num(1)))])
    g = make_gen(ast)
    g._build_variables()
    g._apply_top_level_binary_assignments()
    assert g.b_eq == []


def test_the_evaluator_unwraps_a_parenthesis_explicitly(make_gen):
    g = make_gen(variables=["x"])
    assert g._eval_expr(paren(name("x"))) == ({"x": 1.0}, 0.0)
    assert g._eval_expr(paren(paren(num(2)))) == ({}, 2.0)


def test_the_generator_keeps_the_tree_as_given(make_gen):
    ast = model([dvar("x")], minimize(name("x")))
    g = make_gen(ast)
    assert g.ast == ast


def test_constraint_record_as_expression_contributes_nothing(make_gen):
    g = make_gen(variables=["x"])
    result = g._eval_expr(constraint("<=", name("x"), num(3)))
    assert result == ({}, 0.0)
    assert type(result[1]) is float


def test_a_missing_mandatory_key_is_a_key_error_not_a_model_error(make_gen):
    g = make_gen()
    with pytest.raises(KeyError):
        g._eval_expr({"type": "number"})
    with pytest.raises(KeyError):
        g._eval_expr({"type": "uminus"})


def test_sem_type_on_a_name_does_not_change_its_value(make_gen):
    g = make_gen(variables=["b"])
    assert g._eval_expr(name("b", sem_type="boolean")) == ({"b": 1.0}, 0.0)


def test_unknown_var_type_reads_as_float(make_gen):
    g = make_gen(model([dvar("x", "string"), {"type": "dvar", "name": "y"}]))
    g._build_variables()
    assert g.bounds == [[None, None], [None, None]]
    assert g.integrality == [0, 0]


@pytest.mark.parametrize(
    "var_type, bound, integral",
    [
        ("boolean", [0, 1], 1),
        ("int+", [0, None], 1),
        ("int", [None, None], 1),
        ("float+", [0, None], 0),
        ("float", [None, None], 0),
    ],
)
def test_var_type_spellings(make_gen, var_type, bound, integral):
    g = make_gen(model([dvar("x", var_type)]))
    g._build_variables()
    assert g.bounds == [bound]
    assert g.integrality == [integral]
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = ['x']",
        "bounds = [" + str(bound) + "]",
        "integrality = [" + str(integral) + "]",
    ]
