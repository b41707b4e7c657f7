"""Big-M constants of comparisons, the strict-inequality shift, auxiliary
binaries, bound estimates of linear expressions and Boolean flattening."""

import pytest

from conftest import binop, bool_binop, dvar, minimize, model, name, num
from kolva.scipy_codegen_csc import BIG_M_DEFAULT, BOOL_EPS, SciPyCSCCodeGenerator
from lp_builders import and_, generator, or_


@pytest.fixture
def g():
    decls = [
        dvar("x", "float"),
        dvar("y", "float"),
        dvar("b", "boolean"),
        dvar("c2", "boolean"),
        dvar("n", "int+"),
        dvar("f", "float+"),
        dvar("k", "int"),
    ]
    gen = generator(model(decls, minimize(num(0)), []))
    gen._build_variables()
    return gen


def test_constants():
    assert BIG_M_DEFAULT == 1000000.0
    assert BOOL_EPS == 1e-06


# ---------------------------------------------------------------- big-M


def test_big_m_without_variables(g):
    # 3 <= 5: f_min = f_max = -2, width 0: M = 2 + 1
    assert g._big_m_for_comparison(bool_binop("<=", num(3), num(5))) == 3.0


def test_big_m_of_a_variable_in_the_default_box(g):
    # x >= 2: x - 2 over [-1000, 1000]: f_min -1002, f_max 998, width 2000
    assert g._big_m_for_comparison(bool_binop(">=", name("x"), num(2))) == 2001.0


def test_big_m_ignores_the_operator(g):
    for op in ("<=", ">=", "==", "<", ">", "!="):
        assert g._big_m_for_comparison(bool_binop(op, name("x"), num(2))) == 2001.0


def test_big_m_with_a_negative_coefficient(g):
    # -2x - 4: f_min = -4 - 2*1000 = -2004, f_max = -4 + 2000 = 1996, width 4000
    assert g._big_m_for_comparison(bool_binop("<=", binop("*", num(-2), name("x")), num(4))) == 4001.0


def test_big_m_with_two_variables(g):
    # x + y - 2 over the default box: [-2002, 1998], width 4000
    assert g._big_m_for_comparison(bool_binop(">=", binop("+", name("x"), name("y")), num(2))) == 4001.0


def test_big_m_with_variables_on_both_sides(g):
    # x - y over the default box: [-2000, 2000], width 4000
    assert g._big_m_for_comparison(bool_binop("<=", name("x"), name("y"))) == 4001.0


def test_big_m_with_a_large_constant(g):
    # 5000 - x: f_min 4000, f_max 6000, width 2000: the largest is 6000
    assert g._big_m_for_comparison(bool_binop("<=", num(5000), name("x"))) == 6001.0


def test_big_m_is_at_least_one(g):
    assert g._big_m_for_comparison(bool_binop("<=", num(0), num(0))) == 1.0


def test_big_m_right_side_may_be_a_plain_number(g):
    assert g._big_m_for_comparison({"left": name("x"), "right": 2}) == 2001.0
    assert g._big_m_for_comparison({"left": num(3), "right": 5.0}) == 3.0


def test_big_m_with_an_environment(g):
    comp = bool_binop("<=", name("x"), name("t"))
    # x - 7: [-1007, 993], width 2000, largest 2000
    assert g._big_m_for_comparison(comp, {"t": 7}) == 2001.0
    assert g._big_m_for_comparison(bool_binop("<=", num(0), name("t")), {"t": 7}) == 8.0


@pytest.mark.parametrize(
    "comp",
    [
        {"left": {"type": "no_such_kind"}, "right": 2},
        bool_binop("<=", binop("*", name("x"), name("y")), num(1)),
        {"right": num(1)},
        bool_binop("<=", name("nothing_by_this_name"), num(1)),
    ],
    ids=["unknown-kind", "nonlinear", "no-left", "unknown-name"],
)
def test_big_m_falls_back_to_the_default(g, comp):
    assert g._big_m_for_comparison(comp) == BIG_M_DEFAULT


# ---------------------------------------------------------------- strict inequalities


def test_strict_greater_moves_up():
    assert SciPyCSCCodeGenerator._strict_adjusted_rhs(">", 1.0) == (">=", 1.000001)
    assert SciPyCSCCodeGenerator._strict_adjusted_rhs(">", 1.0) == (">=", 1.0 + BOOL_EPS)


def test_strict_less_moves_down():
    assert SciPyCSCCodeGenerator._strict_adjusted_rhs("<", 1.0) == ("<=", 1.0 - BOOL_EPS)
    assert SciPyCSCCodeGenerator._strict_adjusted_rhs("<", -2.5) == ("<=", -2.5 - BOOL_EPS)


@pytest.mark.parametrize("op", ["<=", ">=", "==", "!=", "??"])
def test_other_operators_pass_through_as_floats(op):
    result = SciPyCSCCodeGenerator._strict_adjusted_rhs(op, 3)
    assert result == (op, 3.0)
    assert type(result[1]) is float


# ---------------------------------------------------------------- auxiliary binaries


def test_repeated_aux_binary_gets_numbered_names(g):
    start = len(g.var_names)
    names = [g._ensure_aux_binary("cmp_sum") for _ in range(3)]
    assert names == ["cmp_sum", "cmp_sum_1", "cmp_sum_2"]
    assert g.var_names[start:] == names
    assert [g.var_indices[n] for n in names] == [start, start + 1, start + 2]
    assert g.bounds[start:] == [[0, 1]] * 3
    assert g.integrality[start:] == [1, 1, 1]
    assert g.aux_created == names


def test_aux_binary_avoids_a_declared_name(g):
    assert g._ensure_aux_binary("x") == "x_1"
    assert g._ensure_aux_binary("x") == "x_2"


def test_aux_binary_extends_the_objective_vector():
    gen = generator(model([dvar("x")], minimize(name("x")), []))
    gen._build_variables()
    gen._build_objective()
    gen._ensure_aux_binary("flag")
    assert gen.c == [1.0, 0.0]
    assert gen.var_names == ["x", "flag"]


# ---------------------------------------------------------------- bound estimates


@pytest.mark.parametrize(
    "node, expected",
    [
        (name("x"), (None, None)),
        (name("b"), (0.0, 1.0)),
        (name("n"), (0.0, None)),
        (name("f"), (0.0, None)),
        (name("k"), (None, None)),
        (num(3), (3, 3)),
        (name("nobody"), (None, None)),
        ({"type": "something_else"}, (None, None)),
    ],
    ids=["float", "boolean", "int+", "float+", "int", "number", "undeclared", "other"],
)
def test_declared_bounds(g, node, expected):
    assert g._var_bounds_safe(node) == expected


def test_declared_bounds_of_a_number_default_to_zero(g):
    assert g._var_bounds_safe({"type": "number"}) == (0, 0)


@pytest.mark.parametrize(
    "node, expected",
    [
        (binop("+", binop("*", num(2), name("x")), name("y")), (None, None)),
        (binop("+", binop("*", num(2), name("b")), name("f")), (None, None)),
        (binop("+", binop("*", num(2), name("b")), binop("*", num(3), name("c2"))), (0.0, 5.0)),
        (binop("-", name("b"), name("c2")), (-1.0, 1.0)),
        (binop("*", num(-3), name("b")), (-3.0, 0.0)),
        (binop("*", name("b"), num(4)), (0.0, 4.0)),
        (binop("-", binop("*", num(-2), name("b")), name("b")), (-3.0, 0.0)),
        (binop("+", name("b"), num(5)), (5.0, 6.0)),
        ({"type": "unaryop", "op": "-", "value": name("b")}, (-1.0, 0.0)),
        ({"type": "unaryop", "op": "-", "value": name("n")}, (None, 0.0)),
        (num(2.5), (2.5, 2.5)),
        (binop("/", name("b"), num(2)), (None, None)),
        ({"type": "uminus", "value": name("b")}, (None, None)),
    ],
    ids=[
        "unbounded-variable",
        "unbounded-above",
        "two-binaries",
        "difference",
        "negative-scale",
        "scale-on-the-right",
        "scaled-difference",
        "shift",
        "unary-minus",
        "unary-minus-half-open",
        "number",
        "division",
        "uminus-node",
    ],
)
def test_linear_bounds(g, node, expected):
    assert g._linear_bounds_safe(node) == expected


def test_product_of_two_variables_has_no_bounds(g):
    assert g._linear_bounds_safe(binop("*", name("b"), name("c2"))) == (None, None)


# ---------------------------------------------------------------- Boolean helpers


def test_linear_comparison_recognition(g):
    for op in ("<=", ">=", "==", "!="):
        assert g._is_linear_comparison(bool_binop(op, name("x"), num(1)))
    assert not g._is_linear_comparison(bool_binop("<", name("x"), num(1)))
    assert not g._is_linear_comparison(bool_binop(">", name("x"), num(1)))
    assert not g._is_linear_comparison(binop("<=", name("x"), num(1)))
    assert not g._is_linear_comparison(bool_binop("+", name("x"), num(1)))
    assert not g._is_linear_comparison({"type": "constraint", "op": "<=", "sem_type": "boolean"})


def test_flatten_keeps_leaves_in_order(g):
    a, b, c = bool_binop("<=", name("x"), num(1)), name("b"), bool_binop("<", name("y"), num(2))
    assert g._flatten_bool(and_(and_(a, b), c), "and") == [a, b, c]
    assert g._flatten_bool(and_(a, and_(b, c)), "and") == [a, b, c]
    # a node of another kind is one leaf
    assert g._flatten_bool(and_(or_(a, b), c), "and") == [or_(a, b), c]
    assert g._flatten_bool(and_(a, b), "or") == [and_(a, b)]


def test_flatten_of_a_non_map(g):
    assert g._flatten_bool(5, "and") == [5]
    assert g._flatten_bool("t", "or") == ["t"]
