"""Row names of the LinearProblem: where each stored row came from.

A row is named after the label of its OPL constraint, or ``c<N>`` (the
constraint's 1-based position among the model's top-level constraints) when
it has none, followed by the values of the enclosing forall iterators
(``[v]`` each; text unquoted, integers as digits, tuples as ``<a,b>``), then
``#<role>`` for rows of a logical encoding. A repeated name gets ``#2``,
``#3``, ... in row order.
"""

from __future__ import annotations

import sys
from pathlib import Path

import numpy as np
import pytest
from scipy.optimize import linprog

from kolva import opl
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "bench"))
from bench_transport import transport_model  # noqa: E402


def build(tmp_path, mod: str, dat: str | None = None):
    (tmp_path / "m.mod").write_text(mod)
    paths = [tmp_path / "m.mod"]
    if dat is not None:
        (tmp_path / "m.dat").write_text(dat)
        paths.append(tmp_path / "m.dat")
    tree, data = opl.load(*paths)
    return SciPyCSCCodeGenerator(tree, data).build_problem()


def check_shape(p):
    assert len(p.row_names_ub) == len(p.b_ub)
    assert len(p.row_names_eq) == len(p.b_eq)
    every = [*p.row_names_ub, *p.row_names_eq]
    assert len(set(every)) == len(every)
    assert all(isinstance(n, str) and n for n in every)


LABELLED = """
{string} Plants = {"north", "south"};
range Weeks = 1..2;
tuple Arc { string from; int week; }
{Arc} Arcs = {<"north", 1>, <"south", 2>};
float cap[Plants] = [5, 7];
dvar float+ x[Plants][Weeks];
minimize sum(p in Plants, w in Weeks) x[p][w];
subject to {
  forall(p in Plants) ctCapacity: sum(w in Weeks) x[p][w] <= cap[p];
  forall(p in Plants, w in Weeks) ctLow: x[p][w] >= 1;
  forall(a in Arcs) ctArc: x[a.from][a.week] == 2;
  forall(w in Weeks) forall(p in Plants) x[p][w] <= 4;
  x["north"][1] + x["south"][2] <= 9;
}
"""


def test_labelled_and_unlabelled_rows_in_row_order(tmp_path):
    p = build(tmp_path, LABELLED)
    check_shape(p)
    assert p.row_names_ub == [
        "ctCapacity[north]",
        "ctCapacity[south]",
        "ctLow[north][1]",
        "ctLow[north][2]",
        "ctLow[south][1]",
        "ctLow[south][2]",
        "c4[1][north]",
        "c4[1][south]",
        "c4[2][north]",
        "c4[2][south]",
        "c5",
    ]
    assert p.row_names_eq == ["ctArc[<north,1>]", "ctArc[<south,2>]"]


def test_a_named_row_holds_its_own_constraint(tmp_path):
    p = build(tmp_path, LABELLED)
    ub = {name: i for i, name in enumerate(p.row_names_ub)}
    col = {name: i for i, name in enumerate(p.var_names)}
    a_ub = np.asarray(p.A_ub.toarray() if hasattr(p.A_ub, "toarray") else p.A_ub, dtype=float)
    # ctCapacity[south]: x[south][1] + x[south][2] <= 7
    row = a_ub[ub["ctCapacity[south]"]]
    assert p.b_ub[ub["ctCapacity[south]"]] == 7.0
    south = [i for n, i in col.items() if "south" in n]
    assert sorted(np.nonzero(row)[0].tolist()) == sorted(south)
    # ctLow[north][2] is -x[north][2] <= -1
    assert p.b_ub[ub["ctLow[north][2]"]] == -1.0
    assert np.count_nonzero(a_ub[ub["ctLow[north][2]"]]) == 1
    # The problem still solves as before: each x is 2 on an arc and 1 elsewhere.
    a_eq = np.asarray(p.A_eq.toarray() if hasattr(p.A_eq, "toarray") else p.A_eq, dtype=float)
    res = linprog(p.c, A_ub=a_ub, b_ub=p.b_ub, A_eq=a_eq, b_eq=p.b_eq, bounds=[(lo, hi) for lo, hi in p.bounds])
    assert res.status == 0
    assert res.fun == pytest.approx(6.0)


def test_logical_rows_carry_the_name_of_their_constraint_and_a_role(tmp_path):
    mod = """
range R = 1..2;
dvar int x[R] in 0..5;
dvar boolean y;
minimize sum(r in R) x[r];
subject to {
  ctImp: y == 1 => x[1] >= 3;
  ctCount: sum(r in R) (x[r] >= 2) >= 1;
  x[2] <= 4;
}
"""
    p = build(tmp_path, mod)
    check_shape(p)
    names = [*p.row_names_ub, *p.row_names_eq]
    imp = [n for n in names if n.startswith("ctImp")]
    count = [n for n in names if n.startswith("ctCount")]
    assert imp and all("#" in n for n in imp)
    assert count
    assert any("#" in n for n in count)
    assert "c3" in names


def test_json_tree_without_labels_uses_positions(tmp_path):
    tree, data = transport_model(3, 2)
    p = SciPyCSCCodeGenerator(tree, data).build_problem()
    check_shape(p)
    assert p.row_names_ub == ["c1[1]", "c1[2]", "c1[3]", "c2[1]", "c2[2]"]
    assert p.row_names_eq == []


def test_repeated_names_get_a_counter(tmp_path):
    # Two rows from one unlabelled constraint body under the same iteration.
    mod = """
range R = 1..2;
dvar float+ x[R];
minimize sum(r in R) x[r];
subject to {
  forall(r in R) { ct: x[r] <= 3; ct: x[r] >= 1; }
}
"""
    p = build(tmp_path, mod)
    check_shape(p)
    assert p.row_names_ub == ["ct[1]", "ct[1]#2", "ct[2]", "ct[2]#2"]


def test_generator_exposes_the_same_names(tmp_path):
    tree, data = transport_model(2, 2)
    gen = SciPyCSCCodeGenerator(tree, data)
    p = gen.build_problem()
    assert gen.row_names_ub == p.row_names_ub
    assert gen.row_names_eq == p.row_names_eq
