"""Writes the starting corpora of the fuzz harnesses from examples/:

    fuzz/seed/opl/        every .mod and .dat, as they are
    fuzz/seed/generator/  one JSON file per example model: {"tree": ..., "data": ...},
                          the model tree and data of each .mod/.dat pair (read with
                          kolva.opl.load) and of each checked-in .json tree

Run from anywhere: python fuzz/make_corpus.py (needs kolva importable).
"""

from __future__ import annotations

import json
import pathlib
import shutil

from kolva import opl

ROOT = pathlib.Path(__file__).resolve().parent.parent
EXAMPLES = ROOT / "examples"
SEED = pathlib.Path(__file__).resolve().parent / "seed"


def jsonable(value):
    """Model trees and data hold tuples and int keys; JSON has neither."""
    if isinstance(value, dict):
        return {str(k) if not isinstance(k, str) else k: jsonable(v) for k, v in value.items()}
    if isinstance(value, (list, tuple)):
        return [jsonable(v) for v in value]
    return value


def main():
    shutil.rmtree(SEED, ignore_errors=True)
    (SEED / "opl").mkdir(parents=True)
    (SEED / "generator").mkdir(parents=True)
    count = 0
    for path in sorted(EXAMPLES.glob("*.mod")) + sorted(EXAMPLES.glob("*.dat")):
        shutil.copyfile(path, SEED / "opl" / path.name)
        count += 1
    for mod in sorted(EXAMPLES.glob("*.mod")):
        dat = mod.with_suffix(".dat")
        tree, data = opl.load(str(mod), *([str(dat)] if dat.exists() else []))
        out = SEED / "generator" / (mod.stem + ".json")
        out.write_text(json.dumps({"tree": jsonable(tree), "data": jsonable(data)}, sort_keys=False) + "\n")
        count += 1
    for tree_path in sorted(EXAMPLES.glob("*.json")):
        if tree_path.name.endswith(".data.json"):
            continue
        data_path = tree_path.with_name(tree_path.stem + ".data.json")
        data = json.loads(data_path.read_text()) if data_path.exists() else {}
        out = SEED / "generator" / ("json_" + tree_path.stem + ".json")
        out.write_text(json.dumps({"tree": json.loads(tree_path.read_text()), "data": data}) + "\n")
        count += 1
    print(f"wrote {count} seed files under {SEED}")


if __name__ == "__main__":
    main()
