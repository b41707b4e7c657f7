"""Command line: generate the script of a model, or solve it.

Usage:
    kolva generate MODEL.json [--data DATA.json] [-o SCRIPT.py] [--run]
    kolva solve MODEL.json [--data DATA.json] [--via-script]

The model file holds the parsed model tree: a JSON object with
"declarations", "objective" and "constraints". The data file holds the data
dictionary: a JSON object from parameter and set names to values. JSON has
no tuples: write a tuple as an array, a set of tuples as an array of arrays,
and a tuple-keyed parameter as a list of [key, value] pairs.
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
        epilog=(
            "Model and data are JSON. Write tuples as arrays, tuple sets as arrays of arrays, "
            "and tuple-keyed parameters as lists of [key, value] pairs."
        ),
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
    solve = sub.add_parser(
        "solve",
        help="solve a model with SciPy's HiGHS and print the solution",
        description=(
            "Build the program in memory and solve it with scipy.optimize.linprog(method='highs') "
            "through its sparse matrices; print status, objective and the nonzero variables."
        ),
    )
    solve.add_argument("model", help="model tree as JSON (declarations, objective, constraints)")
    solve.add_argument("--data", help="data dictionary as JSON (parameter and set values by name)")
    solve.add_argument(
        "--via-script",
        action="store_true",
        help="generate the stand-alone script and run it in this process instead (slower; same output)",
    )
    return parser


def _load_inputs(args: argparse.Namespace):
    model = _load_json(args.model, "model")
    if not isinstance(model, dict):
        raise SystemExit(f"kolva: model file {args.model!r} must hold a JSON object")
    data: Optional[Dict[str, Any]] = _load_json(args.data, "data") if args.data else None
    if data is not None and not isinstance(data, dict):
        raise SystemExit(f"kolva: data file {args.data!r} must hold a JSON object")
    return model, data


def _print_solution(solution, sizes) -> None:
    variables, equalities, inequalities = sizes
    print(f"model: {variables} variables, {equalities} equality rows, {inequalities} inequality rows")
    print(f"status: {solution.status}")
    print(f"objective: {solution.objective_value}")
    if solution.message:
        print(f"message: {solution.message}")
    nonzero = [(name, value) for name, value in solution.values.items() if abs(value) > 1e-8]
    if not nonzero:
        return
    width = max(len("variable"), max(len(name) for name, _ in nonzero))
    print(f"{'variable':<{width}}  value")
    for name, value in nonzero:
        print(f"{name:<{width}}  {value:.10g}")


def _solve(args: argparse.Namespace) -> int:
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_problem, solve_script

    model, data = _load_inputs(args)
    try:
        generator = SciPyCSCCodeGenerator(model, data)
        if args.via_script:
            script = generator.generate_code()
            problem = generator._snapshot_linear_problem()
            solution = solve_script(script, args.model)
        else:
            problem = generator.build_problem()
            solution = solve_problem(problem)
    except SemanticError as err:
        print(f"kolva: model error: {err}", file=sys.stderr)
        return 2
    _print_solution(solution, (len(problem.var_names), len(problem.b_eq), len(problem.b_ub)))
    return 0 if solution.status == "OPTIMAL" else 1


def _generate(args: argparse.Namespace) -> int:
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    model, data = _load_inputs(args)
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
    if args.command == "solve":
        return _solve(args)
    return 1


if __name__ == "__main__":
    sys.exit(main())
