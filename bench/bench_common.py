"""Pieces the benchmarks share: model-tree node builders, one measurement
run in a child process (so that its peak memory is its own), and the result
printed as an aligned table or as CSV."""

from __future__ import annotations

import json
import os
import resource
import subprocess
import sys


def num(v):
    return {"type": "number", "value": v}


def ref(name):
    return {"type": "name_reference_index", "name": name}


def over(it, n):
    return {"iterator": it, "range": {"type": "range_specifier", "start": num(1), "end": num(n)}}


def range_dim(n):
    return {"type": "range_index", "start": num(1), "end": num(n)}


def peak_rss_bytes() -> int:
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024


def run_child(script: str, *args) -> dict:
    """Runs `script --child args...` and reads the JSON it prints."""
    # Generation uses no BLAS; NumPy's BLAS threads would only spin on the
    # second core and disturb the timing.
    env = dict(os.environ, OPENBLAS_NUM_THREADS="1", OMP_NUM_THREADS="1")
    out = subprocess.run(
        [sys.executable, script, "--child", *map(str, args)], capture_output=True, text=True, check=True, env=env
    )
    return json.loads(out.stdout)


def print_table(header, rows, csv: bool, decimals) -> None:
    """Rows as CSV, or right-aligned columns; `decimals` gives the places of
    each float column (None for the others)."""
    if csv:
        print(",".join(header))
        for row in rows:
            print(",".join(f"{v:.4f}" if isinstance(v, float) else str(v) for v in row))
        return
    cells = [[f"{v:.{d}f}" if d is not None else str(v) for v, d in zip(row, decimals)] for row in rows]
    widths = [max([len(h)] + [len(r[k]) for r in cells]) for k, h in enumerate(header)]
    print(" ".join(h.rjust(w) for h, w in zip(header, widths)))
    for r in cells:
        print(" ".join(c.rjust(w) for c, w in zip(r, widths)))
