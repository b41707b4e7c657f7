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
