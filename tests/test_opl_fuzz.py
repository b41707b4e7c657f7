"""Robustness of the OPL model reader: random token streams and mutated
example models never crash, never hang, and fail only with OplError."""

import pathlib

from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from kolva import opl
from kolva.opl_error import OplError

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"

TOKENS = [
    "int", "float", "float+", "int+", "string", "boolean", "dvar", "dexpr", "range", "tuple", "key", "{", "}",
    "(", ")", "[", "]", "<", ">", "<=", ">=", "==", "!=", "=>", "&&", "||", "!", "+", "-", "*", "/", "div",
    "mod", "..", "...", ",", ";", ":", "?", ".", "=", "in", "not", "union", "inter", "diff", "sum", "min",
    "max", "forall", "minimize", "maximize", "subject", "to", "constraints", "execute", "card", "ord", "abs",
    "minl", "maxl", "x", "y", "i", "j", "I", "J", "n", "a", "0", "1", "2.5", "1e3", '"s"', "true", "false",
    "infinity", "setof", "|", "#", "using", "CPLEX", "include",
]


def parse_or_oplerror(text):
    try:
        tree = opl.parse_model(text, filename="fuzz.mod")
    except OplError as err:
        assert err.filename == "fuzz.mod"
        assert err.lineno >= 1
        return None
    assert set(tree) == {"declarations", "objective", "constraints"} or set(tree) == {"declarations", "constraints"}
    return tree


@settings(max_examples=400, deadline=2000, suppress_health_check=[HealthCheck.too_slow])
@given(st.lists(st.sampled_from(TOKENS), max_size=60))
def test_random_token_streams(tokens):
    parse_or_oplerror(" ".join(tokens))


def corpus_texts():
    return sorted(p.read_text(encoding="utf-8") for p in EXAMPLES.glob("*.mod"))


@settings(max_examples=400, deadline=2000, suppress_health_check=[HealthCheck.too_slow])
@given(st.data())
def test_mutated_corpus_models(data):
    texts = corpus_texts()
    text = data.draw(st.sampled_from(texts))
    for _ in range(data.draw(st.integers(1, 4))):
        pos = data.draw(st.integers(0, max(0, len(text) - 1)))
        kind = data.draw(st.sampled_from(["delete", "insert", "replace", "duplicate"]))
        piece = data.draw(st.sampled_from(TOKENS + ["\n", "/*", "*/", "//", '"', "\x00", "é"]))
        if kind == "delete":
            text = text[:pos] + text[pos + data.draw(st.integers(1, 20)) :]
        elif kind == "insert":
            text = text[:pos] + " " + piece + " " + text[pos:]
        elif kind == "replace":
            text = text[:pos] + piece + text[pos + 1 :]
        else:
            end = min(len(text), pos + data.draw(st.integers(1, 40)))
            text = text[:end] + text[pos:end] + text[end:]
    parse_or_oplerror(text)


def test_corpus_is_not_empty():
    assert len(corpus_texts()) >= 20
