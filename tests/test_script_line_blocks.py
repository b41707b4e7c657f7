"""Lines that the generator prints from its own state when they are read
(the alias comment of each column, the triplet lists of the rows, the four
per-column lists) must read exactly as if they had been written out when
they were emitted, whatever happens to that state afterwards."""

import pytest

from builders import dvar_indexed, forall, it, range_dim, range_spec, ref
from conftest import constraint, dvar, indexed, minimize, model, name, num
from kolva import _engine
from lp_builders import and_, generator


def array_model(n=40, constraints=None):
    x_i = indexed("x", ref("i"))
    body = constraint("<=", x_i, num(5))
    cons = [forall([it("i", range_spec(1, n))], body)] if constraints is None else constraints
    return model([dvar_indexed("x", range_dim(1, n), var_type="int+"), dvar("y", "boolean")],
                 minimize(name("y")), cons)


def alias_lines(lines):
    return [line for line in lines if line.startswith("# Alias: ")]


def test_read_lines_and_the_script_are_the_same_text():
    g = generator(array_model())
    text = g.generate_code()
    assert g.scipy_code_lines == text.split("\n")
    assert alias_lines(g.scipy_code_lines) == [f"# Alias: x['{i}']" for i in range(1, 41)]
    assert f"var_names = {['x_%d' % i for i in range(1, 41)] + ['y']!r}" in g.scipy_code_lines
    assert "A_ub_rows = " + repr(list(range(40))) in g.scipy_code_lines
    assert "A_ub_cols = " + repr(list(range(40))) in g.scipy_code_lines
    assert "A_ub_data = " + repr([1.0] * 40) in g.scipy_code_lines


def test_columns_added_by_constraints_reach_the_rewritten_lists_only():
    # A tree with an and-auxiliary adds a column during the constraint
    # phase: the rewritten var_names line has it, the alias comments of the
    # variables phase stay as they were.
    tree = constraint(">=", and_(constraint("==", name("y"), num(1)), constraint("==", name("y"), num(0))), num(1))
    g = generator(array_model(n=20, constraints=[tree]))
    text = g.generate_code()
    lines = text.split("\n")
    var_names_line = [line for line in lines if line.startswith("var_names = ")]
    assert var_names_line == [f"var_names = {['x_%d' % i for i in range(1, 21)] + ['y', '_baux0', '_baux1']!r}"]
    bounds_line = [line for line in lines if line.startswith("bounds = ")]
    assert bounds_line == ["bounds = " + repr([[0, None]] * 20 + [[0, 1]] * 3)]
    assert [line for line in lines if line.startswith("integrality = ")] == ["integrality = " + repr([1] * 23)]
    assert [line for line in lines if line.startswith("c = ")] == ["c = " + repr([0.0] * 20 + [1.0, 0.0, 0.0])]
    assert len(alias_lines(lines)) == 20


def test_a_second_build_is_refused_and_a_fresh_generator_gives_the_same_text():
    import pytest

    g = generator(array_model())
    first = g.generate_code()
    with pytest.raises(ValueError, match="already built its program"):
        g.generate_code()
    again = generator(array_model()).generate_code()
    assert again == first
    assert len(alias_lines(first.split("\n"))) == 40


def test_rows_published_twice_keep_their_own_triplet_lines(make_gen):
    g = make_gen(variables=("x", "y"))
    first = _engine._ConstraintBuildState()
    g._append_sparse_row(first, [1.0, 2.0], 3.0, sense="ub")
    g._finalize_constraint_state(first)
    second = _engine._ConstraintBuildState()
    g._append_sparse_row(second, [0.0, -1.0], 0.5, sense="ub")
    g._append_sparse_row(second, [4.0, 0.0], 1.0, sense="eq")
    g._finalize_constraint_state(second)
    lines = g.scipy_code_lines
    assert [line for line in lines if line.startswith("A_ub_")] == [
        "A_ub_rows = [0, 0]", "A_ub_cols = [0, 1]", "A_ub_data = [1.0, 2.0]",
        "A_ub_rows = [0]", "A_ub_cols = [1]", "A_ub_data = [-1.0]",
    ]
    assert [line for line in lines if line.startswith("A_eq_")] == [
        "A_eq_rows = []", "A_eq_cols = []", "A_eq_data = []",
        "A_eq_rows = [0]", "A_eq_cols = [0]", "A_eq_data = [4.0]",
    ]
    assert g.A_ub == [[0.0, -1.0]]


def test_rows_the_snapshot_appends_are_not_in_the_script():
    # `y == 1` at top level becomes an equality row of the problem only; the
    # script's triplets were printed before and do not list it.
    g = generator(array_model(n=20, constraints=[constraint("==", name("y"), num(1))]))
    problem = g.build_problem()
    lines = g.scipy_code_lines
    eq_rows = [line for line in lines if line.startswith("A_eq_rows = ")]
    assert eq_rows == ["A_eq_rows = [0]"]
    assert len(problem.b_eq) == 2


def test_indented_lines_keep_their_indent():
    g = generator(array_model(n=20))
    g.indent_level = 1
    g._build_variables()
    lines = g.scipy_code_lines
    assert "    var_names = " + repr(["x_%d" % i for i in range(1, 21)] + ["y"]) in lines
    assert [line for line in lines if line.startswith("    # Alias: ")] == [
        f"    # Alias: x['{i}']" for i in range(1, 21)
    ]
    assert "    bounds = " + repr([[0, 5.0]] * 20 + [[0, 1]]) in lines


@pytest.mark.parametrize("n", [1, 15, 16, 17, 100])
def test_alias_runs_of_any_length_read_the_same(n):
    g = generator(array_model(n=n))
    lines = g.generate_code().split("\n")
    assert alias_lines(lines) == [f"# Alias: x['{i}']" for i in range(1, n + 1)]
