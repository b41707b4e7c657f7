"""Cost of inputs that used to grow faster than their size: data keyed by
NaN, many small array declarations, and shared subtrees (refused past a
limit). Each doubles N; linear cost shows as a flat column of µs per unit.

Run: python bench/bench_hostile.py [--sizes 20000 40000 80000] [--csv]
"""

from __future__ import annotations

import argparse
import time

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator


def num(v):
    return {"type": "number", "value": v}


def nan_keys(n: int):
    keys = [float("nan") for _ in range(n)]
    tree = {"declarations": [{"type": "set_declaration", "name": "S"},
                             {"type": "parameter_external_indexed", "name": "p",
                              "dimensions": [{"type": "named_set_dimension", "name": "S"}]},
                             {"type": "dvar", "name": "x", "var_type": "float+"}],
            "objective": {"type": "minimize", "expression": {"type": "name", "value": "x"}}, "constraints": []}
    return tree, {"S": keys, "p": {k: 1 for k in keys}}


def small_arrays(n: int):
    decls = [{"type": "dvar_indexed", "name": f"y{i}", "var_type": "float+",
              "dimensions": [{"type": "range_index", "start": num(1), "end": num(2)}]} for i in range(n)]
    return {"declarations": decls, "objective": {"type": "minimize", "expression": num(0)}, "constraints": []}, {}


def shared_rows(n: int):
    row = {"type": "constraint", "op": "<=", "left": {"type": "name", "value": "x"}, "right": num(1)}
    return {"declarations": [{"type": "dvar", "name": "x", "var_type": "float+"}],
            "objective": {"type": "minimize", "expression": {"type": "name", "value": "x"}},
            "constraints": [row] * n}, {}


CASES = {"NaN keys": nan_keys, "small arrays": small_arrays, "one row object shared": shared_rows}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[20000, 40000, 80000])
    parser.add_argument("--csv", action="store_true")
    args = parser.parse_args()
    rows = []
    for label, make in CASES.items():
        for n in args.sizes:
            tree, data = make(n)
            start = time.perf_counter()
            SciPyCSCCodeGenerator(tree, data).build_problem()
            seconds = time.perf_counter() - start
            rows.append((label, n, seconds, seconds / n * 1e6))
    if args.csv:
        print("case,n,seconds,us_per_unit")
        for r in rows:
            print(f"{r[0]},{r[1]},{r[2]:.4f},{r[3]:.3f}")
        return
    print(f"{'case':<24}{'N':>10}{'seconds':>10}{'µs/unit':>10}")
    for r in rows:
        print(f"{r[0]:<24}{r[1]:>10}{r[2]:>10.3f}{r[3]:>10.2f}")


if __name__ == "__main__":
    main()
