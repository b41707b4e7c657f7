"""Reading OPL models (``.mod``) and their data (``.dat``).

The OPL front end turns OPL source into the two inputs of the generator: the
model tree and the data dictionary. The reading itself runs in the compiled
engine; this module is its Python face::

    from kolva import opl
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    tree, data = opl.load("examples/transport.mod", "examples/transport.dat")
    problem = SciPyCSCCodeGenerator(tree, data).build_problem()

Errors in the OPL source, and files that cannot be read, raise
:class:`OplError`, whose ``str()`` is a compiler-style report
(``FILE:LINE:COL: error: MESSAGE``, the source line and a caret). Warnings,
such as skipped ``execute`` blocks, are logged on the ``kolva.opl`` logger at
WARNING level; each message is the whole warning text,
``FILE:LINE:COL: warning: MESSAGE``.
"""

from __future__ import annotations

import logging
import os
from typing import Any, Dict, List, Optional, Sequence, Tuple, Union

from kolva import _engine
from kolva.opl_error import OplError

__all__ = ["OplError", "load", "parse_data", "parse_model"]

logger = logging.getLogger(__name__)

#: A file path as the functions of this module accept it.
PathLike = Union[str, os.PathLike[str]]

_BOM = "\ufeff"


def _log_warnings(warnings: Sequence[str]) -> None:
    for text in warnings:
        logger.warning("%s", text)


def _read_source(path: PathLike) -> Tuple[str, str]:
    """Read one source file as UTF-8; return ``(name, text)``.

    ``name`` is the path as given (it is what messages show). A leading
    byte-order mark is dropped: some editors write one, and it would otherwise
    reach the lexer as a stray character on line 1.

    Raises :class:`OplError` naming the file (line 0) when it cannot be read
    or is not valid UTF-8.
    """
    name = os.fspath(path)
    try:
        with open(name, "rb") as handle:
            raw = handle.read()
    except OSError as err:
        reason = err.strerror or str(err)
        raise _file_error(name, f"cannot read file: {reason}") from None
    try:
        text = raw.decode("utf-8")
    except UnicodeDecodeError as err:
        line = raw.count(b"\n", 0, err.start) + 1
        message = f"file is not valid UTF-8 (byte 0x{raw[err.start]:02x} at line {line})"
        raise _file_error(name, message) from None
    if text.startswith(_BOM):
        text = text[len(_BOM) :]
    return name, text


def _file_error(name: str, message: str) -> OplError:
    # A whole-file fault has no line or column to point at, so the report
    # names the file alone rather than a meaningless "0:0".
    return OplError(message, name, 0, 0, "", f"{name}: error: {message}")


def parse_model(text: str, filename: str = "<string>") -> Dict[str, Any]:
    """Parse OPL model source and return its model tree.

    Args:
        text: the model source (the contents of a ``.mod`` file).
        filename: the name that messages show for this text; ``include``
            directives are read relative to it.

    Returns:
        The model tree (``declarations``, ``objective``, ``constraints``)
        that :class:`kolva.scipy_codegen_csc.SciPyCSCCodeGenerator` reads.
        Data declared with ``= ...`` is not read here; see :func:`load`.

    Raises:
        OplError: the source has an error (or uses something out of scope,
            such as ``using CP;`` or a ``main`` block).

    Warnings (for example skipped ``execute`` blocks) are logged on the
    ``kolva.opl`` logger.
    """
    tree, warnings = _engine._opl_parse_model(text, filename)
    _log_warnings(warnings)
    return tree


def parse_data(
    text: str,
    model: Optional[str] = None,
    filename: str = "<string>",
    model_filename: str = "<model>",
) -> Dict[str, Any]:
    """Parse the source of one OPL data file and return its data dictionary.

    Args:
        text: the data source (the contents of a ``.dat`` file).
        model: the OPL model *source text* (not a path) that declares the
            data. With it, every item is checked against its declaration and
            given the shape the generator reads (an array over a range
            becomes a list of the declared size, a tuple set a list of
            tuples, and so on); items the model does not declare are errors.
            With ``None``, items are read as they are written, untyped.
        filename: the name that messages show for ``text``.
        model_filename: the name that messages show for ``model``.

    Returns:
        A dictionary from item names to values. With a model this is what
        :func:`load` gives for the model and this one file: every item the
        model reads from data must be in it, and the data the model computes
        (derived declarations, hidden items of the lowering) is included.
        Without a model, only the items of this file, as written.

    Raises:
        OplError: the data (or the model) has an error.
    """
    return _engine._opl_parse_data(text, filename, model, model_filename)


def load(model_path: PathLike, *data_paths: PathLike) -> Tuple[Dict[str, Any], Dict[str, Any]]:
    """Read an OPL model file and its data files; return ``(tree, data)``.

    The files are read as UTF-8. The data of all files is checked against
    the model's declarations, and the model's derived declarations (data it
    computes from other data) are evaluated into the data dictionary, so
    that ``tree`` and ``data`` go straight to the generator.

    Raises:
        OplError: a file cannot be read, is not valid UTF-8, or has an error;
            the error names the file (and the place, for errors in the
            source).

    Warnings are logged on the ``kolva.opl`` logger.
    """
    tree, data, warnings = _load_with_warnings(model_path, *data_paths)
    _log_warnings(warnings)
    return tree, data


def _load_with_warnings(
    model_path: PathLike, *data_paths: PathLike
) -> Tuple[Dict[str, Any], Dict[str, Any], List[str]]:
    """Like :func:`load`, but return the warnings instead of logging them.

    The command line prints them itself, so that they reach standard error
    whatever the logging set-up.
    """
    model_name, model_text = _read_source(model_path)
    data_files = [_read_source(path) for path in data_paths]
    tree, data, warnings = _engine._opl_load(model_name, model_text, data_files)
    return tree, data, list(warnings)
