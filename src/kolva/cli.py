"""Command line: solve a model, write its script, or show what an OPL model reads as.

Usage:
    kolva solve MODEL.mod [DATA.dat ...] [--solver {highs,scipy}] [--via-script]
                [--time-limit S] [--mip-gap REL] [--threads N] [--tolerance T]
                [--quiet | --log] [--all] [--output FILE.json|FILE.csv]
    kolva export MODEL.mod [DATA.dat ...] -o FILE.mps|FILE.lp
    kolva generate MODEL.mod [DATA.dat ...] [-o SCRIPT.py] [--run]
    kolva parse MODEL.mod [DATA.dat ...] [-o FILE.json]
    kolva solve MODEL.json [--data DATA.json] [--via-script]
    kolva generate MODEL.json [--data DATA.json] [-o SCRIPT.py] [--run]

The model file's extension selects the input. ``.mod`` is an OPL model,
followed by its ``.dat`` data files; the OPL front end reads them into the
model tree and data dictionary. ``.json`` is a model tree already parsed: a
JSON object with "declarations", "objective" and "constraints", whose data
dictionary (a JSON object from parameter and set names to values) comes with
``--data``. JSON has no tuples: write a tuple as an array, a set of tuples as
an array of arrays, and a tuple-keyed parameter as a list of [key, value]
pairs. ``kolva parse`` writes its JSON by the same convention.

Exit status: 0 when done (for a solve: optimal), 1 when a solve ends other
than optimal (or HiGHS fails), 2 for errors in the command, the model, the
data or a file.
Errors are reported in one message, never as a Python traceback.
"""

from __future__ import annotations

import argparse
import json
import os
import sys
import tempfile
from typing import Any, Callable, Dict, Iterable, List, Optional, Tuple

from kolva.opl_error import OplError
from kolva.semantic_error import SemanticError

# What the generator raises for a malformed model tree, besides SemanticError.
# A tree from the OPL front end should never cause one, but a hand-written
# JSON tree can; either way the user gets one line, not a traceback.
_MALFORMED_TREE_ERRORS = (
    KeyError,
    TypeError,
    ValueError,
    NotImplementedError,
    RecursionError,
    OverflowError,
    IndexError,
)

_INPUTS_HELP = """\
OPL input: an OPL model file (.mod) followed by its data files (.dat), e.g.
  kolva solve examples/transport.mod examples/transport.dat

JSON input: a model tree already parsed (.json: a JSON object with
"declarations", "objective" and "constraints"), its data dictionary (a JSON
object from parameter and set names to values) given with --data, e.g.
  kolva solve examples/transport.json --data examples/transport.data.json
JSON has no tuples: write tuples as arrays, tuple sets as arrays of arrays,
and tuple-keyed parameters as lists of [key, value] pairs.

The model file's extension selects the input: .mod or .json."""

_EXIT_HELP = """\
Exit status: 0 done (a solve found the optimum), 1 a solve ended other than
optimal, 2 an error in the command, the model, the data or a file."""

_SOLVE_OUTPUT_HELP = """\
--output FILE.json writes {"status", "objective", "problem", "variables", ...}
(see the README); --output FILE.csv writes "variable,value" and one line per
variable. Both hold the variables the table shows (all of them with --all)."""

_PARSE_OUTPUT_HELP = """\
Output: {"model": TREE, "data": DATA}, indented by 2. TREE is the model tree
and DATA the data dictionary that solve and generate hand to the generator.
JSON has no tuples, so tuples are written as arrays; a map whose keys are not
all strings (tuple keys, integer keys) is written as a list of [key, value]
pairs, as kolva's JSON input writes tuple-keyed parameters."""


class _CliError(Exception):
    """An error already worded for the user: printed after "kolva: error: "."""


# ---------------------------------------------------------------- arguments


def _build_parser() -> argparse.ArgumentParser:
    raw = argparse.RawDescriptionHelpFormatter
    parser = argparse.ArgumentParser(
        prog="kolva",
        formatter_class=raw,
        description=(
            "Solve optimization models written in OPL with HiGHS, write them as MPS or LP\n"
            "files, or as stand-alone SciPy/HiGHS scripts.\n\n" + _INPUTS_HELP
        ),
        epilog=(
            "Commands:\n"
            "  kolva solve MODEL.mod [DATA.dat ...]            solve; print the solution\n"
            "  kolva export MODEL.mod [DATA.dat ...] -o F      write the problem as MPS or LP\n"
            "  kolva generate MODEL.mod [DATA.dat ...] [-o F]  write the SciPy/HiGHS script\n"
            "  kolva parse MODEL.mod [DATA.dat ...] [-o F]     write model tree and data as JSON\n"
            "Each takes --help.\n\n" + _EXIT_HELP
        ),
    )
    sub = parser.add_subparsers(dest="command", required=True, metavar="{solve,export,generate,parse}")

    solve = sub.add_parser(
        "solve",
        help="solve a model with HiGHS and print the solution",
        formatter_class=raw,
        description=(
            "Build the program in memory and solve it with HiGHS (highspy, HiGHS's own\n"
            "Python binding); print the status, the objective and the nonzero variables,\n"
            "a table per declared array (a matrix for two-dimensional arrays that fit the\n"
            "terminal). An infeasible model lists the rows of an irreducible infeasible\n"
            "subset and where their constraints were written.\n\n" + _INPUTS_HELP
        ),
        epilog=_SOLVE_OUTPUT_HELP + "\n\n" + _EXIT_HELP,
    )
    _add_inputs(solve)
    solve.add_argument(
        "--solver",
        choices=("highs", "scipy"),
        default="highs",
        help="highs (default): HiGHS through highspy; scipy: scipy.optimize.linprog(method='highs')",
    )
    solve.add_argument(
        "--via-script",
        action="store_true",
        help="generate the stand-alone SciPy script and run it in this process instead (slower)",
    )
    solve.add_argument("--time-limit", type=_positive_float, metavar="SECONDS", help="stop HiGHS after this time")
    solve.add_argument("--mip-gap", type=_non_negative_float, metavar="REL", help="relative MIP gap to stop at")
    solve.add_argument("--threads", type=_positive_int, metavar="N", help="threads HiGHS may use")
    solve.add_argument(
        "--tolerance",
        type=_tolerance,
        metavar="T",
        help="primal feasibility tolerance (integrality: T/10); default: HiGHS's for LPs, 1e-09 with integers",
    )
    talk = solve.add_mutually_exclusive_group()
    talk.add_argument("--quiet", action="store_true", help="no progress display")
    talk.add_argument("--log", action="store_true", help="stream HiGHS's log to standard error")
    solve.add_argument("--all", action="store_true", help="also show the auxiliary variables of logical encodings")
    solve.add_argument("--output", metavar="FILE", help="also write the solution to FILE.json or FILE.csv")

    export = sub.add_parser(
        "export",
        help="write a model's problem as an MPS or LP file",
        formatter_class=raw,
        description=(
            "Build the program in memory and write it through HiGHS's own writer as an MPS\n"
            "(.mps) or LP (.lp) file, with the names of columns and rows, the objective's\n"
            "sense and constant, e.g.\n"
            "  kolva export examples/transport.mod examples/transport.dat -o transport.mps\n"
            "A name the format cannot hold is written with the characters it cannot hold\n"
            "replaced (LP: '(' and ')' for brackets, '_' for others); a warning says how\n"
            "many.\n\n" + _INPUTS_HELP
        ),
        epilog=_EXIT_HELP,
    )
    _add_inputs(export)
    export.add_argument("-o", "--output", required=True, help="file to write: FILE.mps or FILE.lp")

    gen = sub.add_parser(
        "generate",
        help="write the stand-alone Python script for a model",
        formatter_class=raw,
        description=(
            "Write the stand-alone SciPy/HiGHS script of a model: a Python program that\n"
            "builds and solves it with no dependency on kolva, e.g.\n"
            "  kolva generate examples/transport.mod examples/transport.dat -o transport.py\n\n"
            + _INPUTS_HELP
        ),
        epilog=_EXIT_HELP,
    )
    _add_inputs(gen)
    gen.add_argument("-o", "--output", help="script file to write (default: standard output)")
    gen.add_argument("--run", action="store_true", help="also run the script and print its status and objective")

    parse = sub.add_parser(
        "parse",
        help="read an OPL model and its data; write the model tree and data as JSON",
        formatter_class=raw,
        description=(
            "Read an OPL model (.mod) and its data files (.dat), and write the model tree\n"
            "and the data dictionary they read as, in JSON, e.g.\n"
            "  kolva parse examples/transport.mod examples/transport.dat -o transport.json\n\n"
            + _PARSE_OUTPUT_HELP
        ),
        epilog=_EXIT_HELP,
    )
    parse.add_argument("model", metavar="MODEL", help="OPL model file (.mod)")
    parse.add_argument("data_files", nargs="*", metavar="DATA.dat", help="OPL data files, read in order")
    parse.add_argument("-o", "--output", help="JSON file to write (default: standard output)")
    return parser


def _number_type(kind: Callable[[str], Any], test: Callable[[Any], bool], wanted: str):
    def convert(text: str):
        try:
            value = kind(text)
        except ValueError:
            raise argparse.ArgumentTypeError(f"{text!r} is not {wanted}") from None
        if not test(value):
            raise argparse.ArgumentTypeError(f"{text!r} is not {wanted}")
        return value

    return convert


_positive_float = _number_type(float, lambda v: 0 < v < float("inf"), "a positive number")
_non_negative_float = _number_type(float, lambda v: 0 <= v < float("inf"), "a number of 0 or more")
_positive_int = _number_type(int, lambda v: v >= 1, "a whole number of 1 or more")
_tolerance = _number_type(float, lambda v: 1e-10 <= v <= 1e-03, "a tolerance between 1e-10 and 0.001")


def _add_inputs(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("model", metavar="MODEL", help="OPL model (.mod), or model tree as JSON (.json)")
    parser.add_argument(
        "data_files",
        nargs="*",
        metavar="DATA.dat",
        help="data files of an OPL model, read in order",
    )
    parser.add_argument("--data", metavar="DATA.json", help="data dictionary of a JSON model tree, as JSON")


# ---------------------------------------------------------------- inputs


def _model_kind(path: str) -> str:
    extension = os.path.splitext(path)[1].lower()
    if extension == ".mod":
        return "opl"
    if extension == ".json":
        return "json"
    raise _CliError(
        f"cannot tell what model file {path!r} holds: give an OPL model (.mod) or a model tree as JSON (.json)"
    )


def _check_input_arguments(args: argparse.Namespace) -> str:
    """The model's kind, once the arguments suit it (before any file is read)."""
    kind = _model_kind(args.model)
    if kind == "opl" and getattr(args, "data", None):
        raise _CliError(
            "--data is for JSON model trees; give an OPL model's data files after it: "
            f"kolva {args.command} {args.model} DATA.dat ..."
        )
    if kind == "json" and args.data_files:
        raise _CliError(
            "data files after the model are for OPL models (.mod); "
            f"give a JSON model tree's data with --data: kolva {args.command} {args.model} --data DATA.json"
        )
    return kind


def _input_paths(args: argparse.Namespace) -> List[str]:
    paths = [args.model, *args.data_files]
    if getattr(args, "data", None):
        paths.append(args.data)
    return paths


def _load_json(path: str, what: str) -> Any:
    try:
        with open(path, "rb") as handle:
            raw = handle.read()
    except OSError as err:
        raise _CliError(f"cannot read {what} file {path!r}: {err.strerror or err}") from None
    try:
        text = raw.decode("utf-8").removeprefix("\ufeff")
    except UnicodeDecodeError as err:
        line = raw.count(b"\n", 0, err.start) + 1
        raise _CliError(
            f"{what} file {path!r} is not valid UTF-8 (byte 0x{raw[err.start]:02x} at line {line})"
        ) from None
    try:
        return json.loads(text)
    except json.JSONDecodeError as err:
        raise _CliError(f"{what} file {path!r} is not valid JSON: {err}") from None
    except RecursionError:
        raise _CliError(f"{what} file {path!r} is nested too deeply to read") from None


def _load_inputs(
    args: argparse.Namespace, kind: str, progress: Any = None
) -> Tuple[Dict[str, Any], Optional[Dict[str, Any]]]:
    if kind == "opl":
        from kolva import opl  # the engine loads only when a command needs it

        tree, data, warnings = opl._load_with_warnings(args.model, *args.data_files)
        if warnings and progress is not None:
            progress.clear()
        # The front end's warnings are complete compiler-style lines; print
        # them as they are, whatever the logging set-up.
        for warning in warnings:
            print(warning, file=sys.stderr)
        return tree, data
    model = _load_json(args.model, "model")
    if not isinstance(model, dict):
        raise _CliError(f"model file {args.model!r} must hold a JSON object")
    data: Optional[Dict[str, Any]] = _load_json(args.data, "data") if args.data else None
    if data is not None and not isinstance(data, dict):
        raise _CliError(f"data file {args.data!r} must hold a JSON object")
    return model, data


# ---------------------------------------------------------------- output


def _check_output(output: Optional[str], inputs: Iterable[str]) -> None:
    """Refuse, before any work, an output that would overwrite an input or cannot be a file."""
    if output is None:
        return
    if os.path.isdir(output):
        raise _CliError(f"output file {output!r} is a directory")
    parent = os.path.dirname(os.path.abspath(output))
    if not os.path.isdir(parent):
        raise _CliError(f"cannot write output file {output!r}: no directory {parent!r}")
    for path in inputs:
        try:
            same = os.path.samefile(output, path)
        except OSError:
            continue  # one of them does not exist: they cannot be the same file
        if same:
            raise _CliError(f"refusing to write the output onto the input file {path!r}")


def _write_atomically(path: str, text: str) -> None:
    """Write ``text`` to ``path`` so that readers see the old file or the whole new one.

    The text goes to a temporary file in the same directory (so that the
    rename stays on one file system), which then replaces ``path``. On any
    failure the temporary file is removed and ``path`` is left as it was.
    """
    target = os.path.realpath(path) if os.path.islink(path) else path
    directory = os.path.dirname(os.path.abspath(target))
    try:
        try:
            mode = os.stat(target).st_mode & 0o7777
        except FileNotFoundError:
            umask = os.umask(0)
            os.umask(umask)
            mode = 0o666 & ~umask
        fd, temporary = tempfile.mkstemp(prefix=f".{os.path.basename(target)}.", suffix=".tmp", dir=directory)
    except OSError as err:
        raise _CliError(f"cannot write output file {path!r}: {err.strerror or err}") from None
    try:
        with os.fdopen(fd, "w", encoding="utf-8", newline="") as handle:
            handle.write(text)
            handle.flush()
            os.fsync(handle.fileno())
        os.chmod(temporary, mode)
        os.replace(temporary, target)
    except BaseException as err:
        try:
            os.unlink(temporary)
        except OSError:
            pass
        if isinstance(err, OSError):
            raise _CliError(f"cannot write output file {path!r}: {err.strerror or err}") from None
        raise


def _json_text(value: Any, ascii_only: bool = False) -> str:
    """``value`` as JSON indented by 2, with maps that JSON cannot key written as pairs.

    Tuples become arrays. A map whose keys are not all strings becomes a
    list of ``[key, value]`` pairs (keys converted the same way), so that no
    key is lost or turned into a string. The output is what ``json.dumps(...,
    indent=2)`` gives for plain JSON values; the walk is iterative because
    model trees can nest deeper than Python's recursion limit.
    """
    out: List[str] = []
    # Work items: a str is emitted as it is; a (value, level) pair is encoded.
    work: List[Any] = [(value, 0)]
    while work:
        item = work.pop()
        if isinstance(item, str):
            out.append(item)
            continue
        node, level = item
        if isinstance(node, dict) and not all(isinstance(key, str) for key in node):
            node = [[key, member] for key, member in node.items()]
        if isinstance(node, dict):
            if not node:
                out.append("{}")
                continue
            inner = "\n" + "  " * (level + 1)
            out.append("{")
            pending: List[Any] = ["\n" + "  " * level + "}"]
            for index, (key, member) in enumerate(reversed(list(node.items()))):
                if index:
                    pending.append(",")
                pending.append((member, level + 1))
                pending.append(inner + _json_scalar(key, ascii_only) + ": ")
            work.extend(pending)
        elif isinstance(node, (list, tuple, set, frozenset)):
            members = list(node)
            if not members:
                out.append("[]")
                continue
            inner = "\n" + "  " * (level + 1)
            out.append("[")
            pending = ["\n" + "  " * level + "]"]
            for index, member in enumerate(reversed(members)):
                if index:
                    pending.append(",")
                pending.append((member, level + 1))
                pending.append(inner)
            work.extend(pending)
        else:
            out.append(_json_scalar(node, ascii_only))
    return "".join(out)


def _json_scalar(value: Any, ascii_only: bool) -> str:
    if isinstance(value, str):
        try:
            value.encode("utf-8")
        except UnicodeEncodeError:
            # A lone surrogate (from a string escape) cannot be written as
            # UTF-8: escape that string.
            return json.dumps(value)
        return json.dumps(value, ensure_ascii=ascii_only)
    if value is None or isinstance(value, (bool, int, float)):
        return json.dumps(value)
    raise TypeError(f"cannot write a value of type {type(value).__name__} as JSON")


# ---------------------------------------------------------------- commands


_SOLUTION_FORMATS = (".json", ".csv")


def _check_solve_options(args: argparse.Namespace) -> None:
    """Refuse HiGHS's options on the SciPy paths, and an output of unknown kind."""
    if args.via_script or args.solver == "scipy":
        path = "--via-script" if args.via_script else "--solver scipy"
        for option, value in (
            ("--time-limit", args.time_limit),
            ("--mip-gap", args.mip_gap),
            ("--threads", args.threads),
            ("--tolerance", args.tolerance),
            ("--log", args.log or None),
        ):
            if value is not None:
                raise _CliError(f"{option} is an option of the HiGHS solver; {path} does not take it")
    if args.output is not None and os.path.splitext(args.output)[1].lower() not in _SOLUTION_FORMATS:
        raise _CliError(f"cannot tell the format of output file {args.output!r}: give FILE.json or FILE.csv")


def _solve_problem(args: argparse.Namespace, problem, progress) -> Any:
    from kolva.solve import solve_problem
    from kolva.solve_highs import SolveError, solve

    if args.solver == "scipy":
        return solve_problem(problem)
    try:
        return solve(
            problem,
            time_limit=args.time_limit,
            mip_gap=args.mip_gap,
            threads=args.threads,
            tolerance=args.tolerance,
            log=bool(args.log),
            on_progress=progress.mip,
        )
    except SolveError as err:
        raise _SolveFailure(f"kolva: error: {err}") from None


class _SolveFailure(Exception):
    """The solver itself failed: reported in one line, exit status 1."""


def _solve(args: argparse.Namespace) -> int:
    from kolva import report
    from kolva.progress import ProgressLine
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve import solve_script

    kind = _check_input_arguments(args)
    _check_solve_options(args)
    _check_output(args.output, _input_paths(args))
    progress = ProgressLine(enabled=False if (args.quiet or args.log) else None)
    try:
        progress.phase("reading the model")
        model, data = _load_inputs(args, kind, progress)
        progress.phase("building the problem")
        generator = SciPyCSCCodeGenerator(model, data)
        if args.via_script:
            script = generator.generate_code()
            problem = generator._snapshot_linear_problem()
            progress.phase("solving")
            solution = solve_script(script, args.model)
        else:
            problem = generator.build_problem()
            progress.phase("solving")
            solution = _solve_problem(args, problem, progress)
        layout = report.variable_groups(model, data, problem.var_names)
    finally:
        progress.clear()
    report.attach_sources(solution, model, problem)
    sizes = (len(problem.var_names), len(problem.b_eq), len(problem.b_ub))
    lines = report.summary_lines(solution, sizes)
    lines += report.variables_text(layout, solution.values, args.all, report.terminal_width())
    lines += report.conflict_lines(solution)
    print("\n".join(lines))
    if args.output:
        columns = list(problem.var_names) if args.all else layout.visible_columns()
        is_mip = any(problem.integrality)
        if args.output.lower().endswith(".json"):
            text = report.solution_json(solution, columns, is_mip)
        else:
            text = report.solution_csv(solution, columns)
        _write_atomically(args.output, text)
    return 0 if solution.status == "OPTIMAL" else 1


def _export(args: argparse.Namespace) -> int:
    from kolva.export import format_of, write_model
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.solve_highs import SolveError

    kind = _check_input_arguments(args)
    try:
        file_format = format_of(args.output)
    except ValueError as err:
        raise _CliError(str(err)) from None
    _check_output(args.output, _input_paths(args))
    model, data = _load_inputs(args, kind)
    problem = SciPyCSCCodeGenerator(model, data).build_problem()
    try:
        changed = write_model(problem, args.output, file_format)
    except OSError as err:
        raise _CliError(f"cannot write output file {args.output!r}: {err.strerror or err}") from None
    except SolveError as err:
        raise _SolveFailure(f"kolva: error: {err}") from None
    if changed:
        first, written = next(iter(changed.items()))
        count = len(changed)
        print(
            f"kolva: warning: {count} name{'s' if count != 1 else ''} cannot be written in {file_format} format "
            f"as {'they are' if count != 1 else 'it is'}; written with the characters it cannot hold replaced "
            f"(first: {first!r} as {written!r})",
            file=sys.stderr,
        )
    return 0


def _generate(args: argparse.Namespace) -> int:
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    kind = _check_input_arguments(args)
    _check_output(args.output, _input_paths(args))
    model, data = _load_inputs(args, kind)
    script = SciPyCSCCodeGenerator(model, data).generate_code()
    if args.output:
        _write_atomically(args.output, script + "\n")
    elif not args.run:
        print(script)
    if not args.run:
        return 0
    namespace: Dict[str, Any] = {"results_container": {}}
    exec(compile(script, args.output or "<kolva script>", "exec"), namespace)
    result = namespace["results_container"]["scipy_output"]
    print(f"status: {result.get('status')}")
    print(f"objective: {result.get('objective_value')}")
    return 0 if result.get("status") == "OPTIMAL" else 1


def _parse(args: argparse.Namespace) -> int:
    kind = _model_kind(args.model)
    if kind != "opl":
        raise _CliError(f"kolva parse reads OPL models (.mod); {args.model!r} is a model tree already")
    _check_output(args.output, _input_paths(args))
    tree, data = _load_inputs(args, kind)
    document = {"model": tree, "data": data}
    if args.output:
        _write_atomically(args.output, _json_text(document) + "\n")
        return 0
    text = _json_text(document) + "\n"
    try:
        sys.stdout.write(text)
    except UnicodeEncodeError:
        # Standard output cannot take every character: escape them instead.
        sys.stdout.write(_json_text(document, ascii_only=True) + "\n")
    return 0


_COMMANDS: Dict[str, Callable[[argparse.Namespace], int]] = {
    "solve": _solve,
    "export": _export,
    "generate": _generate,
    "parse": _parse,
}


# ---------------------------------------------------------------- errors


def _one_line(text: str) -> str:
    return " ".join(part.strip() for part in text.splitlines() if part.strip())


def _semantic_report(err: SemanticError) -> str:
    # The engine attaches where the failing element was written when the tree
    # came from OPL source; the generator's message itself stays as it is.
    message = str(err)
    source = getattr(err, "opl_source", None)
    if isinstance(source, str) and source:
        label = getattr(err, "opl_label", None)
        where = f"in constraint '{label}': " if isinstance(label, str) and label else ""
        return f"{source}: error: {where}{message}"
    return f"kolva: error: {message}"


def _malformed_report(err: BaseException) -> str:
    if isinstance(err, KeyError) and len(err.args) == 1 and isinstance(err.args[0], str):
        detail = repr(err.args[0])  # str(KeyError) would add a second layer of quotes
    else:
        detail = _one_line(str(err))
    name = type(err).__name__
    return f"kolva: error: {name}: {detail}" if detail else f"kolva: error: {name}"


def main(argv: Optional[List[str]] = None) -> int:
    parser = _build_parser()
    # Data files may come on either side of the options (`kolva solve m.mod
    # --via-script a.dat`); argparse leaves those after an option unmatched.
    args, extra = parser.parse_known_args(argv)
    unknown = [arg for arg in extra if arg.startswith("-") and arg != "-"]
    if unknown:
        parser.error(f"unrecognized arguments: {' '.join(unknown)}")
    if extra and args.command in _COMMANDS:
        args.data_files = [*args.data_files, *extra]
    try:
        code = _COMMANDS[args.command](args)
        sys.stdout.flush()
        return code
    except BrokenPipeError:
        # The reader of our output went away (`kolva parse m.mod | head`).
        # Point standard output at /dev/null so that the flush at exit
        # does not fail a second time, and end as a killed pipe writer would.
        devnull = os.open(os.devnull, os.O_WRONLY)
        os.dup2(devnull, sys.stdout.fileno())
        return 141
    except _CliError as err:
        print(f"kolva: error: {err}", file=sys.stderr)
    except _SolveFailure as err:
        print(str(err), file=sys.stderr)
        return 1
    except OplError as err:
        print(str(err), file=sys.stderr)
    except SemanticError as err:
        print(_semantic_report(err), file=sys.stderr)
    except _MALFORMED_TREE_ERRORS as err:
        print(_malformed_report(err), file=sys.stderr)
    except KeyboardInterrupt:
        print("kolva: interrupted", file=sys.stderr)
        return 130
    return 2


if __name__ == "__main__":
    sys.exit(main())
