"""kolva solve's report: variables by declared array, JSON and CSV files, the
progress line, the options and exit statuses of the command.

Expected values come from working the small models out by hand (the LP's
basis, duals and reduced costs are derived in the comments)."""

import csv
import io
import json
import os
import pty
import subprocess
import sys
from pathlib import Path

import pytest

import kolva
from kolva import cli
from kolva.progress import ProgressLine, mip_progress_text
from kolva.solve_highs import MipProgress, row_names
from test_highs_solve import (
    IMPLICATION_STRICT,
    KNAPSACK,
    MARKET_SPLIT,
    SUPPLY,
    SUPPLY_DATA,
    build,
    knapsack_by_enumeration,
    market_split_data,
)



def run_main(capsys, *args):
    code = cli.main([str(arg) for arg in args])
    out, err = capsys.readouterr()
    assert "Traceback" not in err
    return code, out, err


@pytest.fixture
def supply(tmp_path, monkeypatch):
    monkeypatch.setenv("COLUMNS", "80")
    (tmp_path / "s.mod").write_text(SUPPLY)
    (tmp_path / "s.dat").write_text(SUPPLY_DATA)
    return tmp_path / "s.mod", tmp_path / "s.dat"


# The supply LP by hand: shop a is cheapest from north (4), b and c from south
# (3, 7); south's 55 exceed its 50, and moving 5 of c to north costs least
# (9 - 7 = 2 a unit). Cost 20*4 + 5*9 + 30*3 + 20*7 + 7 = 362.
SUPPLY_HEAD = "model: 6 variables, 0 equality rows, 5 inequality rows\nstatus: OPTIMAL\nobjective: 362.0\n"


def test_two_dimensional_array_prints_as_a_matrix(supply, capsys):
    code, out, err = run_main(capsys, "solve", *supply)
    assert (code, err) == (0, "")
    assert out == SUPPLY_HEAD + "\nsend    a   b   c\nnorth  20   0   5\nsouth   0  30  20\n"


def test_matrix_too_wide_for_the_terminal_becomes_a_table(supply, capsys, monkeypatch):
    monkeypatch.setenv("COLUMNS", "16")
    code, out, _ = run_main(capsys, "solve", *supply)
    assert code == 0
    assert out == SUPPLY_HEAD + (
        "\nsend      value\nnorth  a     20\nnorth  c      5\nsouth  b     30\nsouth  c     20\n"
    )


def test_scipy_and_script_paths_print_the_same_report(supply, capsys):
    _, highs, _ = run_main(capsys, "solve", *supply)
    _, scipy, _ = run_main(capsys, "solve", *supply, "--solver", "scipy")
    assert scipy == highs
    _, script, _ = run_main(capsys, "solve", *supply, "--via-script")
    assert script[script.index("model: ") :] == highs


SCALARS_AND_RANGE = """\
dvar float+ x;
dvar float+ y[1..3];
dvar int+ k;
maximize x + sum(i in 1..3) i * y[i] + k;
subject to {
  x <= 2.5;
  y[1] + y[2] + y[3] <= 4;
  k <= 6;
}
"""


def test_scalars_share_one_table_and_one_dimensional_arrays_list_their_nonzeros(tmp_path, capsys):
    # x = 2.5, all of y's 4 on y[3] (weight 3), k = 6: 2.5 + 12 + 6.
    (tmp_path / "v.mod").write_text(SCALARS_AND_RANGE)
    code, out, _ = run_main(capsys, "solve", tmp_path / "v.mod")
    assert code == 0
    assert out == (
        "model: 5 variables, 0 equality rows, 3 inequality rows\n"
        "status: OPTIMAL\n"
        "objective: 20.5\n"
        "\n"
        "variable  value\n"
        "x           2.5\n"
        "k             6\n"
        "\n"
        "y  value\n"
        "3      4\n"
    )


def test_auxiliary_variables_are_hidden_unless_all(tmp_path, capsys):
    # x > 2 => y <= 1 with x <= 2.05: y = 10 needs x <= 2, so 2 + 10 * 10.
    (tmp_path / "l.mod").write_text(IMPLICATION_STRICT)
    code, out, err = run_main(capsys, "solve", tmp_path / "l.mod")
    assert code == 0
    problem = build(tmp_path, IMPLICATION_STRICT, name="l")
    assert problem.var_names[:2] == ["x", "y"] and len(problem.var_names) > 2
    head = (
        f"model: {len(problem.var_names)} variables, 0 equality rows, {len(problem.b_ub)} inequality rows\n"
        "status: OPTIMAL\nobjective: 102.0\n\nvariable  value\nx             2\ny            10\n"
    )
    assert out == head
    code, out, _ = run_main(capsys, "solve", tmp_path / "l.mod", "--all", "--output", tmp_path / "all.json")
    assert out.startswith(head)
    values = json.loads((tmp_path / "all.json").read_text())["variables"]
    assert list(values) == problem.var_names
    ones = [name for name in problem.var_names[2:] if values[name] == 1.0]
    assert ones
    width = max(len("auxiliary"), *map(len, ones))
    table = [f"{'auxiliary':<{width}}  value"] + [f"{name:<{width}}      1" for name in ones]
    assert out == head + "\n" + "\n".join(table) + "\n"


COUNT_MODEL = """\
range I = 1..3;
dvar int x[I] in 0..5;
maximize sum(i in I) x[i];
subject to {
  sum(i in I) (x[i] >= 2) <= 1;
}
"""


def test_hidden_arrays_of_the_front_end_show_with_all(tmp_path, capsys):
    # At most one x[i] reaches 2: one at 5, two at 1, total 7.
    (tmp_path / "c.mod").write_text(COUNT_MODEL)
    _, out, _ = run_main(capsys, "solve", tmp_path / "c.mod")
    assert "objective: 7.0" in out
    assert "__opl" not in out
    _, out, _ = run_main(capsys, "solve", tmp_path / "c.mod", "--all")
    hidden = [line for line in out.splitlines() if line.startswith("__opl")]
    assert len(hidden) == 1 and hidden[0].split()[1] == "value"


# ---------------------------------------------------------------- files


def test_json_of_an_lp_holds_rows_duals_and_reduced_costs(supply, capsys, tmp_path):
    code, _, _ = run_main(capsys, "solve", *supply, "--output", tmp_path / "s.json")
    assert code == 0
    document = json.loads((tmp_path / "s.json").read_text())
    rows = ["ctStock[north]", "ctStock[south]", "ctNeed[a]", "ctNeed[b]", "ctNeed[c]"]
    assert row_names(build(tmp_path, SUPPLY, SUPPLY_DATA, name="s")) == rows
    # Duals (HiGHS's sign, minimization, rows as stored: need rows negated):
    # reduced cost c - y_m + w_s is 0 on the basic columns north-a, north-c,
    # south-b, south-c, with north's stock slack (y = 0): w_a = -4, w_c = -9,
    # y_south = -2, w_b = -5; then north-b costs 6 - 5 = 1, south-a 5 + 2 - 4 = 3.
    assert document == {
        "status": "OPTIMAL",
        "objective": 362.0,
        "problem": "LP",
        "variables": {
            "send_north_a": 20.0,
            "send_north_b": 0.0,
            "send_north_c": 5.0,
            "send_south_a": 0.0,
            "send_south_b": 30.0,
            "send_south_c": 20.0,
        },
        "rows": {
            rows[0]: {"activity": 25.0, "dual": 0.0},
            rows[1]: {"activity": 50.0, "dual": -2.0},
            rows[2]: {"activity": -20.0, "dual": -4.0},
            rows[3]: {"activity": -30.0, "dual": -5.0},
            rows[4]: {"activity": -25.0, "dual": -9.0},
        },
        "reduced_costs": {
            "send_north_a": 0.0,
            "send_north_b": 1.0,
            "send_north_c": 0.0,
            "send_south_a": 3.0,
            "send_south_b": 0.0,
            "send_south_c": 0.0,
        },
    }


def test_json_of_a_mip_holds_bound_and_gap(tmp_path, capsys):
    (tmp_path / "k.mod").write_text(KNAPSACK)
    code, _, _ = run_main(capsys, "solve", tmp_path / "k.mod", "--output", tmp_path / "k.json")
    assert code == 0
    document = json.loads((tmp_path / "k.json").read_text())
    assert list(document) == ["status", "objective", "problem", "variables", "best_bound", "gap"]
    assert document["problem"] == "MIP"
    assert document["objective"] == knapsack_by_enumeration()
    assert document["best_bound"] == pytest.approx(document["objective"], rel=1e-4)
    assert 0 <= document["gap"] <= 1e-4
    assert list(document["variables"]) == [f"take_{i}" for i in range(1, 9)]


def test_csv_has_one_line_per_variable(supply, capsys, tmp_path):
    code, _, _ = run_main(capsys, "solve", *supply, "--output", tmp_path / "s.csv")
    assert code == 0
    assert (tmp_path / "s.csv").read_text() == (
        "variable,value\n"
        "send_north_a,20.0\nsend_north_b,0.0\nsend_north_c,5.0\n"
        "send_south_a,0.0\nsend_south_b,30.0\nsend_south_c,20.0\n"
    )


def test_csv_quotes_names_with_commas(tmp_path, capsys):
    model = 'tuple P { string a; int b; }\n{P} Ps = {<"u", 1>};\ndvar float+ z[Ps];\nminimize sum(p in Ps) z[p];\n'
    model += "subject to { forall(p in Ps) z[p] >= 1; }\n"
    (tmp_path / "q.mod").write_text(model)
    run_main(capsys, "solve", tmp_path / "q.mod", "--output", tmp_path / "q.csv")
    rows = list(csv.reader(io.StringIO((tmp_path / "q.csv").read_text())))
    assert rows == [["variable", "value"], ["z[('u', 1)]", "1.0"]]


def test_infeasible_json_lists_the_conflict(tmp_path, capsys):
    model = "dvar float+ a;\nminimize a;\nsubject to {\n  ctLow: a >= 3;\n  ctHigh: a <= 2;\n}\n"
    (tmp_path / "i.mod").write_text(model)
    code, _, _ = run_main(capsys, "solve", tmp_path / "i.mod", "--output", tmp_path / "i.json")
    assert code == 1
    document = json.loads((tmp_path / "i.json").read_text())
    assert document["status"] == "INFEASIBLE"
    assert document["objective"] is None and document["variables"] == {}
    assert sorted(row["row"] for row in document["conflict"]["rows"]) == sorted(row_names(build(tmp_path, model)))
    assert document["conflict"]["bounds"] == []


@pytest.mark.parametrize("name", ["s.txt", "s.dat"])
def test_solution_output_of_unknown_kind_is_refused(supply, capsys, name):
    code, out, err = run_main(capsys, "solve", *supply, "--output", supply[0].parent / name)
    assert (code, out) == (2, "")
    assert err == (
        f"kolva: error: cannot tell the format of output file {str(supply[0].parent / name)!r}: "
        "give FILE.json or FILE.csv\n"
    )


def test_failed_solution_write_leaves_no_file(supply, capsys, tmp_path, monkeypatch):
    def refuse(src, dst):
        raise PermissionError(13, "Permission denied")

    monkeypatch.setattr(cli.os, "replace", refuse)
    code, _, err = run_main(capsys, "solve", *supply, "--output", tmp_path / "s.json")
    assert code == 2
    assert err == f"kolva: error: cannot write output file {str(tmp_path / 's.json')!r}: Permission denied\n"
    assert sorted(os.listdir(tmp_path)) == ["s.dat", "s.mod"]


# ---------------------------------------------------------------- options and statuses


@pytest.mark.parametrize(
    "args, message",
    [
        (["--time-limit", "0"], "argument --time-limit: '0' is not a positive number"),
        (["--time-limit", "soon"], "argument --time-limit: 'soon' is not a positive number"),
        (["--mip-gap", "-1"], "argument --mip-gap: '-1' is not a number of 0 or more"),
        (["--threads", "0"], "argument --threads: '0' is not a whole number of 1 or more"),
        (["--tolerance", "1e-12"], "argument --tolerance: '1e-12' is not a tolerance between 1e-10 and 0.001"),
        (["--quiet", "--log"], "argument --log: not allowed with argument --quiet"),
        (["--solver", "cplex"], "argument --solver: invalid choice: 'cplex' (choose from 'highs', 'scipy')"),
    ],
)
def test_bad_option_values_are_usage_errors(supply, capsys, args, message):
    with pytest.raises(SystemExit) as info:
        cli.main(["solve", str(supply[0]), *args])
    assert info.value.code == 2
    assert capsys.readouterr().err.splitlines()[-1] == f"kolva solve: error: {message}"


@pytest.mark.parametrize("path", [["--solver", "scipy"], ["--via-script"]])
@pytest.mark.parametrize("option", [["--time-limit", "1"], ["--mip-gap", "0.1"], ["--threads", "1"], ["--tolerance", "1e-8"], ["--log"]])
def test_highs_options_are_refused_on_the_scipy_paths(supply, capsys, path, option):
    code, out, err = run_main(capsys, "solve", *supply, *path, *option)
    assert (code, out) == (2, "")
    assert err == f"kolva: error: {option[0]} is an option of the HiGHS solver; {' '.join(path)} does not take it\n"


def test_options_reach_the_solve(supply, capsys, monkeypatch):
    seen = {}
    real = kolva.solve_highs.solve

    def spy(problem, **options):
        seen.update(options)
        return real(problem, **options)

    monkeypatch.setattr(kolva.solve_highs, "solve", spy)
    code, _, _ = run_main(
        capsys, "solve", *supply, "--time-limit", "9", "--mip-gap", "0.5", "--threads", "1", "--tolerance", "1e-8"
    )
    assert code == 0
    assert {k: seen[k] for k in ("time_limit", "mip_gap", "threads", "tolerance", "log")} == {
        "time_limit": 9.0,
        "mip_gap": 0.5,
        "threads": 1,
        "tolerance": 1e-08,
        "log": False,
    }


def test_log_goes_to_standard_error_and_leaves_the_report_alone(supply, capsys):
    _, quiet, _ = run_main(capsys, "solve", *supply, "--quiet")
    code, out, err = run_main(capsys, "solve", *supply, "--log")
    assert code == 0
    assert out == quiet
    assert "LP has 5 rows; 6 cols" in err
    assert "\r" not in err


def test_time_limit_reports_the_incumbent_and_exits_1(tmp_path, capsys):
    (tmp_path / "ms.mod").write_text(MARKET_SPLIT)
    (tmp_path / "ms.dat").write_text(market_split_data())
    code, out, _ = run_main(capsys, "solve", tmp_path / "ms.mod", tmp_path / "ms.dat", "--time-limit", "0.5")
    assert code == 1
    lines = out.splitlines()
    assert lines[1] == "status: TIME_LIMIT"
    assert lines[2].startswith("objective: ") and lines[2] != "objective: None"
    assert float(lines[3].removeprefix("best bound: ")) <= float(lines[2].removeprefix("objective: "))
    assert lines[4].startswith("gap: ")
    assert lines[5] == "message: Time limit reached"


def test_infeasible_exits_1_and_prints_the_conflict(tmp_path, capsys):
    model = "dvar float+ a;\nminimize a;\nsubject to {\n  ctLow: a >= 3;\n  ctHigh: a <= 2;\n}\n"
    (tmp_path / "i.mod").write_text(model)
    code, out, _ = run_main(capsys, "solve", tmp_path / "i.mod")
    assert code == 1
    assert "status: INFEASIBLE" in out.splitlines()
    assert "conflicting constraints (an irreducible infeasible subset):" in out.splitlines()


# ---------------------------------------------------------------- progress


def test_progress_line_draws_and_erases_on_a_terminal():
    stream = io.StringIO()
    line = ProgressLine(stream, enabled=True)
    line.phase("building the problem")
    line.mip(MipProgress(best_bound=3.0, incumbent=4.5, gap=1 / 3, nodes=12, seconds=0.25))
    line.clear()
    assert stream.getvalue() == (
        "\r\x1b[Kkolva: building the problem..."
        "\r\x1b[Kkolva: solving: bound 3, incumbent 4.5, gap 33.33%, 12 nodes, 0.2 s"
        "\r\x1b[K"
    )


def test_progress_text_before_an_incumbent():
    text = mip_progress_text(MipProgress(best_bound=None, incumbent=None, gap=None, nodes=0, seconds=1.0))
    assert text == "kolva: solving: bound -, incumbent -, gap -, 0 nodes, 1.0 s"


def test_progress_line_is_off_when_the_stream_is_not_a_terminal():
    stream = io.StringIO()
    line = ProgressLine(stream)
    line.phase("reading the model")
    line.clear()
    assert not line.enabled and stream.getvalue() == ""


def kolva_command(*args):
    # The child imports the kolva this test imported: the installed package,
    # or the source tree with its built engine.
    env = dict(os.environ, PYTHONPATH=str(Path(kolva.__file__).resolve().parent.parent))
    return [sys.executable, "-m", "kolva", *map(str, args)], env


def test_no_progress_when_standard_error_is_a_pipe(tmp_path):
    (tmp_path / "ms.mod").write_text(MARKET_SPLIT)
    (tmp_path / "ms.dat").write_text(market_split_data())
    command, env = kolva_command("solve", tmp_path / "ms.mod", tmp_path / "ms.dat", "--time-limit", "0.5")
    res = subprocess.run(command, env=env, capture_output=True, text=True, timeout=120)
    assert res.returncode == 1
    assert res.stderr == ""


def test_progress_shows_on_a_terminal_and_is_erased(tmp_path):
    (tmp_path / "ms.mod").write_text(MARKET_SPLIT)
    (tmp_path / "ms.dat").write_text(market_split_data())
    command, env = kolva_command("solve", tmp_path / "ms.mod", tmp_path / "ms.dat", "--time-limit", "0.5")
    leader, follower = pty.openpty()
    try:
        res = subprocess.run(command, env=env, stdout=subprocess.PIPE, stderr=follower, text=True, timeout=120)
        os.close(follower)
        follower = -1
        chunks = []
        while True:
            try:
                chunk = os.read(leader, 65536)
            except OSError:  # the terminal is closed and drained
                break
            if not chunk:
                break
            chunks.append(chunk)
    finally:
        if follower != -1:
            os.close(follower)
        os.close(leader)
    drawn = b"".join(chunks).decode()
    assert res.returncode == 1
    assert "kolva: reading the model..." in drawn
    assert "kolva: building the problem..." in drawn
    assert "kolva: solving: bound " in drawn
    assert drawn.endswith("\r\x1b[K")
    assert "\r" not in res.stdout
    assert res.stdout.splitlines()[1] == "status: TIME_LIMIT"
    # --quiet draws nothing on the terminal.
    leader, follower = pty.openpty()
    command, env = kolva_command("solve", tmp_path / "ms.mod", tmp_path / "ms.dat", "--time-limit", "0.2", "--quiet")
    subprocess.run(command, env=env, stdout=subprocess.PIPE, stderr=follower, timeout=120)
    os.close(follower)
    try:
        quiet = os.read(leader, 65536)
    except OSError:
        quiet = b""
    os.close(leader)
    assert quiet == b""


# ---------------------------------------------------------------- where conflicting rows were written


def places_of(tmp_path, model):
    from kolva import opl
    from kolva.report import ConstraintPlaces

    (tmp_path / "p.mod").write_text(model)
    tree, _ = opl.load(tmp_path / "p.mod")
    return ConstraintPlaces(tree), str(tmp_path / "p.mod")


PLACES_MODEL = """\
range R = 1..2;
dvar float+ x[R];
minimize sum(r in R) x[r];
subject to {
  forall(r in R) ctLow: x[r] >= 1;
  forall(r in R) x[r] <= 5;
  forall(r in R) { ctPair: x[r] <= 4; x[r] <= 6; }
  x[1] + x[2] <= 9;
}
"""


def test_row_names_lead_to_the_place_of_their_constraint(tmp_path):
    places, mod = places_of(tmp_path, PLACES_MODEL)
    # By label, with indices and a role or counter after it.
    assert places.of_row("ctLow[1]") == (f"{mod}:5:18", "ctLow")
    assert places.of_row("ctLow[2]#2") == (f"{mod}:5:18", "ctLow")
    assert places.of_row("ctPair[1]") == (f"{mod}:7:20", "ctPair")
    assert places.of_row("ctLow") == (f"{mod}:5:18", "ctLow")
    # By top-level position: a forall's one body, or the forall itself.
    assert places.of_row("c2[1]") == (f"{mod}:6:18", None)
    assert places.of_row("c3[2]#2") == (f"{mod}:7:3", None)
    assert places.of_row("c4") == (f"{mod}:8:3", None)
    # Names that point nowhere.
    assert places.of_row("c5") is None
    assert places.of_row("c0") is None
    assert places.of_row("ctLowest[1]") is None
    assert places.of_row("ub3") is None


def test_conflict_report_names_the_places_of_its_constraints(tmp_path, capsys):
    from test_highs_solve import CONFLICT_LP

    (tmp_path / "c.mod").write_text(CONFLICT_LP)
    code, out, _ = run_main(capsys, "solve", tmp_path / "c.mod", "--output", tmp_path / "c.json")
    assert code == 1
    place = str(tmp_path / "c.mod")
    width = len(place + ":6:3")
    assert out.splitlines()[-5:] == [
        "conflicting constraints (an irreducible infeasible subset):",
        f"  row    {'source':<{width}}  label",
        f"  ctCap  {place + ':6:3':<{width}}  ctCap",
        f"  ctA    {place + ':7:3':<{width}}  ctA",
        f"  ctB    {place + ':8:3':<{width}}  ctB",
    ]
    document = json.loads((tmp_path / "c.json").read_text())
    assert document["conflict"] == {
        "rows": [
            {"row": "ctCap", "source": f"{place}:6:3", "label": "ctCap"},
            {"row": "ctA", "source": f"{place}:7:3", "label": "ctA"},
            {"row": "ctB", "source": f"{place}:8:3", "label": "ctB"},
        ],
        "bounds": [],
    }


def test_conflict_of_a_logical_model_names_its_constraints(tmp_path, capsys):
    from test_highs_solve import CONFLICT_LOGICAL

    (tmp_path / "l.mod").write_text(CONFLICT_LOGICAL)
    code, _, _ = run_main(capsys, "solve", tmp_path / "l.mod", "--output", tmp_path / "l.json")
    assert code == 1
    rows = json.loads((tmp_path / "l.json").read_text())["conflict"]["rows"]
    place = str(tmp_path / "l.mod")
    # The implication's rows, and the two rows that force it to fail; not ctRoom.
    assert {(row["label"], row["source"]) for row in rows} == {
        ("ctImp", f"{place}:6:3"),
        ("ctX", f"{place}:7:3"),
        ("ctY", f"{place}:8:3"),
    }
    assert all(row["row"].startswith(row["label"]) for row in rows)


UNLABELLED_CONFLICT = """\
range I = 1..3;
dvar float+ x[I];
minimize sum(i in I) x[i];
subject to {
  forall(i in I) x[i] >= i;
  sum(i in I) x[i] <= 5;
  forall(i in I) x[i] <= 10;
}
"""


def test_conflict_rows_of_unlabelled_constraints_point_to_their_place(tmp_path, capsys):
    # x[i] >= i sums to 6 > 5; the upper bounds play no part.
    (tmp_path / "u.mod").write_text(UNLABELLED_CONFLICT)
    code, _, _ = run_main(capsys, "solve", tmp_path / "u.mod", "--output", tmp_path / "u.json")
    assert code == 1
    place = str(tmp_path / "u.mod")
    assert json.loads((tmp_path / "u.json").read_text())["conflict"]["rows"] == [
        {"row": "c1[1]", "source": f"{place}:5:18", "label": None},
        {"row": "c1[2]", "source": f"{place}:5:18", "label": None},
        {"row": "c1[3]", "source": f"{place}:5:18", "label": None},
        {"row": "c2", "source": f"{place}:6:3", "label": None},
    ]


def test_solution_output_onto_the_json_model_is_refused(tmp_path, capsys):
    model = tmp_path / "m.json"
    x = {"type": "name", "value": "x"}
    tree = {
        "declarations": [{"type": "dvar", "name": "x", "var_type": "float+"}],
        "objective": {"type": "minimize", "expression": x},
        "constraints": [{"type": "constraint", "op": ">=", "left": x, "right": {"type": "number", "value": 2}}],
    }
    model.write_text(json.dumps(tree))
    before = model.read_text()
    code, out, err = run_main(capsys, "solve", model, "--output", model)
    assert (code, out) == (2, "")
    assert err == f"kolva: error: refusing to write the output onto the input file {str(model)!r}\n"
    assert model.read_text() == before
    code, out, _ = run_main(capsys, "solve", model, "--output", tmp_path / "out.json")
    assert code == 0
    assert json.loads((tmp_path / "out.json").read_text())["variables"] == {"x": 2.0}
