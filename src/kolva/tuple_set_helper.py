"""Reading the members of a set of tuples."""

from __future__ import annotations

from kolva import _engine


class TupleSetHelper:
    """Access to the members of tuple sets."""

    @staticmethod
    def get_tuple_set(set_name, ast, data_dict):
        """Return the members of the tuple set ``set_name`` as a list of tuples.

        The data entry of that name comes first: a list of members, or a map
        whose ``elements`` entry is that list. Without a data entry, the
        declaration's inline ``value`` is used, each ``tuple_literal`` member
        evaluated to a tuple. List members become tuples. A set with neither
        gives an empty list.
        """
        return _engine._get_tuple_set(set_name, ast, data_dict)
