"""`LinearProblem.A_eq` and `A_ub`: sparse-backed row sequences that read like
lists of dense rows."""

import numpy as np
import pytest
import scipy.sparse

from conftest import binop, constraint, dvar, minimize, model, name, num
from lp_builders import generator

UB_ROWS = [[1.0, 2.0, 0.0], [1.0, 0.0, -1.0], [0.0, 1.1e-12, 0.0]]
EQ_ROWS = [[0.0, 0.5, 0.0]]


@pytest.fixture(scope="module")
def problem():
    cons = [
        constraint("<=", binop("+", name("x"), binop("*", num(2), name("y"))), num(4)),
        constraint(">=", binop("-", name("z"), name("x")), num(1)),
        constraint("==", binop("*", num(0.5), name("y")), num(3)),
        constraint("<=", binop("*", num(1.1e-12), name("y")), num(9)),
    ]
    return generator(model([dvar("x"), dvar("y"), dvar("z")], minimize(name("x")), cons)).build_problem()


@pytest.fixture(scope="module")
def no_eq_problem():
    return generator(model([dvar("x"), dvar("y")], minimize(name("x")), [constraint("<=", name("x"), num(1))])).build_problem()


def test_length(problem):
    assert len(problem.A_ub) == 3
    assert len(problem.A_eq) == 1
    assert problem.b_ub == [4.0, -1.0, 9.0]
    assert problem.b_eq == [3.0]


def test_indexing(problem):
    assert problem.A_ub[0] == UB_ROWS[0]
    assert problem.A_ub[1] == UB_ROWS[1]
    assert problem.A_ub[2] == UB_ROWS[2]
    assert problem.A_eq[0] == EQ_ROWS[0]


def test_negative_indexing(problem):
    assert problem.A_ub[-1] == UB_ROWS[2]
    assert problem.A_ub[-3] == UB_ROWS[0]
    assert problem.A_eq[-1] == EQ_ROWS[0]


@pytest.mark.parametrize("index", [3, -4, 100])
def test_index_out_of_range(problem, index):
    with pytest.raises(IndexError):
        problem.A_ub[index]


def test_rows_are_lists_of_floats(problem):
    for row in problem.A_ub:
        assert type(row) is list
        assert all(type(v) is float for v in row)
    assert type(problem.A_eq[0][0]) is float


def test_iteration_gives_the_dense_rows(problem):
    assert list(problem.A_ub) == UB_ROWS
    assert [row for row in problem.A_eq] == EQ_ROWS


def test_rows_are_new_lists(problem):
    row = problem.A_ub[0]
    row[0] = 99.0
    assert problem.A_ub[0] == UB_ROWS[0]
    rows = problem.A_ub.tolist()
    rows[1][2] = 42.0
    assert problem.A_ub.tolist() == UB_ROWS


def test_equality_with_a_list_of_lists(problem):
    assert problem.A_ub == UB_ROWS
    assert UB_ROWS == problem.A_ub
    assert problem.A_eq == EQ_ROWS
    assert not (problem.A_ub != UB_ROWS)


def test_inequality_with_other_lists(problem):
    assert problem.A_ub != UB_ROWS[:2]
    assert problem.A_ub != [[1.0, 2.0, 0.0], [1.0, 0.0, -1.0], [0.0, 0.0, 0.0]]
    assert problem.A_ub != []
    assert problem.A_eq != [[0.0, 0.5]]


def test_repr_reads_like_a_list_of_lists(problem):
    assert repr(problem.A_ub) == repr(UB_ROWS)
    assert repr(problem.A_eq) == "[[0.0, 0.5, 0.0]]"


def test_tolist(problem):
    rows = problem.A_ub.tolist()
    assert type(rows) is list
    assert rows == UB_ROWS
    assert all(type(r) is list for r in rows)


def test_shape_and_nnz(problem):
    assert problem.A_ub.shape == (3, 3)
    assert problem.A_eq.shape == (1, 3)
    # x, 2y; x, -z; the 1.1e-12 entry is above the tolerance
    assert problem.A_ub.nnz == 5
    assert problem.A_eq.nnz == 1


def test_tocsr(problem):
    m = problem.A_ub.tocsr()
    assert scipy.sparse.issparse(m)
    assert m.format == "csr"
    assert m.shape == (3, 3)
    assert m.nnz == 5
    assert m.toarray().tolist() == UB_ROWS
    assert m.indices.tolist() == [0, 1, 0, 2, 1]
    assert m.indptr.tolist() == [0, 2, 4, 5]


def test_numpy_array(problem):
    a = np.asarray(problem.A_ub)
    assert a.shape == (3, 3)
    assert a.dtype == np.float64
    assert a.tolist() == UB_ROWS
    assert np.array_equal(np.asarray(problem.A_eq), np.array(EQ_ROWS))


def test_rows_are_read_only(problem):
    with pytest.raises(TypeError):
        problem.A_ub[0] = [0.0, 0.0, 0.0]
    with pytest.raises((TypeError, AttributeError)):
        problem.A_ub.append([0.0, 0.0, 0.0])
    assert problem.A_ub == UB_ROWS


def test_empty_system(no_eq_problem):
    a = no_eq_problem.A_eq
    assert len(a) == 0
    assert a == []
    assert list(a) == []
    assert a.tolist() == []
    assert repr(a) == "[]"
    assert a.shape == (0, 2)
    assert a.nnz == 0
    assert a.tocsr().shape == (0, 2)
    assert np.asarray(a).shape == (0, 2)
    with pytest.raises(IndexError):
        a[0]


def test_matrices_solve_with_linprog(problem):
    from scipy.optimize import linprog

    # minimize x subject to the rows above with all variables >= 0:
    # y = 6 from the equality, x + 12 <= 4 is then impossible
    res = linprog(
        problem.c,
        A_ub=problem.A_ub.tocsr(),
        b_ub=problem.b_ub,
        A_eq=problem.A_eq.tocsr(),
        b_eq=problem.b_eq,
        bounds=problem.bounds,
        method="highs",
    )
    assert res.status == 2
