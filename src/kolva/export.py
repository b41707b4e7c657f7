"""Writing a LinearProblem as an MPS or LP file through HiGHS's own writers.

The file holds the problem as :mod:`kolva.solve_highs` hands it to HiGHS:
the columns with their names, bounds and integrality; the upper-bound rows,
then the equality rows, with their names; the objective in the model's own
sense with its constant. Reading the file back into HiGHS gives the same
problem and the same optimum.

Names the format cannot hold. HiGHS's LP writer takes no blank, no non-ASCII
character and none of ``' * + - / : < = > [ \\ ] ^ ` |``, and no digit first;
its MPS writer takes no blank. A name that breaks these rules is written with
``(`` and ``)`` for brackets (LP) and ``_`` in place of each other character
the format cannot hold (and ``_`` before a leading digit); should that give a
name already used, ``~`` and a number follow. The writer reports every such
change. All other names are written as they are.

The file is written whole or not at all: HiGHS writes a temporary file in the
same directory, which then replaces the target.
"""

from __future__ import annotations

import os
import tempfile
from typing import TYPE_CHECKING, Dict, List, Optional, Sequence, Tuple

from kolva.solve_highs import SolveError, load_problem, new_highs, row_names

if TYPE_CHECKING:
    from kolva.linear_problem import LinearProblem

FORMATS = {".mps": "MPS", ".lp": "LP"}

_LP_FORBIDDEN = frozenset("'*+-/:<=>[\\]^`| ")
# Brackets become parentheses (which the format holds, so indices stay
# readable); every other character it cannot hold becomes "_".
_LP_REPLACEMENT = {ch: "_" for ch in _LP_FORBIDDEN} | {"[": "(", "]": ")"}


def format_of(path: str) -> str:
    """"MPS" or "LP" by the file's extension; ValueError for any other."""
    extension = os.path.splitext(path)[1].lower()
    if extension not in FORMATS:
        raise ValueError(f"cannot tell the format of {path!r}: give a file ending in .mps or .lp")
    return FORMATS[extension]


def _fits(name: str, file_format: str) -> bool:
    if not name:
        return False
    if file_format == "MPS":
        return not any(ch.isspace() or not ch.isprintable() for ch in name)
    if name[0].isdigit():
        return False
    return all(" " < ch < "\x7f" and ch not in _LP_FORBIDDEN for ch in name)


def _transliterate(name: str, file_format: str) -> str:
    if file_format == "MPS":
        text = "".join("_" if ch.isspace() or not ch.isprintable() else ch for ch in name)
    else:
        text = "".join(_LP_REPLACEMENT.get(ch, ch) if " " < ch < "\x7f" else "_" for ch in name)
        if text[:1].isdigit():
            text = "_" + text
    return text or "_"


def file_names(names: Sequence[str], file_format: str) -> Tuple[List[str], Dict[str, str]]:
    """The names as the file holds them, and the map of each changed name to its new one."""
    taken = {name for name in names if _fits(name, file_format)}
    written: List[str] = []
    changed: Dict[str, str] = {}
    for name in names:
        if _fits(name, file_format):
            written.append(name)
            continue
        base = _transliterate(name, file_format)
        candidate, counter = base, 0
        while candidate in taken:
            counter += 1
            candidate = f"{base}~{counter}"
        taken.add(candidate)
        written.append(candidate)
        changed[name] = candidate
    return written, changed


def write_model(problem: "LinearProblem", path: str, file_format: Optional[str] = None) -> Dict[str, str]:
    """Write ``problem`` to ``path`` as "MPS" or "LP" (by default, by its extension).

    Returns the names that had to change to fit the format (old to new;
    empty when all are written as they are).

    Raises:
        ValueError: no format is given and the extension is neither .mps nor .lp.
        SolveError: HiGHS could not take the problem or write the file.
        OSError: the file cannot be written.
    """
    file_format = file_format or format_of(path)
    columns, changed_columns = file_names(list(problem.var_names), file_format)
    rows, changed_rows = file_names(row_names(problem), file_format)
    highs = new_highs()
    load_problem(highs, problem)
    lp = highs.getLp()
    lp.col_names_ = columns
    lp.row_names_ = rows
    if _failed(highs.passModel(lp)):
        raise SolveError("HiGHS could not take the problem with its names")
    _write_through_temporary(highs, path, ".mps" if file_format == "MPS" else ".lp")
    return {**changed_columns, **changed_rows}


def _failed(status) -> bool:
    import highspy

    return status == highspy.HighsStatus.kError


def _write_through_temporary(highs, path: str, extension: str) -> None:
    target = os.path.realpath(path) if os.path.islink(path) else path
    directory = os.path.dirname(os.path.abspath(target))
    try:
        mode = os.stat(target).st_mode & 0o7777
    except FileNotFoundError:
        umask = os.umask(0)
        os.umask(umask)
        mode = 0o666 & ~umask
    # HiGHS picks the format by the extension, so the temporary file keeps it.
    fd, temporary = tempfile.mkstemp(prefix=f".{os.path.basename(target)}.", suffix=f".tmp{extension}", dir=directory)
    os.close(fd)
    try:
        if _failed(highs.writeModel(temporary)):
            raise SolveError(f"HiGHS could not write {path!r}")
        os.chmod(temporary, mode)
        os.replace(temporary, target)
    except BaseException:
        try:
            os.unlink(temporary)
        except OSError:
            pass
        raise


def write_mps(problem: "LinearProblem", path: str) -> Dict[str, str]:
    """Write ``problem`` as an MPS file at ``path``, whatever its extension; see :func:`write_model`."""
    return write_model(problem, path, "MPS")


def write_lp(problem: "LinearProblem", path: str) -> Dict[str, str]:
    """Write ``problem`` as an LP file at ``path``, whatever its extension; see :func:`write_model`."""
    return write_model(problem, path, "LP")
