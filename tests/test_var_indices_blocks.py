"""var_indices behaves as a dict filled column by column, however the engine stores it."""

import pytest

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError


def num(v):
    return {"type": "number", "value": v}


def rng(a, b):
    return {"type": "range_index", "start": num(a), "end": num(b)}


def array(name, *dims, **extra):
    return {"type": "dvar_indexed", "name": name, "var_type": "float+", "dimensions": list(dims), **extra}


def scalar(name):
    return {"type": "dvar", "name": name, "var_type": "float"}


def built(*declarations):
    g = SciPyCSCCodeGenerator({"declarations": list(declarations), "constraints": []})
    g._build_variables()
    return g


def reference(names):
    """What a dict filled with name -> column in column order holds."""
    ref = {}
    for column, name in enumerate(names):
        ref[name] = column
    return ref


def assert_like_a_dict(g):
    ref = reference(g.var_names)
    assert g.var_indices == ref
    assert list(g.var_indices) == list(ref)


def test_two_dimensional_array():
    g = built(array("x", rng(1, 3), rng(1, 2)))
    assert g.var_names == ["x_1_1", "x_1_2", "x_2_1", "x_2_2", "x_3_1", "x_3_2"]
    assert_like_a_dict(g)


def test_three_dimensional_array_with_negative_range():
    g = built(array("y", rng(-2, 0), rng(1, 2), rng(5, 6)))
    assert g.var_names[0] == "y_-2_1_5"
    assert g.var_names[-1] == "y_0_2_6"
    assert_like_a_dict(g)


def test_scalar_named_like_an_element_later_takes_the_name_keeping_its_place():
    g = built(array("x", rng(1, 2), rng(1, 2)), scalar("x_1_2"), scalar("z"))
    assert g.var_names == ["x_1_1", "x_1_2", "x_2_1", "x_2_2", "x_1_2", "z"]
    assert g.var_indices["x_1_2"] == 4
    assert_like_a_dict(g)


def test_scalar_named_like_an_element_first():
    g = built(scalar("x_2_1"), array("x", rng(1, 2), rng(1, 2)))
    assert g.var_indices["x_2_1"] == 3
    assert_like_a_dict(g)


def test_overlapping_arrays():
    # x over 1..2 x 1..3 and x_1 over 1..3 share the names x_1_1 .. x_1_3.
    g = built(array("x", rng(1, 2), rng(1, 3)), array("x_1", rng(1, 3)))
    assert g.var_indices["x_1_3"] == 8
    assert_like_a_dict(g)


def test_same_array_declared_twice():
    g = built(array("x", rng(1, 2)), array("x", rng(1, 2)))
    assert g.var_indices == {"x_1": 2, "x_2": 3}
    assert_like_a_dict(g)


def test_array_with_bound_expressions():
    i = {"type": "name", "value": "i"}
    g = built(array("w", rng(1, 3), iterators=[{"iterator": "i"}], upper_bound=i))
    assert g.bounds == [[0, 1.0], [0, 2.0], [0, 3.0]]
    assert_like_a_dict(g)


def test_empty_range_records_nothing():
    g = built(array("x", rng(1, 0), rng(1, 3)), scalar("x_1_1"))
    assert g.var_indices == {"x_1_1": 0}


@pytest.mark.parametrize("spelling", ["x_01_2", "x_1_02", "x_+1_2", "x_1_2_", "x__1_2", "x_1", "x_1_2_3", "x_3_1", "x_0_1"])
def test_other_spellings_are_not_variables(spelling):
    g = built(array("x", rng(1, 2), rng(1, 2)))
    assert spelling not in g.var_indices
    with pytest.raises(SemanticError, match="not found in environment"):
        g._lookup_var_or_param(spelling)


def test_subscripted_lookup_finds_every_column():
    g = built(array("x", rng(1, 3), rng(2, 4)))
    for column, name in enumerate(g.var_names):
        i, j = (int(part) for part in name.split("_")[1:])
        assert g._lookup_var_or_param("x", [i, j]) == (True, name, False)
        assert g._lookup_var_or_param(name) == (True, name, False)
        assert g._eval_expr(
            {"type": "indexed_name", "name": "x", "dimensions": [{"type": "number_literal_index", "value": i},
                                                                {"type": "number_literal_index", "value": j}]}
        ) == ({name: 1.0}, 0.0)


def test_bracket_spelling_finds_an_element():
    # The lookup that removes round brackets also sees the array's names.
    g = built(array("x", rng(1, 2), rng(1, 2)))
    assert g._lookup_var_or_param("x", ["(1", "2)"]) == (True, "x_1_2", False)


def test_array_with_only_unknown_dimensions_has_one_column():
    # Unknown dimension kinds are passed over; the product of no dimensions
    # has one empty member, which names the column "x_".
    g = built(array("x", {"type": "mystery_dimension"}))
    assert g.var_names == ["x_"]
    assert "# OPL: dvar float+ x[]" in g.scipy_code_lines
    assert_like_a_dict(g)
