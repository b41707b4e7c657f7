"""The build tells the user, once per kind and per build, when a model uses
an encoding that is one-way or loses part of what the model says. The rows
stay exactly as they are; only a WARNING on the generator's logger is added,
naming the first constraint that used the construct."""

import logging

from builders import dvar_indexed, forall, it, range_dim, range_spec, ref
from conftest import GEN_LOGGER, bool_binop, constraint, dvar, indexed, minimize, model, name, num
from lp_builders import and_, built_rows, generator, or_

IMPLICATION = "implication_constraint"


def implication(ant, cons):
    return {"type": IMPLICATION, "antecedent": ant, "consequent": cons}


def warnings_of(caplog, ast):
    caplog.set_level(logging.WARNING, logger=GEN_LOGGER)
    caplog.clear()
    g = built_rows(ast)
    return g, [r.getMessage() for r in caplog.records if r.levelno == logging.WARNING and r.name == GEN_LOGGER]


def xy(constraints, var_type="float"):
    decls = [dvar("x", var_type), dvar("y", var_type), dvar("a", "boolean"), dvar("b", "boolean")]
    return model(decls, minimize(name("x")), constraints)


def is_one(var):
    return constraint("==", name(var), num(1))


def test_a_model_without_lossy_constructs_warns_nothing(caplog):
    _, warnings = warnings_of(caplog, xy([constraint("<=", name("x"), num(3)),
                                          implication(is_one("a"), constraint("<=", name("x"), num(2)))]))
    assert warnings == []


def test_equality_antecedent_warns_once_with_the_count_and_the_first_constraint(caplog):
    body = implication(constraint("==", indexed("x", ref("i")), num(2)), constraint("<=", name("y"), num(1)))
    ast = model([dvar_indexed("x", range_dim(1, 3), var_type="float"), dvar("y", "float")],
                minimize(name("y")), [forall([it("i", range_spec(1, 3))], body)])
    g, warnings = warnings_of(caplog, ast)
    assert g.var_names[-3:] == ["implication_flag_c0", "implication_flag_c1", "implication_flag_c2"]
    assert len(warnings) == 1
    text = warnings[0]
    assert text.startswith("[SciPyCSCCodeGenerator] Lossy encoding: an implication with an equality antecedent")
    assert "Used 3 time(s)" in text
    assert "'antecedent'" in text and "'implication_constraint'" in text


def test_each_build_reports_its_own_uses(caplog):
    ast = xy([implication(constraint("==", name("x"), num(2)), constraint("<=", name("y"), num(1)))])
    caplog.set_level(logging.WARNING, logger=GEN_LOGGER)
    first, second = generator(ast), generator(ast)
    caplog.clear()
    first.generate_code()
    second.generate_code()
    lossy = [r.getMessage() for r in caplog.records if "Lossy encoding" in r.getMessage()]
    assert len(lossy) == 2
    assert all("Used 1 time(s)" in m for m in lossy)


def test_not_equal_between_boolean_expressions_warns_and_keeps_its_four_rows(caplog):
    left = and_(is_one("a"), is_one("b"))
    right = or_(is_one("a"), is_one("b"))
    g, warnings = warnings_of(caplog, xy([constraint("!=", left, right)]))
    assert any("'!=' between two Boolean expressions" in w for w in warnings)
    assert any("'!=' used as a truth value" in w for w in warnings)
    # The and/or auxiliaries come first, then the != auxiliary z with the
    # four rows that only the all-zero point satisfies.
    z = g.var_names.index("_baux2")
    x_col, y_col = g.var_names.index("_baux0"), g.var_names.index("_baux1")
    four = [row for row in g.A_ub if row[z] != 0.0 and row[x_col] != 0.0 and row[y_col] != 0.0][:4]
    assert [(row[z], row[x_col], row[y_col]) for row in four] == [
        (1.0, -1.0, 1.0),
        (1.0, 1.0, -1.0),
        (-1.0, 1.0, 1.0),
        (1.0, 1.0, 1.0),
    ]


def test_tautological_tree_warns_that_nothing_fixes_it(caplog):
    g, warnings = warnings_of(caplog, xy([constraint("==", and_(is_one("a"), is_one("b")), num(1))]))
    assert g.b_eq == []
    assert len(warnings) == 1
    assert "skipped as a tautology" in warnings[0]


def test_tree_at_least_zero_is_a_true_tautology_and_does_not_warn(caplog):
    _, warnings = warnings_of(caplog, xy([constraint(">=", or_(is_one("a"), is_one("b")), num(0))]))
    assert warnings == []


def test_count_of_comparisons_with_a_constant_warns(caplog):
    from builders import sum_of

    count = sum_of([it("i", range_spec(1, 2))], bool_binop(">=", indexed("x", ref("i")), num(1)))
    ast = model([dvar_indexed("x", range_dim(1, 2), var_type="float")], minimize(num(0)),
                [constraint(">=", count, num(1))])
    _, warnings = warnings_of(caplog, ast)
    assert len(warnings) == 1
    assert "a count of comparisons" in warnings[0] and "Used 2 time(s)" in warnings[0]


def test_count_of_comparisons_against_zero_with_at_least_does_not_warn(caplog):
    from builders import sum_of

    count = sum_of([it("i", range_spec(1, 2))], bool_binop(">=", indexed("x", ref("i")), name("y")))
    ast = model([dvar_indexed("x", range_dim(1, 2), var_type="float"), dvar("y", "float")], minimize(num(0)),
                [constraint(">=", count, num(1))])
    _, warnings = warnings_of(caplog, ast)
    assert warnings == []


def test_zero_indicator_on_equality_warns_about_the_upper_side(caplog):
    g, warnings = warnings_of(caplog, xy([implication(constraint("==", name("a"), num(0)),
                                                      constraint("==", name("x"), num(0)))]))
    assert g.b_ub == [0.0]
    assert len(warnings) == 1
    assert "'y == 0 => x == 0' is written as x - M*y <= 0 only" in warnings[0]


def test_conjunction_antecedent_warns(caplog):
    ant = constraint("==", and_(bool_binop("<=", name("x"), num(1)), bool_binop(">=", name("y"), num(2))),
                     {"type": "boolean_literal", "value": True})
    _, warnings = warnings_of(caplog, xy([implication(ant, constraint("<=", name("x"), num(0)))]))
    assert any("every conjunct is posted as a plain constraint" in w for w in warnings)


def test_lossy_warnings_do_not_change_the_rows(caplog):
    ast = xy([implication(constraint("==", name("x"), num(2)), constraint("<=", name("y"), num(1)))])
    quiet = generator(ast, logger=None)
    logging.getLogger(GEN_LOGGER).setLevel(logging.ERROR)
    quiet_lines = quiet.generate_code()
    caplog.set_level(logging.WARNING, logger=GEN_LOGGER)
    loud_lines = generator(ast).generate_code()
    assert quiet_lines == loud_lines


def test_a_second_build_on_one_generator_is_refused_before_anything_changes():
    # A generator's phases append to its columns and script, and its truth
    # flags outlive a build: a second build would reach a cached flag whose
    # column it no longer has. It is refused instead, and the state of the
    # first build stays as it was.
    import pytest

    ast = xy([constraint("!=", name("x"), name("y"))], var_type="int")
    g = generator(ast)
    first = g.build_problem()
    assert first.var_names[-1] == "cmp_flag_0"
    with pytest.raises(ValueError, match="already built its program"):
        g.build_problem()
    with pytest.raises(ValueError, match="already built its program"):
        g.generate_code()
    assert g.var_names == first.var_names