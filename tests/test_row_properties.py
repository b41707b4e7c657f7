"""Property tests: the triplets of the engine against dense rows computed
here by the plain rule (a list of 0.0, each coefficient added in order,
columns ascending, entries kept when their absolute value exceeds 1e-12,
">=" rows negated)."""

import ast as pyast

from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from builders import dvar_indexed, it, param_indexed, range_dim, range_spec, ref, sum_of
from conftest import binop, constraint, dvar, indexed, minimize, model, name, num
from kolva import _engine
from kolva.scipy_codegen_csc import BOOL_EPS
from lp_builders import csr_triplets, generator

TOL = 1e-12

SPECIAL = [1e-12, -1e-12, 1.1e-12, -1.1e-12, 9.99e-13, 1.0000001e-12, 2e-12, 5e-13, 0.0, -0.0, 1.0, -1.0, 0.5, 3.0, -2.5]

COEFS = st.one_of(
    st.sampled_from(SPECIAL),
    st.floats(min_value=-3e-12, max_value=3e-12, allow_nan=False),
    st.floats(min_value=-1e3, max_value=1e3, allow_nan=False, allow_infinity=False),
    st.floats(min_value=-1e12, max_value=1e12, allow_nan=False, allow_infinity=False),
)

SETTINGS = settings(max_examples=120, deadline=None, suppress_health_check=[HealthCheck.too_slow])


def stored(dense_row):
    """(col, value) pairs the rule keeps."""
    return [(col, v) for col, v in enumerate(dense_row) if abs(v) > TOL]


# ---------------------------------------------------------------- model constraints


@st.composite
def sides(draw, n_vars):
    """A list of terms (joining op, var index or None for a constant, value)."""
    terms = draw(
        st.lists(
            st.tuples(
                st.sampled_from(["+", "-"]),
                st.one_of(st.integers(min_value=0, max_value=n_vars - 1), st.none()),
                COEFS,
            ),
            min_size=1,
            max_size=6,
        )
    )
    return terms


def side_node(terms):
    def term_node(var, value):
        return num(value) if var is None else binop("*", num(value), name("x%d" % var))

    node = term_node(terms[0][1], terms[0][2])
    for op, var, value in terms[1:]:
        node = binop(op, node, term_node(var, value))
    return node


def side_totals(terms):
    """Per-variable coefficient and constant of one side, added in order."""
    coefs, const = {}, 0.0
    for k, (op, var, value) in enumerate(terms):
        signed = value if (k == 0 or op == "+") else -value
        if var is None:
            const = const + signed
        else:
            coefs[var] = coefs.get(var, 0.0) + signed
    return coefs, const


def reference_row(n_vars, left, right, op):
    lcoefs, lconst = side_totals(left)
    rcoefs, rconst = side_totals(right)
    row = [0.0] * n_vars
    for var, v in lcoefs.items():
        row[var] += v
    for var, v in rcoefs.items():
        row[var] -= v
    rhs = rconst - lconst
    if op == "==":
        return "eq", row, rhs
    if op == "<=":
        return "ub", row, rhs
    if op == "<":
        return "ub", row, rhs - BOOL_EPS
    if op == ">":
        return "ub", [-v for v in row], -(rhs + BOOL_EPS)
    return "ub", [-v for v in row], -rhs


@st.composite
def models(draw):
    n_vars = draw(st.integers(min_value=1, max_value=4))
    cons = draw(
        st.lists(
            st.tuples(sides(n_vars), sides(n_vars), st.sampled_from(["<=", "==", ">=", "<", ">"])),
            min_size=1,
            max_size=3,
        )
    )
    return n_vars, cons


def reference_systems(n_vars, cons):
    systems = {"eq": ([], [], [], [], []), "ub": ([], [], [], [], [])}
    for left, right, op in cons:
        kind, row, rhs = reference_row(n_vars, left, right, op)
        rows, cols, data, b, dense = systems[kind]
        for col, v in stored(row):
            rows.append(len(b))
            cols.append(col)
            data.append(v)
        b.append(rhs)
        dense.append(row)
    return systems


def script_value(lines, prefix):
    found = [line for line in lines if line.startswith(prefix)]
    assert len(found) == 1
    return pyast.literal_eval(found[0][len(prefix):])


def same_dense(actual, expected):
    # compare rows entry by entry; dropped entries read back as 0.0
    assert len(actual) == len(expected)
    for a_row, e_row in zip(actual, expected):
        assert a_row == [v if abs(v) > TOL else 0.0 for v in e_row]


@SETTINGS
@given(models())
def test_model_rows_match_the_dense_rule(case):
    n_vars, cons = case
    m = model(
        [dvar("x%d" % k, "float") for k in range(n_vars)],
        minimize(num(0)),
        [constraint(op, side_node(left), side_node(right)) for left, right, op in cons],
    )
    expected = reference_systems(n_vars, cons)

    lines = generator(m).generate_code().split("\n")
    problem = generator(m).build_problem()

    for kind in ("eq", "ub"):
        rows, cols, data, b, dense = expected[kind]
        assert script_value(lines, "A_%s_rows = " % kind) == rows
        assert script_value(lines, "A_%s_cols = " % kind) == cols
        assert script_value(lines, "A_%s_data = " % kind) == data
        assert script_value(lines, "b_%s = " % kind) == b

        matrix = getattr(problem, "A_" + kind)
        assert list(getattr(problem, "b_" + kind)) == b
        assert len(matrix) == len(b)
        if b:
            assert csr_triplets(matrix) == (rows, cols, data)
            assert matrix.shape == (len(b), n_vars)
            assert matrix.nnz == len(data)
        same_dense(matrix.tolist(), dense)


# ---------------------------------------------------------------- sums with repeated columns


@st.composite
def weighted_sums(draw):
    n_vars = draw(st.integers(min_value=1, max_value=4))
    weights = draw(st.lists(COEFS, min_size=1, max_size=8))
    picks = draw(st.lists(st.integers(min_value=1, max_value=n_vars), min_size=len(weights), max_size=len(weights)))
    rhs = draw(COEFS)
    op = draw(st.sampled_from(["<=", "==", ">="]))
    return n_vars, weights, picks, rhs, op


@SETTINGS
@given(weighted_sums())
def test_sum_rows_with_repeated_columns_match_the_dense_rule(case):
    # sum(k in 1..m) w[k] * x[v[k]] <op> rhs, where v may name a column twice
    n_vars, weights, picks, rhs, op = case
    m_terms = len(weights)
    decls = [
        dvar_indexed("x", range_dim(1, n_vars), var_type="float"),
        param_indexed("w", range_dim(1, m_terms)),
        param_indexed("v", range_dim(1, m_terms)),
    ]
    term = binop("*", indexed("w", ref("k")), indexed("x", indexed("v", ref("k"))))
    total = sum_of([it("k", range_spec(1, m_terms))], term)
    m = model(decls, minimize(num(0)), [constraint(op, total, num(rhs))])
    data = {"w": list(weights), "v": list(picks)}

    per_column = {}
    for w, v in zip(weights, picks):
        per_column[v - 1] = per_column.get(v - 1, 0.0) + w
    row = [0.0] * n_vars
    for col, v in per_column.items():
        row[col] += v
    b = rhs
    if op == ">=":
        row, b = [-v for v in row], -rhs
    kind = "eq" if op == "==" else "ub"
    expected = stored(row)

    lines = generator(m, data).generate_code().split("\n")
    assert script_value(lines, "A_%s_rows = " % kind) == [0] * len(expected)
    assert script_value(lines, "A_%s_cols = " % kind) == [c for c, _ in expected]
    assert script_value(lines, "A_%s_data = " % kind) == [v for _, v in expected]
    assert script_value(lines, "b_%s = " % kind) == [b]

    problem = generator(m, data).build_problem()
    matrix = getattr(problem, "A_" + kind)
    assert csr_triplets(matrix) == ([0] * len(expected), [c for c, _ in expected], [v for _, v in expected])
    same_dense(matrix.tolist(), [row])


# ---------------------------------------------------------------- storing dense rows directly


@st.composite
def appended_rows(draw):
    n_vars = draw(st.integers(min_value=1, max_value=5))
    entries = draw(
        st.lists(
            st.tuples(
                st.sampled_from(["eq", "ub"]),
                st.lists(COEFS, min_size=n_vars, max_size=n_vars),
                st.one_of(COEFS, st.sampled_from([-0.0, 1e300, -5e-324])),
            ),
            max_size=5,
        )
    )
    return n_vars, entries


@SETTINGS
@given(appended_rows())
def test_appended_rows_match_the_dense_rule(case):
    n_vars, entries = case
    g = generator(model([dvar("x%d" % k) for k in range(n_vars)], minimize(num(0)), []))
    g._build_variables()
    state = _engine._ConstraintBuildState()

    expected = {"eq": ([], [], [], []), "ub": ([], [], [], [])}
    for sense, row, rhs in entries:
        g._append_sparse_row(state, row, rhs, sense=sense)
        rows, cols, data, b = expected[sense]
        for col, v in stored(row):
            rows.append(len(b))
            cols.append(col)
            data.append(v)
        b.append(rhs)

    assert (state.A_eq_rows, state.A_eq_cols, state.A_eq_data, state.b_eq) == expected["eq"]
    assert (state.A_ub_rows, state.A_ub_cols, state.A_ub_data, state.b_ub) == expected["ub"]
    assert state.eq_row_idx == len(expected["eq"][3])
    assert state.ub_row_idx == len(expected["ub"][3])

    before = len(g.scipy_code_lines)
    g._finalize_constraint_state(state)
    lines = g.scipy_code_lines[before:]
    e_rows, e_cols, e_data, e_b = expected["eq"]
    u_rows, u_cols, u_data, u_b = expected["ub"]
    assert lines == [
        "from scipy.sparse import csr_matrix",
        "A_eq_rows = %r" % (e_rows,),
        "A_eq_cols = %r" % (e_cols,),
        "A_eq_data = %r" % (e_data,),
        "b_eq = %r" % (e_b,),
        "A_ub_rows = %r" % (u_rows,),
        "A_ub_cols = %r" % (u_cols,),
        "A_ub_data = %r" % (u_data,),
        "b_ub = %r" % (u_b,),
        "A_eq = csr_matrix((A_eq_data, (A_eq_rows, A_eq_cols)), shape=(%d, %d)) if len(b_eq) > 0 else None" % (len(e_b), n_vars),
        "A_ub = csr_matrix((A_ub_data, (A_ub_rows, A_ub_cols)), shape=(%d, %d)) if len(b_ub) > 0 else None" % (len(u_b), n_vars),
    ]
    eq_dense = [[0.0] * n_vars for _ in e_b]
    for r, c, v in zip(e_rows, e_cols, e_data):
        eq_dense[r][c] = v
    ub_dense = [[0.0] * n_vars for _ in u_b]
    for r, c, v in zip(u_rows, u_cols, u_data):
        ub_dense[r][c] = v
    assert g.A_eq == eq_dense
    assert g.A_ub == ub_dense
    assert g.b_eq == e_b
    assert g.b_ub == u_b
