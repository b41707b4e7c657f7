"""The command line: generate a script from JSON files, and run it."""

import json
import subprocess
import sys
from pathlib import Path

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
    assert "model error: Unsupported declaration type: mystery" in res.stderr


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
