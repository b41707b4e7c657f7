"""Text from the model never becomes code in the emitted script: names in
comments are escaped, the objective type is a string literal, and the
settings written into the script as names are checked."""

import pytest
from builders import dvar_indexed, range_dim
from conftest import binop, constraint, indexed, lit_index, maximize, model, name, num

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError
from kolva.solve import solve_problem

BREAKS = {"\n": "\\n", "\r": "\\r", "\r\n": "\\r\\n", "\0": "\\x00", "\x0b": "\\x0b", "\x0c": "\\x0c",
          "\x1c": "\\x1c", "\x1d": "\\x1d", "\x1e": "\\x1e", "\x85": "\\x85", "\u2028": "\\u2028",
          "\u2029": "\\u2029"}


def array_model(array):
    return model([dvar_indexed(array, range_dim(1, 2))],
                 maximize(indexed(array, lit_index(1))),
                 [constraint("<=", indexed(array, lit_index(1)), num(3))])


def run(code):
    namespace = {}
    exec(compile(code, "<script>", "exec"), namespace)
    return namespace["results_container"]["scipy_output"]


@pytest.mark.parametrize("brk", list(BREAKS))
def test_a_name_with_a_line_break_stays_in_its_comment(brk, tmp_path):
    marker = tmp_path / "ran"
    array = f"y{brk}open({str(marker)!r}, 'w').close()"
    code = SciPyCSCCodeGenerator(array_model(array), {}).generate_code()
    assert f"# OPL: dvar float+ y{BREAKS[brk]}open(" in code
    assert "\0" not in code and code.splitlines() == code.split("\n")
    out = run(code)
    assert not marker.exists()
    problem = SciPyCSCCodeGenerator(array_model(array), {}).build_problem()
    assert out["objective_value"] == solve_problem(problem).objective_value == 3.0


def test_the_lines_as_a_list_are_escaped_the_same_way():
    gen = SciPyCSCCodeGenerator(array_model("y\nimport os"), {})
    code = gen.generate_code()
    assert gen.scipy_code_lines == code.split("\n")


def test_ordinary_comments_are_unchanged():
    code = SciPyCSCCodeGenerator(array_model("y"), {}).generate_code()
    assert "# OPL: dvar float+ y[range(1, 2 + 1)]" in code.split("\n")


@pytest.mark.parametrize("sense", ["maximize'; import os; x = '", "minimise", "max\nimize"])
def test_an_unknown_objective_type_is_a_literal_and_minimizes(sense):
    tree = model([{"type": "dvar", "name": "x", "var_type": "float+"}], {"type": sense, "expression": name("x")},
                 [constraint("<=", name("x"), num(3))])
    code = SciPyCSCCodeGenerator(tree, {}).generate_code()
    assert f"sense = {sense!r}" in code.split("\n")
    out = run(code)
    assert out["objective_value"] == solve_problem(SciPyCSCCodeGenerator(tree, {}).build_problem()).objective_value
    assert out["objective_value"] == 0.0


def test_the_documented_objective_types_are_written_as_before():
    for sense in ("minimize", "maximize"):
        tree = model([{"type": "dvar", "name": "x", "var_type": "float+"}], {"type": sense, "expression": name("x")})
        assert f"sense = '{sense}'" in SciPyCSCCodeGenerator(tree, {}).generate_code().split("\n")


@pytest.mark.parametrize("bad", ["", "1st", "a b", "x\nimport os", "class", "None", "r;", "é"])
def test_the_results_name_must_be_an_identifier(bad):
    gen = SciPyCSCCodeGenerator(array_model("y"), {})
    with pytest.raises(ValueError, match="^results_varname must be a Python identifier that is not a keyword, got "):
        gen.results_varname = bad
    assert gen.results_varname == "results"


def test_a_valid_results_name_is_used():
    gen = SciPyCSCCodeGenerator(array_model("y"), {})
    gen.results_varname = "outcome_2"
    assert run(gen.generate_code())["objective_value"] == 3.0


def test_a_negative_indent_is_refused():
    gen = SciPyCSCCodeGenerator(array_model("y"), {})
    with pytest.raises(ValueError, match="^indent_level must be 0 or more, got -1$"):
        gen.indent_level = -1
    assert gen.indent_level == 0


# ---------------------------------------------------------------- non-finite numbers and non-numeric bounds

NON_FINITE = [float("nan"), float("inf"), float("-inf")]


def p_model(where):
    """x, y >= 0 with the parameter p in one place: a coefficient or the
    constant side of a row, or the objective."""
    decls = [{"type": "parameter_external", "name": "p"}, dvar_x(), {"type": "dvar", "name": "y", "var_type": "float+"}]
    px = binop("*", name("p"), name("x"))
    rows = [constraint("<=", name("x"), num(3)), constraint("<=", name("y"), num(3))]
    objective = binop("+", name("x"), name("y"))
    if where == "coefficient":
        rows.append(constraint("<=", binop("+", px, name("y")), num(5)))
    elif where == "constant":
        rows.append(constraint("<=", name("y"), name("p")))
    elif where == "objective coefficient":
        objective = binop("+", px, name("y"))
    else:
        objective = binop("+", name("x"), name("p"))
    return model(decls, maximize(objective), rows)


def dvar_x():
    return {"type": "dvar", "name": "x", "var_type": "float+"}


MESSAGES = {
    "coefficient": r"^The coefficient of 'x' in a constraint is {v}; coefficients must be finite numbers\.$",
    "constant": r"^The constant side of a constraint is {v}; constraints must have finite numbers on both sides\.$",
    "objective coefficient": r"^The objective's coefficient of 'x' is {v}; coefficients must be finite numbers\.$",
    "objective constant": r"^The objective's constant is {v}; it must be a finite number\.$",
}


@pytest.mark.parametrize("where", list(MESSAGES))
@pytest.mark.parametrize("value", NON_FINITE, ids=["nan", "inf", "-inf"])
def test_non_finite_numbers_in_the_program_are_model_errors(where, value):
    for build in ("build_problem", "generate_code"):
        with pytest.raises(SemanticError) as err:
            getattr(SciPyCSCCodeGenerator(p_model(where), {"p": value}), build)()
        assert err.match(MESSAGES[where].format(v=repr(value)))


def test_non_finite_data_that_no_coefficient_uses_gives_a_script_that_runs():
    tree = p_model("constant")
    tree["constraints"][-1] = constraint("<=", name("y"), num(2))
    data = {"p": float("nan"), "q": [float("inf"), float("-inf")]}
    code = SciPyCSCCodeGenerator(tree, data).generate_code()
    assert run(code)["objective_value"] == 5.0
    assert solve_problem(SciPyCSCCodeGenerator(tree, data).build_problem()).objective_value == 5.0


def bounded_model(lower):
    return model([{"type": "parameter_external", "name": "p"},
                  {**dvar_indexed("y", range_dim(1, 2)), "var_type": "float", "lower_bound": lower,
                   "upper_bound": num(4)}],
                 maximize(indexed("y", lit_index(1))))


def test_an_infinite_bound_is_no_bound_in_the_script_as_in_the_problem():
    data = {"p": float("-inf")}
    code = SciPyCSCCodeGenerator(bounded_model(name("p")), data).generate_code()
    assert "bounds = [[-float('inf'), 4.0], [-float('inf'), 4.0]]" in code.split("\n")
    assert run(code)["objective_value"] == 4.0
    problem = SciPyCSCCodeGenerator(bounded_model(name("p")), data).build_problem()
    assert solve_problem(problem).objective_value == 4.0


@pytest.mark.parametrize("lower,shown", [(name("p"), "nan"), ("__import__('os').system('true')",
                                                             "\"__import__('os').system('true')\""),
                                         ([1], "[1]")])
def test_a_bound_that_is_not_a_number_is_a_model_error(lower, shown):
    for build in ("build_problem", "generate_code"):
        with pytest.raises(SemanticError) as err:
            getattr(SciPyCSCCodeGenerator(bounded_model(lower), {"p": float("nan")}), build)()
        assert str(err.value) == f"A bound of variable 'y_1' is {shown}; bounds must be numbers or None."


# ---------------------------------------------------------------- data named like the script's own names

READ_BY_THE_SCRIPT = ["Exception", "NameError", "abs", "csr_matrix", "enumerate", "float", "getattr", "globals",
                      "len", "linprog", "np", "print", "range", "results_container", "sense", "str", "sum", "time",
                      "tuple"]


@pytest.mark.parametrize("key", READ_BY_THE_SCRIPT)
def test_data_named_like_what_the_script_reads_is_refused(key):
    tree = array_model("y")
    for build in ("build_problem", "generate_code"):
        with pytest.raises(SemanticError) as err:
            getattr(SciPyCSCCodeGenerator(tree, {key: 1}), build)()
        assert str(err.value) == f"Data item {key!r} has a name the emitted script itself uses; give it another name."


@pytest.mark.parametrize("key", ["c", "bounds", "var_names", "res", "results", "b_ub", "A_ub_rows", "status_map"])
def test_data_named_like_what_the_script_assigns_later_is_kept(key):
    # The script assigns these after its data lines, before reading them.
    code = SciPyCSCCodeGenerator(array_model("y"), {key: [1, 2]}).generate_code()
    assert run(code)["objective_value"] == 3.0


def test_the_opl_front_end_renames_such_data_instead(tmp_path):
    from kolva import opl

    (tmp_path / "m.mod").write_text("float time = ...;\nfloat print = ...;\nfloat sense = ...;\ndvar float+ x;\n"
                                    "minimize -x;\nsubject to { x <= time + print + sense; }\n")
    (tmp_path / "m.dat").write_text("time = 2; print = 1; sense = 4;\n")
    tree, data = opl.load(tmp_path / "m.mod", tmp_path / "m.dat")
    assert {"time_", "print_", "sense_"} <= set(data)
    code = SciPyCSCCodeGenerator(tree, data).generate_code()
    assert run(code)["objective_value"] == -7.0


def nested(depth):
    v = 1
    for _ in range(depth):
        v = [v]
    return v


def test_data_nested_within_a_line_of_the_script_is_written():
    code = SciPyCSCCodeGenerator(array_model("y"), {"deep": nested(100)}).generate_code()
    assert run(code)["objective_value"] == 3.0


@pytest.mark.parametrize("depth", [101, 300, 5000])
def test_data_nested_deeper_than_a_line_can_hold_is_refused(depth):
    for build in ("build_problem", "generate_code"):
        with pytest.raises(SemanticError) as err:
            getattr(SciPyCSCCodeGenerator(array_model("y"), {"deep": nested(depth)}), build)()
        assert str(err.value) == ("Data item 'deep' nests deeper than 100 levels of lists, tuples and dicts, more "
                                  "than one line of the script can hold.")
