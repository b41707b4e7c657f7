"""Command line: turn a model tree (JSON) and its data (JSON) into a script.

Usage:
    kolva generate MODEL.json [--data DATA.json] [-o SCRIPT.py] [--run]

The model file holds the parsed model tree: a JSON object with
"declarations", "objective" and "constraints". The data file holds the data
dictionary: a JSON object from parameter and set names to values. JSON has
no tuples: write a tuple as an array.
"""

from __future__ import annotations

import argparse
import json
import sys
from typing import Any, Dict, List, Optional

from kolva.semantic_error import SemanticError


def _load_json(path: str, what: str) -> Any:
    try:
        with open(path, encoding="utf-8") as handle:
            return json.load(handle)
    except OSError as err:
        raise SystemExit(f"kolva: cannot read {what} file {path!r}: {err.strerror}") from err
    except json.JSONDecodeError as err:
        raise SystemExit(f"kolva: {what} file {path!r} is not valid JSON: {err}") from err


def _build_parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="kolva",
        description="Generate SciPy/HiGHS scripts from parsed OPL models.",
        epilog="Model and data are JSON; write tuples as arrays.",
    )
    sub = parser.add_subparsers(dest="command", required=True)
    gen = sub.add_parser(
        "generate",
        help="write the stand-alone Python script for a model",
        description="Write the stand-alone SciPy/HiGHS script for a model tree.",
    )
    gen.add_argument("model", help="model tree as JSON (declarations, objective, constraints)")
    gen.add_argument("--data", help="data dictionary as JSON (parameter and set values by name)")
    gen.add_argument("-o", "--output", help="script file to write (default: standard output)")
    gen.add_argument("--run", action="store_true", help="also run the script and print its result")
    return parser


def _generate(args: argparse.Namespace) -> int:
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    model = _load_json(args.model, "model")
    if not isinstance(model, dict):
        raise SystemExit(f"kolva: model file {args.model!r} must hold a JSON object")
    data: Optional[Dict[str, Any]] = _load_json(args.data, "data") if args.data else None
    if data is not None and not isinstance(data, dict):
        raise SystemExit(f"kolva: data file {args.data!r} must hold a JSON object")
    try:
        script = SciPyCSCCodeGenerator(model, data).generate_code()
    except SemanticError as err:
        print(f"kolva: model error: {err}", file=sys.stderr)
        return 2
    if args.output:
        with open(args.output, "w", encoding="utf-8") as handle:
            handle.write(script + "\n")
    elif not args.run:
        print(script)
    if args.run:
        namespace: Dict[str, Any] = {"results_container": {}}
        exec(compile(script, args.output or "<kolva script>", "exec"), namespace)
        result = namespace["results_container"]["scipy_output"]
        print(f"status: {result.get('status')}")
        print(f"objective: {result.get('objective_value')}")
    return 0


def main(argv: Optional[List[str]] = None) -> int:
    args = _build_parser().parse_args(argv)
    if args.command == "generate":
        return _generate(args)
    return 1


if __name__ == "__main__":
    sys.exit(main())
