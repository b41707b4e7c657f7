"""Coverage-guided fuzzing of the OPL readers with atheris.

Each input is decoded as UTF-8 (bad bytes replaced) and read three ways:
`kolva.opl.parse_model(text)`, `kolva.opl.parse_data(text)` and
`kolva.opl.parse_data(text, model=...)` against one of the example models.
A model that parses is also handed to the generator. The only exception
allowed out of the readers is OplError; out of the generator, the documented
ones. The starting corpus is the examples' .mod and .dat files (make_corpus.py).

    pip install ".[fuzz]"
    python fuzz/fuzz_opl.py build/fuzz/opl fuzz/seed/opl -max_total_time=600

Arguments after the script are libFuzzer's (see fuzz_generator.py).
"""

from __future__ import annotations

import logging
import pathlib
import sys

import atheris

from signal_table import shape, signal, size_class

with atheris.instrument_imports():
    from kolva import opl
    from kolva.opl_error import OplError
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.semantic_error import SemanticError

DOCUMENTED = (SemanticError, ValueError, TypeError, KeyError, IndexError, OverflowError, RecursionError,
              NotImplementedError)
EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"
MODELS = [p.read_text(encoding="utf-8") for p in sorted(EXAMPLES.glob("*.mod"))] or ["int n = ...;"]


def TestOneInput(data: bytes):
    text = data.decode("utf-8", errors="replace")
    try:
        tree = opl.parse_model(text, filename="fuzz.mod")
        signal("model", size_class(len(tree["declarations"])), size_class(len(tree["constraints"])),
               "objective" in tree)
    except OplError as err:
        signal("model error", shape(err.msg))
        tree = None
    try:
        values = opl.parse_data(text, filename="fuzz.dat")
        signal("data", size_class(len(values)))
    except OplError as err:
        signal("data error", shape(err.msg))
    model = MODELS[len(data) % len(MODELS)]
    try:
        opl.parse_data(text, model=model, filename="fuzz.dat")
    except OplError as err:
        signal("typed data error", shape(err.msg))
    if tree is not None:
        try:
            code = SciPyCSCCodeGenerator(tree, {}).generate_code()
        except DOCUMENTED as err:
            signal("generator", type(err).__name__, shape(str(err)))
            return
        compile(code, "<kolva script>", "exec")


def main():
    logging.disable(logging.CRITICAL)  # warnings about skipped execute blocks and the like
    argv = sys.argv if any(a.startswith("-max_len=") for a in sys.argv) else [*sys.argv, "-max_len=65536"]
    atheris.Setup(argv, TestOneInput)
    atheris.Fuzz()


if __name__ == "__main__":
    main()
