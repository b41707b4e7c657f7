"""kolva.opl, the Python face of the OPL front end: what it hands to the
engine, what it gives back, how it reports unreadable files and warnings,
and small models read end to end."""

import logging
import os
from pathlib import Path

import pytest

from kolva import _engine, opl
from kolva.opl_error import OplError

SMALL_MODEL = """\
{string} Items = ...;
float cost[Items] = ...;
float need = ...;
dvar float+ take[Items];
minimize sum(i in Items) cost[i] * take[i];
subject to {
  ctNeed: sum(i in Items) take[i] >= need;
}
"""

SMALL_DATA = """\
Items = {"a", "b", "c"};
cost = [3, 1.5, 2];
need = 4;
"""


def messages_of(caplog):
    return [r.getMessage() for r in caplog.records if r.name == "kolva.opl" and r.levelno == logging.WARNING]


def decl_names(tree):
    return [d.get("name") for d in tree["declarations"]]


# ---------------------------------------------------------------- the API's own contract


def test_opl_error_is_reexported():
    assert opl.OplError is OplError
    assert set(opl.__all__) == {"OplError", "load", "parse_data", "parse_model"}


def test_parse_model_forwards_text_and_name_and_logs_each_warning(monkeypatch, caplog):
    calls = []

    def fake(text, filename):
        calls.append((text, filename))
        return {"declarations": []}, ["a.mod:3:1: warning: first", "a.mod:9:1: warning: second"]

    monkeypatch.setattr(_engine, "_opl_parse_model", fake, raising=False)
    with caplog.at_level(logging.WARNING, logger="kolva.opl"):
        tree = opl.parse_model("minimize 1;", filename="a.mod")
        opl.parse_model("minimize 2;")
    assert tree == {"declarations": []}
    assert calls == [("minimize 1;", "a.mod"), ("minimize 2;", "<string>")]
    assert messages_of(caplog) == ["a.mod:3:1: warning: first", "a.mod:9:1: warning: second"] * 2


def test_parse_data_forwards_model_text_or_none(monkeypatch):
    calls = []

    def fake(text, filename, model_text, model_filename):
        calls.append((text, filename, model_text, model_filename))
        return {"n": 3}

    monkeypatch.setattr(_engine, "_opl_parse_data", fake, raising=False)
    assert opl.parse_data("n = 3;") == {"n": 3}
    opl.parse_data("n = 3;", model="int n = ...;", filename="d.dat", model_filename="m.mod")
    assert calls == [
        ("n = 3;", "<string>", None, "<model>"),
        ("n = 3;", "d.dat", "int n = ...;", "m.mod"),
    ]


def test_load_reads_the_files_and_passes_names_as_given(tmp_path, monkeypatch, caplog):
    (tmp_path / "m.mod").write_text("int n = ...;\n", encoding="utf-8")
    (tmp_path / "a.dat").write_text("n = 1;\n", encoding="utf-8")
    (tmp_path / "b.dat").write_bytes("// café\n".encode("utf-8"))
    calls = []

    def fake(model_name, model_text, data_files):
        calls.append((model_name, model_text, data_files))
        return {"tree": 1}, {"n": 1}, ["m.mod:1:1: warning: w"]

    monkeypatch.setattr(_engine, "_opl_load", fake, raising=False)
    monkeypatch.chdir(tmp_path)
    with caplog.at_level(logging.WARNING, logger="kolva.opl"):
        result = opl.load("m.mod", Path("a.dat"), tmp_path / "b.dat")
    assert result == ({"tree": 1}, {"n": 1})
    assert calls == [
        ("m.mod", "int n = ...;\n", [("a.dat", "n = 1;\n"), (str(tmp_path / "b.dat"), "// café\n")])
    ]
    assert messages_of(caplog) == ["m.mod:1:1: warning: w"]


def test_load_drops_a_leading_byte_order_mark(tmp_path, monkeypatch):
    (tmp_path / "m.mod").write_bytes(b"\xef\xbb\xbfminimize 1;\n")
    seen = []
    monkeypatch.setattr(
        _engine, "_opl_load", lambda name, text, data: seen.append(text) or ({}, {}, []), raising=False
    )
    opl.load(tmp_path / "m.mod")
    assert seen == ["minimize 1;\n"]


def test_missing_file_is_an_opl_error_naming_it(tmp_path):
    path = str(tmp_path / "absent.mod")
    with pytest.raises(OplError) as info:
        opl.load(path)
    err = info.value
    assert (err.filename, err.lineno, err.offset) == (path, 0, 0)
    assert err.msg == "cannot read file: No such file or directory"
    assert str(err) == f"{path}: error: cannot read file: No such file or directory"


def test_missing_data_file_is_named_not_the_model(tmp_path, monkeypatch):
    (tmp_path / "m.mod").write_text("minimize 1;")
    monkeypatch.setattr(_engine, "_opl_load", lambda *a: pytest.fail("engine reached"), raising=False)
    with pytest.raises(OplError) as info:
        opl.load(tmp_path / "m.mod", tmp_path / "gone.dat")
    assert info.value.filename == str(tmp_path / "gone.dat")


def test_directory_is_an_opl_error(tmp_path):
    with pytest.raises(OplError) as info:
        opl.load(tmp_path)
    assert info.value.msg == "cannot read file: Is a directory"
    assert info.value.lineno == 0


def test_invalid_utf8_names_the_byte_and_its_line(tmp_path, monkeypatch):
    (tmp_path / "m.mod").write_text("minimize 1;")
    (tmp_path / "d.dat").write_bytes(b"a = 1;\nb = 2;\nname = \"\xff\";\n")
    monkeypatch.setattr(_engine, "_opl_load", lambda *a: pytest.fail("engine reached"), raising=False)
    with pytest.raises(OplError) as info:
        opl.load(tmp_path / "m.mod", tmp_path / "d.dat")
    err = info.value
    assert err.filename == str(tmp_path / "d.dat")
    assert err.lineno == 0
    assert err.msg == "file is not valid UTF-8 (byte 0xff at line 3)"
    assert str(err).endswith(": error: file is not valid UTF-8 (byte 0xff at line 3)")


def test_truncated_utf8_sequence_at_the_end_is_reported(tmp_path):
    (tmp_path / "m.mod").write_bytes("minimize 1; // é".encode("utf-8")[:-1])
    with pytest.raises(OplError) as info:
        opl.load(tmp_path / "m.mod")
    assert info.value.msg == "file is not valid UTF-8 (byte 0xc3 at line 1)"


def test_opl_errors_pickle_with_their_place():
    import pickle

    err = OplError("bad", "m.mod", 0, 0, "", "m.mod: error: bad")
    back = pickle.loads(pickle.dumps(err))
    assert (back.msg, back.filename, str(back)) == ("bad", "m.mod", "m.mod: error: bad")


# ---------------------------------------------------------------- end to end (the real front end)


def test_parse_model_gives_the_objective_sense_and_declarations():
    tree = opl.parse_model(SMALL_MODEL, filename="small.mod")
    assert tree["objective"]["type"] == "minimize"
    assert decl_names(tree) == ["Items", "cost", "need", "take"]
    assert len(tree["constraints"]) == 1


def test_parse_model_reads_maximize_and_comments():
    tree = opl.parse_model("/* header */ dvar float+ x; // the only variable\nmaximize -x;\n")
    assert tree["objective"]["type"] == "maximize"
    assert decl_names(tree) == ["x"]
    assert tree["constraints"] == []


def test_parse_model_logs_a_skipped_execute_block(caplog):
    with caplog.at_level(logging.WARNING, logger="kolva.opl"):
        opl.parse_model("dvar float x;\nminimize x;\nexecute {\n  writeln(x);\n}\n", filename="e.mod")
    messages = messages_of(caplog)
    assert len(messages) == 1
    assert messages[0].startswith("e.mod:3:1: warning: ")


def test_syntax_error_carries_its_place():
    with pytest.raises(OplError) as info:
        opl.parse_model("dvar float x;\nminimize x\nsubject to { x >= 1; }\n", filename="bad.mod")
    err = info.value
    assert err.filename == "bad.mod"
    assert err.lineno in (2, 3)
    assert str(err).startswith(f"bad.mod:{err.lineno}:{err.offset}: error: ")
    assert "^" in str(err)


def test_using_cp_is_an_error():
    with pytest.raises(OplError) as info:
        opl.parse_model("using CP;\ndvar int x in 0..3;\nminimize x;\n", filename="cp.mod")
    assert info.value.lineno == 1


def test_parse_data_without_a_model_reads_values_as_written():
    data = opl.parse_data('n = 3;\nS = {"a", "b"};\nf = 2.5;\n', filename="d.dat")
    assert data["n"] == 3
    assert data["f"] == 2.5
    assert sorted(data["S"]) == ["a", "b"]


def test_parse_data_with_a_model_checks_the_declaration():
    with pytest.raises(OplError) as info:
        opl.parse_data("m = 3;\n", model="int n = ...;\n", filename="d.dat", model_filename="m.mod")
    assert info.value.filename == "d.dat"
    assert info.value.lineno == 1


def test_load_then_solve_gives_the_known_optimum(tmp_path):
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_problem

    (tmp_path / "small.mod").write_text(SMALL_MODEL)
    (tmp_path / "small.dat").write_text(SMALL_DATA)
    tree, data = opl.load(tmp_path / "small.mod", tmp_path / "small.dat")
    assert data["need"] == 4
    solution = solve_problem(SciPyCSCCodeGenerator(tree, data).build_problem())
    assert solution.status == "OPTIMAL"
    # the cheapest item, b at 1.5, covers the whole need of 4
    assert abs(solution.objective_value - 6.0) < 1e-9


def test_load_error_in_data_names_the_data_file(tmp_path):
    (tmp_path / "small.mod").write_text(SMALL_MODEL)
    (tmp_path / "small.dat").write_text(SMALL_DATA + "\nunknown = 1;\n")
    with pytest.raises(OplError) as info:
        opl.load(tmp_path / "small.mod", tmp_path / "small.dat")
    assert info.value.filename == str(tmp_path / "small.dat")
    assert info.value.lineno == 5


def test_load_accepts_data_split_over_files(tmp_path):
    (tmp_path / "small.mod").write_text(SMALL_MODEL)
    first, second = SMALL_DATA.split("need")
    (tmp_path / "one.dat").write_text(first)
    (tmp_path / "two.dat").write_text("need" + second)
    _, data = opl.load(os.fspath(tmp_path / "small.mod"), tmp_path / "one.dat", tmp_path / "two.dat")
    assert data["need"] == 4
    assert sorted(data["Items"]) == ["a", "b", "c"]


def test_bundled_transport_example_loads_and_solves_to_its_optimum():
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_problem

    examples = Path(__file__).resolve().parent.parent / "examples"
    tree, data = opl.load(examples / "transport.mod", examples / "transport.dat")
    assert tree["objective"]["type"] == "minimize"
    solution = solve_problem(SciPyCSCCodeGenerator(tree, data).build_problem())
    assert solution.status == "OPTIMAL"
    assert abs(solution.objective_value - 153.675) < 1e-9
