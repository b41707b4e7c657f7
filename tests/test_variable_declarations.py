"""The variable phase: columns from declarations, their bounds and
integrality, and the lines it writes into the script."""

import logging

import pytest

from builders import (
    dvar_indexed,
    named_range_dim,
    named_set_dim,
    param_indexed,
    range_decl,
    range_dim,
    ref,
    set_of_tuples,
    tuple_lit,
    tuple_type,
    typed_set,
)
from conftest import binop, constraint, dvar, indexed, model, name, num, string
from kolva.semantic_error import SemanticError


def built(make_gen, declarations, data=None, constraints=()):
    g = make_gen(model(declarations, None, constraints), data)
    g._build_variables()
    return g


def error_of(make_gen, declarations, data=None):
    g = make_gen(model(declarations), data)
    with pytest.raises(SemanticError) as excinfo:
        g._build_variables()
    return str(excinfo.value)


# ---------------------------------------------------------------- scalar variables


def test_scalar_defaults_by_type(make_gen):
    g = built(make_gen, [dvar("x", "float+"), dvar("y", "int"), dvar("z", "mystery"), {"type": "dvar", "name": "w"}])
    assert g.var_names == ["x", "y", "z", "w"]
    assert g.bounds == [[0, None], [None, None], [None, None], [None, None]]
    assert g.integrality == [0, 1, 0, 0]
    assert g.var_indices == {"x": 0, "y": 1, "z": 2, "w": 3}
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = ['x', 'y', 'z', 'w']",
        "bounds = [[0, None], [None, None], [None, None], [None, None]]",
        "integrality = [0, 1, 0, 0]",
    ]


def test_scalar_bound_keys_are_not_read(make_gen):
    decl = dict(dvar("x", "boolean"), lower_bound=num(5), upper_bound=num(7))
    g = built(make_gen, [decl])
    assert g.bounds == [[0, 1]]


def test_columns_follow_declaration_order_and_a_repeated_name_gets_a_new_column(make_gen):
    g = built(make_gen, [dvar("x", "boolean"), dvar("y", "int+"), dvar("x", "float")])
    assert g.var_names == ["x", "y", "x"]
    assert g.var_indices == {"x": 2, "y": 1}
    assert g.bounds == [[0, 1], [0, None], [None, None]]
    assert g.integrality == [1, 1, 0]


def test_unknown_declaration_kind(make_gen):
    assert error_of(make_gen, [dvar("x"), {"type": "mystery", "name": "m"}]) == "Unsupported declaration type: mystery"


def test_non_variable_declarations_create_no_column(make_gen):
    decls = [
        range_decl("R", 1, 3),
        {"type": "range_declaration_external", "name": "E"},
        {"type": "set_declaration", "name": "S"},
        {"type": "parameter_inline", "name": "k", "value": 2},
        {"type": "parameter_inline_indexed", "name": "q", "dimensions": [range_dim(1, 2)], "value": [1, 2]},
        {"type": "parameter_external", "name": "p"},
        param_indexed("pi", range_dim(1, 2)),
        {"type": "parameter_external_explicit", "name": "pe"},
        {"type": "parameter_external_explicit_indexed", "name": "pei", "dimensions": [range_dim(1, 2)]},
        typed_set("T", [1]),
        typed_set("TE", external=True),
        tuple_type("Arc", "a"),
        set_of_tuples("A", "Arc"),
        set_of_tuples("AE", "Arc", external=True),
        {"type": "set_of_tuples_array_external", "name": "AA"},
        {"type": "tuple_array", "name": "TA", "tuple_type": "Arc", "index_set": "T"},
        {"type": "tuple_array_external", "name": "TAE", "tuple_type": "Arc", "index_set": "T"},
        {"type": "dexpr", "name": "d", "expression": num(1)},
        {"type": "dexpr_indexed", "name": "di", "expression": num(1)},
    ]
    g = built(make_gen, decls)
    assert g.var_names == []
    assert g.scipy_code_lines == ["# Variable definitions", "var_names = []", "bounds = []", "integrality = []"]


# ---------------------------------------------------------------- arrays over ranges and sets


def test_range_by_set_product_order_and_comment(make_gen):
    decls = [typed_set("S", external=True), dvar_indexed("x", range_dim(1, 2), named_set_dim("S"), var_type="float")]
    g = built(make_gen, decls, {"S": ["a", "b"]})
    assert g.var_names == ["x_1_a", "x_1_b", "x_2_a", "x_2_b"]
    assert g.var_indices == {"x_1_a": 0, "x_1_b": 1, "x_2_a": 2, "x_2_b": 3}
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "# OPL: dvar float x[range(1, 2 + 1), S]",
        "var_names = ['x_1_a', 'x_1_b', 'x_2_a', 'x_2_b']",
        "# Alias: x['1_a']",
        "# Alias: x['1_b']",
        "# Alias: x['2_a']",
        "# Alias: x['2_b']",
        "bounds = [[None, None], [None, None], [None, None], [None, None]]",
        "integrality = [0, 0, 0, 0]",
    ]


def test_integer_array_over_a_range(make_gen):
    g = built(make_gen, [dvar_indexed("n", range_dim(0, 2), var_type="int+")])
    assert g.var_names == ["n_0", "n_1", "n_2"]
    assert g.bounds == [[0, None], [0, None], [0, None]]
    assert g.integrality == [1, 1, 1]
    assert "# OPL: dvar int+ n[range(0, 2 + 1)]" in g.scipy_code_lines


def test_range_bounds_are_printed_as_written_and_evaluated_for_members(make_gen):
    dim = range_dim(1, binop("+", name("n"), num(1)))
    g = built(make_gen, [dvar_indexed("x", dim, var_type="boolean")], {"n": 2})
    assert g.var_names == ["x_1", "x_2", "x_3"]
    assert "# OPL: dvar boolean x[range(1, (n + 1) + 1)]" in g.scipy_code_lines


def test_float_range_bounds_are_cut_to_integers(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(1.0, 2.0))])
    assert g.var_names == ["x_1", "x_2"]
    assert "# OPL: dvar float+ x[range(1.0, 2.0 + 1)]" in g.scipy_code_lines


def test_negative_members_get_no_alias(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(-1, 0))])
    assert g.var_names == ["x_-1", "x_0"]
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "# OPL: dvar float+ x[range(-1, 0 + 1)]",
        "var_names = ['x_-1', 'x_0']",
        "# Alias: x['0']",
        "bounds = [[0, None], [0, None]]",
        "integrality = [0, 0]",
    ]


def test_named_range_dimension(make_gen):
    decls = [range_decl("R", 2, 3), dvar_indexed("x", named_range_dim("R"), var_type="int")]
    g = built(make_gen, decls)
    assert g.var_names == ["x_2", "x_3"]
    assert g.integrality == [1, 1]
    assert "# OPL: dvar int x[range(2, 3 + 1)]" in g.scipy_code_lines


def test_unknown_named_range(make_gen):
    decls = [{"type": "range_declaration_external", "name": "R"}, dvar_indexed("x", named_range_dim("R"))]
    assert error_of(make_gen, decls) == "Not found: range 'R'"


def test_unknown_dimension_kind_is_passed_over(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(1, 2), {"type": "weird_dimension", "name": "W"})])
    assert g.var_names == ["x_1", "x_2"]
    assert "# OPL: dvar float+ x[range(1, 2 + 1)]" in g.scipy_code_lines


def test_empty_range_makes_no_column_but_keeps_the_comment(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(1, 0))])
    assert g.var_names == []
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "# OPL: dvar float+ x[range(1, 0 + 1)]",
        "var_names = []",
        "bounds = []",
        "integrality = []",
    ]


def test_empty_set_in_a_product_makes_no_column(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(1, 3), named_set_dim("S"))], {"S": []})
    assert g.var_names == []
    assert "# OPL: dvar float+ x[range(1, 3 + 1), S]" in g.scipy_code_lines


def test_missing_set_in_a_product_makes_no_column(make_gen):
    g = built(make_gen, [dvar_indexed("x", named_set_dim("S"), range_dim(1, 3))])
    assert g.var_names == []
    assert "# OPL: dvar float+ x[S, range(1, 3 + 1)]" in g.scipy_code_lines


def test_inline_set_value_is_not_read_for_a_product(make_gen):
    # Only the one-dimensional path falls back to the declaration's value;
    # a product reads the set from the data alone.
    decls = [typed_set("T", ["p", "q"]), dvar_indexed("b", named_set_dim("T"), range_dim(1, 2))]
    g = built(make_gen, decls)
    assert g.var_names == []
    assert "# OPL: dvar float+ b[T, range(1, 2 + 1)]" in g.scipy_code_lines


def test_missing_var_type_prints_none(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(1, 1), var_type=None)])
    assert "# OPL: dvar None x[range(1, 1 + 1)]" in g.scipy_code_lines
    assert g.bounds == [[None, None]]
    assert g.integrality == [0]


def test_tuple_set_in_a_product_names_members_by_their_text(make_gen):
    decls = [
        tuple_type("Arc", "src", "n"),
        set_of_tuples("Arcs", "Arc"),
        dvar_indexed("x", named_set_dim("Arcs"), range_dim(1, 2), var_type="boolean"),
    ]
    g = built(make_gen, decls, {"Arcs": [["a", 1]]})
    assert g.var_names == ["x_('a', 1)_1", "x_('a', 1)_2"]
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "# OPL: dvar boolean x[Arcs, range(1, 2 + 1)]",
        "var_names = " + repr(["x_('a', 1)_1", "x_('a', 1)_2"]),
        "bounds = [[0, 1], [0, 1]]",
        "integrality = [1, 1]",
    ]


# ---------------------------------------------------------------- one dimension over a named set


def test_array_over_a_tuple_set_uses_the_tuple_form_and_writes_no_comment(make_gen):
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc"), dvar_indexed("x", named_set_dim("Arcs"))]
    g = built(make_gen, decls, {"Arcs": [["a", 1]]})
    assert g.var_names == ["x[('a', 1)]"]
    assert g.var_indices == {"x[('a', 1)]": 0}
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = " + repr(["x[('a', 1)]"]),
        "bounds = [[0, None]]",
        "integrality = [0]",
    ]


def test_array_over_an_inline_tuple_set(make_gen):
    members = [tuple_lit(string("a"), num(1)), tuple_lit(string("b"), num(2))]
    decls = [
        tuple_type("Arc", "src", "n"),
        set_of_tuples("Arcs", "Arc", members),
        dvar_indexed("x", named_set_dim("Arcs"), var_type="int"),
    ]
    g = built(make_gen, decls)
    assert g.var_names == ["x[('a', 1)]", "x[('b', 2)]"]
    assert g.integrality == [1, 1]


def test_array_over_an_external_tuple_set_with_one_member_tuples(make_gen):
    decls = [
        tuple_type("One", "k"),
        set_of_tuples("Ones", "One", external=True),
        dvar_indexed("x", named_set_dim("Ones")),
    ]
    g = built(make_gen, decls, {"Ones": [["a"], ["b"]]})
    assert g.var_names == ["x[('a',)]", "x[('b',)]"]


def test_array_over_a_plain_set_uses_the_plain_form(make_gen):
    decls = [typed_set("S", external=True), dvar_indexed("x", named_set_dim("S"), var_type="boolean")]
    g = built(make_gen, decls, {"S": ["a", "b", 3]})
    assert g.var_names == ["x_a", "x_b", "x_3"]
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = ['x_a', 'x_b', 'x_3']",
        "# Alias: x['a']",
        "# Alias: x['b']",
        "# Alias: x['3']",
        "bounds = [[0, 1], [0, 1], [0, 1]]",
        "integrality = [1, 1, 1]",
    ]


def test_plain_set_members_come_from_data_before_the_declaration(make_gen):
    decls = [typed_set("S", ["p", "q"]), dvar_indexed("x", named_set_dim("S"))]
    assert built(make_gen, decls).var_names == ["x_p", "x_q"]
    assert built(make_gen, decls, {"S": ["r"]}).var_names == ["x_r"]


def test_plain_set_without_data_or_value(make_gen):
    assert built(make_gen, [typed_set("S"), dvar_indexed("x", named_set_dim("S"))]).var_names == []
    assert built(make_gen, [dvar_indexed("x", named_set_dim("Nowhere"))]).var_names == []


# ---------------------------------------------------------------- bound expressions


def test_upper_bound_mentioning_the_iterator(make_gen):
    decl = dvar_indexed("x", range_dim(1, 3), iterators=["i"], upper_bound=name("i"))
    g = built(make_gen, [decl])
    assert g.bounds == [[0, 1.0], [0, 2.0], [0, 3.0]]
    assert "bounds = [[0, 1.0], [0, 2.0], [0, 3.0]]" in g.scipy_code_lines


def test_both_bounds_per_member_of_a_product(make_gen):
    decl = dvar_indexed(
        "x",
        range_dim(1, 2),
        range_dim(1, 2),
        var_type="int",
        iterators=["i", "j"],
        lower_bound=binop("-", name("i"), num(1)),
        upper_bound=binop("*", name("i"), name("j")),
    )
    g = built(make_gen, [decl])
    assert g.bounds == [[0.0, 1.0], [0.0, 2.0], [1.0, 2.0], [1.0, 4.0]]
    assert "bounds = [[0.0, 1.0], [0.0, 2.0], [1.0, 2.0], [1.0, 4.0]]" in g.scipy_code_lines
    assert g.integrality == [1, 1, 1, 1]


def test_bound_over_a_named_set_binds_the_first_iterator_to_the_member(make_gen):
    decls = [
        typed_set("S", external=True),
        param_indexed("cap", named_set_dim("S")),
        dvar_indexed("x", named_set_dim("S"), iterators=["s"], upper_bound=indexed("cap", ref("s"))),
    ]
    g = built(make_gen, decls, {"S": ["a", "b"], "cap": {"a": 2, "b": 5}})
    assert g.bounds == [[0, 2.0], [0, 5.0]]


def test_present_bound_key_holding_null_clears_the_default(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(1, 1), lower_bound=None)])
    assert g.bounds == [[None, None]]
    g = built(make_gen, [dvar_indexed("x", range_dim(1, 1), var_type="boolean", upper_bound=None)])
    assert g.bounds == [[0, None]]


def test_bound_that_is_no_node_is_used_as_it_stands(make_gen):
    g = built(make_gen, [dvar_indexed("x", range_dim(1, 2), upper_bound=7)])
    assert g.bounds == [[0, 7], [0, 7]]
    assert "bounds = [[0, 7], [0, 7]]" in g.scipy_code_lines


def test_bound_mentioning_a_decision_variable(make_gen):
    decls = [dvar("z"), dvar_indexed("x", range_dim(1, 2), upper_bound=binop("+", name("z"), num(1)))]
    assert error_of(make_gen, decls) == "Decision variables are not supported in dvar declaration bounds."


def test_bound_mentioning_a_decision_variable_over_a_named_set(make_gen):
    decls = [dvar("z"), dvar_indexed("x", named_set_dim("S"), lower_bound=name("z"))]
    assert error_of(make_gen, decls, {"S": ["a"]}) == (
        "Decision variables are not supported in dvar declaration bounds."
    )


# ---------------------------------------------------------------- alias comments


def test_alias_comments(make_gen):
    names = ["x_1", "y[2]", "_x", "x_", "x_a-b", "ab_cd_ef", "plain"]
    g = built(make_gen, [dvar(n, "boolean") for n in names])
    assert g.scipy_code_lines == [
        "# Variable definitions",
        "var_names = " + repr(names),
        "# Alias: x['1']",
        "# Alias: ab['cd_ef']",
        "bounds = " + repr([[0, 1]] * len(names)),
        "integrality = " + repr([1] * len(names)),
    ]


def test_alias_uses_pythons_notion_of_alphanumeric(make_gen):
    names = ["x_\u00e9", "y_\u00df1", "z_\u0663", "v_1\u00b2", "w_a b", "u__", "t_a.b"]
    g = built(make_gen, [dvar(n, "boolean") for n in names])
    expected = []
    for n in names:
        base, idx = n.split("_", 1)
        if base and idx and idx.replace("_", "").isalnum():
            expected.append("# Alias: " + base + "['" + idx + "']")
    assert expected == [
        "# Alias: x['\u00e9']",
        "# Alias: y['\u00df1']",
        "# Alias: z['\u0663']",
        "# Alias: v['1\u00b2']",
    ]
    assert [line for line in g.scipy_code_lines if line.startswith("# Alias: ")] == expected


# ---------------------------------------------------------------- _add_variable and _infer_var_bounds


def test_add_variable_suffixes_on_a_clash(make_gen):
    g = make_gen(variables=["x", "x_2"])
    assert g._add_variable("x", 2.0, 3.0) == ("x_1", 2)
    assert g._add_variable("x") == ("x_3", 3)
    assert g._add_variable("y") == ("y", 4)
    assert g.var_names == ["x", "x_2", "x_1", "x_3", "y"]
    assert g.var_indices == {"x": 0, "x_2": 1, "x_1": 2, "x_3": 3, "y": 4}
    assert g.lower_bounds == [0.0, 0.0, 2.0, 0.0, 0.0]
    assert g.upper_bounds == [1.0, 1.0, 3.0, 1.0, 1.0]
    assert g.bounds == []
    assert g.c == []


def test_infer_bounds_of_a_known_column(make_gen):
    decls = [dvar("x", "float"), dvar_indexed("y", range_dim(1, 2), var_type="boolean"), dvar("z", "int+")]
    g = built(make_gen, decls)
    assert tuple(g._infer_var_bounds("x")) == (None, None)
    assert tuple(g._infer_var_bounds("y_2")) == (0, 1)
    assert tuple(g._infer_var_bounds("z")) == (0, None)


def test_infer_bounds_of_an_unknown_name(make_gen):
    g = built(make_gen, [dvar("x", "boolean")])
    assert tuple(g._infer_var_bounds("nowhere")) == (None, None)
    assert tuple(g._infer_var_bounds("x_9")) == (None, None)


def test_infer_bounds_sees_tightened_bounds(make_gen):
    g = built(make_gen, [dvar("x", "float+")], constraints=[constraint("<=", name("x"), num(4))])
    assert tuple(g._infer_var_bounds("x")) == (0, 4.0)


# ---------------------------------------------------------------- debug lines


def test_debug_lines_of_the_general_path(make_gen, debug_logs):
    dims = [range_dim(1, 2)]
    g = make_gen(model([dvar_indexed("x", *dims)]))
    messages = debug_logs()
    g._build_variables()
    debug = messages(logging.DEBUG)
    tag = "[SciPyCSCCodeGenerator] "
    expected = [
        tag + "_handle_indexed_variable_declaration: name=x, dims=" + str(dims),
        tag + "Fallback for x, dims=" + str(dims),
        tag + "Range for x: start=1, end=2",
        tag + "Adding range-indexed variable: x_1",
        tag + "Adding range-indexed variable: x_2",
    ]
    assert [m for m in debug if m.startswith(tag)] == expected


def test_debug_lines_of_named_ranges_and_sets(make_gen, debug_logs):
    decls = [range_decl("R", 1, 1), dvar_indexed("x", named_range_dim("R"), named_set_dim("S"))]
    g = make_gen(model(decls), {"S": ["a"]})
    messages = debug_logs()
    g._build_variables()
    debug = messages(logging.DEBUG)
    assert "[SciPyCSCCodeGenerator] Named range for x: start=1, end=1" in debug
    assert "[SciPyCSCCodeGenerator] Named set for S: ['a']" in debug
    assert "[SciPyCSCCodeGenerator] Adding range-indexed variable: x_1_a" in debug


def test_debug_line_of_the_named_set_path(make_gen, debug_logs):
    g = make_gen(model([dvar_indexed("x", named_set_dim("S"))]), {"S": ["a", "b"]})
    messages = debug_logs()
    g._build_variables()
    debug = messages(logging.DEBUG)
    assert "[SciPyCSCCodeGenerator] Elements for x over S: ['a', 'b']" in debug
    assert not any("Fallback for x" in m for m in debug)


def test_debug_line_of_a_tuple_set(make_gen, debug_logs):
    decls = [tuple_type("Arc", "src", "n"), set_of_tuples("Arcs", "Arc"), dvar_indexed("x", named_set_dim("Arcs"))]
    g = make_gen(model(decls), {"Arcs": [["a", 1]]})
    messages = debug_logs()
    g._build_variables()
    assert "[SciPyCSCCodeGenerator] Elements for x over Arcs: [('a', 1)]" in messages(logging.DEBUG)
