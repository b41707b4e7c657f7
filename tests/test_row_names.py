"""Each row of the LinearProblem carries where it came from: the OPL label
with the forall iterator values, or c<position> without a label."""

import pytest
from conftest import constraint, dvar, maximize, model, name, num

from kolva import opl
from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator


def load(tmp_path, mod, dat=None):
    (tmp_path / "m.mod").write_text(mod)
    files = [tmp_path / "m.mod"]
    if dat is not None:
        (tmp_path / "m.dat").write_text(dat)
        files.append(tmp_path / "m.dat")
    return opl.load(*files)


def names_of(tree, data):
    problem = SciPyCSCCodeGenerator(tree, data).build_problem()
    assert len(problem.row_names_ub) == len(problem.b_ub)
    assert len(problem.row_names_eq) == len(problem.b_eq)
    return problem.row_names_ub, problem.row_names_eq


def test_labels_with_forall_values_over_strings_and_integers(tmp_path):
    tree, data = load(tmp_path, """
{string} Plants = ...;
range T = 1..2;
float cap[Plants] = ...;
dvar float+ x[Plants][T];
maximize sum(p in Plants, t in T) x[p][t];
subject to {
  forall(p in Plants, t in T)
    ctCapacity: x[p][t] <= cap[p];
  forall(t in T)
    ctBalance: x["Ghent"][t] == x["Lyon"][t];
}
""", 'Plants = {"Ghent", "Lyon"};\ncap = [3, 4];\n')
    ub, eq = names_of(tree, data)
    assert ub == ["ctCapacity[Ghent][1]", "ctCapacity[Ghent][2]", "ctCapacity[Lyon][1]", "ctCapacity[Lyon][2]"]
    assert eq == ["ctBalance[1]", "ctBalance[2]"]


def test_nested_foralls_and_tuple_members(tmp_path):
    tree, data = load(tmp_path, """
tuple Arc { int from; int to; }
{Arc} Arcs = ...;
dvar float+ f[Arcs];
maximize sum(a in Arcs) f[a];
subject to {
  forall(a in Arcs)
    forall(k in 1..2)
      ctFlow: k * f[a] <= 6;
}
""", "Arcs = {<1,2>, <2,3>};\n")
    ub, _ = names_of(tree, data)
    assert ub == ["ctFlow[<1,2>][1]", "ctFlow[<1,2>][2]", "ctFlow[<2,3>][1]", "ctFlow[<2,3>][2]"]


def test_unlabelled_constraints_are_named_by_their_position():
    tree = model([dvar("x"), dvar("y")], maximize(name("x")),
                 [constraint("<=", name("x"), num(3)), constraint(">=", name("y"), num(1)),
                  constraint("==", name("x"), name("y"))])
    assert names_of(tree, {}) == (["c1", "c2"], ["c3"])


def test_rows_of_one_logical_constraint_are_told_apart(tmp_path):
    tree, data = load(tmp_path, """
dvar int x in 0..10;
dvar boolean b;
maximize x;
subject to {
  ctLink: (b == 1) => (x <= 4);
  ctOn: b == 1;
}
""")
    # The front end gives the implication to the generator as an or-of-and
    # asserted true: its rows say so, and are told apart by #2, #3, ...
    ub, eq = names_of(tree, data)
    logical = [n for n in ub if n.startswith("ctLink")]
    assert len(logical) > 1
    assert logical == ["ctLink#or_and"] + [f"ctLink#or_and#{k}" for k in range(2, len(logical) + 1)]
    # The domain of x gives the first two rows, unlabelled.
    assert ub[:2] == ["c1", "c2"]
    assert eq == ["ctOn", "ctOn#2"]


def test_each_encoding_says_its_role():
    b = {"type": "dvar", "name": "b", "var_type": "boolean"}
    x = {"type": "dvar", "name": "x", "var_type": "int"}
    bounds = [constraint("<=", name("x"), num(10)), constraint(">=", name("x"), num(0))]
    implication = {"type": "implication_constraint", "antecedent": constraint("==", name("b"), num(1)),
                   "consequent": constraint("<=", name("x"), num(4))}
    tree = model([b, x], maximize(name("x")), bounds + [dict(implication, opl_label="ctImp")])
    ub, _ = names_of(tree, {})
    assert ub[:2] == ["c1", "c2"]
    assert ub[2:] and all(n.startswith("ctImp#implication") for n in ub[2:])


def test_names_are_unique_even_when_a_label_repeats(tmp_path):
    tree, data = load(tmp_path, """
dvar float+ x;
maximize x;
subject to {
  forall(i in 1..2) ct: x <= i + 3;
  forall(i in 1..2) ct2: x <= i + 5;
}
""")
    tree["constraints"][1]["constraints"][0]["opl_label"] = "ct"  # two constraints, one label
    ub, _ = names_of(tree, data)
    assert ub == ["ct[1]", "ct[2]", "ct[1]#2", "ct[2]#2"]
    assert len(set(ub)) == len(ub)


def test_a_label_that_looks_like_a_suffix_stays_unique():
    tree = model([dvar("x")], maximize(name("x")),
                 [dict(constraint("<=", name("x"), num(3)), opl_label="a"),
                  dict(constraint("<=", name("x"), num(4)), opl_label="a"),
                  dict(constraint("<=", name("x"), num(5)), opl_label="a#2")])
    ub, _ = names_of(tree, {})
    assert ub == ["a", "a#2", "a#2#2"]
    assert len(set(ub)) == 3


def test_top_level_binary_assignments_are_named_by_their_constraint():
    tree = model([dvar("x"), {"type": "dvar", "name": "b", "var_type": "boolean"}], maximize(name("x")),
                 [constraint("<=", name("x"), num(3)), dict(constraint("==", name("b"), num(1)), opl_label="ctB")])
    # The constraint gives its row, and the 0/1 assignment pass adds the
    # same equality once more: a second row of the same constraint.
    ub, eq = names_of(tree, {})
    assert ub == ["c1"]
    assert eq == ["ctB", "ctB#2"]
    tree["constraints"][1].pop("opl_label")
    assert names_of(tree, {}) == (["c1"], ["c2", "c2#2"])


def test_rows_from_a_build_state_are_named_by_position():
    from kolva._engine import _ConstraintBuildState

    gen = SciPyCSCCodeGenerator(model([dvar("x")], maximize(name("x"))), {})
    gen._build_variables()
    state = _ConstraintBuildState()
    state.A_ub_rows, state.A_ub_cols, state.A_ub_data, state.b_ub = [0, 1], [0, 0], [1.0, 2.0], [3.0, 4.0]
    gen._finalize_constraint_state(state)
    gen._reconcile_problem_metadata()
    problem = gen._snapshot_linear_problem()
    assert problem.row_names_ub == ["ub1", "ub2"] and problem.row_names_eq == []


def test_the_names_leave_the_other_fields_and_the_script_unchanged():
    tree = model([dvar("x")], maximize(name("x")), [constraint("<=", name("x"), num(3))])
    problem = SciPyCSCCodeGenerator(tree, {}).build_problem()
    assert "row_names" not in repr(problem)
    assert "row_names" not in SciPyCSCCodeGenerator(tree, {}).generate_code()


@pytest.mark.parametrize("value,text", [("Lyon", "Lyon"), (3, "3"), (2.5, "2.5"), (("a", 1), "<a,1>")])
def test_how_one_forall_value_is_written(value, text):
    tree = model([dvar("x")], maximize(name("x")),
                 [{"type": "forall_constraint", "iterators": [{"iterator": "i", "range": {"type": "named_set",
                                                                                         "name": "S"}}],
                   "constraint": dict(constraint("<=", name("x"), num(3)), opl_label="ct")}])
    tree["declarations"].insert(0, {"type": "set_declaration", "name": "S"})
    ub, _ = names_of(tree, {"S": [value]})
    assert ub == [f"ct[{text}]"]
