"""kolva export / kolva.write_mps / kolva.write_lp: files HiGHS reads back to the same optimum."""

import os

import highspy
import pytest

import kolva
from kolva import cli, export
from kolva.solve_highs import new_highs
from test_highs_solve import IMPLICATION_AT_BOUNDARY, KNAPSACK, SUPPLY, SUPPLY_DATA, build, knapsack_by_enumeration


def read_back(path):
    highs = new_highs()
    assert highs.readModel(str(path)) == highspy.HighsStatus.kOk
    return highs


def solve_read_back(path):
    highs = read_back(path)
    highs.run()
    assert highs.getModelStatus() == highspy.HighsModelStatus.kOptimal
    return highs.getInfo().objective_function_value


def column_names(highs):
    return [highs.getColName(i)[1] for i in range(highs.getNumCol())]


def row_names(highs):
    return [highs.getRowName(i)[1] for i in range(highs.getNumRow())]


MODELS = {
    "lp": (SUPPLY, SUPPLY_DATA),
    "mip": (KNAPSACK, None),
    "logical": (IMPLICATION_AT_BOUNDARY, None),
}


@pytest.mark.parametrize("kind", sorted(MODELS))
@pytest.mark.parametrize("writer, extension", [(kolva.write_mps, ".mps"), (kolva.write_lp, ".lp")])
def test_round_trip_gives_the_same_optimum_and_names(tmp_path, kind, writer, extension):
    problem = build(tmp_path, *MODELS[kind])
    path = tmp_path / f"out{extension}"
    changed = writer(problem, str(path))
    rows = kolva.solve_highs.row_names(problem)
    if extension == ".mps":
        assert changed == {}  # no blank in these names
    else:  # brackets of indexed rows become parentheses
        assert changed == {name: name.replace("[", "(").replace("]", ")") for name in rows if "[" in name}
    optimum = kolva.solve(problem).objective_value
    assert solve_read_back(path) == pytest.approx(optimum, abs=1e-9)
    highs = read_back(path)
    assert column_names(highs) == problem.var_names
    assert row_names(highs) == [changed.get(name, name) for name in rows]


def test_sense_and_objective_constant_are_kept(tmp_path):
    problem = build(tmp_path, "dvar float+ x;\nmaximize 2 * x + 11;\nsubject to { x <= 3; }\n")
    for extension in (".mps", ".lp"):
        path = tmp_path / f"m{extension}"
        export.write_model(problem, str(path))
        highs = read_back(path)
        assert highs.getObjectiveSense()[1] == highspy.ObjSense.kMaximize
        assert highs.getObjectiveOffset()[1] == 11.0
        assert solve_read_back(path) == pytest.approx(17.0, abs=1e-12)


def test_integer_columns_stay_integer(tmp_path):
    problem = build(tmp_path, KNAPSACK)
    for extension in (".mps", ".lp"):
        path = tmp_path / f"k{extension}"
        export.write_model(problem, str(path))
        highs = read_back(path)
        assert list(highs.getLp().integrality_) == [highspy.HighsVarType.kInteger] * 8
        assert solve_read_back(path) == pytest.approx(knapsack_by_enumeration(), abs=1e-9)


TUPLE_MODEL = """\
tuple Arc { string from; string to; }
{Arc} Arcs = {<"a b", "c">, <"c", "d">};
dvar float+ flow[Arcs] in 0..5;
maximize sum(a in Arcs) flow[a];
subject to { sum(a in Arcs) flow[a] <= 7; }
"""


def test_names_an_lp_file_cannot_hold_are_written_with_underscores(tmp_path):
    problem = build(tmp_path, TUPLE_MODEL)
    assert problem.var_names == ["flow[('a b', 'c')]", "flow[('c', 'd')]"]
    changed = kolva.write_lp(problem, str(tmp_path / "t.lp"))
    assert changed == {"flow[('a b', 'c')]": "flow((_a_b_,__c_))", "flow[('c', 'd')]": "flow((_c_,__d_))"}
    assert column_names(read_back(tmp_path / "t.lp")) == list(changed.values())
    assert solve_read_back(tmp_path / "t.lp") == pytest.approx(7.0, abs=1e-12)
    # MPS holds brackets and quotes; only the blanks are replaced.
    changed = kolva.write_mps(problem, str(tmp_path / "t.mps"))
    assert changed == {"flow[('a b', 'c')]": "flow[('a_b',_'c')]", "flow[('c', 'd')]": "flow[('c',_'d')]"}
    assert column_names(read_back(tmp_path / "t.mps")) == ["flow[('a_b',_'c')]", "flow[('c',_'d')]"]


def test_file_names_stay_unique():
    written, changed = export.file_names(["x[1]", "x(1)", "1a", "ok", "x 1", "a-b:c"], "LP")
    assert written == ["x(1)~1", "x(1)", "_1a", "ok", "x_1", "a_b_c"]
    assert changed == {"x[1]": "x(1)~1", "1a": "_1a", "x 1": "x_1", "a-b:c": "a_b_c"}
    assert len(set(written)) == len(written)
    written, changed = export.file_names(["a b", "a_b", "é"], "MPS")
    assert written == ["a_b~1", "a_b", "é"]


def test_writer_ignores_the_extension_of_its_own_kind(tmp_path):
    problem = build(tmp_path, KNAPSACK)
    kolva.write_mps(problem, str(tmp_path / "k.txt"))
    assert (tmp_path / "k.txt").read_text().startswith("NAME")
    with pytest.raises(ValueError, match=r"cannot tell the format of '.*k\.txt': give a file ending in \.mps or \.lp"):
        export.write_model(problem, str(tmp_path / "k.txt"))


def test_failed_write_leaves_no_file_and_keeps_the_old_one(tmp_path, monkeypatch):
    problem = build(tmp_path, KNAPSACK)
    target = tmp_path / "k.mps"
    target.write_text("old\n")

    def refuse(self, path):
        with open(path, "w") as handle:
            handle.write("partial")
        return highspy.HighsStatus.kError

    monkeypatch.setattr(highspy._core._Highs, "writeModel", refuse)
    with pytest.raises(kolva.SolveError, match="HiGHS could not write"):
        kolva.write_mps(problem, str(target))
    assert target.read_text() == "old\n"
    assert sorted(os.listdir(tmp_path)) == ["k.mps", "m.mod"]


def test_interrupted_replace_removes_the_temporary_file(tmp_path, monkeypatch):
    problem = build(tmp_path, KNAPSACK)

    def interrupted(src, dst):
        raise KeyboardInterrupt

    monkeypatch.setattr(export.os, "replace", interrupted)
    with pytest.raises(KeyboardInterrupt):
        kolva.write_lp(problem, str(tmp_path / "k.lp"))
    assert sorted(os.listdir(tmp_path)) == ["m.mod"]


# ---------------------------------------------------------------- the command


def run_main(capsys, *args):
    code = cli.main(list(args))
    out, err = capsys.readouterr()
    assert "Traceback" not in err
    return code, out, err


def test_export_command_writes_what_the_api_writes(tmp_path, capsys):
    (tmp_path / "s.mod").write_text(SUPPLY)
    (tmp_path / "s.dat").write_text(SUPPLY_DATA)
    warnings = {
        ".mps": "",
        ".lp": "kolva: warning: 5 names cannot be written in LP format as they are; written with the characters "
        "it cannot hold replaced (first: 'ctStock[north]' as 'ctStock(north)')\n",
    }
    for extension in (".mps", ".lp"):
        out_path = tmp_path / f"cli{extension}"
        code, out, err = run_main(capsys, "export", str(tmp_path / "s.mod"), str(tmp_path / "s.dat"), "-o", str(out_path))
        assert (code, out, err) == (0, "", warnings[extension])
        api_path = tmp_path / f"api{extension}"
        export.write_model(build(tmp_path, SUPPLY, SUPPLY_DATA, name="s"), str(api_path))
        assert out_path.read_text() == api_path.read_text()


def test_export_warns_about_renamed_names(tmp_path, capsys):
    (tmp_path / "t.mod").write_text(TUPLE_MODEL)
    code, out, err = run_main(capsys, "export", str(tmp_path / "t.mod"), "-o", str(tmp_path / "t.lp"))
    assert code == 0 and out == ""
    assert err == (
        "kolva: warning: 2 names cannot be written in LP format as they are; written with the "
        "characters it cannot hold replaced (first: \"flow[('a b', 'c')]\" as 'flow((_a_b_,__c_))')\n"
    )


@pytest.mark.parametrize(
    "args, message",
    [
        (["-o", "m.txt"], "kolva: error: cannot tell the format of 'm.txt': give a file ending in .mps or .lp\n"),
        (["-o", "m.mod"], "kolva: error: cannot tell the format of 'm.mod': give a file ending in .mps or .lp\n"),
        (["-o", "nowhere/m.lp"], None),
    ],
)
def test_export_refuses_bad_outputs_before_reading(tmp_path, capsys, monkeypatch, args, message):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "m.mod").write_text(KNAPSACK)
    code, out, err = run_main(capsys, "export", "m.mod", *args)
    assert code == 2 and out == ""
    if message is not None:
        assert err == message
    else:
        assert err.startswith("kolva: error: cannot write output file 'nowhere/m.lp': no directory ")
    assert sorted(os.listdir(tmp_path)) == ["m.mod"]


def test_export_of_a_model_with_an_error_writes_nothing(tmp_path, capsys):
    (tmp_path / "bad.mod").write_text("dvar float x;\nminimize x\n")
    code, out, err = run_main(capsys, "export", str(tmp_path / "bad.mod"), "-o", str(tmp_path / "bad.mps"))
    assert code == 2 and out == ""
    assert err.startswith(f"{tmp_path / 'bad.mod'}:") and ": error: " in err
    assert not (tmp_path / "bad.mps").exists()


def test_export_needs_an_output(tmp_path, capsys):
    with pytest.raises(SystemExit) as info:
        cli.main(["export", str(tmp_path / "m.mod")])
    assert info.value.code == 2
    assert "the following arguments are required: -o/--output" in capsys.readouterr().err
