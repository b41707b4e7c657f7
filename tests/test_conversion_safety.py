"""Converting the caller's objects survives Python code that runs on the way:
a number-like member whose __index__ or __float__ empties the container
being read must not make the engine read freed memory."""

from kolva import _engine


class ClearsOnIndex:
    def __init__(self, victim):
        self.victim = victim

    def __index__(self):
        self.victim.clear()
        return 7


class ClearsOnFloat:
    def __init__(self, victim):
        self.victim = victim

    def __float__(self):
        self.victim.clear()
        return 2.5


def test_a_list_emptied_while_it_is_read_keeps_the_members_seen_at_the_start():
    victim = []
    victim.extend([ClearsOnIndex(victim), [1, 2, 3], "tail", ClearsOnFloat(victim)])
    assert _engine._value_roundtrip(victim) == [7, [1, 2, 3], "tail", 2.5]
    assert victim == []


def test_a_dict_emptied_while_it_is_read_keeps_its_entries():
    victim = {}
    victim.update({"a": ClearsOnIndex(victim), "b": [4.0] * 50, "c": ClearsOnFloat(victim)})
    assert _engine._value_roundtrip(victim) == {"a": 7, "b": [4.0] * 50, "c": 2.5}


def test_members_freed_by_the_caller_during_conversion_do_not_alias_new_objects():
    holder = [[i] for i in range(200)]

    class Churn:
        def __index__(self):
            holder.clear()
            for _ in range(200):
                [object()]  # allocate and free, reusing addresses
            return 1

    data = [Churn()] + holder[:]
    out = _engine._value_roundtrip(data)
    assert out[0] == 1
    assert out[1:] == [[i] for i in range(200)]
