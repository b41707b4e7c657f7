"""Builders for the model-tree nodes of indexed models: declarations of
arrays, ranges, sets and tuple sets, iterators, sums and index forms.

They complement the expression builders of conftest.py."""

import ast as pyast

from conftest import model, minimize, num

# ---------------------------------------------------------------- dimensions


def range_dim(start, end):
    """`start..end` as a dimension; plain numbers become number nodes."""
    return {"type": "range_index", "start": as_node(start), "end": as_node(end)}


def named_range_dim(range_name):
    return {"type": "named_range_dimension", "name": range_name}


def named_set_dim(set_name):
    return {"type": "named_set_dimension", "name": set_name}


def as_node(v):
    return v if isinstance(v, dict) else num(v)


# ---------------------------------------------------------------- declarations


def dvar_indexed(var_name, *dims, var_type="float+", iterators=None, **bounds):
    """An array of decision variables. `iterators` is a list of iterator
    names; `lower_bound=` / `upper_bound=` are passed through as given."""
    decl = {"type": "dvar_indexed", "name": var_name, "var_type": var_type, "dimensions": list(dims)}
    if var_type is None:
        del decl["var_type"]
    if iterators is not None:
        decl["iterators"] = [{"iterator": it} for it in iterators]
    decl.update(bounds)
    return decl


def range_decl(range_name, start, end):
    return {"type": "range_declaration_inline", "name": range_name, "start": as_node(start), "end": as_node(end)}


def set_decl(set_name, value=None):
    decl = {"type": "set_declaration", "name": set_name}
    if value is not None:
        decl["value"] = value
    return decl


def typed_set(set_name, value=None, external=False):
    decl = {"type": "typed_set_external" if external else "typed_set", "name": set_name}
    if value is not None:
        decl["value"] = value
    return decl


def tuple_type(type_name, *fields):
    return {"type": "tuple_type", "name": type_name, "fields": [{"name": f} for f in fields]}


def set_of_tuples(set_name, type_name, value=None, external=False):
    kind = "set_of_tuples_external" if external else "set_of_tuples"
    decl = {"type": kind, "name": set_name, "tuple_type": type_name}
    if value is not None:
        decl["value"] = value
    return decl


def param_indexed(param_name, *dims):
    return {"type": "parameter_external_indexed", "name": param_name, "dimensions": list(dims)}


def param_inline_indexed(param_name, value, *dims):
    return {"type": "parameter_inline_indexed", "name": param_name, "dimensions": list(dims), "value": value}


# ---------------------------------------------------------------- iterators and sums


def range_spec(start, end):
    return {"type": "range_specifier", "start": as_node(start), "end": as_node(end)}


def named_range(range_name):
    return {"type": "named_range", "name": range_name}


def named_set(set_name):
    return {"type": "named_set", "name": set_name}


def indexed_set(set_name, *dims):
    return {"type": "indexed_set", "name": set_name, "dimensions": list(dims)}


def it(iterator, rng):
    return {"iterator": iterator, "range": rng}


def sum_of(iterators, expression, index_constraint=None):
    node = {"type": "sum", "iterators": list(iterators), "expression": expression}
    if index_constraint is not None:
        node["index_constraint"] = index_constraint
    return node


def forall(iterators, constraint_, index_constraint=None):
    node = {"type": "forall_constraint", "iterators": list(iterators), "constraint": constraint_}
    if index_constraint is not None:
        node["index_constraint"] = index_constraint
    return node


# ---------------------------------------------------------------- index forms and tuples


def ref(iterator):
    """An iterator (or any name) in index position."""
    return {"type": "name_reference_index", "name": iterator}


def field_index(base, field_name):
    return {"type": "field_access_index", "base": base, "field": field_name}


def tuple_lit(*elements):
    return {"type": "tuple_literal", "elements": list(elements)}


def minl(*args):
    return {"type": "minl", "args": list(args)}


def maxl(*args):
    return {"type": "maxl", "args": list(args)}


# ---------------------------------------------------------------- whole models and scripts


def solvable_model(declarations, constraints=()):
    """A model with a constant objective, ready for build_problem/generate_code."""
    return model(declarations, minimize(num(0)), constraints)


def literal_line(lines, prefix):
    """The value of the one level-0 line starting with `prefix` (e.g.
    "var_names = "), parsed as a Python literal."""
    found = [line for line in lines if line.startswith(prefix)]
    assert len(found) == 1, found
    return pyast.literal_eval(found[0][len(prefix):])


def data_section(lines):
    """The lines between the script header (ending with the sense line and an
    empty line) and "# Build LP vectors/matrices"."""
    start = next(i for i, line in enumerate(lines) if line.startswith("sense = ")) + 2
    end = lines.index("# Build LP vectors/matrices")
    return lines[start:end]


def exec_lines(lines):
    """Run each line on its own, in order, in one namespace; gives the names it
    defined. Every line must be a complete Python statement by itself."""
    namespace = {}
    for line in lines:
        exec(compile(line, "<data line>", "exec"), namespace)
    namespace.pop("__builtins__", None)
    return namespace
