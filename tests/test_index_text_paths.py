"""Subscripts given as text are read as Python would read them: as a
literal, else as integer arithmetic over bound names, else as int(), else as
the text itself. Plain names take a shorter road through the engine; these
properties hold it to the same answers as the rule, computed here with
Python's own parser."""

import ast
import keyword

from hypothesis import given, settings
from hypothesis import strategies as st

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator


def python_rule(text, env, data):
    try:
        return ast.literal_eval(text)
    except (ValueError, SyntaxError, TypeError, MemoryError, RecursionError):
        pass
    try:
        tree = ast.parse(text, mode="eval")
        body = tree.body
        if isinstance(body, ast.Name):
            value = env.get(body.id, data.get(body.id, body.id))
            if isinstance(value, bool):
                return int(value)
            if isinstance(value, float) and value.is_integer():
                return int(value)
            if isinstance(value, (int, float)):
                return value
    except SyntaxError:
        pass
    try:
        return int(text)
    except ValueError:
        return text


names = st.one_of(
    st.from_regex(r"[A-Za-z_][A-Za-z0-9_]{0,7}", fullmatch=True),
    st.sampled_from(keyword.kwlist + ["p0", "seattle", "x_1", "_", "7", "07", "1_0", "-3", "+4"]),
)
values = st.one_of(st.integers(-5, 5), st.floats(-3, 3).map(lambda f: round(f, 1)), st.booleans(), st.text(max_size=3))


@settings(max_examples=400, deadline=None)
@given(name=names, env=st.dictionaries(names, values, max_size=3), data=st.dictionaries(names, values, max_size=3))
def test_plain_names_follow_the_rule(name, env, data):
    gen = SciPyCSCCodeGenerator({"declarations": []}, dict(data))
    expected = python_rule(name, env, data)
    got = gen._eval_index(name, env)
    assert got == expected and type(got) is type(expected)
