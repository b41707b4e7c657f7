"""The command line runs emitted scripts (--via-script, --run): text from a
hostile model must stay text there too."""

import json
import subprocess
import sys

import pytest


def run_cli(*args, cwd=None):
    return subprocess.run([sys.executable, "-m", "kolva", *args], capture_output=True, text=True, cwd=cwd)


def hostile_tree(marker):
    # An array whose name ends its comment line and opens a file, and an
    # objective type that tries to leave its string literal.
    array = f"y\nopen({str(marker)!r}, 'w').close()\r#"
    one = {"type": "number_literal_index", "value": 1}
    y1 = {"type": "indexed_name", "name": array, "dimensions": [one]}
    return {"declarations": [{"type": "dvar_indexed", "name": array, "var_type": "float+",
                              "dimensions": [{"type": "range_index", "start": {"type": "number", "value": 1},
                                              "end": {"type": "number", "value": 2}}]}],
            "objective": {"type": "maximize", "expression": y1},
            "constraints": [{"type": "constraint", "op": "<=", "left": y1, "right": {"type": "number", "value": 3}}]}


@pytest.mark.parametrize("how", [("solve", "--via-script"), ("generate", "--run")])
def test_a_hostile_name_does_not_run_when_the_cli_runs_the_script(tmp_path, how):
    marker = tmp_path / "ran"
    model = tmp_path / "model.json"
    model.write_text(json.dumps(hostile_tree(marker)))
    args = [how[0], str(model), how[1]]
    if how[0] == "generate":
        args += ["-o", str(tmp_path / "script.py")]
    res = run_cli(*args, cwd=tmp_path)
    assert res.returncode == 0, res.stderr
    assert "3.0" in res.stdout
    assert not marker.exists()


def test_non_finite_data_is_one_line_naming_the_variable(tmp_path):
    tree = hostile_tree(tmp_path / "unused")
    tree["declarations"].insert(0, {"type": "parameter_external", "name": "p"})
    tree["constraints"][0]["right"] = {"type": "name", "value": "p"}
    model, data = tmp_path / "model.json", tmp_path / "data.json"
    model.write_text(json.dumps(tree))
    data.write_text('{"p": NaN}')
    res = run_cli("solve", str(model), "--data", str(data))
    assert res.returncode == 2
    assert "Traceback" not in res.stderr
    # y[1] <= p is also read as y[1]'s upper bound, which is checked first.
    assert res.stderr.startswith("kolva: error: A bound of variable \"y\\nopen(")
    assert res.stderr.endswith("#_1\" is nan; bounds must be numbers or None.\n")
    assert len(res.stderr.strip().splitlines()) == 1, res.stderr
