"""What a name with subscripts stands for: variables, data parameters, inline
parameters, and the subscript evaluator."""

import logging

import pytest

from conftest import binop, dvar, model, name, num, param_inline, range_index
from kolva.semantic_error import SemanticError


def not_found(name_, indices):
    return f"Parameter or variable '{name_}' with indices {indices} not found in environment."


def lookup_error(gen, *args, **kwargs):
    with pytest.raises(SemanticError) as excinfo:
        gen._lookup_var_or_param(*args, **kwargs)
    return str(excinfo.value)


def param_external_indexed(pname, *dims):
    return {"type": "parameter_external_indexed", "name": pname, "dimensions": list(dims)}


def dvar_indexed(vname, *dims, var_type="float+"):
    return {"type": "dvar_indexed", "name": vname, "var_type": var_type, "dimensions": list(dims)}


# ---------------------------------------------------------------- error builders


def test_not_found_error_is_built_not_raised(make_gen):
    err = make_gen()._not_found_error("range", "R")
    assert isinstance(err, SemanticError)
    assert str(err) == "Not found: range 'R'"


def test_unsupported_type_error_text(make_gen):
    err = make_gen()._unsupported_type_error("iterator range type", "weird")
    assert isinstance(err, SemanticError)
    assert str(err) == "Semantic Error: Unsupported iterator range type type: weird"


def test_unsupported_operator_error_text(make_gen):
    err = make_gen()._unsupported_operator_error("index bound binop", "/")
    assert isinstance(err, SemanticError)
    assert str(err) == "Semantic Error: Unsupported operator in index bound binop: /"


def test_built_errors_can_be_raised(make_gen):
    with pytest.raises(SemanticError) as excinfo:
        raise make_gen()._not_found_error("tuple field", "f")
    assert str(excinfo.value) == "Not found: tuple field 'f'"


# ---------------------------------------------------------------- order of lookup


def test_variable_is_found_first(make_gen):
    g = make_gen(data={"x": 5}, variables=["x"])
    assert g._lookup_var_or_param("x") == (True, "x", False)


def test_iterator_shadows_parameter_and_variable_without_subscripts(make_gen):
    g = make_gen(data={"i": 5}, variables=["x"])
    assert g._lookup_var_or_param("i", None, {"i": 2}) == (False, 2, False)
    assert type(g._lookup_var_or_param("i", None, {"i": 2})[1]) is int
    assert g._lookup_var_or_param("x", None, {"x": "a"}) == (False, "a", False)


def test_iterator_does_not_shadow_a_subscripted_parameter(make_gen):
    g = make_gen(data={"p": [10, 20]})
    assert g._lookup_var_or_param("p", [2], {"p": 99}) == (False, 20.0, False)


def test_iterator_wins_in_an_expression(make_gen):
    g = make_gen(data={"i": 5})
    assert g._eval_expr(name("i"), {"i": 2}) == ({}, 2.0)
    assert g._eval_expr(name("i")) == ({}, 5.0)


def test_missing_parameter_with_default_zero(make_gen):
    g = make_gen()
    assert g._lookup_var_or_param("zz", None, None, True) == (False, 0.0, False)
    assert g._lookup_var_or_param("zz", [1, 2], {}, default_zero_if_missing=True) == (False, 0.0, False)


def test_missing_parameter_without_default(make_gen):
    g = make_gen()
    assert lookup_error(g, "zz") == not_found("zz", None)
    assert lookup_error(g, "zz", [1, "a"]) == not_found("zz", [1, "a"])


def test_missing_parameter_is_logged_as_an_error(make_gen, caplog):
    g = make_gen()
    with caplog.at_level(logging.ERROR):
        with pytest.raises(SemanticError):
            g._lookup_var_or_param("zz", [3])
    assert (
        "[resolve_param_value] SemanticError: Parameter or variable 'zz' with indices [3] not found in environment."
        in [r.getMessage() for r in caplog.records if r.levelno == logging.ERROR]
    )


# ---------------------------------------------------------------- scalar data


def test_scalar_shapes(make_gen):
    g = make_gen(data={"n": 3, "f": 2.5, "s": "txt", "b": True, "e": ""})
    assert g._lookup_var_or_param("n") == (False, 3.0, False)
    assert type(g._lookup_var_or_param("n")[1]) is float
    assert g._lookup_var_or_param("f") == (False, 2.5, False)
    assert g._lookup_var_or_param("s") == (False, "txt", False)
    assert g._lookup_var_or_param("b") == (False, True, False)
    assert g._lookup_var_or_param("b")[1] is True
    assert g._lookup_var_or_param("e") == (False, "", False)


def test_non_scalar_without_subscripts_is_not_found(make_gen):
    g = make_gen(data={"lst": [1, 2], "mp": {"a": 1}})
    assert lookup_error(g, "lst") == not_found("lst", None)
    assert lookup_error(g, "mp") == not_found("mp", None)


def test_null_data_entry_is_not_found(make_gen):
    g = make_gen(data={"p": None})
    assert lookup_error(g, "p") == not_found("p", None)


# ---------------------------------------------------------------- lists and offsets


def test_list_without_declaration_starts_at_one(make_gen):
    g = make_gen(data={"p": [10, 20, 30]})
    assert g._lookup_var_or_param("p", [1]) == (False, 10.0, False)
    assert g._lookup_var_or_param("p", [3]) == (False, 30.0, False)


def test_list_with_a_declared_range_starts_at_its_start(make_gen):
    ast = model([param_external_indexed("p", range_index(5, 7))])
    g = make_gen(ast, data={"p": [10, 20, 30]})
    assert g._lookup_var_or_param("p", [5]) == (False, 10.0, False)
    assert g._lookup_var_or_param("p", [7]) == (False, 30.0, False)


def test_list_with_a_named_range_starts_at_its_start(make_gen):
    ast = model(
        [
            {"type": "range_declaration_inline", "name": "R", "start": num(5), "end": num(7)},
            param_external_indexed("p", {"type": "named_range_dimension", "name": "R"}),
        ]
    )
    g = make_gen(ast, data={"p": [10, 20, 30]})
    assert g._lookup_var_or_param("p", [6]) == (False, 20.0, False)


def test_list_offset_below_the_start_reads_from_the_end(make_gen):
    ast = model([param_external_indexed("p", range_index(5, 7))])
    g = make_gen(ast, data={"p": [10, 20, 30]})
    assert g._lookup_var_or_param("p", [4]) == (False, 30.0, False)


def test_index_past_the_end_is_not_found(make_gen):
    g = make_gen(data={"p": [10, 20, 30]})
    assert lookup_error(g, "p", [9]) == not_found("p", [9])


def test_nested_lists_take_one_index_per_level(make_gen):
    g = make_gen(data={"m": [[1, 2], [3, 4]]})
    assert g._lookup_var_or_param("m", [2, 1]) == (False, 3.0, False)


def test_integral_float_index_reads_a_list(make_gen):
    g = make_gen(data={"p": [10, 20]})
    assert g._lookup_var_or_param("p", [2.0]) == (False, 20.0, False)


def test_non_integer_index_into_a_list_is_not_found(make_gen):
    g = make_gen(data={"p": [10, 20]})
    assert lookup_error(g, "p", [1.5]) == not_found("p", [1.5])
    assert lookup_error(g, "p", ["a"]) == not_found("p", ["a"])


def test_string_subscripts_are_evaluated_with_the_env(make_gen):
    g = make_gen(data={"p": [10, 20, 30]})
    assert g._lookup_var_or_param("p", ["i+1"], {"i": 1}) == (False, 20.0, False)


# ---------------------------------------------------------------- maps


def test_map_parameter(make_gen):
    g = make_gen(data={"cost": {"a": 1.5, "b": 2}})
    assert g._lookup_var_or_param("cost", ["b"]) == (False, 2.0, False)


def test_map_entry_that_is_a_string_map_or_list(make_gen):
    g = make_gen(data={"p": {"s": "txt", "m": {"k": 1}, "l": [1, 2], "t": (1, "a"), "b": False}})
    assert g._lookup_var_or_param("p", ["s"]) == (False, "txt", False)
    assert g._lookup_var_or_param("p", ["m"]) == (False, {"k": 1}, False)
    assert g._lookup_var_or_param("p", ["l"]) == (False, [1, 2], False)
    assert g._lookup_var_or_param("p", ["t"]) == (False, (1, "a"), False)
    assert g._lookup_var_or_param("p", ["b"]) == (False, 0.0, False)


def test_map_key_missing_is_not_found(make_gen):
    g = make_gen(data={"cost": {"a": 1}})
    assert lookup_error(g, "cost", ["z"]) == not_found("cost", ["z"])


def test_map_suffix_entry_is_preferred(make_gen):
    g = make_gen(data={"p": [1, 2], "p__map": {"a": 7}})
    assert g._lookup_var_or_param("p", ["a"]) == (False, 7.0, False)


def test_tuple_key_as_one_index_or_as_several(make_gen):
    g = make_gen(data={"p": {(1, "a"): 5, (2, "b"): 6}})
    assert g._lookup_var_or_param("p", [(1, "a")]) == (False, 5.0, False)
    assert g._lookup_var_or_param("p", [1, "a"]) == (False, 5.0, False)
    assert g._lookup_var_or_param("p", [2, "b"]) == (False, 6.0, False)


def test_flat_key_value_list_becomes_a_map_and_stays_one(make_gen):
    g = make_gen(data={"p": ["a", 1, "b", 2.5]})
    assert g._lookup_var_or_param("p", ["b"]) == (False, 2.5, False)
    assert g.data_dict["p"] == {"a": 1, "b": 2.5}
    assert g._lookup_var_or_param("p", ["a"]) == (False, 1.0, False)


def test_list_of_pairs_becomes_a_map_with_tuple_keys(make_gen):
    g = make_gen(data={"p": [[[1, 2], 5], [[3, 4], 6]]})
    assert g._lookup_var_or_param("p", [3, 4]) == (False, 6.0, False)
    assert g.data_dict["p"] == {(1, 2): 5, (3, 4): 6}


def test_flat_list_is_not_converted_by_a_scalar_lookup(make_gen):
    g = make_gen(data={"p": ["a", 1, "b", 2]})
    with pytest.raises(SemanticError):
        g._lookup_var_or_param("p")
    assert g.data_dict["p"] == ["a", 1, "b", 2]


def test_numeric_list_is_not_taken_for_key_value_pairs(make_gen):
    g = make_gen(data={"p": [10, 20, 30, 40]})
    assert g._lookup_var_or_param("p", [2]) == (False, 20.0, False)
    assert g.data_dict["p"] == [10, 20, 30, 40]


@pytest.mark.parametrize(
    "data, expected",
    [
        (["a", 1, "b", 2.5], {"a": 1, "b": 2.5}),
        ([], None),
        (["a"], None),
        (["a", "b"], None),
        ([1, 2], None),
        (["a", 1, "b"], None),
        ("a1", None),
    ],
)
def test_convert_flat_key_value_list(make_gen, data, expected):
    assert make_gen()._convert_flat_kv_to_dict(data) == expected


# ---------------------------------------------------------------- inline parameters


def test_inline_scalar_parameter_is_found_through_the_tree_when_data_is_not_scalar(make_gen):
    g = make_gen(model([param_inline("p", 5)]), data={"p": {"k": 1}})
    assert g._lookup_var_or_param("p") == (False, 5.0, False)
    # Subscripts are not looked at for an inline scalar.
    assert g._lookup_var_or_param("p", ["zz"]) == (False, 5.0, False)


def test_inline_indexed_parameter_counts_from_one(make_gen):
    ast = model([{"type": "parameter_inline_indexed", "name": "q", "dimensions": [range_index(1, 3)],
                  "value": [10, 20, 30]}])
    g = make_gen(ast)
    assert g._lookup_var_or_param("q", [2]) == (False, 20.0, False)


def test_inline_indexed_parameter_ignores_its_declared_start(make_gen):
    ast = model([{"type": "parameter_inline_indexed", "name": "q", "dimensions": [range_index(5, 7)],
                  "value": [10, 20, 30]}])
    g = make_gen(ast)
    assert g._lookup_var_or_param("q", [2]) == (False, 20.0, False)


def test_inline_indexed_parameter_with_a_map_and_nested_lists(make_gen):
    ast = model(
        [
            {"type": "parameter_inline_indexed", "name": "m", "dimensions": [], "value": {"a": 4}},
            {"type": "parameter_inline_indexed", "name": "n", "dimensions": [], "value": [[1, 2], [3, 4]]},
        ]
    )
    g = make_gen(ast)
    assert g._lookup_var_or_param("m", ["a"]) == (False, 4.0, False)
    assert g._lookup_var_or_param("n", [2, 2]) == (False, 4.0, False)


def test_inline_indexed_parameter_past_the_end_is_not_found(make_gen):
    ast = model([{"type": "parameter_inline_indexed", "name": "q", "dimensions": [], "value": [1]}])
    g = make_gen(ast)
    assert lookup_error(g, "q", [5]) == not_found("q", [5])


# ---------------------------------------------------------------- variables


def test_indexed_variable_names(make_gen):
    g = make_gen(variables=["x_1", "x_1_a", "x_2"])
    assert g._lookup_var_or_param("x", [1]) == (True, "x_1", False)
    assert g._lookup_var_or_param("x", [1.0]) == (True, "x_1", False)
    assert g._lookup_var_or_param("x", [True]) == (True, "x_1", False)
    assert g._lookup_var_or_param("x", [1, "a"]) == (True, "x_1_a", False)


def test_variable_named_with_a_tuple_is_found_whatever_its_brackets(make_gen):
    g = make_gen(variables=["x_1, 2"])
    assert g._lookup_var_or_param("x", [(1, 2)]) == (True, "x_1, 2", False)


def test_index_outside_a_declared_range_is_a_domain_error(make_gen):
    g = make_gen(model([dvar_indexed("x", range_index(1, 3))]))
    assert lookup_error(g, "x", [9]) == "Index [9] for 'x' is out of declared domain (9 not in [1..3])"
    assert lookup_error(g, "x", [0]) == "Index [0] for 'x' is out of declared domain (0 not in [1..3])"


def test_non_integer_index_of_a_ranged_variable_is_a_domain_error(make_gen):
    g = make_gen(model([dvar_indexed("x", range_index(1, 3))]))
    assert lookup_error(g, "x", [2.5]) == "Index [2.5] for 'x' is out of declared domain (2.5 not in [1..3])"


def test_index_outside_a_named_range_is_a_domain_error(make_gen):
    ast = model(
        [
            {"type": "range_declaration_inline", "name": "R", "start": num(2), "end": binop("+", num(2), num(2))},
            dvar_indexed("x", {"type": "named_range_dimension", "name": "R"}),
        ]
    )
    g = make_gen(ast)
    assert lookup_error(g, "x", [5]) == "Index [5] for 'x' is out of declared domain (5 not in [2..4])"


def test_index_outside_a_named_set_is_a_domain_error(make_gen):
    ast = model([dvar_indexed("x", {"type": "named_set_dimension", "name": "S"})])
    g = make_gen(ast, data={"S": ["a", "b"]})
    assert lookup_error(g, "x", ["c"]) == "Index ['c'] for 'x' is out of declared domain (c not in S)"


def test_several_out_of_domain_indices_are_all_reported(make_gen):
    ast = model([dvar_indexed("x", range_index(1, 3), range_index(1, 2))])
    g = make_gen(ast)
    assert lookup_error(g, "x", [4, 5]) == (
        "Index [4, 5] for 'x' is out of declared domain (4 not in [1..3]; 5 not in [1..2])"
    )


def test_index_inside_the_domain_without_a_column_is_simply_not_found(make_gen):
    g = make_gen(model([dvar_indexed("x", range_index(1, 3))]))
    assert lookup_error(g, "x", [2]) == not_found("x", [2])


def test_domain_error_is_logged_at_debug_level(make_gen, debug_logs):
    g = make_gen(model([dvar_indexed("x", range_index(1, 3))]))
    messages = debug_logs()
    with pytest.raises(SemanticError):
        g._lookup_var_or_param("x", [9])
    assert "[resolve_variable] Index [9] for 'x' is out of declared domain (9 not in [1..3])" in messages(
        logging.DEBUG
    )


# ---------------------------------------------------------------- debug lines


def test_variable_lookup_debug_lines(make_gen, debug_logs):
    g = make_gen(variables=["x", "y_1", "z_1, 2"])
    messages = debug_logs()
    g._lookup_var_or_param("x")
    g._lookup_var_or_param("y", [1.0])
    g._lookup_var_or_param("z", [(1, 2)])
    logged = messages(logging.DEBUG)
    assert "[resolve_variable] Found scalar variable: x" in logged
    assert "[resolve_variable] Trying indexed variable: y_1 (indices=[1])" in logged
    assert "[resolve_variable] Found indexed variable: y_1" in logged
    assert "[resolve_variable] Trying indexed variable: z_(1, 2) (indices=[(1, 2)])" in logged
    assert "[resolve_variable] Found symbolic indexed variable: z_1, 2" in logged


def test_variable_not_found_debug_lines(make_gen, debug_logs):
    g = make_gen(data={"p": 1, "q": [4]})
    messages = debug_logs()
    g._lookup_var_or_param("p")
    g._lookup_var_or_param("q", [1])
    logged = messages(logging.DEBUG)
    assert "[resolve_variable] Scalar variable not found: p" in logged
    assert "[resolve_variable] Indexed variable not found: q_1 (indices=[1])" in logged


def test_list_parameter_debug_lines(make_gen, debug_logs):
    g = make_gen(data={"p": [10, 20]})
    messages = debug_logs()
    g._lookup_var_or_param("p", [2])
    logged = messages(logging.DEBUG)
    assert "[resolve_parameter] Lookup param: p, indices=[2], val=[10, 20], env={}" in logged
    assert "[resolve_parameter] Index eval: idx=2, idx_eval=2, v=[10, 20], env={}" in logged
    assert "[resolve_parameter] List lookup with start=1: v[1] (len=2)" in logged
    assert "[resolve_parameter] Found numeric param: 20" in logged


def test_map_parameter_debug_lines(make_gen, debug_logs):
    g = make_gen(data={"p": {"a": 1, "b": {"k": 2}}})
    messages = debug_logs()
    g._lookup_var_or_param("p", ["b"], {"i": 1})
    logged = messages(logging.DEBUG)
    assert "[resolve_parameter] Dict lookup: v[b] (keys=['a', 'b'])" in logged
    assert "[resolve_parameter] Found dict param: {'k': 2}" in logged


def test_conversion_debug_line(make_gen, debug_logs):
    g = make_gen(data={"p": ["a", 1, "b", 2]})
    messages = debug_logs()
    g._lookup_var_or_param("p", ["a"])
    assert "[resolve_parameter] Converted flat KV list to dict for param 'p': {'a': 1, 'b': 2}" in messages(
        logging.DEBUG
    )


def test_non_int_index_debug_lines(make_gen, debug_logs):
    g = make_gen(data={"p": [10, 20]})
    messages = debug_logs()
    with pytest.raises(SemanticError):
        g._lookup_var_or_param("p", ["a"])
    logged = messages(logging.DEBUG)
    assert any(m.startswith("[resolve_parameter] Non-int index: idx_eval=a (type=") for m in logged)
    assert (
        "[resolve_parameter] Exception during lookup: "
        "Index 'a' could not be resolved to int (got a) for param 'p' with env={}"
    ) in logged
    assert "[resolve_parameter] Param not found: p, indices=['a']" in logged


def test_scalar_parameter_debug_lines(make_gen, debug_logs):
    g = make_gen(data={"n": 3, "s": "txt"})
    messages = debug_logs()
    g._lookup_var_or_param("n")
    g._lookup_var_or_param("s")
    logged = messages(logging.DEBUG)
    assert "[resolve_parameter] Found scalar param: 3" in logged
    assert any(m.startswith("[resolve_parameter] Found scalar non-numeric param: ") and "txt" in m for m in logged)
    assert "[resolve_parameter] Lookup param: n, indices=None, val=3, env={}" in logged


def test_other_dispatch_debug_lines(make_gen, debug_logs):
    g = make_gen(data={"p": {"s": "txt", "l": [1, 2]}})
    messages = debug_logs()
    g._lookup_var_or_param("p", ["s"])
    g._lookup_var_or_param("p", ["l"])
    logged = messages(logging.DEBUG)
    assert any(m.startswith("[resolve_parameter] Found scalar indexed param: ") and "txt" in m for m in logged)
    assert any(m.startswith("[resolve_parameter] Found list/tuple param: ") and "[1, 2]" in m for m in logged)


# ---------------------------------------------------------------- subscript evaluator


@pytest.mark.parametrize(
    "text, env, expected",
    [
        ("3", {}, 3),
        ("-3", {}, -3),
        ("2.5", {}, 2.5),
        ("(1, 2)", {}, (1, 2)),
        ("(1, 'a')", {}, (1, "a")),
        ("'a'", {}, "a"),
        ("i+1", {"i": 2}, 3),
        ("i + 1", {"i": 2.0}, 3),
        ("1+2", {}, 3),
        ("i*2-1", {"i": 4}, 7),
        ("-i", {"i": 2}, -2),
        ("i//2", {"i": 5}, 2),
        ("0.5+0.5", {}, 1),
        ("1.5+1", {}, 2.5),
        ("(i, i+1)", {"i": 1}, (1, 2)),
        ("b+1", {"b": True}, 2),
        ("i/2", {"i": 2}, "i/2"),
        ("2**3", {}, "2**3"),
        ("s", {}, "s"),
        ("i", {"i": "a"}, "i"),
        ("i+1", {"i": "a"}, "i+1"),
        ("'a'+'b'", {}, "'a'+'b'"),
        ("x y", {}, "x y"),
        ("f(1)", {}, "f(1)"),
    ],
)
def test_eval_index_on_text(make_gen, text, env, expected):
    result = make_gen()._eval_index(text, env)
    assert result == expected
    assert type(result) is type(expected)


def test_eval_index_reads_names_from_data_when_the_env_lacks_them(make_gen):
    g = make_gen(data={"n": 4, "h": 2.0})
    assert g._eval_index("n*2", {}) == 8
    assert g._eval_index("h+1", {}) == 3
    assert type(g._eval_index("h+1", {})) is int
    assert g._eval_index("n+1", {"n": 10}) == 11


@pytest.mark.parametrize("value", [5, 2.5, (1, 2), None, True])
def test_eval_index_returns_non_text_unchanged(make_gen, value):
    result = make_gen()._eval_index(value, {})
    assert result == value
    assert type(result) is type(value)


# ---------------------------------------------------------------- declarations and bounds


def test_find_decl_returns_the_first_match(make_gen):
    first = {"type": "parameter_external", "name": "p"}
    second = param_inline("p", 1)
    g = make_gen(model([dvar("x"), first, second]), data={"p": 3})
    assert g._find_decl("p") == first
    assert g._find_decl("nowhere") is None


def test_find_decl_with_a_kind_skips_a_namesake_of_another_kind(make_gen):
    first = {"type": "parameter_external", "name": "p"}
    second = param_inline("p", 1)
    g = make_gen(model([first, second]), data={"p": 3})
    assert g._find_decl("p", "parameter_inline") == second
    assert g._find_decl("p", "dvar") is None


def test_find_decl_needs_declarations(make_gen):
    g = make_gen({"constraints": []})
    with pytest.raises(KeyError):
        g._find_decl("p")


def test_find_decls_returns_all_matches_in_order(make_gen):
    a = {"type": "parameter_external", "name": "p"}
    b = param_inline("p", 1)
    c = {"type": "parameter_external", "name": "p", "extra": 1}
    g = make_gen(model([a, dvar("x"), b, c]), data={"p": 3})
    assert g._find_decls("p") == [a, b, c]
    assert g._find_decls("p", "parameter_external") == [a, c]
    assert g._find_decls("q") == []


def test_find_decls_without_declarations_is_empty(make_gen):
    assert make_gen({"constraints": []})._find_decls("p") == []


@pytest.mark.parametrize(
    "expr, expected",
    [
        (num(5), 5),
        (num(2.5), 2.5),
        (name("n"), 4),
        (name("unknown"), 1),
        (binop("+", num(2), name("n")), 6),
        (binop("-", num(2), num(5)), -3),
        (binop("*", num(3), name("n")), 12),
        ({"type": "uminus", "value": num(3)}, -3),
        ({"type": "parenthesized_expression", "expression": num(7)}, 7),
        ({"type": "minl", "args": [num(3), num(1), num(2)]}, 1),
        ({"type": "maxl", "args": [num(3), name("n")]}, 4),
    ],
)
def test_eval_bound(make_gen, expr, expected):
    assert make_gen(data={"n": 4})._eval_bound(expr) == expected


@pytest.mark.parametrize(
    "expr, message",
    [
        (binop("/", num(4), num(2)), "Semantic Error: Unsupported operator in index bound binop: /"),
        ({"type": "minl", "args": []}, "Semantic Error: Unsupported expr in index bound type: minl"),
        ({"type": "maxl"}, "Semantic Error: Unsupported expr in index bound type: maxl"),
        ({"type": "string_literal", "value": "a"}, "Semantic Error: Unsupported expr in index bound type: string_literal"),
    ],
)
def test_eval_bound_errors(make_gen, expr, message):
    with pytest.raises(SemanticError) as excinfo:
        make_gen()._eval_bound(expr)
    assert str(excinfo.value) == message


def test_eval_bound_on_a_non_map(make_gen):
    with pytest.raises(SemanticError) as excinfo:
        make_gen()._eval_bound(5)
    assert str(excinfo.value).startswith("Semantic Error: Unsupported expr in index bound type: ")


def test_tuple_parameter_is_indexed_from_zero(make_gen, debug_logs):
    # Only lists get the start offset; any other sequence is indexed as it stands.
    g = make_gen(data={"p": (10, 20, 30)})
    messages = debug_logs()
    assert g._lookup_var_or_param("p", [1]) == (False, 20.0, False)
    assert any(m.startswith("[resolve_parameter] List/dict lookup: v[1] (type=") for m in messages(logging.DEBUG))


def test_string_parameter_indexed_gives_one_character(make_gen):
    g = make_gen(data={"p": "abc"})
    assert g._lookup_var_or_param("p", [1]) == (False, "b", False)
