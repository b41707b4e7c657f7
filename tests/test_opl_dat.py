"""The .dat reader: every data form to its exact Python value, with and without
a declared shape, and every error to its exact message and place."""

import math
import random

import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

from kolva import _engine
from kolva.opl_error import OplError

FILE = "t.dat"
INT64_MAX = 2**63 - 1


def untyped(text):
    return _engine._opl_read_untyped_for_test(text, FILE)


def shaped(text, shape, name="x"):
    return _engine._opl_shape_for_test(text, FILE, name, shape)


def where(text, needle, nth=0):
    """(line, column) of the nth occurrence of `needle`, both 1-based."""
    at = -1
    for _ in range(nth + 1):
        at = text.index(needle, at + 1)
    line = text.count("\n", 0, at) + 1
    return line, at - (text.rfind("\n", 0, at) + 1) + 1


def error(fn, *args):
    with pytest.raises(OplError) as info:
        fn(*args)
    return info.value


def assert_error(err, message, line, col):
    assert (err.msg, err.lineno, err.offset) == (message, line, col)
    assert err.filename == FILE


def scalar(elem):
    return {"kind": "scalar", "elem": elem}


def set_of(elem):
    return {"kind": "set", "elem": elem}


def array(elem, *dims, array_of_sets=False):
    return {"kind": "array", "elem": elem, "dims": list(dims), "array_of_sets": array_of_sets}


def rng(name, a, b):
    return {"name": name, "range": [a, b]}


def members(name, *values):
    return {"name": name, "members": list(values)}


ARC = {"tuple": "Arc", "fields": [["from", "string"], ["cap", "float"]]}


# ---------------------------------------------------------------- untyped values


def test_numbers_as_written():
    got = untyped("a = 42; b = -7; c = +3; d = 2.5; e = -1.5e3; f = 1E-2; g = .5; h = 5.; i = 0; j = 2e+2;")
    assert got == {"a": 42, "b": -7, "c": 3, "d": 2.5, "e": -1500.0, "f": 0.01, "g": 0.5, "h": 5.0, "i": 0, "j": 200.0}
    assert [type(v) for v in got.values()] == [int, int, int, float, float, float, float, float, int, float]


def test_maxint_and_infinity():
    got = untyped("a = maxint; b = -maxint; c = infinity; d = -infinity;")
    assert got == {"a": INT64_MAX, "b": -INT64_MAX, "c": math.inf, "d": -math.inf}


def test_integer_limits():
    assert untyped("a = 9223372036854775807;") == {"a": INT64_MAX}
    err = error(untyped, "a = 9223372036854775808;")
    assert_error(err, "integer '9223372036854775808' does not fit in 64 bits", 1, 5)


def test_strings_with_escapes():
    got = untyped(r'a = "x\"y\\z\nw\tv"; b = ""; c = "it\'s"; d = "caf' + "\u00e9" + '";')
    assert got == {"a": 'x"y\\z\nw\tv', "b": "", "c": "it's", "d": "caf\u00e9"}


def test_string_continued_over_lines():
    assert untyped('a = "ab\\\ncd";') == {"a": "abcd"}
    assert untyped('a = "ab\\\r\ncd";') == {"a": "abcd"}


def test_booleans():
    assert untyped("a = true; b = false;") == {"a": True, "b": False}


def test_sets_and_arrays_are_lists_with_optional_commas():
    got = untyped('a = {1, 2, 3}; b = { "p" "q" }; c = [1 2, 3]; d = [[1, 2] [3 4]]; e = []; f = {};')
    assert got == {"a": [1, 2, 3], "b": ["p", "q"], "c": [1, 2, 3], "d": [[1, 2], [3, 4]], "e": [], "f": []}


def test_trailing_comma_is_accepted():
    assert untyped("a = [1, 2,];") == {"a": [1, 2]}


def test_tuples_and_nested_tuples():
    got = untyped('a = <1, "x", 2.5>; b = <1 <2, 3>>; c = {<1, 2>, <3, 4>};')
    assert got == {"a": (1, "x", 2.5), "b": (1, (2, 3)), "c": [(1, 2), (3, 4)]}


def test_named_tuple_keeps_written_field_order():
    got = untyped('a = #<b: 2, a: "x">#;')
    assert list(got["a"].items()) == [("b", 2), ("a", "x")]


def test_keyed_array_with_tuple_keys():
    got = untyped('a = #[ "p": 1, <1, "q">: [2, 3], 4: #[ 5: 6 ]# ]#;')
    assert got == {"a": {"p": 1, (1, "q"): [2, 3], 4: {5: 6}}}
    assert list(got["a"]) == ["p", (1, "q"), 4]


def test_ranges():
    got = untyped("a = 1..5; b = -2..+3; c = [0..1];")
    assert got["a"] == {"type": "range_data", "start": 1, "end": 5}
    assert got["b"] == {"type": "range_data", "start": -2, "end": 3}
    assert got["c"] == [{"type": "range_data", "start": 0, "end": 1}]


def test_comments_anywhere():
    text = "// heading\na /* inline */ = [1, // one\n 2 /* two\n spans lines */ 3];\n/* tail */ b = 4; // end"
    assert untyped(text) == {"a": [1, 2, 3], "b": 4}


def test_items_in_file_order_and_empty_items():
    got = untyped("z = 1;; y = 2; ; x = 3;")
    assert list(got) == ["z", "y", "x"]


def test_empty_and_comment_only_files():
    assert untyped("") == {}
    assert untyped("  // nothing\n/* at all */\n") == {}
    assert untyped("\ufeffa = 1;") == {"a": 1}


def test_nesting_of_1000_levels_is_read():
    got = untyped("a = " + "[" * 1000 + "7" + "]" * 1000 + ";")["a"]
    depth = 0
    while isinstance(got, list):
        assert len(got) == 1
        got = got[0]
        depth += 1
    assert (depth, got) == (1000, 7)


# ---------------------------------------------------------------- typed scalars


def test_int_scalar():
    assert shaped("x = -3;", scalar("int")) == -3
    assert shaped("x = maxint;", scalar("int")) == INT64_MAX


def test_float_scalar_widens_ints():
    got = shaped("x = 3;", scalar("float"))
    assert got == 3.0 and type(got) is float
    assert shaped("x = -infinity;", scalar("float")) == -math.inf
    assert shaped("x = 1.5e-3;", scalar("float")) == 0.0015


@pytest.mark.parametrize("text, value", [("true", True), ("false", False), ("1", True), ("0", False)])
def test_boolean_scalar(text, value):
    assert shaped(f"x = {text};", scalar("boolean")) is value


def test_string_scalar():
    assert shaped('x = "a\\tb";', scalar("string")) == "a\tb"


@pytest.mark.parametrize(
    "value, elem, message",
    [
        ("2.5", "int", "'x' expects an int here, got number 2.5"),
        ("2.0", "int", "'x' expects an int here, got number 2.0"),
        ("-2.5", "int", "'x' expects an int here, got number -2.5"),
        ("1e3", "int", "'x' expects an int here, got number 1e3"),
        ("infinity", "int", "'x' expects an int here, got number infinity"),
        ('"abc"', "float", "'x' expects a float here, got string \"abc\""),
        ("{1}", "float", "'x' expects a float here, got a set"),
        ("[1]", "int", "'x' expects an int here, got an array"),
        ("<1>", "int", "'x' expects an int here, got a tuple"),
        ("#[1: 2]#", "int", "'x' expects an int here, got an indexed array"),
        ("2", "boolean", "'x' expects a boolean here, got number 2"),
        ('"true"', "boolean", "'x' expects a boolean here, got string \"true\""),
        ("3", "string", "'x' expects a string here, got number 3"),
        ("yes", "string", "'x' expects a string here, got 'yes'"),
        ("3", ARC, "'x' expects a tuple 'Arc' here, got number 3"),
    ],
)
def test_scalar_type_mismatch(value, elem, message):
    text = f"\n  x = {value};"
    err = error(shaped, text, scalar(elem))
    assert_error(err, message, 2, 7)


def test_sign_before_a_non_number():
    text = 'x = - "a";'
    assert_error(error(shaped, text, scalar("int")), "expected a number after '-', got string \"a\"", 1, 7)


def test_value_followed_by_more_text():
    text = "x = 1 2;"
    assert_error(error(shaped, text, scalar("int")), "unexpected number 2 after the value of 'x'", 1, 7)
    assert_error(error(untyped, text), "unexpected number 2 after the value of 'x'", 1, 7)


# ---------------------------------------------------------------- tuples


def test_tuple_scalar_positional_and_named():
    assert shaped('x = <"a", 3>;', scalar(ARC)) == ("a", 3.0)
    assert shaped('x = #<cap: 2.5, from: "b">#;', scalar(ARC)) == ("b", 2.5)
    assert shaped('x = #<from: "b" cap: 1>#;', scalar(ARC)) == ("b", 1.0)


def test_nested_tuple_types():
    route = {"tuple": "Route", "fields": [["arc", ARC], ["id", "int"]]}
    assert shaped('x = <<"a", 1>, 7>;', scalar(route)) == (("a", 1.0), 7)
    assert shaped('x = #<id: 7, arc: #<from: "a", cap: 1>#>#;', scalar(route)) == (("a", 1.0), 7)


def test_tuple_with_too_few_and_too_many_fields():
    text = 'x = <"a">;'
    assert_error(error(shaped, text, scalar(ARC)), "'x' gives 1 value for tuple 'Arc', which has 2 fields", 1, 5)
    text = 'x = {<"a", 1, [2, 3], 4>};'
    err = error(shaped, text, set_of(ARC))
    assert_error(err, "'x' gives 4 values for tuple 'Arc', which has 2 fields", 1, 6)


def test_tuple_field_type_mismatch_names_the_field():
    text = "x = <1, 2>;"
    assert_error(error(shaped, text, scalar(ARC)), "field 'from' of 'x' expects a string here, got number 1", 1, 6)


def test_named_tuple_errors():
    text = 'x = #<from: "a", size: 1>#;'
    assert_error(error(shaped, text, scalar(ARC)), "tuple 'Arc' has no field 'size'", *where(text, "size"))
    text = 'x = #<from: "a", from: "b", cap: 1>#;'
    err = error(shaped, text, scalar(ARC))
    assert_error(err, "field 'from' is given twice in the value of 'x' (first at t.dat:1:7)", 1, 18)
    text = 'x = #<from: "a">#;'
    assert_error(error(shaped, text, scalar(ARC)), "'x' gives no value for field 'cap' of tuple 'Arc'", 1, 5)
    text = 'x = #<from "a">#;'
    assert_error(error(shaped, text, scalar(ARC)), "expected ':' after field 'from', got string \"a\"", 1, 12)
    text = "x = #<1: 2>#;"
    assert_error(error(shaped, text, scalar(ARC)), "expected a field name of tuple 'Arc', got number 1", 1, 7)


# ---------------------------------------------------------------- sets and ranges


def test_sets_keep_written_order():
    assert shaped("x = {3, 1 2};", set_of("int")) == [3, 1, 2]
    assert shaped('x = {"b" "a"};', set_of("string")) == ["b", "a"]
    assert shaped("x = {1, 2.5};", set_of("float")) == [1.0, 2.5]
    assert shaped("x = {};", set_of("int")) == []


def test_set_of_tuples():
    got = shaped('x = {<"a", 1> #<cap: 2, from: "b">#};', set_of(ARC))
    assert got == [("a", 1.0), ("b", 2.0)]
    assert all(type(m) is tuple for m in got)


def test_int_set_given_as_a_range():
    assert shaped("x = 2..5;", set_of("int")) == [2, 3, 4, 5]
    assert shaped("x = 3..1;", set_of("int")) == []


@pytest.mark.parametrize(
    "value, elem, member, written",
    [
        ("{1, 2, 1}", "int", "1", "1"),
        ('{"a" "b" "a"}', "string", "a", '"a"'),
        ("{1, 2.5, 1.0}", "float", "1.0", "1.0"),
    ],
)
def test_duplicate_set_member(value, elem, member, written):
    text = f"x = {value};"
    err = error(shaped, text, set_of(elem))
    assert_error(err, f"member '{member}' appears twice in 'x'", 1, text.rindex(written) + 1)


def test_duplicate_tuple_member():
    text = 'x = {<"a", 1>, <"a", 1.0>};'
    err = error(shaped, text, set_of(ARC))
    assert_error(err, "member '<\"a\", 1.0>' appears twice in 'x'", *where(text, "<", 1))


def test_set_mismatches():
    assert_error(error(shaped, "x = 3;", set_of("int")), "'x' expects a set of int here, got number 3", 1, 5)
    assert_error(error(shaped, "x = 1..3;", set_of("string")), "'x' expects a set of string here, got number 1", 1, 5)
    err = error(shaped, "x = [1];", set_of(ARC))
    assert_error(err, "'x' expects a set of tuples 'Arc' here, got an array", 1, 5)
    assert_error(error(shaped, "x = {1..3};", set_of("int")), "'x' expects an int here, got '..'", 1, 7)


def test_range_item():
    rng_shape = {"kind": "range"}
    assert shaped("x = 1..10;", rng_shape) == {"type": "range_data", "start": 1, "end": 10}
    assert shaped("x = -3..maxint;", rng_shape) == {"type": "range_data", "start": -3, "end": INT64_MAX}
    assert_error(error(shaped, "x = 1.5..3;", rng_shape), "a range needs integer bounds, got number 1.5", 1, 5)
    assert_error(error(shaped, "x = 1..3.0;", rng_shape), "a range needs integer bounds, got number 3.0", 1, 8)
    err = error(shaped, "x = {1};", rng_shape)
    assert_error(err, "'x' expects a range such as 1..10 here, got a set", 1, 5)
    err = error(shaped, "x = 4;", rng_shape)
    assert_error(err, "'x' expects a range such as 1..10 here, got number 4", 1, 5)
    assert_error(error(untyped, "x = 1..;"), "expected the end of the range after '..', got ';'", 1, 8)


# ---------------------------------------------------------------- arrays


def test_positional_array_over_a_range():
    got = shaped("x = [1, 2.5 3];", array("float", rng("R", 1, 3)))
    assert got == [1.0, 2.5, 3.0]
    assert [type(v) for v in got] == [float] * 3


def test_positional_array_over_range_and_set():
    got = shaped("x = [[1, 2], [3, 4]];", array("int", rng("R", 1, 2), members("S", "a", "b")))
    assert got == [{"a": 1, "b": 2}, {"a": 3, "b": 4}]


def test_positional_array_over_a_set_keeps_member_order():
    got = shaped("x = [10 20 30];", array("int", members("S", 3, 1, 2)))
    assert list(got.items()) == [(3, 10), (1, 20), (2, 30)]


def test_keyed_array_over_a_set_in_member_order():
    got = shaped('x = #["b": 2, "a": 1]#;', array("int", members("S", "a", "b")))
    assert list(got.items()) == [("a", 1), ("b", 2)]


def test_keyed_array_over_a_range_is_a_list():
    assert shaped("x = #[3: 30, 1: 10 2: 20]#;", array("int", rng("R", 1, 3))) == [10, 20, 30]


def test_keyed_array_with_tuple_keys():
    dim = members("Arcs", ("a", 1), ("b", 2))
    got = shaped('x = #[<"b", 2>: 5, <"a" 1>: 4]#;', array("float", dim))
    assert list(got.items()) == [(("a", 1), 4.0), (("b", 2), 5.0)]


def test_tuple_key_matches_member_with_float_field_and_keeps_the_member():
    got = shaped('x = #[<"a", 1>: 4]#;', array("int", members("Arcs", ("a", 1.0))))
    ((key, value),) = got.items()
    assert key == ("a", 1.0) and type(key[1]) is float and value == 4


def test_keyed_and_positional_levels_mix():
    shape = array("int", members("S", "a", "b"), rng("R", 1, 2))
    assert shaped('x = #["b": [3, 4], "a": #[2: 2, 1: 1]#]#;', shape) == {"a": [1, 2], "b": [3, 4]}
    assert shaped('x = [#[2: 2, 1: 1]#, [3 4]];', shape) == {"a": [1, 2], "b": [3, 4]}


def test_array_of_tuples():
    got = shaped('x = [<"a", 1>, #<cap: 2, from: "b">#];', array(ARC, rng("R", 0, 1)))
    assert got == [("a", 1.0), ("b", 2.0)]


def test_array_of_sets():
    shape = array("int", rng("R", 1, 2), array_of_sets=True)
    assert shaped("x = [{1, 2}, {}];", shape) == [[1, 2], []]
    shape = array("string", members("S", "p", "q"), array_of_sets=True)
    assert shaped('x = #["q": {"b"}, "p": {"a", "c"}]#;', shape) == {"p": ["a", "c"], "q": ["b"]}
    text = "x = [{1, 2}, {3, 3}];"
    err = error(shaped, text, array("int", rng("R", 1, 2), array_of_sets=True))
    assert_error(err, "member '3' appears twice in 'x'", *where(text, "3", 1))


def test_empty_index_sets():
    assert shaped("x = [];", array("int", rng("R", 1, 0))) == []
    assert shaped("x = #[]#;", array("int", members("S"))) == {}


def test_positional_count_mismatch():
    text = "x = [\n  1, 2, 3\n];"
    err = error(shaped, text, array("float", rng("Weeks", 1, 4)))
    assert_error(err, "'x' has 3 values but its index set 'Weeks' has 4 members", 1, 5)
    text = "x = [[1, 2], [3]];"
    err = error(shaped, text, array("float", rng("R", 1, 2), members("S", "a", "b")))
    assert_error(err, "'x' has 1 value but its index set 'S' has 2 members", 1, 14)
    text = "x = [1, 2];"
    err = error(shaped, text, array("float", members("One", "a")))
    assert_error(err, "'x' has 2 values but its index set 'One' has 1 member", 1, 5)


def test_keyed_unknown_key():
    text = 'x = #["Paris": 1, "x": 2]#;'
    err = error(shaped, text, array("float", members("Plants", "Paris", "Lyon")))
    assert_error(err, "key 'x' of 'x' is not a member of 'Plants'", *where(text, '"x"'))
    text = "x = #[1: 1, 7: 2]#;"
    assert_error(error(shaped, text, array("int", rng("R", 1, 2))), "key '7' of 'x' is not a member of 'R'", 1, 13)
    text = "x = #[2.0: 1]#;"
    assert_error(error(shaped, text, array("int", rng("R", 1, 2))), "key '2.0' of 'x' is not a member of 'R'", 1, 7)
    text = 'x = #[<"c", 3>: 1]#;'
    err = error(shaped, text, array("int", members("Arcs", ("a", 1))))
    assert_error(err, "key '<\"c\", 3>' of 'x' is not a member of 'Arcs'", 1, 7)


def test_keyed_missing_member_names_the_first_missing():
    text = 'x = #["Lyon": 1]#;'
    err = error(shaped, text, array("float", members("Plants", "Paris", "Lyon", "Nice")))
    assert_error(err, "'x' gives no value for 'Paris' of 'Plants'", 1, 5)
    text = "x = #[1: 1, 3: 3]#;"
    assert_error(error(shaped, text, array("int", rng("R", 1, 4))), "'x' gives no value for '2' of 'R'", 1, 5)


def test_keyed_missing_member_of_a_huge_range():
    text = "x = #[0: 1, 1: 2]#;"
    err = error(shaped, text, array("int", rng("Big", 0, 10**15)))
    assert_error(err, "'x' gives no value for '2' of 'Big'", 1, 5)


def test_keyed_duplicate_key():
    text = 'x = #["a": 1, "b": 2, "a": 3]#;'
    err = error(shaped, text, array("int", members("S", "a", "b")))
    assert_error(err, "key 'a' of 'x' is given twice (first at t.dat:1:7)", *where(text, '"a"', 1))
    text = "x = #[1: 1, 1: 2]#;"
    assert_error(error(untyped, text), "key '1' of 'x' is given twice", 1, 13)


def test_keyed_entry_errors():
    text = "x = #[1 2]#;"
    assert_error(error(untyped, text), "expected ':' after the key '1', got number 2", 1, 9)
    text = "x = #[[1]: 2]#;"
    assert_error(error(untyped, text), "expected a key (a number, a string or a tuple), got an array", 1, 7)
    text = "x = #[<{1}>: 2]#;"
    assert_error(error(untyped, text), "expected a key (a number, a string or a tuple), got a set", 1, 8)


def test_array_given_a_non_array():
    text = "x = 3;"
    err = error(shaped, text, array("int", rng("R", 1, 3)))
    assert_error(err, "'x' expects an array over 'R' here, got number 3", 1, 5)
    text = "x = [1, 2.5];"
    assert_error(error(shaped, text, array("int", rng("R", 1, 2))), "'x' expects an int here, got number 2.5", 1, 9)


# ---------------------------------------------------------------- scanning errors


@pytest.mark.parametrize(
    "text, message, line, col",
    [
        ("x 3;", "expected '=' after 'x', got number 3", 1, 3),
        ("x = 3", "missing ';' after the value of 'x'", 1, 6),
        ("x = [1, 2]\n", "missing ';' after the value of 'x'", 1, 11),
        ("x = 3\ny = 4;", "missing ';' after the value of 'x'", 1, 6),
        ("x = [1\ny = 4;", "unbalanced brackets: '[' is never closed", 1, 5),
        ("x = [1, 2;", "unbalanced brackets: '[' is not closed before the ';' at t.dat:1:10", 1, 5),
        ("x = [1, 2", "unbalanced brackets: '[' is never closed", 1, 5),
        ("x = [1, 2};", "unbalanced brackets: expected ']' to close the '[' at t.dat:1:5, got '}'", 1, 10),
        ("x = <1, 2];", "unbalanced brackets: expected '>' to close the '<' at t.dat:1:5, got ']'", 1, 10),
        ("x = #[1: 2];", "unbalanced brackets: expected ']#' to close the '#[' at t.dat:1:5, got ']'", 1, 11),
        ("x = 1];", "unbalanced brackets: ']' has no matching '['", 1, 6),
        ("x = 1>#;", "unbalanced brackets: '>#' has no matching '#<'", 1, 6),
        ("x = 1 * 2;", "unexpected '*' in the value of 'x'", 1, 7),
        ("x = (1);", "unexpected '(' in the value of 'x'", 1, 5),
        ("x = y = 1;", "unexpected '=' in the value of 'x'", 1, 7),
        ("x = ;", "expected a value for 'x', got ';'", 1, 5),
        ("x =", "expected a value for 'x', got end of file", 1, 4),
        ("3 = 4;", "expected the name of a data item, got number 3", 1, 1),
        ('"x" = 4;', 'expected the name of a data item, got string "x"', 1, 1),
        ("x = 1;\n  x = 2;", "'x' is already given at t.dat:1:1", 2, 3),
        ("x = 1; /* open", "unterminated comment: '/*' has no closing '*/'", 1, 8),
        ('x = "abc;\n', "unterminated string literal", 1, 5),
        ('x = "a\\qb";', "unknown escape sequence '\\q' in string", 1, 7),
        ('x = "a\\\nbc\\q";', "unknown escape sequence '\\q' in string", 2, 3),
        ("x = 1; \u00e9 = 2;", "unexpected non-ASCII character outside a string", 1, 8),
        ("x = 12abc;", "malformed number '12a'", 1, 5),
        ("x = 1e999;", "number '1e999' is too large", 1, 5),
    ],
)
def test_syntax_errors(text, message, line, col):
    assert_error(error(untyped, text), message, line, col)


def test_missing_semicolon_place_with_crlf_lines():
    text = "a = 1;\r\nx = [1,\r\n 2]\r\ny = 3;\r\n"
    err = error(untyped, text)
    assert_error(err, "missing ';' after the value of 'x'", 3, 4)
    assert err.text == " 2]"


def test_error_report_text():
    err = error(untyped, "a = 1;\n\tx 3;")
    assert str(err) == "t.dat:2:4: error: expected '=' after 'x', got number 3\n\tx 3;\n\t  ^"


CONNECTIONS = [
    ("SheetConnection", 'SheetConnection sheet("data.xlsx");'),
    ("DBConnection", 'DBConnection db("odbc", "dsn");'),
    ("SheetRead", 'x from SheetRead(sheet, "A1:B3");'),
    ("DBRead", 'x from DBRead(db, "SELECT * FROM t");'),
    ("SheetWrite", 'x to SheetWrite(sheet, "C1:C3");'),
    ("DBWrite", 'x to DBWrite(db, "INSERT INTO t VALUES(?)");'),
    ("DBExecute", 'DBExecute(db, "DROP TABLE t");'),
    ("DBUpdate", 'x to DBUpdate(db, "UPDATE t SET v=?");'),
    ("prepare", "prepare { writeln(1); }"),
    ("invoke", "x = invoke;"),
]


@pytest.mark.parametrize("construct, statement", CONNECTIONS)
def test_connections_are_refused_at_their_place(construct, statement):
    text = f"a = 1;\n{statement}\n"
    err = error(untyped, text)
    message = (
        f"{construct} is not supported: spreadsheet and database connections cannot be read; "
        "give the data as text in the .dat file"
    )
    assert_error(err, message, *where(text, construct))


def test_connection_inside_a_value():
    text = 'x = [1, DBRead(db, "q")];'
    err = error(untyped, text)
    assert err.msg.startswith("DBRead is not supported:")
    assert (err.lineno, err.offset) == (1, 9)


def test_nesting_deeper_than_1000_levels_is_refused():
    text = "x = " + "[" * 1001 + "]" * 1001 + ";"
    err = error(untyped, text)
    assert_error(err, "values nested deeper than 1000 levels are not supported", 1, 5 + 1000)
    err = error(untyped, "x = " + "<" * 200_000 + ";")
    assert err.msg == "values nested deeper than 1000 levels are not supported"


# ---------------------------------------------------------------- properties


def number_text(v, draw_sign):
    if isinstance(v, int):
        return ("+" if draw_sign and v >= 0 else "") + str(v)
    return repr(v)


@st.composite
def nested_arrays(draw):
    """A rectangular array of ints or floats and its .dat text."""
    shape = draw(st.lists(st.integers(0, 4), min_size=1, max_size=3))
    as_float = draw(st.booleans())
    leaf = (
        st.floats(allow_nan=False, allow_infinity=False)
        if as_float
        else st.integers(-(2**63) + 1, 2**63 - 1)
    )
    seps = st.sampled_from([", ", " ", ",", "\n", " /* c */ ", ",// c\n", ",\t"])

    def build(dims):
        if not dims:
            v = draw(leaf)
            return v, number_text(v, draw(st.booleans()))
        parts = [build(dims[1:]) for _ in range(dims[0])]
        text = "["
        for i, (_, t) in enumerate(parts):
            text += t if i == 0 else draw(seps) + t
        return [v for v, _ in parts], text + "]"

    value, text = build(shape)
    return shape, as_float, value, text


@settings(max_examples=150, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(nested_arrays())
def test_printed_arrays_read_back(case):
    shape, as_float, value, text = case
    data = f"x = {text};"
    assert untyped(data) == {"x": value}
    dims = [rng(f"D{i}", 1, n) for i, n in enumerate(shape)]
    got = shaped(data, array("float" if as_float else "int", *dims))
    assert got == value


VALID = """// a data file exercising every form
n = 3;
f = -2.5e1;
s = "a\\tb";
b = true;
S = {1, 2, 3};
T = {"p", "q"};
R = 1..3;
arcs = {<"a", 1.5>, #<cap: 2, from: "b">#};
a = [1, 2, 3];
m = [[1.5, 2] [3, 4]];
k = #["p": [1, 2, 3], "q": #[3: 1, 1: 2, 2: 3]#]#;
arc = <"c", 4>;
"""

SHAPES = {
    "n": scalar("int"),
    "f": scalar("float"),
    "s": scalar("string"),
    "b": scalar("boolean"),
    "S": set_of("int"),
    "T": set_of("string"),
    "R": {"kind": "range"},
    "arcs": set_of(ARC),
    "a": array("int", rng("I", 1, 3)),
    "m": array("float", rng("I", 1, 2), members("J", "u", "v")),
    "k": array("int", members("T", "p", "q"), rng("I", 1, 3)),
    "arc": scalar(ARC),
}


def test_valid_corpus_reads():
    got = untyped(VALID)
    assert got["k"] == {"p": [1, 2, 3], "q": {3: 1, 1: 2, 2: 3}}
    assert shaped(VALID, SHAPES["k"], "k") == {"p": [1, 2, 3], "q": [2, 3, 1]}
    assert shaped(VALID, SHAPES["arcs"], "arcs") == [("a", 1.5), ("b", 2.0)]
    assert shaped(VALID, SHAPES["m"], "m") == [{"u": 1.5, "v": 2.0}, {"u": 3.0, "v": 4.0}]


MUTATION_BYTES = list(b"[]{}<>#:;,.-+\"/*\\ \n0123456789aeE") + [0, 0x7F, 0xC3, 0xFF]


@settings(max_examples=300, deadline=None, suppress_health_check=[HealthCheck.too_slow])
@given(st.randoms(use_true_random=False), st.integers(1, 4))
def test_mutated_files_raise_only_opl_errors(rnd: random.Random, count):
    data = bytearray(VALID.encode())
    for _ in range(count):
        at = rnd.randrange(len(data))
        how = rnd.randrange(3)
        byte = rnd.choice(MUTATION_BYTES)
        if how == 0:
            data[at] = byte
        elif how == 1:
            data.insert(at, byte)
        else:
            del data[at]
    text = data.decode("utf-8", errors="replace")
    try:
        untyped(text)
    except OplError as e:
        assert e.lineno >= 1 and e.offset >= 1 and e.filename == FILE
    for name, shape in SHAPES.items():
        try:
            shaped(text, shape, name)
        except OplError:
            pass
        except KeyError as e:
            # The test hook's own signal that the mutation removed the item.
            assert e.args == (name,)
