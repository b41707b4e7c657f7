"""Reading the members of a set of tuples from data or from the model."""

from kolva.tuple_set_helper import TupleSetHelper


def tuple_lit(*elements):
    return {"type": "tuple_literal", "elements": list(elements)}


def num(v):
    return {"type": "number", "value": v}


def s(v):
    return {"type": "string_literal", "value": v}


def decl(value=None):
    d = {"type": "set_of_tuples", "name": "Arcs", "tuple_type": "Arc"}
    if value is not None:
        d["value"] = value
    return {"declarations": [d]}


def test_data_entry_members_become_tuples():
    data = {"Arcs": [["a", 1], ["b", 2]]}
    assert TupleSetHelper.get_tuple_set("Arcs", decl(), data) == [("a", 1), ("b", 2)]


def test_data_entry_with_elements_key():
    data = {"Arcs": {"elements": [("a", 1)]}}
    assert TupleSetHelper.get_tuple_set("Arcs", decl(), data) == [("a", 1)]


def test_data_entry_beats_inline_value():
    ast = decl([tuple_lit(s("z"), num(9))])
    assert TupleSetHelper.get_tuple_set("Arcs", ast, {"Arcs": [["a", 1]]}) == [("a", 1)]


def test_inline_tuple_literals_are_evaluated_keeping_ints():
    ast = decl([tuple_lit(s("a"), num(1)), tuple_lit(s("b"), {"type": "uminus", "value": num(2.5)})])
    members = TupleSetHelper.get_tuple_set("Arcs", ast, {})
    assert members == [("a", 1), ("b", -2.5)]
    assert type(members[0][1]) is int


def test_unknown_set_gives_an_empty_list():
    assert TupleSetHelper.get_tuple_set("Nope", decl(), {}) == []


def test_result_is_a_new_list_each_time():
    data = {"Arcs": [["a", 1]]}
    first = TupleSetHelper.get_tuple_set("Arcs", decl(), data)
    first.append(("x", 0))
    assert TupleSetHelper.get_tuple_set("Arcs", decl(), data) == [("a", 1)]
    assert data == {"Arcs": [["a", 1]]}
