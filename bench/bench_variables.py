"""Time the variables phase on x[i in 1..N, j in 1..N].

Prints a table (and, with --csv, CSV) of N, columns, seconds for
_build_variables and microseconds per column. Run: python bench/bench_variables.py
"""

from __future__ import annotations

import argparse
import time

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator


def square_model(n: int) -> dict:
    dims = [
        {"type": "range_index", "start": {"type": "number", "value": 1}, "end": {"type": "number", "value": n}},
        {"type": "range_index", "start": {"type": "number", "value": 1}, "end": {"type": "number", "value": n}},
    ]
    return {
        "declarations": [
            {
                "type": "dvar_indexed",
                "name": "x",
                "var_type": "float+",
                "dimensions": dims,
                "iterators": [{"iterator": "i"}, {"iterator": "j"}],
            }
        ],
        "constraints": [],
    }


def time_build_variables(n: int, repeats: int) -> tuple[int, float]:
    best = float("inf")
    columns = 0
    for _ in range(repeats):
        gen = SciPyCSCCodeGenerator(square_model(n))
        start = time.perf_counter()
        gen._build_variables()
        best = min(best, time.perf_counter() - start)
        columns = len(gen.var_names)
    return columns, best


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", type=int, nargs="+", default=[100, 300, 1000])
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--csv", action="store_true", help="print CSV instead of a table")
    args = parser.parse_args()
    rows = []
    for n in args.sizes:
        columns, seconds = time_build_variables(n, args.repeats)
        rows.append((n, columns, seconds, seconds / columns * 1e6))
    if args.csv:
        print("N,columns,seconds,us_per_column")
        for n, columns, seconds, per in rows:
            print(f"{n},{columns},{seconds:.4f},{per:.3f}")
        return
    print(f"{'N':>6} {'columns':>10} {'seconds':>9} {'us/column':>10}")
    for n, columns, seconds, per in rows:
        print(f"{n:>6} {columns:>10} {seconds:>9.3f} {per:>10.3f}")


if __name__ == "__main__":
    main()
