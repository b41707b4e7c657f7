"""A coverage signal from what the engine did, for harnesses whose C++ code
carries no coverage instrumentation (the engine is built with GCC; libFuzzer's
edge counters need clang's -fsanitize=fuzzer-no-link).

`signal(*facts)` reduces what an input led to (the kind and wording of an
error, the size of a model, ...) to one of BUCKETS numbers and runs a branch
of its own for each: atheris counts that branch as a new edge, so libFuzzer
keeps an input that made the engine behave in a new way, as it would keep
one that reached new code."""

from __future__ import annotations

import re
import zlib

import atheris

BUCKETS = 1024

_source = ["def _branch(n):"]
for _n in range(BUCKETS):
    _source.append(f"    {'if' if _n == 0 else 'elif'} n == {_n}:\n        return {_n}")
_source.append("    return -1")
_namespace: dict = {}
exec("\n".join(_source), _namespace)  # noqa: S102 - a fixed table of branches
_branch = atheris.instrument_func(_namespace["_branch"])


def shape(text: str) -> str:
    """A message without its particulars: names, numbers and places blanked."""
    text = re.sub(r"'[^']*'|\"[^\"]*\"", "Q", text)
    text = re.sub(r"\d+", "N", text)
    return text[:120]


def signal(*facts) -> None:
    _branch(zlib.crc32(repr(facts).encode("utf-8", "replace")) % BUCKETS)


def size_class(n: int) -> int:
    """0, 1, 2, 3-4, 5-8, ...: sizes that differ by little are one class."""
    return n.bit_length()
