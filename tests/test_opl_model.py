"""The OPL model reader: each construct to its exact model tree, derived data
to its exact values, and each error to its exact message and place."""

import logging

import pytest

from kolva import opl
from kolva.opl_error import OplError


def tree_of(text):
    return opl.parse_model(text, filename="m.mod")


def load_text(tmp_path, model, data=None):
    mod = tmp_path / "m.mod"
    mod.write_text(model)
    paths = [mod]
    if data is not None:
        dat = tmp_path / "m.dat"
        dat.write_text(data)
        paths.append(dat)
    return opl.load(*paths)


def decl(tree, name):
    return next(d for d in tree["declarations"] if d.get("name") == name)


def error_of(text):
    with pytest.raises(OplError) as info:
        tree_of(text)
    return info.value


def num(v):
    return {"type": "number", "value": v}


def ref(n):
    return {"type": "name_reference_index", "name": n}


# ---------------------------------------------------------------- declarations


def test_transport_declarations_lower_to_the_generator_kinds():
    tree = tree_of(
        """
        {string} Plants = ...;
        {string} Markets = ...;
        float capacity[Plants] = ...;
        float distance[Plants][Markets] = ...;
        float freight = 90;
        dvar float+ ship[Plants][Markets];
        minimize sum(i in Plants, j in Markets) freight * distance[i][j] * ship[i][j];
        subject to {
          forall(i in Plants) ctSupply: sum(j in Markets) ship[i][j] <= capacity[i];
        }
        """
    )
    assert tree["declarations"] == [
        {"type": "set_declaration", "name": "Plants"},
        {"type": "set_declaration", "name": "Markets"},
        {
            "type": "parameter_external_indexed",
            "name": "capacity",
            "dimensions": [{"type": "named_set_dimension", "name": "Plants"}],
        },
        {
            "type": "parameter_external_indexed",
            "name": "distance",
            "dimensions": [
                {"type": "named_set_dimension", "name": "Plants"},
                {"type": "named_set_dimension", "name": "Markets"},
            ],
        },
        {"type": "parameter_external", "name": "freight"},
        {
            "type": "dvar_indexed",
            "name": "ship",
            "var_type": "float+",
            "dimensions": [
                {"type": "named_set_dimension", "name": "Plants"},
                {"type": "named_set_dimension", "name": "Markets"},
            ],
        },
    ]
    objective = tree["objective"]
    assert objective["type"] == "minimize"
    assert objective["opl_source"] == "m.mod:8:9"
    body = objective["expression"]
    assert body["type"] == "sum"
    assert [it["iterator"] for it in body["iterators"]] == ["i", "j"]
    assert body["iterators"][0]["range"] == {"type": "named_set", "name": "Plants"}
    ship = body["expression"]["right"]
    assert ship == {
        "type": "indexed_name",
        "name": "ship",
        "dimensions": [ref("i"), ref("j")],
        "sem_type": "float+",
    }
    forall = tree["constraints"][0]
    assert forall["type"] == "forall_constraint"
    assert forall["opl_source"] == "m.mod:10:11"
    (ct,) = forall["constraints"]
    assert ct["type"] == "constraint" and ct["op"] == "<="
    assert ct["opl_label"] == "ctSupply"
    assert ct["right"] == {"type": "indexed_name", "name": "capacity", "dimensions": [ref("i")]}


def test_ranges_with_literal_bounds_and_with_data_bounds():
    tree = tree_of("int n = ...; range R = 1..5; range T = 1..n; dvar float x[T]; minimize sum(t in T) x[t];")
    assert decl(tree, "R") == {"type": "range_declaration_inline", "name": "R", "start": num(1), "end": num(5)}
    assert decl(tree, "T")["end"] == {"type": "name", "value": "__opl_T_end"}
    assert decl(tree, "x")["dimensions"] == [{"type": "named_range_dimension", "name": "T"}]


def test_scalar_domain_becomes_bound_rows_ahead_of_all_constraints():
    tree = tree_of("dvar int y in 2..10; dvar float z; minimize y; subject to { z >= y; }")
    assert decl(tree, "y") == {"type": "dvar", "name": "y", "var_type": "int"}
    first, second, third = tree["constraints"]
    assert (first["op"], first["left"], first["right"]) == (">=", {"type": "name", "value": "y"}, num(2))
    assert (second["op"], second["right"]) == ("<=", num(10))
    assert third["op"] == ">="


def test_indexed_domain_bounds_name_the_dimension_iterator():
    tree = tree_of("{int} I = {1, 2}; float cap[I] = [3, 4]; dvar float s[i in I] in 0..cap[i]; minimize s[1];")
    s = decl(tree, "s")
    assert s["iterators"] == [{"iterator": "i"}]
    assert s["lower_bound"] == num(0)
    assert s["upper_bound"] == {"type": "indexed_name", "name": "cap", "dimensions": [ref("i")]}


def test_tuple_types_and_tuple_sets():
    tree = tree_of(
        """
        tuple Arc { key string from; string to; float cost; }
        {Arc} Arcs = ...;
        dvar float+ flow[Arcs];
        minimize sum(a in Arcs) a.cost * flow[a];
        """
    )
    assert decl(tree, "Arc") == {
        "type": "tuple_type",
        "name": "Arc",
        "fields": [{"name": "from"}, {"name": "to"}, {"name": "cost"}],
    }
    assert decl(tree, "Arcs") == {"type": "set_of_tuples_external", "name": "Arcs", "tuple_type": "Arc"}
    term = tree["objective"]["expression"]["expression"]
    assert term["left"] == {
        "type": "field_access",
        "base": {"type": "name", "value": "a", "sem_type": "Arc"},
        "field": "cost",
    }
    assert term["right"]["dimensions"] == [ref("a")]


def test_tuple_pattern_components_read_fields_of_a_hidden_iterator():
    tree = tree_of(
        """
        tuple Arc { string from; string to; }
        {Arc} Arcs = ...;
        {string} Nodes = ...;
        dvar float+ x[Nodes][Nodes];
        minimize sum(<i, j> in Arcs) x[i][j];
        """
    )
    s = tree["objective"]["expression"]
    hidden = s["iterators"][0]["iterator"]
    assert hidden.startswith("__opl")
    assert s["expression"]["dimensions"][0] == {
        "type": "field_access_index",
        "base": {"type": "name", "value": hidden, "sem_type": "Arc"},
        "field": "from",
    }


def test_filter_the_generator_evaluates_stays_an_index_constraint():
    tree = tree_of(
        "{int} I = ...; float d[I] = ...; dvar float x[I]; minimize 0; "
        "subject to { forall(i in I : d[i] > 0) x[i] <= d[i]; }"
    )
    forall = tree["constraints"][0]
    assert forall["index_constraint"] == {
        "type": "binop",
        "op": ">",
        "left": {"type": "indexed_name", "name": "d", "dimensions": [ref("i")]},
        "right": num(0),
    }


def test_dependent_domain_runs_over_a_hidden_set_with_a_hidden_filter(tmp_path):
    model = "int n = 3; dvar float x[1..n][1..n]; minimize 0; subject to { forall(i in 1..n, j in i+1..n) x[i][j] >= 1; }"
    tree, data = load_text(tmp_path, model)
    forall = tree["constraints"][0]
    j_range = forall["iterators"][1]["range"]
    assert j_range["type"] == "named_set"
    assert data[j_range["name"]] == [2, 3]
    filt = forall["index_constraint"]
    assert filt["dimensions"] == [ref("i"), ref("j")]
    table = data[filt["name"]]
    admitted = sorted(k for k, v in table.items() if v)
    assert admitted == [(1, 2), (1, 3), (2, 3)]
    assert len(table) == 6  # every combination the generator will try


def test_dexpr_is_expanded_where_used():
    tree = tree_of(
        """
        {int} M = {1, 2};
        dvar float+ x[M];
        dexpr float load[m in M] = 2 * x[m];
        dexpr float total = sum(m in M) load[m];
        minimize total;
        subject to { load[1] >= 3; }
        """
    )
    objective = tree["objective"]["expression"]
    assert objective["type"] == "sum"
    assert objective["expression"] == {
        "type": "binop",
        "op": "*",
        "left": num(2),
        "right": {"type": "indexed_name", "name": "x", "dimensions": [ref("m")], "sem_type": "float+"},
    }
    ct = tree["constraints"][0]
    assert ct["left"]["right"]["dimensions"] == [{"type": "number_literal_index", "value": 1}]
    assert all(d.get("type") not in ("dexpr", "dexpr_indexed") for d in tree["declarations"])


def test_labels_do_not_change_the_program():
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    def build(text):
        return SciPyCSCCodeGenerator(tree_of(text)).build_problem()

    body = "dvar int x in 0..5; dvar int y in 0..5; maximize x + y; subject to { %s x + y <= 7; %s x - y <= 1; }"
    plain = build(body % ("", ""))
    labelled = build(body % ("ctA:", "ctB:"))
    assert plain.A_ub.tolist() == labelled.A_ub.tolist()
    assert plain.b_ub == labelled.b_ub
    assert plain.var_names == labelled.var_names


# ---------------------------------------------------------------- logic


def leaf_ops(node):
    if node["type"] in ("and", "or"):
        return leaf_ops(node["left"]) + leaf_ops(node["right"])
    assert node["sem_type"] == "boolean"
    return [node["op"]]


def test_disjunction_is_asserted_true_with_non_strict_boolean_leaves():
    tree = tree_of("dvar int x in 0..9; dvar int y in 0..9; minimize x; subject to { x >= 3 || y > 4; }")
    ct = tree["constraints"][-1]
    assert ct["op"] == "==" and ct["right"] == {"type": "boolean_literal", "value": True}
    assert ct["left"]["type"] == "or"
    assert leaf_ops(ct["left"]) == [">=", ">="]
    # y > 4 over integers is y >= 4 + 1
    assert ct["left"]["right"]["right"] == {"type": "binop", "op": "+", "left": num(4), "right": num(1.0)}


def test_integer_not_equal_becomes_two_sided_disjunction():
    tree = tree_of("dvar int a in 1..3; dvar int b in 1..3; minimize a; subject to { a != b; }")
    ct = tree["constraints"][-1]
    assert leaf_ops(ct["left"]) == ["<=", ">="]


def test_negated_conjunction_uses_de_morgan():
    tree = tree_of("dvar int a in 0..5; dvar int b in 0..5; minimize a; subject to { !(a >= 2 && b >= 2); }")
    ct = tree["constraints"][-1]
    assert ct["left"]["type"] == "or"
    assert leaf_ops(ct["left"]) == ["<=", "<="]


def test_implication_is_a_disjunction_of_its_negated_antecedent():
    tree = tree_of("dvar int x in 0..5; dvar boolean y; minimize x; subject to { x >= 1 => y == 1; }")
    ct = tree["constraints"][-1]
    assert leaf_ops(ct["left"]) == ["<=", "=="]


def test_conjunction_at_top_is_posted_as_separate_rows():
    tree = tree_of("dvar float x; dvar float y; minimize x; subject to { x >= 1 && y <= 2; }")
    assert [c["op"] for c in tree["constraints"]] == [">=", "<="]


def test_count_of_comparisons_sums_hidden_booleans_tied_to_each_comparison():
    tree = tree_of("range I = 1..3; dvar int x[I] in 0..4; minimize 0; subject to { sum(i in I) (x[i] >= 2) >= 2; }")
    hidden = tree["declarations"][-1]
    assert hidden["type"] == "dvar_indexed" and hidden["var_type"] == "boolean"
    assert hidden["dimensions"] == [{"type": "named_range_dimension", "name": "I"}]
    domain, holds, fails, count = tree["constraints"]
    # the domain reaches big-M as rows, since the model has logical rows
    assert domain["type"] == "forall_constraint"
    assert [c["op"] for c in domain["constraints"]] == [">=", "<="]
    for link in (holds, fails):
        assert link["type"] == "forall_constraint"
        assert link["iterators"] == [{"iterator": "i", "range": {"type": "named_range", "name": "I"}}]
        (row,) = link["constraints"]
        assert row["left"]["type"] == "or" and row["right"] == {"type": "boolean_literal", "value": True}
    flag = {"type": "indexed_name", "name": hidden["name"], "dimensions": [ref("i")]}
    # b <= 0 || x[i] >= 2, and b >= 1 || x[i] <= 2 - 1
    assert holds["constraints"][0]["left"]["left"]["left"] == flag
    assert holds["constraints"][0]["left"]["left"]["op"] == "<="
    assert fails["constraints"][0]["left"]["right"]["op"] == "<="
    assert count["left"] == {
        "type": "sum",
        "iterators": [{"iterator": "i", "range": {"type": "named_range", "name": "I"}}],
        "expression": flag,
    }


def test_continuous_strict_comparison_in_logic_warns(caplog):
    with caplog.at_level(logging.WARNING, logger="kolva.opl"):
        tree_of("dvar float x in 0..9; dvar boolean b; minimize x; subject to { b == 1 || x < 3; }")
    assert any("margin of 1e-06" in r.getMessage() for r in caplog.records)


def test_continuous_not_equal_is_refused():
    err = error_of("dvar float x; minimize x; subject to { x != 3; }")
    assert "'!='" in err.msg and err.lineno == 1


# ---------------------------------------------------------------- derived data


def test_derived_functions(tmp_path):
    model = """
    {string} S = {"a", "b", "c", "d"};
    {int} I = {4, 7, 12, 15};
    float w[I] = [2.5, -3.25, 11, 20];
    int n = card(S);
    int o = ord(S, "c");
    string f = first(S);
    string l = last(S);
    string nx = next(S, "b");
    string pv = prev(S, "b");
    float a = abs(w[7]);
    int fl = floor(2.7);
    int ce = ceil(2.1);
    int ro = round(2.5);
    float lo = minl(3, 1.5, 2);
    float hi = maxl(3, 1.5, 2);
    float total = sum(i in I) w[i];
    float biggest = max(i in I : i < 15) w[i];
    float smallest = min(i in I) w[i];
    float cond = n > 3 ? 1 : 0;
    {int} Big = {i | i in I : w[i] > 10};
    {int} R = asSet(1..3);
    {int} U = {1, 2} union {2, 3};
    {int} N = {1, 2, 3} inter {2, 3, 4};
    {int} D = {1, 2, 3} diff {2};
    {int} X = {1, 2} symdiff {2, 3};
    float avg[i in I] = total / n;
    int m = 17 div 5;
    int r = 17 mod 5;
    dvar float x;
    minimize x;
    """
    _, data = load_text(tmp_path, model)
    expected = {
        "n": 4, "o": 2, "f": "a", "l": "d", "nx": "c", "pv": "a", "a": 3.25, "fl": 2, "ce": 3, "ro": 3,
        "lo": 1.5, "hi": 3.0, "total": 30.25, "biggest": 11.0, "smallest": -3.25, "cond": 1.0,
        "Big": [12, 15], "R": [1, 2, 3], "U": [1, 2, 3], "N": [2, 3], "D": [1, 3], "X": [1, 3],
        "m": 3, "r": 2,
    }
    for name, value in expected.items():
        assert data[name] == value, name
        assert type(data[name]) is type(value), name
    assert data["avg"] == {4: 7.5625, 7: 7.5625, 12: 7.5625, 15: 7.5625}


def test_data_function_inside_a_constraint_is_lifted_and_computed(tmp_path):
    model = """
    {string} S = {"a", "b", "c"};
    dvar float+ x[S];
    minimize sum(s in S) x[s];
    subject to { forall(s in S) x[s] >= ord(S, s) + card(S); }
    """
    tree, data = load_text(tmp_path, model)
    rhs = tree["constraints"][0]["constraints"][0]["right"]
    assert rhs["type"] == "indexed_name" and rhs["dimensions"] == [ref("s")]
    assert data[rhs["name"]] == {"a": 3, "b": 4, "c": 5}


# ---------------------------------------------------------------- errors


def test_error_report_names_file_line_and_column_with_a_caret():
    err = error_of("dvar float x;\nminimize x +;\n")
    assert (err.filename, err.lineno, err.offset) == ("m.mod", 2, 13)
    assert err.msg == "expected an expression, found ';'"
    assert str(err) == "m.mod:2:13: error: expected an expression, found ';'\nminimize x +;\n            ^"


@pytest.mark.parametrize(
    "text, message",
    [
        ("using CP;", "constraint programming models ('using CP;') are not supported"),
        ("main { thisOplModel.generate(); }", "'main' blocks are not supported"),
        ("dvar widget x;", "unknown type 'widget'"),
        ("int n = 1; float n = 2;", "'n' is already declared at m.mod:1:1"),
        ('string s = "abc', "unterminated string literal"),
        ("/* never closed", "unterminated comment"),
        ("int n = 99999999999999999999;", "does not fit in 64 bits"),
        ("dvar float x; minimize abs(x);", "'abs' of decision variables is not linear"),
    ],
)
def test_error_messages(text, message):
    assert message in error_of(text).msg


def test_execute_blocks_are_skipped_with_a_warning_naming_the_line(caplog):
    with caplog.at_level(logging.WARNING, logger="kolva.opl"):
        tree = tree_of("dvar float x;\nminimize x;\nexecute DISPLAY {\n  writeln(x);\n}\n")
    assert tree["objective"]["type"] == "minimize"
    messages = [r.getMessage() for r in caplog.records]
    assert any(m.startswith("m.mod:3:1: warning: execute block skipped") for m in messages)


@pytest.mark.parametrize("opener, closer", [("(", ")"), ("-", ""), ("!", "")])
def test_very_deep_nesting_is_an_error_not_a_crash(opener, closer):
    depth = 100_000
    text = "dvar float x; minimize " + opener * depth + "x" + closer * depth + ";"
    err = error_of(text)
    assert "nested too deeply" in err.msg


def test_missing_data_is_reported_at_the_declaration(tmp_path):
    with pytest.raises(OplError) as info:
        load_text(tmp_path, "int n = ...;\ndvar float x;\nminimize x;\n", "")
    assert info.value.lineno == 1
    assert "no data for 'n'" in info.value.msg


def test_unknown_name_in_data_is_reported_at_the_dat_place(tmp_path):
    with pytest.raises(OplError) as info:
        load_text(tmp_path, "dvar float x; minimize x;", "\n\nm = 3;")
    assert info.value.filename.endswith("m.dat") and info.value.lineno == 3
    assert info.value.msg == "'m' is not declared in the model"


def test_nonlinear_term_keeps_the_generator_message_and_names_its_place():
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.semantic_error import SemanticError

    tree = tree_of("dvar float x;\ndvar float y;\nminimize x;\nsubject to {\n  ctProd: x * y <= 4;\n}\n")
    with pytest.raises(SemanticError) as info:
        SciPyCSCCodeGenerator(tree).build_problem()
    generator_only = None
    bare = {k: v for k, v in tree["constraints"][0].items() if not k.startswith("opl_")}
    with pytest.raises(SemanticError) as plain:
        SciPyCSCCodeGenerator({**tree, "constraints": [bare]}).build_problem()
    generator_only = str(plain.value)
    assert str(info.value) == generator_only  # the message is the generator's own
    assert info.value.opl_source == "m.mod:5:3"
    assert info.value.opl_label == "ctProd"
    assert not hasattr(plain.value, "opl_source")


def test_include_reads_a_file_relative_to_the_including_one(tmp_path):
    (tmp_path / "parts").mkdir()
    (tmp_path / "parts" / "decls.mod").write_text("dvar float+ x;\n")
    model = tmp_path / "main.mod"
    model.write_text('include "parts/decls.mod";\nminimize x;\nsubject to { x >= 2; }\n')
    tree, _ = opl.load(model)
    assert tree["declarations"] == [{"type": "dvar", "name": "x", "var_type": "float+"}]


def test_parse_data_with_the_model_shapes_items_by_their_declarations():
    data = opl.parse_data("I = {3, 1};\nd = [2.5, 4];\n", model="{int} I = ...; float d[I] = ...;")
    assert data == {"I": [3, 1], "d": {3: 2.5, 1: 4.0}}


def test_data_names_that_the_script_uses_are_renamed_consistently(tmp_path):
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_problem, solve_script

    model = "float time = 3; float sense = 2; dvar float+ x; minimize sense * x; subject to { x >= time; }"
    tree, data = load_text(tmp_path, model)
    assert data == {"time_": 3.0, "sense_": 2.0}
    assert solve_problem(SciPyCSCCodeGenerator(tree, data).build_problem()).objective_value == pytest.approx(6.0)
    script = SciPyCSCCodeGenerator(tree, data).generate_code()
    assert solve_script(script).objective_value == pytest.approx(6.0)


def test_string_members_made_of_digits_still_find_their_data(tmp_path):
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_problem

    model = """
    {string} S = {"7", "a"};
    float d[S] = [2, 3];
    dvar float+ x[S];
    minimize sum(s in S) x[s];
    subject to { forall(s in S) x[s] >= d[s]; }
    """
    tree, data = load_text(tmp_path, model)
    assert data["S"] == ["7", "a"]
    solution = solve_problem(SciPyCSCCodeGenerator(tree, data).build_problem())
    assert solution.objective_value == pytest.approx(5.0)
    assert solution.values == {"x_7": pytest.approx(2.0), "x_a": pytest.approx(3.0)}


# ---------------------------------------------------------------- more constructs


def test_variable_types_and_sense():
    tree = tree_of("dvar int+ a; dvar boolean b; dvar float c; dvar int d; maximize a + b - c + d;")
    assert [(d["name"], d["var_type"]) for d in tree["declarations"]] == [
        ("a", "int+"),
        ("b", "boolean"),
        ("c", "float"),
        ("d", "int"),
    ]
    assert tree["objective"]["type"] == "maximize"
    assert tree["objective"]["expression"]["op"] == "+"


def test_forall_block_nested_forall_and_the_constraints_keyword():
    tree = tree_of(
        "range I = 1..2; range J = 1..3; dvar float x[I][J]; minimize 0;"
        "constraints { forall(i in I) { a: x[i][1] >= 0; forall(j in J : j > 1) b: x[i][j] <= j; } }"
    )
    (outer,) = tree["constraints"]
    first, inner = outer["constraints"]
    assert first["opl_label"] == "a" and first["op"] == ">="
    assert inner["type"] == "forall_constraint"
    assert inner["iterators"] == [{"iterator": "j", "range": {"type": "named_range", "name": "J"}}]
    assert inner["index_constraint"] == {
        "type": "binop",
        "op": ">",
        "left": {"type": "name", "value": "j"},
        "right": num(1),
    }
    assert inner["constraints"][0]["right"] == {"type": "name", "value": "j"}


def test_conditional_over_decisions_keeps_its_data_condition():
    tree = tree_of("int n = 2; dvar float x; dvar float y; minimize (n > 1) ? x : y;")
    assert tree["objective"]["expression"] == {
        "type": "conditional",
        "condition": {"type": "binop", "op": ">", "left": {"type": "name", "value": "n"}, "right": num(1)},
        "then": {"type": "name", "value": "x", "sem_type": "float"},
        "else": {"type": "name", "value": "y", "sem_type": "float"},
    }


def test_negative_literals_are_numbers_and_ranges_of_literals_stay_specifiers():
    tree = tree_of("dvar float x[-2..2]; minimize sum(k in -2..2) x[k];")
    assert decl(tree, "x")["dimensions"] == [{"type": "range_index", "start": num(-2), "end": num(2)}]
    assert tree["objective"]["expression"]["iterators"][0]["range"] == {
        "type": "range_specifier",
        "start": num(-2),
        "end": num(2),
    }


def test_filter_with_a_data_function_is_lifted(tmp_path):
    model = "{string} S = {\"a\", \"b\", \"c\"}; dvar float x[S]; minimize 0; subject to { forall(s in S : ord(S, s) >= 1) x[s] >= 1; }"
    tree, data = load_text(tmp_path, model)
    filt = tree["constraints"][0]["index_constraint"]
    assert filt["dimensions"] == [ref("s")]
    assert data[filt["name"]] == {"a": False, "b": True, "c": True}


def test_set_expression_domain_becomes_a_hidden_set(tmp_path):
    model = "{int} A = {1, 2}; {int} B = {2, 3}; dvar float x[1..3]; minimize sum(k in A union B) x[k];"
    tree, data = load_text(tmp_path, model)
    rng = tree["objective"]["expression"]["iterators"][0]["range"]
    assert rng["type"] == "named_set"
    assert data[rng["name"]] == [1, 2, 3]
    assert {"type": "set_declaration", "name": rng["name"]} in tree["declarations"]


@pytest.mark.parametrize(
    "decl, message",
    [
        ("int big = 9223372036854775807 + 1;", "does not fit in 64 bits"),
        ('int bad = 3 < "a";', "cannot compare"),
        ("float q = 1 / 0;", "division by zero"),
    ],
)
def test_errors_in_derived_data_name_the_expression(tmp_path, decl, message):
    with pytest.raises(OplError) as info:
        load_text(tmp_path, decl + "\ndvar float x;\nminimize x;\n")
    assert info.value.lineno == 1
    assert message in info.value.msg


def test_hidden_filters_over_digit_members_and_two_iterators_keep_their_meaning(tmp_path):
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_problem

    # The filter needs ord(), so it is computed by the front end and keyed by
    # (i, j); the generator reads the member "2" as the integer 2.
    model = """
    {string} S = {"1", "2", "3"};
    dvar float+ x[S][S];
    minimize sum(i in S, j in S) x[i][j];
    subject to { forall(i in S, j in S : ord(S, i) < ord(S, j)) x[i][j] >= 1; }
    """
    tree, data = load_text(tmp_path, model)
    solution = solve_problem(SciPyCSCCodeGenerator(tree, data).build_problem())
    # exactly the three pairs with i before j need x >= 1
    assert solution.objective_value == pytest.approx(3.0)
    assert {k for k, v in solution.values.items() if v > 0.5} == {"x_1_2", "x_1_3", "x_2_3"}
