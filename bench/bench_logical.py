"""Generation cost of logical constraints as their number grows.

Two models over i in 1..N, each in a child process:
  implications:  x[i] in [0, 10], y[i] in [0, 5];
                 forall(i) x[i] >= 1 => y[i] <= 2       (one flag, three rows each)
                 forall(i) b[i] == 1 => x[i] + y[i] <= 8 (an indicator row each)
  counts:        x[i][j], j in 1..3;
                 forall(i) sum(j) (x[i][j] >= y[i]) >= 2 (three binaries, seven rows each)
Prints, per model and N: constraints, variables, rows, nonzeros, seconds for
build_problem(), microseconds per constraint, and peak memory above the
interpreter's baseline. Logical forms must stay linear in N: caches are
hash look-ups, never scans.
Run: python bench/bench_logical.py [--sizes 1000 10000 100000] [--csv]
"""

from __future__ import annotations

import argparse
import json
import sys
import time

from bench_common import num, over, peak_rss_bytes, print_table, range_dim, ref, run_child


def var(name, *dims):
    if not dims:
        return {"type": "name", "value": name}
    return {"type": "indexed_name", "name": name, "dimensions": [ref(d) for d in dims]}


def dvar(name, var_type, *sizes):
    return {"type": "dvar_indexed", "name": name, "var_type": var_type, "dimensions": [range_dim(s) for s in sizes]}


def constraint(op, left, right):
    return {"type": "constraint", "op": op, "left": left, "right": right}


def forall(n, body):
    return {"type": "forall_constraint", "iterators": [over("i", n)], "constraint": body}


def implication(ant, cons):
    return {"type": "implication_constraint", "antecedent": ant, "consequent": cons}


def plus(a, b):
    return {"type": "binop", "op": "+", "left": a, "right": b}


def implications_model(n: int) -> tuple[dict, int]:
    x, y, b = var("x", "i"), var("y", "i"), var("b", "i")
    model = {
        "declarations": [dvar("x", "float+", n), dvar("y", "float+", n), dvar("b", "boolean", n)],
        "objective": {"type": "minimize", "expression": {"type": "sum", "iterators": [over("i", n)], "expression": y}},
        "constraints": [
            forall(n, constraint("<=", x, num(10))),
            forall(n, constraint("<=", y, num(5))),
            forall(n, implication(constraint(">=", x, num(1)), constraint("<=", y, num(2)))),
            forall(n, implication(constraint("==", b, num(1)), constraint("<=", plus(x, y), num(8)))),
        ],
    }
    return model, 2 * n


def counts_model(n: int) -> tuple[dict, int]:
    term = {"type": "binop", "op": ">=", "left": var("x", "i", "j"), "right": var("y", "i"), "sem_type": "boolean"}
    count = {"type": "sum", "iterators": [over("j", 3)], "expression": term}
    model = {
        "declarations": [dvar("x", "float+", n, 3), dvar("y", "float+", n)],
        "objective": {"type": "minimize", "expression": {"type": "sum", "iterators": [over("i", n)], "expression": var("y", "i")}},
        "constraints": [forall(n, constraint(">=", count, num(2)))],
    }
    return model, n


MODELS = {"implications": implications_model, "counts": counts_model}


def measure(kind: str, n: int) -> dict:
    """Runs in the child: build_problem() on one model and size."""
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    model, constraints = MODELS[kind](n)
    baseline = peak_rss_bytes()
    start = time.perf_counter()
    problem = SciPyCSCCodeGenerator(model, {}).build_problem()
    seconds = time.perf_counter() - start
    return {
        "constraints": constraints,
        "variables": len(problem.var_names),
        "rows": len(problem.b_ub) + len(problem.b_eq),
        "nnz": problem.A_ub.nnz + problem.A_eq.nnz,
        "seconds": seconds,
        "peak": peak_rss_bytes() - baseline,
    }


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[1000, 10000, 100000], help="values of N")
    parser.add_argument("--csv", action="store_true")
    parser.add_argument("--child", nargs=2, help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.child:
        print(json.dumps(measure(args.child[0], int(args.child[1]))))
        return
    header = ("model", "N", "constraints", "variables", "rows", "nonzeros", "build_s", "us/constraint", "peak_MiB")
    table = []
    for kind in MODELS:
        for n in args.sizes:
            r = run_child(__file__, kind, n)
            per = r["seconds"] / r["constraints"] * 1e6
            table.append((kind, n, r["constraints"], r["variables"], r["rows"], r["nnz"], r["seconds"], per, r["peak"] / 2**20))
            print(f"... {kind} N={n}: {r['seconds']:.2f} s", file=sys.stderr)
    print_table(header, table, args.csv, (None, None, None, None, None, None, 3, 2, 1))

if __name__ == "__main__":
    main()
