"""The data phase: shape checks of parameter data against declarations,
normalisation of data, and the data lines of the script."""

import pytest

from builders import (
    data_section,
    exec_lines,
    named_range_dim,
    named_set_dim,
    param_indexed,
    range_decl,
    range_dim,
    set_of_tuples,
    solvable_model,
    tuple_type,
    typed_set,
)
from conftest import binop, indexed, lit_index, name, num, param_inline, string
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError


def build_error(declarations, data):
    g = SciPyCSCCodeGenerator(solvable_model(declarations), data)
    with pytest.raises(SemanticError) as excinfo:
        g.build_problem()
    return g, str(excinfo.value)


def built(declarations, data):
    g = SciPyCSCCodeGenerator(solvable_model(declarations), data)
    g.build_problem()
    return g


def script_lines(declarations, data):
    return SciPyCSCCodeGenerator(solvable_model(declarations), data).generate_code().split("\n")


S_DECL = typed_set("S", external=True)

# ---------------------------------------------------------------- one-dimensional check


def test_array_per_key_over_a_set(make_gen):
    _, text = build_error([S_DECL, param_indexed("p", named_set_dim("S"))], {"S": ["a"], "p": {"a": [2.0]}})
    assert text == (
        "Parameter 'p' declared as 1-D over 'S' expects scalar values per key, but data provides "
        "an array for key 'a'. Use scalar values (e.g., 2.0), not [2.0]."
    )


def test_first_key_holding_a_tuple_or_map_is_named(make_gen):
    _, text = build_error(
        [S_DECL, param_indexed("p", named_set_dim("S"))],
        {"S": ["a", "b", "c"], "p": {"a": 1.0, "b": (3,), "c": {"k": 1}}},
    )
    assert text == (
        "Parameter 'p' declared as 1-D over 'S' expects scalar values per key, but data provides "
        "an array for key 'b'. Use scalar values (e.g., 2.0), not [2.0]."
    )


def test_array_per_key_over_a_named_range(make_gen):
    decls = [range_decl("R", 1, 2), param_indexed("p", named_range_dim("R"))]
    _, text = build_error(decls, {"p": {1: 1.0, 2: [2.0]}})
    assert text == (
        "Parameter 'p' declared as 1-D over 'R' expects scalar values per key, but data provides "
        "an array for key 2. Use scalar values (e.g., 2.0), not [2.0]."
    )


def test_scalar_values_per_key_pass():
    g = built([S_DECL, param_indexed("p", named_set_dim("S"))], {"S": ["a", "b"], "p": {"a": 1.0, "b": 2}})
    assert g._eval_expr(indexed("p", string("b"))) == ({}, 2.0)


# ---------------------------------------------------------------- lengths against ranges and sets


def test_list_shorter_than_the_declared_range():
    decls = [range_decl("R", 1, 4), param_indexed("p", named_range_dim("R"))]
    _, text = build_error(decls, {"p": [1, 2, 3]})
    assert text == "Parameter 'p' has 3 items but declared range 'R' expects 4."


def test_list_longer_than_a_range_with_a_computed_end():
    decls = [range_decl("R", 0, binop("*", name("n"), num(2))), param_indexed("p", named_range_dim("R"))]
    _, text = build_error(decls, {"n": 1, "p": [1, 2, 3, 4]})
    assert text == "Parameter 'p' has 4 items but declared range 'R' expects 3."


def test_list_matching_the_declared_range_stays_a_list():
    decls = [range_decl("R", 2, binop("+", name("n"), num(1))), param_indexed("p", named_range_dim("R"))]
    g = built(decls, {"n": 4, "p": [1, 2, 3, 4]})
    assert g.data_dict["p"] == [1, 2, 3, 4]
    assert g._eval_expr(indexed("p", lit_index(5))) == ({}, 4.0)


def test_list_against_a_set_from_data():
    decls = [S_DECL, param_indexed("p", named_set_dim("S"))]
    _, text = build_error(decls, {"S": ["a", "b"], "p": [1, 2, 3]})
    assert text == "Parameter 'p' has 3 items but declared set 'S' has 2 elements."


def test_list_against_an_inline_set():
    decls = [typed_set("S", ["a", "b", "c"]), param_indexed("p", named_set_dim("S"))]
    _, text = build_error(decls, {"p": [1]})
    assert text == "Parameter 'p' has 1 items but declared set 'S' has 3 elements."


def test_rows_of_different_lengths():
    _, text = build_error([param_indexed("p", range_dim(1, 2), range_dim(1, 2))], {"p": [[1, 2], [3]]})
    assert text == "Parameter 'p' 2-D data must be rectangular (all rows same length)."


def test_row_that_is_no_list():
    _, text = build_error([param_indexed("p", range_dim(1, 2), range_dim(1, 2))], {"p": [[1, 2], 3]})
    assert text == "Parameter 'p' 2-D data must be rectangular (all rows same length)."


def test_rectangular_rows_pass():
    g = built([param_indexed("p", range_dim(1, 2), range_dim(1, 3))], {"p": [[1, 2, 3], [4, 5, 6]]})
    assert g._eval_expr(indexed("p", lit_index(2), lit_index(3))) == ({}, 6.0)


def test_tuple_rows_count_as_rows():
    g = built([param_indexed("p", range_dim(1, 2), range_dim(1, 2))], {"p": [(1, 2), (3, 4)]})
    assert g.var_names == []


# ---------------------------------------------------------------- range bounds of the data phase


def test_unsupported_operator_in_a_range_bound():
    decls = [range_decl("R", 1, binop("<", num(1), num(2))), param_indexed("p", named_range_dim("R"))]
    _, text = build_error(decls, {"p": [1]})
    assert text == "Unsupported binop in range bound expr: <"


def test_unsupported_node_in_a_range_bound():
    end = string("a")
    decls = [range_decl("R", 1, end), param_indexed("p", named_range_dim("R"))]
    _, text = build_error(decls, {"p": [1]})
    assert text == "Unsupported range bound expr: " + str(end)


def test_named_range_without_bounds():
    decls = [{"type": "range_declaration_inline", "name": "R"}, param_indexed("p", named_range_dim("R"))]
    _, text = build_error(decls, {"p": [1]})
    assert text == "Named range 'R' has no bounds."


# ---------------------------------------------------------------- normalisation


def test_flat_key_value_list_becomes_a_map():
    decls = [S_DECL, param_indexed("p", named_set_dim("S"))]
    g = built(decls, {"S": ["a", "b"], "p": ["a", 1, "b", 2.5]})
    assert g.data_dict["p"] == {"a": 1, "b": 2.5}
    assert g._eval_expr(indexed("p", string("b"))) == ({}, 2.5)


def test_earlier_write_backs_stay_when_a_later_check_fails():
    decls = [S_DECL, param_indexed("q", named_set_dim("S")), param_indexed("p", named_set_dim("S"))]
    g, text = build_error(decls, {"S": ["a", "b"], "q": ["a", 1, "b", 2], "p": [1, 2, 3]})
    assert text == "Parameter 'p' has 3 items but declared set 'S' has 2 elements."
    assert g.data_dict["q"] == {"a": 1, "b": 2}
    assert not any(line.startswith("p = ") for line in g.scipy_code_lines)


def test_parameter_over_a_set_and_a_range_reads_by_member_and_index():
    decls = [S_DECL, range_decl("R", 1, 2), param_indexed("p", named_set_dim("S"), named_range_dim("R"))]
    g = built(decls, {"S": ["a", "b"], "p": [[1, 2], [3, 4]]})
    assert g._eval_expr(indexed("p", string("b"), lit_index(2))) == ({}, 4.0)
    assert g._eval_expr(indexed("p", string("a"), lit_index(1))) == ({}, 1.0)


def test_parameter_over_a_set_and_a_range_is_normalised_to_nested_maps():
    decls = [S_DECL, range_decl("R", 1, 2), param_indexed("p", named_set_dim("S"), named_range_dim("R"))]
    g = built(decls, {"S": ["a", "b"], "p": [[1, 2], [3, 4]]})
    assert g.data_dict["p"] == {"a": {1: 1.0, 2: 2.0}, "b": {1: 3.0, 2: 4.0}}


# ---------------------------------------------------------------- data lines


def test_data_lines_are_python_that_gives_back_the_data():
    decls = [
        param_inline("k", 4),
        S_DECL,
        range_decl("R", 1, 3),
        param_indexed("cost", named_range_dim("R")),
    ]
    data = {"n": 3, "ratio": 0.25, "label": "it's", "S": ["a", "b"], "cost": [1.5, 2, 3]}
    lines = script_lines(decls, data)
    section = data_section(lines)
    assert "# Data from .dat file" in section
    assert "n = 3" in section
    assert "ratio = 0.25" in section
    assert "label = " + repr("it's") in section
    assert "cost = [1.5, 2, 3]" in section
    assert "k = 4" in section
    assert "S_index = {v: i for i, v in enumerate(S)}" in section
    values = exec_lines(section)
    for key, value in dict(data, k=4).items():
        assert values[key] == value, key
    assert values["S_index"] == {"a": 0, "b": 1}


def test_data_lines_of_many_value_kinds_run_back_to_the_data():
    data = {
        "flag": True,
        "nothing": None,
        "eps": 1e-06,
        "big": 1e16,
        "neg": -0.0,
        "quote": 'say "hi" it\'s',
        "nested": [[1, 2.5], [3, 4]],
        "mixed": {1: "a", "k": [1, 2]},
    }
    section = data_section(script_lines([], data))
    for key, value in data.items():
        assert key + " = " + repr(value) in section
    values = exec_lines(section)
    for key, value in data.items():
        assert values[key] == value, key
        assert type(values[key]) is type(value), key
    assert str(values["neg"]) == "-0.0"


def test_typed_set_of_integers_gets_an_index_line():
    lines = data_section(script_lines([typed_set("T", external=True)], {"T": [5, 7, 9]}))
    assert "T = [5, 7, 9]" in lines
    assert "T_index = {v: i for i, v in enumerate(T)}" in lines
    assert exec_lines(lines)["T_index"] == {5: 0, 7: 1, 9: 2}


def test_tuple_set_line_gives_its_members():
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc")]
    lines = data_section(script_lines(decls, {"Arcs": [["a", 1], ["b", 2]]}))
    assert "Arcs = [('a', 1), ('b', 2)]" in lines
    values = exec_lines(lines)
    assert [tuple(m) for m in values["Arcs"]] == [("a", 1), ("b", 2)]


def test_data_lines_come_before_the_variables():
    lines = script_lines([S_DECL], {"S": ["a"]})
    assert lines.index("# Data from .dat file") < lines.index("# Build LP vectors/matrices")
    assert lines.index("# Build LP vectors/matrices") < lines.index("# Variable definitions")
