"""Cost of reading an OPL transportation model as it grows, with GLPK as a peer.

The model is m plants x n markets (m = n), written as OPL text with a
generated .dat: ship[i][j] >= 0, minimize sum cost[i][j]*ship[i][j],
forall(i) sum(j) ship[i][j] <= capacity[i], forall(j) sum(i) ship[i][j] >=
demand[j]. It has m*n variables, m+n rows and 2*m*n nonzeros; the default
sizes 100, 316 and 707 give about 20k, 200k and 1M nonzeros.

Each size runs in child processes (so one size's allocations do not warm the
next) and each phase is timed as the best of --repeat runs:

  read     kolva._engine._opl_load on the .mod and .dat texts, to the model
           tree and data as Python objects; MB/s is of the .dat text
  build    SciPyCSCCodeGenerator(tree, data).build_problem() plus
           A_ub.tocsr() on what the read returned
  whole    reading both files from disk, then read and build in one go
  tree     build (build_problem() plus tocsr()) on the same model given as a
           model tree dict and data dict written in Python, with no OPL at
           all; whole/tree is what the OPL path costs on top of that
  glpsol   the same model and data in GLPK's MathProg language, translated
           by `glpsol --check -m model.mod -d data.dat` (no solve), timed as
           the wall time of the subprocess; glpsol/kolva is glpsol / whole

Kolva's figures are taken inside a running interpreter (no interpreter start
or imports); glpsol's include its own process start. The OPL path and the
tree-only build are checked to give the same LP (sizes and sums of c, A and
b), and the nonzeros glpsol reports are checked too; a mismatch or a failed
column is printed as a note after the table.

glpsol is optional (the main install never needs it); on Debian/Ubuntu:
    apt-get update && apt-get install -y glpk-utils
Without it the glpsol columns read n/a and a note says so.

Run: python bench/bench_opl.py [--sizes 100 316 707] [--repeat 3] [--csv]
     [--keep DIR]   (write the generated files to DIR and keep them)
"""

from __future__ import annotations

import argparse
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time
import traceback
from pathlib import Path

from bench_common import print_table, run_child

OPL_MODEL = """\
{string} Plants = ...;
{string} Markets = ...;
float capacity[Plants] = ...;
float demand[Markets] = ...;
float cost[Plants][Markets] = ...;

dvar float+ ship[Plants][Markets];

minimize sum(i in Plants, j in Markets) cost[i][j] * ship[i][j];

subject to {
  forall(i in Plants)
    ctSupply: sum(j in Markets) ship[i][j] <= capacity[i];
  forall(j in Markets)
    ctDemand: sum(i in Plants) ship[i][j] >= demand[j];
}
"""

MATHPROG_MODEL = """\
set P;
set M;
param cap{P};
param dem{M};
param cost{P, M};
var x{P, M} >= 0;
minimize z: sum{i in P, j in M} cost[i, j] * x[i, j];
s.t. sup{i in P}: sum{j in M} x[i, j] <= cap[i];
s.t. dmd{j in M}: sum{i in P} x[i, j] >= dem[j];
end;
"""


# ---------------------------------------------------------------- instances


def instance(side: int):
    """Names and numbers of one instance. Numbers go through their printed
    form, so the Python data dict holds exactly what the .dat files say."""
    rng = random.Random(side)
    plants = [f"p{k}" for k in range(1, side + 1)]
    markets = [f"m{k}" for k in range(1, side + 1)]
    demand = [f"{rng.uniform(10, 100):.2f}" for _ in markets]
    # Capacities add up to at least 1.2 times the demand, so the LP is feasible.
    share = 1.2 * sum(map(float, demand)) / side
    capacity = [f"{share * rng.uniform(1.0, 1.5):.2f}" for _ in plants]
    cost = [[f"{rng.uniform(1, 100):.3f}" for _ in markets] for _ in plants]
    return plants, markets, capacity, demand, cost


def opl_dat(plants, markets, capacity, demand, cost) -> str:
    quoted = lambda names: ", ".join(f'"{n}"' for n in names)  # noqa: E731
    rows = ",\n  ".join("[" + ", ".join(r) + "]" for r in cost)
    return (
        f"Plants = {{{quoted(plants)}}};\n"
        f"Markets = {{{quoted(markets)}}};\n"
        f"capacity = [{', '.join(capacity)}];\n"
        f"demand = [{', '.join(demand)}];\n"
        f"cost = [\n  {rows}\n];\n"
    )


def mathprog_dat(plants, markets, capacity, demand, cost) -> str:
    # The tabular form of param keeps the file about the size of the .dat.
    table = "\n".join(f"  {p} " + " ".join(r) for p, r in zip(plants, cost))
    return (
        "data;\n"
        f"set P := {' '.join(plants)};\n"
        f"set M := {' '.join(markets)};\n"
        f"param cap := {' '.join(f'{p} {v}' for p, v in zip(plants, capacity))};\n"
        f"param dem := {' '.join(f'{m} {v}' for m, v in zip(markets, demand))};\n"
        f"param cost : {' '.join(markets)} :=\n{table};\n"
        "end;\n"
    )


def write_instance(side: int, directory: Path) -> dict:
    parts = instance(side)
    files = {
        "mod": directory / "transport.mod",
        "dat": directory / f"transport_{side}.dat",
        "glpk_mod": directory / "transport_glpk.mod",
        "glpk_dat": directory / f"transport_glpk_{side}.dat",
    }
    files["mod"].write_text(OPL_MODEL)
    files["dat"].write_text(opl_dat(*parts))
    files["glpk_mod"].write_text(MATHPROG_MODEL)
    files["glpk_dat"].write_text(mathprog_dat(*parts))
    return {k: str(v) for k, v in files.items()}


# ------------------------------------------------- the same model as a tree


def _named(name):
    return {"type": "named_set", "name": name}


def _dim(name):
    return {"type": "named_set_dimension", "name": name}


def _at(name, *its):
    return {"type": "indexed_name", "name": name, "dimensions": [{"type": "name_reference_index", "name": i} for i in its]}


def _row(op, over_it, over_set, sum_it, sum_set, rhs):
    return {
        "type": "forall_constraint",
        "iterators": [{"iterator": over_it, "range": _named(over_set)}],
        "constraint": {
            "type": "constraint",
            "op": op,
            "left": {"type": "sum", "iterators": [{"iterator": sum_it, "range": _named(sum_set)}], "expression": _at("ship", "i", "j")},
            "right": _at(rhs, over_it),
        },
    }


def transport_tree() -> dict:
    """The model tree the OPL text above stands for, in the shape of
    examples/transport.json."""
    return {
        "declarations": [
            {"type": "set_declaration", "name": "Plants"},
            {"type": "set_declaration", "name": "Markets"},
            {"type": "parameter_external_indexed", "name": "capacity", "dimensions": [_dim("Plants")]},
            {"type": "parameter_external_indexed", "name": "demand", "dimensions": [_dim("Markets")]},
            {"type": "parameter_external_indexed", "name": "cost", "dimensions": [_dim("Plants"), _dim("Markets")]},
            {
                "type": "dvar_indexed",
                "name": "ship",
                "var_type": "float+",
                "dimensions": [_dim("Plants"), _dim("Markets")],
                "iterators": [{"iterator": "i"}, {"iterator": "j"}],
            },
        ],
        "objective": {
            "type": "minimize",
            "expression": {
                "type": "sum",
                "iterators": [{"iterator": "i", "range": _named("Plants")}, {"iterator": "j", "range": _named("Markets")}],
                "expression": {"type": "binop", "op": "*", "left": _at("cost", "i", "j"), "right": _at("ship", "i", "j")},
            },
        },
        "constraints": [
            _row("<=", "i", "Plants", "j", "Markets", "capacity"),
            _row(">=", "j", "Markets", "i", "Plants", "demand"),
        ],
    }


def transport_data(side: int) -> dict:
    plants, markets, capacity, demand, cost = instance(side)
    return {
        "Plants": plants,
        "Markets": markets,
        "capacity": dict(zip(plants, map(float, capacity))),
        "demand": dict(zip(markets, map(float, demand))),
        "cost": {p: dict(zip(markets, map(float, r))) for p, r in zip(plants, cost)},
    }


# ------------------------------------------------------------ the children


def build(tree, data):
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    problem = SciPyCSCCodeGenerator(tree, data).build_problem()
    # The rows come as a compact sequence; a SciPy matrix is what a solver
    # takes, so making it is part of getting a usable LP.
    return problem, problem.A_ub.tocsr()


def fingerprint(result) -> dict:
    """Order-free summary of the LP, to check that the paths agree."""
    import numpy as np

    problem, a_ub = result
    return {
        "variables": len(problem.var_names),
        "rows": len(problem.b_ub) + len(problem.b_eq),
        "nnz": int(a_ub.nnz + problem.A_eq.nnz),
        "sums": [float(np.sum(problem.c)), float(a_ub.sum()), float(np.sum(problem.b_ub))],
    }


def measure_opl(files: dict, repeat: int) -> dict:
    from kolva import _engine

    mod_path, dat_path = files["mod"], files["dat"]
    dat_bytes = os.path.getsize(dat_path)
    best = {"read": float("inf"), "build": float("inf"), "whole": float("inf")}
    problem = None
    for _ in range(repeat):
        start = time.perf_counter()
        mod_text = Path(mod_path).read_text()
        dat_text = Path(dat_path).read_text()
        loaded = time.perf_counter()
        tree, data, _warnings = _engine._opl_load(
            os.path.basename(mod_path), mod_text, [(os.path.basename(dat_path), dat_text)]
        )
        read = time.perf_counter()
        problem = build(tree, data)
        done = time.perf_counter()
        best["read"] = min(best["read"], read - loaded)
        best["build"] = min(best["build"], done - read)
        best["whole"] = min(best["whole"], done - start)
        del tree, data
    return {**best, "dat_bytes": dat_bytes, "lp": fingerprint(problem)}


def measure_tree(side: int, repeat: int) -> dict:
    tree, data = transport_tree(), transport_data(side)
    seconds, problem = float("inf"), None
    for _ in range(repeat):
        start = time.perf_counter()
        problem = build(tree, data)
        seconds = min(seconds, time.perf_counter() - start)
    return {"tree": seconds, "lp": fingerprint(problem)}


def child(kind: str, arg: str, repeat: int) -> None:
    # Failures come back as JSON so that one broken column does not stop the table.
    try:
        # tocsr() imports scipy.sparse on first use; that import is start-up,
        # not reading or building, so it happens before any clock starts.
        import scipy.sparse  # noqa: F401

        import kolva.scipy_codegen_csc  # noqa: F401

        result = measure_opl(json.loads(arg), repeat) if kind == "opl" else measure_tree(int(arg), repeat)
    except BaseException as exc:  # noqa: BLE001 - reported to the parent
        lines = traceback.format_exception_only(type(exc), exc)
        result = {"error": " ".join(lines[-1].split())}
    print(json.dumps(result))


def in_child(kind: str, arg: str, repeat: int) -> dict:
    try:
        return run_child(__file__, kind, arg, repeat)
    except subprocess.CalledProcessError as exc:  # a crash, not a Python error
        tail = (exc.stderr or "").strip().splitlines()[-1:] or [f"exit status {exc.returncode}"]
        return {"error": tail[0]}


# ------------------------------------------------------------------ glpsol

# What glpsol --check prints once the model is generated; its matrix counts the
# objective as a row.
GLPSOL_SIZE = re.compile(
    r"Number of rows\s*=\s*(\d+)\s*Number of columns\s*=\s*(\d+)\s*Number of non-zeros \(matrix\)\s*=\s*(\d+)"
)


def measure_glpsol(glpsol: str, files: dict, repeat: int) -> dict:
    cmd = [glpsol, "--check", "-m", files["glpk_mod"], "-d", files["glpk_dat"]]
    seconds, out = float("inf"), None
    for _ in range(repeat):
        start = time.perf_counter()
        out = subprocess.run(cmd, capture_output=True, text=True)
        seconds = min(seconds, time.perf_counter() - start)
        if out.returncode != 0:
            return {"error": f"glpsol exit status {out.returncode}: {out.stdout.strip().splitlines()[-1:]}"}
    found = GLPSOL_SIZE.search(out.stdout)
    if not found:
        return {"error": "glpsol did not report the model it generated"}
    return {"glpsol": seconds, "rows": int(found[1]), "columns": int(found[2]), "nnz": int(found[3])}


# -------------------------------------------------------------------- main


def agree(a: dict, b: dict) -> bool:
    if any(a[k] != b[k] for k in ("variables", "rows", "nnz")):
        return False
    return all(abs(x - y) <= 1e-9 * max(1.0, abs(x), abs(y)) for x, y in zip(a["sums"], b["sums"]))


def run_size(side: int, directory: Path, repeat: int, glpsol: str | None, notes: list) -> tuple:
    files = write_instance(side, directory)
    opl = in_child("opl", json.dumps(files), repeat)
    tree = in_child("tree", str(side), repeat)
    peer = measure_glpsol(glpsol, files, repeat) if glpsol else {}
    nnz = 2 * side * side
    for label, got in (("OPL path", opl), ("tree-only build", tree), ("glpsol", peer)):
        if "error" in got:
            notes.append(f"size {side}: {label} failed: {got['error']}")
    if "lp" in opl and opl["lp"]["nnz"] != nnz:
        notes.append(f"size {side}: the OPL path built {opl['lp']['nnz']} nonzeros, expected {nnz}")
    if "lp" in opl and "lp" in tree and not agree(opl["lp"], tree["lp"]):
        notes.append(f"size {side}: the OPL path and the tree-only build differ: {opl['lp']} vs {tree['lp']}")
    if "nnz" in peer and peer["nnz"] != nnz + side * side:
        notes.append(f"size {side}: glpsol generated {peer['nnz']} nonzeros, expected {nnz + side * side}")

    dat_mb = os.path.getsize(files["dat"]) / 1e6
    read, build_s, whole = opl.get("read"), opl.get("build"), opl.get("whole")
    tree_s, glp = tree.get("tree"), peer.get("glpsol")
    ratio = lambda a, b: a / b if a is not None and b else None  # noqa: E731
    return (nnz, dat_mb, read, ratio(dat_mb, read), build_s, whole, tree_s, ratio(whole, tree_s), glp, ratio(glp, whole))


def snapshot_package(scratch: Path) -> None:
    """Runs the children on a private copy of the kolva package. A rebuild
    that copies a new extension over the one a child has mapped kills that
    child with SIGBUS, and a rebuild between sizes would mix two builds in
    one table; the copy rules out both."""
    try:
        import kolva  # only the package's __init__; the extension stays unloaded here
    except ImportError:
        return  # the children will fail to import it and say so
    source = Path(kolva.__file__).parent
    shutil.copytree(source, scratch / "lib" / "kolva", ignore=shutil.ignore_patterns("__pycache__"))
    path = os.environ.get("PYTHONPATH")
    os.environ["PYTHONPATH"] = str(scratch / "lib") + (os.pathsep + path if path else "")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[100, 316, 707], help="m = n values")
    parser.add_argument("--repeat", type=int, default=3, help="runs per phase; the best is reported")
    parser.add_argument("--csv", action="store_true")
    parser.add_argument("--keep", metavar="DIR", help="write the generated files here and keep them")
    parser.add_argument("--child", nargs=3, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.child:
        child(args.child[0], args.child[1], int(args.child[2]))
        return

    glpsol = shutil.which("glpsol")
    notes = [] if glpsol else ["glpsol not found (apt-get install -y glpk-utils); its columns read n/a"]
    header = (
        "nonzeros", "dat_MB", "read_s", "read_MB/s", "build_s", "whole_s",
        "tree_build_s", "whole/tree", "glpsol_s", "glpsol/kolva",
    )  # fmt: skip
    decimals = (None, 2, 3, 1, 3, 3, 3, 2, 3, 1)
    with tempfile.TemporaryDirectory(prefix="kolva_bench_opl_") as scratch:
        snapshot_package(Path(scratch))
        directory = Path(args.keep) if args.keep else Path(scratch)
        directory.mkdir(parents=True, exist_ok=True)
        rows = [run_size(side, directory, args.repeat, glpsol, notes) for side in args.sizes]

    if args.csv:
        print_table(header, [tuple("" if v is None else v for v in r) for r in rows], True, decimals)
    else:
        # Missing figures print as n/a, so format here and hand over text.
        cells = [tuple("n/a" if v is None else v if d is None else f"{v:.{d}f}" for v, d in zip(r, decimals)) for r in rows]
        print_table(header, cells, False, (None,) * len(header))
    sys.stdout.flush()
    for note in notes:
        print(f"note: {note}", file=sys.stderr)


if __name__ == "__main__":
    main()
