"""The command line: OPL and JSON inputs, the three commands, exit statuses,
error reports without tracebacks, and atomic output files."""

import json
import os
import subprocess
import sys
from pathlib import Path

import pytest

from kolva import _engine, cli
from kolva.opl_error import OplError
from kolva.semantic_error import SemanticError

EXAMPLES = Path(__file__).resolve().parent.parent / "examples"


def run_cli(*args):
    return subprocess.run([sys.executable, "-m", "kolva", *args], capture_output=True, text=True)


def test_bundled_example_runs_to_its_constant_objective(tmp_path):
    out = tmp_path / "model.py"
    res = run_cli(
        "generate",
        str(EXAMPLES / "constant_model.json"),
        "--data",
        str(EXAMPLES / "constant_model.data.json"),
        "-o",
        str(out),
        "--run",
    )
    assert res.returncode == 0, res.stderr
    # base_cost 12 + 2 * markup 4.5
    assert "objective: 21.0" in res.stdout
    assert "status: OPTIMAL" in res.stdout
    namespace = {"results_container": {}}
    exec(compile(out.read_text(), str(out), "exec"), namespace)
    assert namespace["results_container"]["scipy_output"]["objective_value"] == 21.0


def test_script_goes_to_standard_output_without_output_file(tmp_path):
    model = tmp_path / "m.json"
    model.write_text(
        json.dumps(
            {
                "declarations": [],
                "objective": {"type": "minimize", "expression": {"type": "number", "value": 3}},
                "constraints": [],
            }
        )
    )
    res = run_cli("generate", str(model))
    assert res.returncode == 0, res.stderr
    assert "results['objective_value'] = 3.0" in res.stdout


def test_model_error_is_reported_with_its_message(tmp_path):
    model = tmp_path / "m.json"
    model.write_text(json.dumps({"declarations": [{"type": "mystery", "name": "q"}]}))
    res = run_cli("generate", str(model))
    assert res.returncode == 2
    assert "kolva: error: Unsupported declaration type: mystery" in res.stderr
    assert "Traceback" not in res.stderr


def test_missing_file_is_reported_not_raised(tmp_path):
    res = run_cli("generate", str(tmp_path / "absent.json"))
    assert res.returncode != 0
    assert "cannot read model file" in res.stderr
    assert "Traceback" not in res.stderr


def test_invalid_json_is_reported(tmp_path):
    model = tmp_path / "m.json"
    model.write_text("{not json")
    res = run_cli("generate", str(model))
    assert "is not valid JSON" in res.stderr
    assert "Traceback" not in res.stderr


def test_help_describes_the_json_conventions():
    res = run_cli("--help")
    assert res.returncode == 0
    assert "tuples as arrays" in res.stdout


def transport_reference_optimum():
    """The bundled transportation model written directly as an LP, without the engine."""
    from scipy.optimize import linprog

    data = json.loads((EXAMPLES / "transport.data.json").read_text())
    plants, markets = data["Plants"], data["Markets"]
    cost = [90 * data["distance"][p][m] / 1000 for p in plants for m in markets]
    a_ub, b_ub = [], []
    for i, p in enumerate(plants):
        a_ub.append([1.0 if k // len(markets) == i else 0.0 for k in range(len(cost))])
        b_ub.append(data["capacity"][p])
    for j, m in enumerate(markets):
        a_ub.append([-1.0 if k % len(markets) == j else 0.0 for k in range(len(cost))])
        b_ub.append(-data["demand"][m])
    return linprog(cost, A_ub=a_ub, b_ub=b_ub, bounds=[(0, None)] * len(cost), method="highs").fun


def test_solve_prints_the_transport_optimum_both_ways():
    args = ("solve", str(EXAMPLES / "transport.json"), "--data", str(EXAMPLES / "transport.data.json"))
    in_memory = run_cli(*args)
    via_script = run_cli(*args, "--via-script")
    assert in_memory.returncode == 0, in_memory.stderr
    assert via_script.returncode == 0, via_script.stderr
    assert in_memory.stdout == via_script.stdout
    lines = in_memory.stdout.splitlines()
    assert "status: OPTIMAL" in lines
    objective = float(next(line for line in lines if line.startswith("objective: ")).split(": ")[1])
    assert abs(objective - transport_reference_optimum()) < 1e-9
    assert abs(objective - 153.675) < 1e-9


def test_solve_reports_an_infeasible_model(tmp_path):
    model = tmp_path / "m.json"
    x = {"type": "name", "value": "x"}
    model.write_text(
        json.dumps(
            {
                "declarations": [{"type": "dvar", "name": "x", "var_type": "float+"}],
                "objective": {"type": "minimize", "expression": x},
                "constraints": [{"type": "constraint", "op": "<=", "left": x, "right": {"type": "number", "value": -1}}],
            }
        )
    )
    for extra in ((), ("--via-script",)):
        res = run_cli("solve", str(model), *extra)
        assert res.returncode == 1
        assert "status: INFEASIBLE" in res.stdout


def test_module_entry_point_has_solve_help():
    res = run_cli("solve", "--help")
    assert res.returncode == 0
    assert "--via-script" in res.stdout


# ---------------------------------------------------------------- OPL inputs and errors, in process

X = {"type": "name", "value": "x"}


def tiny_tree(bound=2, op=">="):
    """minimize x subject to x OP bound (x >= 0), as the front end would hand it over."""
    return {
        "declarations": [{"type": "dvar", "name": "x", "var_type": "float+"}],
        "objective": {"type": "minimize", "expression": X},
        "constraints": [{"type": "constraint", "op": op, "left": X, "right": {"type": "number", "value": bound}}],
    }


@pytest.fixture
def opl_files(tmp_path, monkeypatch):
    """A model and a data file on disk, and the engine's loader replaced by a
    recorder that returns `result` (or raises it, if it is an exception)."""
    (tmp_path / "m.mod").write_text("// model\n")
    (tmp_path / "d.dat").write_text("// data\n")
    state = {"result": (tiny_tree(), {}, []), "calls": []}

    def fake_load(model_name, model_text, data_files):
        state["calls"].append((model_name, model_text, data_files))
        if isinstance(state["result"], BaseException):
            raise state["result"]
        return state["result"]

    monkeypatch.setattr(_engine, "_opl_load", fake_load, raising=False)
    monkeypatch.chdir(tmp_path)
    return state


def run_main(capsys, *args):
    code = cli.main(list(args))
    out, err = capsys.readouterr()
    assert "Traceback" not in err
    return code, out, err


def test_opl_solve_goes_through_the_front_end(opl_files, capsys):
    code, out, err = run_main(capsys, "solve", "m.mod", "d.dat")
    assert code == 0, err
    assert opl_files["calls"] == [("m.mod", "// model\n", [("d.dat", "// data\n")])]
    assert "status: OPTIMAL" in out.splitlines()
    assert "objective: 2.0" in out.splitlines()


def test_opl_solve_via_script_prints_the_same(opl_files, capsys):
    _, direct, _ = run_main(capsys, "solve", "m.mod", "d.dat")
    code, via_script, _ = run_main(capsys, "solve", "m.mod", "d.dat", "--via-script")
    assert code == 0
    # The script's own prints are silenced at the file-descriptor level,
    # which capsys sees past: compare from kolva's report on.
    assert via_script[via_script.index("model: ") :] == direct
    assert direct.startswith("model: ")


def test_data_files_may_follow_options(opl_files, capsys):
    Path("e.dat").write_text("// more\n")
    code, _, err = run_main(capsys, "solve", "m.mod", "d.dat", "--via-script", "e.dat")
    assert code == 0, err
    assert [name for name, _ in opl_files["calls"][0][2]] == ["d.dat", "e.dat"]


def test_unknown_option_is_a_usage_error(opl_files, capsys):
    with pytest.raises(SystemExit) as info:
        cli.main(["solve", "m.mod", "--fast"])
    assert info.value.code == 2
    assert "unrecognized arguments: --fast" in capsys.readouterr().err


def test_front_end_warnings_go_to_standard_error_as_they_are(opl_files, capsys):
    opl_files["result"] = (tiny_tree(), {}, ["m.mod:7:1: warning: execute block skipped"])
    code, out, err = run_main(capsys, "solve", "m.mod")
    assert code == 0
    assert "m.mod:7:1: warning: execute block skipped\n" in err
    assert "warning" not in out


def test_opl_error_is_printed_as_its_report_with_status_2(opl_files, capsys):
    report = "m.mod:2:5: error: expected ';'\n  dvar x\n      ^"
    opl_files["result"] = OplError("expected ';'", "m.mod", 2, 5, "  dvar x", report)
    for command in ("solve", "generate", "parse"):
        code, out, err = run_main(capsys, command, "m.mod", "d.dat")
        assert code == 2
        assert err == report + "\n"
        assert out == ""


def test_infeasible_opl_model_exits_1(opl_files, capsys):
    opl_files["result"] = (tiny_tree(bound=-1, op="<="), {}, [])
    code, out, _ = run_main(capsys, "solve", "m.mod")
    assert code == 1
    assert "status: INFEASIBLE" in out


@pytest.mark.parametrize(
    "attributes, expected",
    [
        ({}, "kolva: error: Unknown thing: q\n"),
        ({"opl_source": "m.mod:4:3"}, "m.mod:4:3: error: Unknown thing: q\n"),
        (
            {"opl_source": "m.mod:4:3", "opl_label": "ctCap"},
            "m.mod:4:3: error: in constraint 'ctCap': Unknown thing: q\n",
        ),
    ],
)
def test_semantic_errors_name_their_source_place_when_known(opl_files, capsys, monkeypatch, attributes, expected):
    import kolva.scipy_codegen_csc as codegen

    def failing_generator(tree, data):
        err = SemanticError("Unknown thing: q")
        for key, value in attributes.items():
            setattr(err, key, value)
        raise err

    monkeypatch.setattr(codegen, "SciPyCSCCodeGenerator", failing_generator)
    for command in ("solve", "generate"):
        code, out, err = run_main(capsys, command, "m.mod")
        assert code == 2
        assert err == expected
        assert out == ""


@pytest.mark.parametrize(
    "error, line",
    [
        (KeyError("declarations"), "kolva: error: KeyError: 'declarations'"),
        (TypeError("expected a dict"), "kolva: error: TypeError: expected a dict"),
        (ValueError("bad value\nsecond line"), "kolva: error: ValueError: bad value second line"),
        (NotImplementedError("node kind"), "kolva: error: NotImplementedError: node kind"),
        (RecursionError("maximum recursion depth"), "kolva: error: RecursionError: maximum recursion depth"),
        (OverflowError("too big"), "kolva: error: OverflowError: too big"),
        (IndexError(), "kolva: error: IndexError"),
    ],
)
def test_malformed_tree_errors_are_one_line(opl_files, capsys, monkeypatch, error, line):
    import kolva.scipy_codegen_csc as codegen

    def failing_generator(tree, data):
        raise error

    monkeypatch.setattr(codegen, "SciPyCSCCodeGenerator", failing_generator)
    code, _, err = run_main(capsys, "solve", "m.mod")
    assert code == 2
    assert err == line + "\n"


def test_real_semantic_error_from_a_json_tree_keeps_its_message(tmp_path, capsys):
    model = tmp_path / "m.json"
    model.write_text(json.dumps({"declarations": [{"type": "mystery", "name": "q"}]}))
    code, _, err = run_main(capsys, "generate", str(model))
    assert code == 2
    assert err == "kolva: error: Unsupported declaration type: mystery\n"


def test_generator_error_names_the_opl_constraint(tmp_path, capsys):
    # A constraint carrying its OPL place, as the front end lowers it, that
    # the generator rejects: the report leads with that place and label.
    tree = tiny_tree()
    tree["declarations"].append({"type": "parameter_external", "name": "p"})
    tree["constraints"][0]["right"] = {"type": "name", "value": "p"}
    tree["constraints"][0]["opl_source"] = "m.mod:6:5"
    tree["constraints"][0]["opl_label"] = "ctLow"
    model = tmp_path / "m.json"
    model.write_text(json.dumps(tree))
    code, _, err = run_main(capsys, "solve", str(model))
    assert code == 2
    assert err == "m.mod:6:5: error: in constraint 'ctLow': Constraint references parameter with no data provided\n"


# ---------------------------------------------------------------- which input the extension selects


@pytest.mark.parametrize("command", ["solve", "generate", "parse"])
def test_unknown_model_extension_is_an_error(tmp_path, capsys, command):
    (tmp_path / "m.txt").write_text("minimize 1;")
    code, out, err = run_main(capsys, command, str(tmp_path / "m.txt"))
    assert code == 2
    assert err.startswith("kolva: error: cannot tell what model file")
    assert ".mod" in err and ".json" in err
    assert out == ""


def test_upper_case_mod_extension_is_opl(opl_files, capsys):
    Path("M.MOD").write_text("// model\n")
    code, _, _ = run_main(capsys, "solve", "M.MOD")
    assert code == 0
    assert opl_files["calls"][0][0] == "M.MOD"


def test_json_model_with_positional_data_is_refused(tmp_path, capsys):
    (tmp_path / "m.json").write_text(json.dumps(tiny_tree()))
    code, _, err = run_main(capsys, "solve", str(tmp_path / "m.json"), "extra.json")
    assert code == 2
    assert "--data" in err and err.startswith("kolva: error: ")


def test_opl_model_with_data_option_is_refused(opl_files, capsys):
    code, _, err = run_main(capsys, "solve", "m.mod", "--data", "d.dat")
    assert code == 2
    assert err.startswith("kolva: error: --data is for JSON model trees")
    assert opl_files["calls"] == []


def test_parse_refuses_a_json_model(tmp_path, capsys):
    (tmp_path / "m.json").write_text(json.dumps(tiny_tree()))
    code, _, err = run_main(capsys, "parse", str(tmp_path / "m.json"))
    assert code == 2
    assert "kolva parse reads OPL models (.mod)" in err


def test_json_solve_still_works_in_process(tmp_path, capsys):
    (tmp_path / "m.json").write_text(json.dumps(tiny_tree(bound=5)))
    code, out, _ = run_main(capsys, "solve", str(tmp_path / "m.json"))
    assert code == 0
    assert "objective: 5.0" in out.splitlines()


# ---------------------------------------------------------------- file errors


@pytest.mark.parametrize("command", ["solve", "generate", "parse"])
def test_missing_opl_files_exit_2_naming_the_file(opl_files, capsys, command):
    code, _, err = run_main(capsys, command, "absent.mod")
    assert code == 2
    assert err == "absent.mod: error: cannot read file: No such file or directory\n"
    code, _, err = run_main(capsys, command, "m.mod", "d.dat", "gone.dat")
    assert code == 2
    assert err == "gone.dat: error: cannot read file: No such file or directory\n"
    assert opl_files["calls"] == []


def test_directory_as_model_exits_2(opl_files, capsys):
    os.mkdir("dir.mod")
    code, _, err = run_main(capsys, "solve", "dir.mod")
    assert code == 2
    assert err == "dir.mod: error: cannot read file: Is a directory\n"


def test_invalid_utf8_opl_data_exits_2(opl_files, capsys):
    Path("d.dat").write_bytes(b"n = 1;\ns = \"\xe9t\xe9\";\n")
    code, _, err = run_main(capsys, "solve", "m.mod", "d.dat")
    assert code == 2
    assert err == "d.dat: error: file is not valid UTF-8 (byte 0xe9 at line 2)\n"


def test_invalid_utf8_json_model_exits_2(tmp_path, capsys):
    (tmp_path / "m.json").write_bytes(b'{"declarations": [],\n "x": "\xff"}')
    code, _, err = run_main(capsys, "solve", str(tmp_path / "m.json"))
    assert code == 2
    assert "is not valid UTF-8 (byte 0xff at line 2)" in err


def test_missing_json_files_exit_2(tmp_path, capsys):
    code, _, err = run_main(capsys, "solve", str(tmp_path / "absent.json"))
    assert code == 2
    assert "cannot read model file" in err
    (tmp_path / "m.json").write_text(json.dumps(tiny_tree()))
    code, _, err = run_main(capsys, "solve", str(tmp_path / "m.json"), "--data", str(tmp_path / "nope.json"))
    assert code == 2
    assert "cannot read data file" in err


def test_json_model_that_is_not_an_object_exits_2(tmp_path, capsys):
    (tmp_path / "m.json").write_text("[1, 2]")
    code, _, err = run_main(capsys, "solve", str(tmp_path / "m.json"))
    assert code == 2
    assert "must hold a JSON object" in err


# ---------------------------------------------------------------- kolva parse


def test_parse_writes_model_and_data_with_tuple_and_int_keys_as_pairs(opl_files, capsys):
    tree = {"declarations": [{"type": "set_declaration", "name": "Arcs"}], "objective": {"type": "maximize"}}
    data = {
        "Arcs": [("a", "b"), ("b", "c")],
        "cap": {("a", "b"): 4.5, ("b", "c"): 2},
        "weight": {1: 10, 2: 20},
        "name": {"a": "Ä"},
        "empty": {},
    }
    opl_files["result"] = (tree, data, [])
    code, out, _ = run_main(capsys, "parse", "m.mod", "d.dat")
    assert code == 0
    assert json.loads(out) == {
        "model": tree,
        "data": {
            "Arcs": [["a", "b"], ["b", "c"]],
            "cap": [[["a", "b"], 4.5], [["b", "c"], 2]],
            "weight": [[1, 10], [2, 20]],
            "name": {"a": "Ä"},
            "empty": {},
        },
    }
    assert out.startswith('{\n  "model": {\n    "declarations": [')
    assert out.endswith("}\n")


def test_parse_output_is_standard_json_indented_by_2(opl_files, capsys):
    doc_tree = {"a": [1, 2.5, None, True, False, "x\"y", [], {}], "b": {"c": [{"d": -1e300}]}}
    opl_files["result"] = (doc_tree, {"n": 3}, [])
    code, out, _ = run_main(capsys, "parse", "m.mod")
    assert code == 0
    assert out == json.dumps({"model": doc_tree, "data": {"n": 3}}, indent=2, ensure_ascii=False) + "\n"


def test_parse_writes_very_deep_trees(opl_files, capsys):
    deep = {"type": "number", "value": 1}
    for _ in range(5000):
        deep = {"type": "uminus", "value": deep}
    opl_files["result"] = ({"objective": {"type": "minimize", "expression": deep}}, {}, [])
    code, out, err = run_main(capsys, "parse", "m.mod")
    assert code == 0, err
    assert out.count('"uminus"') == 5000


def test_parse_to_file_matches_standard_output(opl_files, capsys):
    opl_files["result"] = ({"declarations": []}, {"k": {(1, "a"): 2}}, [])
    code, printed, _ = run_main(capsys, "parse", "m.mod", "d.dat")
    assert code == 0
    code, out, _ = run_main(capsys, "parse", "m.mod", "d.dat", "-o", "tree.json")
    assert code == 0
    assert out == ""
    assert Path("tree.json").read_text(encoding="utf-8") == printed
    assert json.loads(printed)["data"]["k"] == [[[1, "a"], 2]]


def test_closed_output_pipe_ends_quietly(opl_files, capsys, monkeypatch, tmp_path):
    sink = open(tmp_path / "sink", "w")

    class ClosedPipe:
        def write(self, text):
            raise BrokenPipeError(32, "Broken pipe")

        def flush(self):
            raise BrokenPipeError(32, "Broken pipe")

        def fileno(self):
            return sink.fileno()

    monkeypatch.setattr(sys, "stdout", ClosedPipe())
    try:
        code = cli.main(["parse", "m.mod"])
    finally:
        sink.close()
    assert code == 141
    assert capsys.readouterr().err == ""


# ---------------------------------------------------------------- -o is atomic and never an input


def test_failed_replace_leaves_no_file(opl_files, capsys, monkeypatch, tmp_path):
    def broken_replace(src, dst):
        raise OSError(28, "No space left on device")

    monkeypatch.setattr(os, "replace", broken_replace)
    before = sorted(os.listdir(tmp_path))
    code, _, err = run_main(capsys, "parse", "m.mod", "-o", "out.json")
    assert code == 2
    assert err == "kolva: error: cannot write output file 'out.json': No space left on device\n"
    assert sorted(os.listdir(tmp_path)) == before


def test_failed_write_keeps_the_old_output(opl_files, capsys, monkeypatch, tmp_path):
    Path("script.py").write_text("old contents\n")

    def broken_fsync(fd):
        raise OSError(5, "Input/output error")

    monkeypatch.setattr(os, "fsync", broken_fsync)
    code, _, err = run_main(capsys, "generate", "m.mod", "-o", "script.py")
    assert code == 2
    assert "cannot write output file 'script.py': Input/output error" in err
    assert Path("script.py").read_text() == "old contents\n"
    assert sorted(os.listdir(tmp_path)) == ["d.dat", "m.mod", "script.py"]


def test_model_error_creates_no_output(opl_files, capsys, tmp_path):
    opl_files["result"] = OplError("bad", "m.mod", 1, 1, "// model")
    for command in ("generate", "parse"):
        code, _, _ = run_main(capsys, command, "m.mod", "-o", "out.txt")
        assert code == 2
    assert sorted(os.listdir(tmp_path)) == ["d.dat", "m.mod"]


def test_interrupted_write_removes_its_temporary_file(opl_files, capsys, monkeypatch, tmp_path):
    def interrupted(fd):
        raise KeyboardInterrupt

    monkeypatch.setattr(os, "fsync", interrupted)
    code = cli.main(["parse", "m.mod", "-o", "out.json"])
    assert code == 130
    assert sorted(os.listdir(tmp_path)) == ["d.dat", "m.mod"]


def test_output_keeps_the_mode_of_the_file_it_replaces(opl_files, capsys):
    Path("script.py").write_text("old\n")
    os.chmod("script.py", 0o640)
    code, _, _ = run_main(capsys, "generate", "m.mod", "-o", "script.py")
    assert code == 0
    assert os.stat("script.py").st_mode & 0o777 == 0o640
    assert "results_container" in Path("script.py").read_text()


@pytest.mark.parametrize(
    "args",
    [
        ("parse", "m.mod", "d.dat", "-o", "m.mod"),
        ("parse", "m.mod", "d.dat", "-o", "d.dat"),
        ("generate", "m.mod", "d.dat", "-o", "./d.dat"),
    ],
)
def test_output_onto_an_input_is_refused(opl_files, capsys, args):
    code, _, err = run_main(capsys, *args)
    assert code == 2
    assert "refusing to write the output onto the input file" in err
    assert Path("m.mod").read_text() == "// model\n"
    assert Path("d.dat").read_text() == "// data\n"
    assert opl_files["calls"] == []


def test_output_onto_the_json_data_is_refused(tmp_path, capsys):
    (tmp_path / "m.json").write_text(json.dumps(tiny_tree()))
    (tmp_path / "d.json").write_text("{}")
    data = str(tmp_path / "d.json")
    code, _, err = run_main(capsys, "generate", str(tmp_path / "m.json"), "--data", data, "-o", data)
    assert code == 2
    assert "refusing" in err
    assert (tmp_path / "d.json").read_text() == "{}"


def test_output_that_is_a_directory_is_refused(opl_files, capsys):
    os.mkdir("outdir")
    code, _, err = run_main(capsys, "parse", "m.mod", "-o", "outdir")
    assert code == 2
    assert "is a directory" in err


def test_output_in_a_missing_directory_is_refused_before_reading(opl_files, capsys):
    code, _, err = run_main(capsys, "generate", "m.mod", "-o", "nowhere/s.py")
    assert code == 2
    assert err.startswith("kolva: error: cannot write output file 'nowhere/s.py': no directory ")
    assert opl_files["calls"] == []


def test_generate_run_of_an_infeasible_model_exits_1(opl_files, capsys):
    opl_files["result"] = (tiny_tree(bound=-1, op="<="), {}, [])
    code, out, _ = run_main(capsys, "generate", "m.mod", "-o", "s.py", "--run")
    assert code == 1
    assert "status: INFEASIBLE" in out
    assert Path("s.py").exists()


# ---------------------------------------------------------------- help


def test_help_explains_opl_and_json_inputs(capsys):
    with pytest.raises(SystemExit) as info:
        cli.main(["--help"])
    assert info.value.code == 0
    text = capsys.readouterr().out
    assert "kolva solve examples/transport.mod examples/transport.dat" in text
    assert ".mod" in text and ".dat" in text and "--data" in text
    assert "kolva parse" in text


@pytest.mark.parametrize("command", ["solve", "generate", "parse"])
def test_each_command_help_mentions_opl_models(capsys, command):
    with pytest.raises(SystemExit) as info:
        cli.main([command, "--help"])
    assert info.value.code == 0
    text = capsys.readouterr().out
    assert ".mod" in text
    assert "examples/transport.mod examples/transport.dat" in text


def test_parse_help_documents_pairs_for_non_string_keys(capsys):
    with pytest.raises(SystemExit):
        cli.main(["parse", "--help"])
    text = " ".join(capsys.readouterr().out.split())
    assert "list of [key, value] pairs" in text
    assert "tuple keys, integer keys" in text


# ---------------------------------------------------------------- the real front end, end to end


SMALL_MODEL = """\
{string} Items = ...;
float cost[Items] = ...;
float need = ...;
dvar float+ take[Items];
minimize sum(i in Items) cost[i] * take[i];
subject to {
  ctNeed: sum(i in Items) take[i] >= need;
}
execute { writeln(take); }
"""

SMALL_DATA = 'Items = {"a", "b", "c"};\ncost = [3, 1.5, 2];\nneed = 4;\n'


def test_small_opl_model_solves_end_to_end(tmp_path, capsys):
    (tmp_path / "s.mod").write_text(SMALL_MODEL)
    (tmp_path / "s.dat").write_text(SMALL_DATA)
    code, out, err = run_main(capsys, "solve", str(tmp_path / "s.mod"), str(tmp_path / "s.dat"))
    assert code == 0, err
    assert "status: OPTIMAL" in out.splitlines()
    assert "objective: 6.0" in out.splitlines()
    assert f"{tmp_path / 's.mod'}:9:1: warning: " in err


def test_small_opl_model_parses_end_to_end(tmp_path, capsys):
    (tmp_path / "s.mod").write_text(SMALL_MODEL)
    (tmp_path / "s.dat").write_text(SMALL_DATA)
    code, out, _ = run_main(capsys, "parse", str(tmp_path / "s.mod"), str(tmp_path / "s.dat"))
    assert code == 0
    doc = json.loads(out)
    assert doc["model"]["objective"]["type"] == "minimize"
    assert [d["name"] for d in doc["model"]["declarations"]] == ["Items", "cost", "need", "take"]
    assert doc["data"]["need"] == 4
    assert sorted(doc["data"]["Items"]) == ["a", "b", "c"]


def test_opl_syntax_error_end_to_end(tmp_path, capsys):
    (tmp_path / "bad.mod").write_text("dvar float x;\nminimize x\nsubject to { x >= 1; }\n")
    code, out, err = run_main(capsys, "solve", str(tmp_path / "bad.mod"))
    assert code == 2
    assert out == ""
    assert err.startswith(f"{tmp_path / 'bad.mod'}:")
    assert ": error: " in err.splitlines()[0]


def test_bundled_opl_transport_example_solves_to_the_known_optimum():
    res = run_cli("solve", str(EXAMPLES / "transport.mod"), str(EXAMPLES / "transport.dat"))
    assert res.returncode == 0, res.stderr
    objective = float(next(line for line in res.stdout.splitlines() if line.startswith("objective: ")).split(": ")[1])
    assert abs(objective - 153.675) < 1e-9
