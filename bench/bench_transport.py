"""Generation cost of a transportation model as it grows.

x[i in 1..m, j in 1..n] >= 0, minimize sum(i, j) cost[i][j] * x[i][j],
forall(i) sum(j) x[i][j] <= supply[i], forall(j) sum(i) x[i][j] >= demand[j].
The model has m*n variables, m+n rows and 2*m*n nonzeros.

Each size runs in a child process so that its peak resident memory can be
measured alone. Prints a table (or CSV with --csv) of variables, rows,
nonzeros, seconds for build_problem(), seconds for generate_code(), and the
peak memory above the interpreter's baseline, also per nonzero.
Run: python bench/bench_transport.py [--sizes 100 300 707]
"""

from __future__ import annotations

import argparse
import json
import random
import sys
import time

from bench_common import num, over, peak_rss_bytes, print_table, range_dim, ref, run_child


def indexed(name, *dims):
    return {"type": "indexed_name", "name": name, "dimensions": [ref(d) for d in dims]}


def transport_model(m: int, n: int):
    rng = random.Random(7)
    data = {
        "supply": [float(rng.randint(n, 3 * n)) for _ in range(m)],
        "demand": [float(rng.randint(1, m)) for _ in range(n)],
        "cost": [[float(rng.randint(1, 99)) for _ in range(n)] for _ in range(m)],
    }
    model = {
        "declarations": [
            {"type": "parameter_external_indexed", "name": "supply", "dimensions": [range_dim(m)]},
            {"type": "parameter_external_indexed", "name": "demand", "dimensions": [range_dim(n)]},
            {"type": "parameter_external_indexed", "name": "cost", "dimensions": [range_dim(m), range_dim(n)]},
            {
                "type": "dvar_indexed",
                "name": "x",
                "var_type": "float+",
                "dimensions": [range_dim(m), range_dim(n)],
                "iterators": [{"iterator": "i"}, {"iterator": "j"}],
            },
        ],
        "objective": {
            "type": "minimize",
            "expression": {
                "type": "sum",
                "iterators": [over("i", m), over("j", n)],
                "expression": {"type": "binop", "op": "*", "left": indexed("cost", "i", "j"), "right": indexed("x", "i", "j")},
            },
        },
        "constraints": [
            {
                "type": "forall_constraint",
                "iterators": [over("i", m)],
                "constraint": {
                    "type": "constraint",
                    "op": "<=",
                    "left": {"type": "sum", "iterators": [over("j", n)], "expression": indexed("x", "i", "j")},
                    "right": indexed("supply", "i"),
                },
            },
            {
                "type": "forall_constraint",
                "iterators": [over("j", n)],
                "constraint": {
                    "type": "constraint",
                    "op": ">=",
                    "left": {"type": "sum", "iterators": [over("i", m)], "expression": indexed("x", "i", "j")},
                    "right": indexed("demand", "j"),
                },
            },
        ],
    }
    return model, data


def measure(side: int, phase: str) -> dict:
    """Runs in the child: one phase on one size, reporting seconds and peak memory."""
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    model, data = transport_model(side, side)
    baseline = peak_rss_bytes()
    gen = SciPyCSCCodeGenerator(model, data)
    start = time.perf_counter()
    if phase == "build_problem":
        problem = gen.build_problem()
        nnz = problem.A_ub.nnz + problem.A_eq.nnz
        rows = len(problem.b_ub) + len(problem.b_eq)
        variables = len(problem.var_names)
    else:
        script = gen.generate_code()
        nnz, rows, variables = len(script), 0, 0
    seconds = time.perf_counter() - start
    return {"seconds": seconds, "peak": peak_rss_bytes() - baseline, "nnz": nnz, "rows": rows, "variables": variables}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[100, 300, 500, 707], help="m = n values")
    parser.add_argument("--csv", action="store_true")
    parser.add_argument("--child", nargs=2, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.child:
        print(json.dumps(measure(int(args.child[0]), args.child[1])))
        return
    header = ("variables", "rows", "nonzeros", "build_s", "generate_s", "us/nnz", "peak_MiB", "bytes/nnz")
    rows = []
    for side in args.sizes:
        build = run_child(__file__, side, "build_problem")
        generate = run_child(__file__, side, "generate_code")
        nnz = build["nnz"]
        rows.append(
            (
                build["variables"],
                build["rows"],
                nnz,
                build["seconds"],
                generate["seconds"],
                build["seconds"] / nnz * 1e6,
                build["peak"] / 2**20,
                build["peak"] / nnz,
            )
        )
    print_table(header, rows, args.csv, (None, None, None, 3, 3, 3, 1, 1))

if __name__ == "__main__":
    main()
