"""The engine's dynamic values behave like Python's: printed forms, equality,
hashing, ordering and truth, checked against Python itself."""

import math
import sys

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from kolva import _engine

INT64 = st.integers(min_value=-(2**63), max_value=2**63 - 1)

EDGE_FLOATS = [
    1e16,
    1e-5,
    0.1 + 0.2,
    -0.0,
    0.0,
    5e-324,
    2.2250738585072014e-308,
    2.225073858507201e-308,
    1.7976931348623157e308,
    float("inf"),
    float("-inf"),
    float("nan"),
    1e22,
    1e15,
    9999999999999998.0,
    123456789012345678.0,
    0.0001,
    0.00001,
    1.5,
    100.0,
    -2.5e-7,
    1 / 3,
    2.0**63,
]

EDGE_TEXTS = [
    "",
    "'",
    '"',
    "'\"",
    "\\",
    "a'b",
    'a"b',
    "\n\t\r\x00\x7f\x1b",
    "\x80\x9f\xa0\xad",
    "\u2028\u2029",
    "é中文",
    "\U0001f600",
    "\u0378",
    "\U000e0000",
    "\ufeff",
    "\U0010ffff",
    " ",
    "\u3000",
]


def scalars(allow_nan=True):
    return (
        st.none()
        | st.booleans()
        | INT64
        | st.floats(allow_nan=allow_nan, allow_infinity=True)
        | st.sampled_from([f for f in EDGE_FLOATS if allow_nan or not math.isnan(f)])
        | st.text()
        | st.sampled_from(EDGE_TEXTS)
    )


def nested(base):
    return st.recursive(
        base,
        lambda children: st.lists(children, max_size=4)
        | st.lists(children, max_size=4).map(tuple)
        | st.dictionaries(st.text(max_size=4) | INT64, children, max_size=4),
        max_leaves=20,
    )


VALUES = nested(scalars())
VALUES_NO_NAN = nested(scalars(allow_nan=False))

HASHABLE = st.recursive(
    st.none() | st.booleans() | INT64 | st.floats(allow_nan=False) | st.text(),
    lambda children: st.lists(children, max_size=4).map(tuple),
    max_leaves=12,
)


# ---------------------------------------------------------------- repr and str


@settings(max_examples=300, deadline=None)
@given(VALUES)
def test_repr_matches_python(value):
    assert _engine._value_repr(value) == repr(value)


@settings(max_examples=300, deadline=None)
@given(VALUES)
def test_str_matches_python(value):
    assert _engine._value_str(value) == str(value)


@pytest.mark.parametrize("value", EDGE_FLOATS, ids=repr)
def test_float_repr_and_str(value):
    assert _engine._value_repr(value) == repr(value)
    assert _engine._value_str(value) == str(value)
    assert _engine._value_repr([value]) == repr([value])


def test_float_nan_with_sign_prints_as_nan():
    neg_nan = -float("nan")
    assert _engine._value_repr(neg_nan) == repr(neg_nan) == "nan"


@pytest.mark.parametrize("text", EDGE_TEXTS, ids=repr)
def test_text_repr_and_str(text):
    assert _engine._value_repr(text) == repr(text)
    assert _engine._value_str(text) == text
    assert _engine._value_str((text,)) == str((text,))
    assert _engine._value_repr({text: text}) == repr({text: text})


@settings(max_examples=300, deadline=None)
@given(st.text(alphabet=st.characters(min_codepoint=0, max_codepoint=0x10FFFF, blacklist_categories=("Cs",))))
def test_text_over_the_whole_code_space(text):
    assert _engine._value_repr(text) == repr(text)


@pytest.mark.parametrize(
    "value",
    [
        (),
        (1,),
        ((),),
        ((1,),),
        [()],
        {},
        {1: "a", "1": 1},
        {"k": (1, [2, {3: None}])},
        [True, False, None],
        (0, -0.0, 0.0),
        2**63 - 1,
        -(2**63),
        [1e16, 1e-5, -0.0],
    ],
    ids=repr,
)
def test_container_forms(value):
    assert _engine._value_repr(value) == repr(value)
    assert _engine._value_str(value) == str(value)


# ---------------------------------------------------------------- round trip


@settings(max_examples=300, deadline=None)
@given(VALUES)
def test_round_trip_keeps_type_and_printed_form(value):
    back = _engine._value_roundtrip(value)
    assert repr(back) == repr(value)


@settings(max_examples=300, deadline=None)
@given(VALUES_NO_NAN)
def test_round_trip_keeps_value(value):
    assert _engine._value_roundtrip(value) == value


def test_round_trip_keeps_container_kinds():
    back = _engine._value_roundtrip({"t": (1, [2]), "l": [(3,)], 4: True})
    assert type(back) is dict
    assert type(back["t"]) is tuple
    assert type(back["t"][1]) is list
    assert type(back["l"][0]) is tuple
    assert back[4] is True


def test_round_trip_keeps_insertion_order():
    value = {"b": 1, "a": 2, 3: 3, "c": 4}
    assert list(_engine._value_roundtrip(value)) == ["b", "a", 3, "c"]


# ---------------------------------------------------------------- equality and hashing


@settings(max_examples=300, deadline=None)
@given(VALUES_NO_NAN, VALUES_NO_NAN)
def test_equality_matches_python(a, b):
    assert _engine._value_eq(a, b) is (a == b)


@settings(max_examples=300, deadline=None)
@given(VALUES_NO_NAN)
def test_value_equals_itself_and_its_round_trip(a):
    assert _engine._value_eq(a, a) is True
    assert _engine._value_eq(a, _engine._value_roundtrip(a)) is True


@pytest.mark.parametrize(
    "a, b, expected",
    [
        (1, 1.0, True),
        (1, True, True),
        (1.0, True, True),
        (0, False, True),
        (0.0, -0.0, True),
        (0, -0.0, True),
        (None, None, True),
        (None, 0, False),
        (None, False, False),
        ("1", 1, False),
        ((1, 2), [1, 2], False),
        ((), [], False),
        ([], {}, False),
        ((1, 2), (1.0, 2.0), True),
        ((1, 2), (True, 2), True),
        ({"a": 1, "b": 2}, {"b": 2, "a": 1}, True),
        ({1: "x"}, {1.0: "x"}, True),
        ({1: "x"}, {True: "x"}, True),
        ({"a": [1]}, {"a": [1.0]}, True),
        ({"a": [1]}, {"a": (1,)}, False),
        ([1, [2, 3]], [1, [2, 3]], True),
        ([1, [2, 3]], [1, [2, 3, 4]], False),
        (float("inf"), float("inf"), True),
        (float("nan"), float("nan"), False),
        (2**53 + 1, float(2**53), False),
        (2**63 - 1, 2.0**63, False),
        (-(2**63), -(2.0**63), True),
        ("abc", "abc", True),
        ("é", "e\u0301", False),
    ],
)
def test_equality_examples(a, b, expected):
    assert (a == b) is expected
    assert _engine._value_eq(a, b) is expected
    assert _engine._value_eq(b, a) is expected


@pytest.mark.parametrize(
    "a, b",
    [
        (1, 1.0),
        (1, True),
        (1.0, True),
        (0, False),
        (0, 0.0),
        (0.0, -0.0),
        (False, -0.0),
        ((1, 2), (1.0, True + 1)),
        ((), ()),
        (("a", (0,)), ("a", (False,))),
        (2**62, float(2**62)),
        (-(2**63), -(2.0**63)),
        (float("inf"), float("inf")),
        ("", ""),
        (None, None),
    ],
)
def test_equal_values_hash_alike(a, b):
    assert a == b
    assert _engine._value_hash_equal(a, b) is True


def test_one_float_one_and_true_are_one_key():
    assert _engine._value_eq(1, 1.0) and _engine._value_eq(1.0, True) and _engine._value_eq(1, True)
    assert _engine._value_hash_equal(1, 1.0)
    assert _engine._value_hash_equal(1.0, True)
    assert _engine._value_hash_equal(1, True)


def _equal_twin(value):
    """A value equal to `value` but built from other types where possible."""
    if isinstance(value, bool):
        return int(value)
    if isinstance(value, int):
        f = float(value)
        return f if f == value else value
    if isinstance(value, float) and value.is_integer() and abs(value) < 2**63:
        return int(value)
    if isinstance(value, tuple):
        return tuple(_equal_twin(v) for v in value)
    return value


@settings(max_examples=300, deadline=None)
@given(HASHABLE)
def test_hash_is_consistent_with_equality(value):
    twin = _equal_twin(value)
    assert twin == value
    assert _engine._value_hash_equal(value, twin) is True
    assert _engine._value_hash_equal(value, value) is True


# ---------------------------------------------------------------- ordering


def python_lt(a, b):
    try:
        return a < b
    except TypeError:
        return TypeError


def engine_lt(a, b):
    try:
        return _engine._value_lt(a, b)
    except TypeError:
        return TypeError


ORDERABLE_LEAVES = st.booleans() | INT64 | st.floats(allow_nan=False) | st.text(max_size=3) | st.none()
ORDERABLE = st.recursive(
    ORDERABLE_LEAVES,
    lambda children: st.lists(children, max_size=3) | st.lists(children, max_size=3).map(tuple),
    max_leaves=8,
)


@settings(max_examples=300, deadline=None)
@given(ORDERABLE, ORDERABLE)
def test_ordering_matches_python(a, b):
    assert engine_lt(a, b) is python_lt(a, b)


@settings(max_examples=300, deadline=None)
@given(st.tuples(INT64, st.text(max_size=2)), st.tuples(INT64, st.text(max_size=2)))
def test_ordering_of_like_tuples_matches_python(a, b):
    assert _engine._value_lt(a, b) is (a < b)


@pytest.mark.parametrize(
    "a, b",
    [
        (1, 2),
        (2, 1),
        (1, 1.5),
        (True, 2),
        (False, 0.5),
        (-0.0, 0.0),
        (float("-inf"), -1e308),
        (float("nan"), 1.0),
        (1.0, float("nan")),
        ("a", "b"),
        ("b", "a"),
        ("", "a"),
        ("Z", "a"),
        ("é", "z"),
        ("\U0001f600", "\uffff"),
        ((1, 2), (1, 3)),
        ((1, 2), (1, 2, 0)),
        ((1, "a"), (2, 0)),
        ((1, "a"), (1, "b")),
        ((1, "a"), (1.0, 2)),
        ((1, 2), (1, "a")),
        ((), ()),
        ([1, 2], [1, 3]),
        ([1, "a"], [1, "a"]),
        (2**53 + 1, float(2**53)),
        (float(2**53), 2**53 + 1),
        (2**63 - 1, 2.0**63),
        (1, "a"),
        ("a", 1),
        (None, None),
        (None, 1),
        ((1,), [1]),
        ({}, {}),
        ({"a": 1}, {"a": 2}),
        (((1, 2),), ((1, "x"),)),
    ],
    ids=repr,
)
def test_ordering_examples(a, b):
    assert engine_lt(a, b) is python_lt(a, b)


# ---------------------------------------------------------------- truth


@settings(max_examples=300, deadline=None)
@given(VALUES)
def test_truth_matches_python(value):
    assert _engine._value_truth(value) is bool(value)


@pytest.mark.parametrize(
    "value",
    [None, True, False, 0, 1, -1, 0.0, -0.0, float("nan"), 5e-324, "", " ", "0", (), (0,), [], [None], {}, {0: 0}],
    ids=repr,
)
def test_truth_examples(value):
    assert _engine._value_truth(value) is bool(value)


# ---------------------------------------------------------------- limits


@pytest.mark.parametrize("big", [2**63, -(2**63) - 1, 2**70, -(2**100)])
def test_integers_beyond_64_bits_are_refused(big):
    with pytest.raises(OverflowError):
        _engine._value_repr(big)
    with pytest.raises(OverflowError):
        _engine._value_roundtrip([1, {"k": big}])


def test_interpreter_is_fine_after_refusals():
    with pytest.raises(OverflowError):
        _engine._value_roundtrip(2**64)
    assert _engine._value_roundtrip(sys.maxsize) == sys.maxsize
