"""Bounds collected under a base symbol reach every column of that array:
`x_3_4` finds what was collected for `x`. The base is read by a scan, so a
name of any length is fine (a regular expression used to overflow the
stack on a name of 100,000 characters)."""

import re

from hypothesis import given, settings
from hypothesis import strategies as st

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

BASE = re.compile(r"([A-Za-z][A-Za-z0-9]*)(?:_[^\n\r]*)?")


def generator_with_bound(base):
    g = SciPyCSCCodeGenerator({"declarations": []})
    g._tighten_lower_bound(base, 5.0)
    return g


@settings(max_examples=300, deadline=None)
@given(
    base=st.from_regex(r"[A-Za-z][A-Za-z0-9]{0,5}", fullmatch=True),
    rest=st.text(alphabet="ab_1-\n\r é", max_size=6),
)
def test_the_base_symbol_is_the_leading_name_before_an_underscore(base, rest):
    name = base + rest
    match = BASE.fullmatch(name)
    g = generator_with_bound(base)
    lower, upper = g._infer_var_bounds(name)
    if match is not None and match.group(1) == base:
        assert (lower, upper) == (5.0, None)
    else:
        assert (lower, upper) == (None, None)


def test_a_very_long_name_is_read_without_trouble():
    g = generator_with_bound("x")
    assert g._infer_var_bounds("x_" + "1" * 200_000) == (5.0, None)
    assert g._infer_var_bounds("x" * 200_000) == (None, None)
