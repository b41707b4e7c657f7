"""Reading a solution as a modeller does: variables by declared array, JSON and CSV.

The generator makes the columns of declared variables first, one declaration
after another in model order, each array in the product order of its index
sets; whatever comes after them was made by the encodings of constraints
(truth flags, disjunction flags). :func:`variable_groups` cuts the columns
along those lines. Auxiliary columns, and hidden variables of the OPL front
end (names starting with ``__``), are marked hidden.
"""

from __future__ import annotations

import csv
import io
import json
import math
import re
import shutil
from dataclasses import dataclass, field
from typing import Any, Dict, List, Optional, Sequence, Tuple

from kolva.solve import Solution

#: Values of at most this size are taken for zero in the tables.
ZERO = 1e-08

_TUPLE_SET_TYPES = ("set_of_tuples", "set_of_tuples_external")


@dataclass
class VariableGroup:
    """The columns of one declared variable, or of the scalars, or of the auxiliaries.

    ``indices`` holds one index tuple per column (an empty tuple for a scalar),
    and ``axes`` the members of each index set when the array is their full
    product in order; both are ``None`` when they cannot be told.
    """

    name: str
    columns: List[str]
    hidden: bool = False
    scalar: bool = False
    indices: Optional[List[Tuple[Any, ...]]] = None
    axes: Optional[List[List[Any]]] = None


@dataclass
class Layout:
    """All columns of a problem in groups, in column order."""

    groups: List[VariableGroup] = field(default_factory=list)

    def hidden_columns(self) -> List[str]:
        return [name for group in self.groups if group.hidden for name in group.columns]

    def visible_columns(self) -> List[str]:
        return [name for group in self.groups if not group.hidden for name in group.columns]


# ---------------------------------------------------------------- grouping


def _declared_variables(tree: Dict[str, Any], data: Optional[Dict[str, Any]]):
    """A generator that has made the declared columns and nothing else."""
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator

    only_declarations = {"declarations": tree.get("declarations", [])}
    generator = SciPyCSCCodeGenerator(only_declarations, data or {})
    generator._generate_data_declarations(data or {})
    generator._build_variables()
    return generator


def _range_members(generator, start, end) -> List[Any]:
    return list(range(int(generator._eval_bound(start)), int(generator._eval_bound(end)) + 1))


def _dimension_members(generator, tree, decl, dim) -> Optional[List[Any]]:
    from kolva.tuple_set_helper import TupleSetHelper

    kind = dim.get("type")
    if kind == "range_index":
        return _range_members(generator, dim["start"], dim["end"])
    if kind == "named_range_dimension":
        for candidate in tree.get("declarations", []):
            if candidate.get("type") == "range_declaration_inline" and candidate.get("name") == dim.get("name"):
                return _range_members(generator, candidate["start"], candidate["end"])
        return None
    if kind == "named_set_dimension":
        name = dim.get("name")
        set_decl = generator._find_decl(name)
        if set_decl is not None and set_decl.get("type") in _TUPLE_SET_TYPES:
            return list(TupleSetHelper.get_tuple_set(name, generator.ast, generator.data_dict))
        data = generator.data_dict
        if name in data:
            return list(data[name])
        if len(decl.get("dimensions", [])) == 1 and set_decl is not None:
            return list(set_decl.get("value") or [])
        return []
    return None


def _declaration_axes(generator, tree, decl) -> Optional[List[List[Any]]]:
    from kolva.semantic_error import SemanticError

    axes = []
    for dim in decl.get("dimensions", []):
        try:
            members = _dimension_members(generator, tree, decl, dim)
        except (SemanticError, KeyError, TypeError, ValueError):
            # The build read these sets already; a form this reading does not
            # know leaves the array to the labels of its column names.
            return None
        if members is None:
            return None
        axes.append(members)
    return axes


def _product(axes: List[List[Any]]) -> List[Tuple[Any, ...]]:
    combos: List[Tuple[Any, ...]] = [()]
    for members in axes:
        combos = [combo + (member,) for combo in combos for member in members]
    return combos


def _owns(decl_name: str, column: str) -> bool:
    return column == decl_name or column.startswith(decl_name + "_") or column.startswith(decl_name + "[")


def variable_groups(tree: Dict[str, Any], data: Optional[Dict[str, Any]], var_names: Sequence[str]) -> Layout:
    """Group ``var_names`` (a built problem's columns) by the declarations of ``tree``."""
    generator = _declared_variables(tree, data)
    declared = list(generator.var_names)
    if list(var_names[: len(declared)]) != declared:
        return Layout([VariableGroup("variable", list(var_names), scalar=True)])
    layout = Layout()
    scalars = VariableGroup("variable", [], scalar=True)
    hidden_scalars = VariableGroup("hidden", [], hidden=True, scalar=True)
    position = 0
    for decl in tree.get("declarations", []):
        kind = decl.get("type")
        if kind == "dvar":
            group = hidden_scalars if decl["name"].startswith("__") else scalars
            group.columns.append(declared[position])
            position += 1
        elif kind == "dvar_indexed":
            group, position = _indexed_group(generator, tree, decl, declared, position)
            layout.groups.append(group)
    if position != len(declared):
        return Layout([VariableGroup("variable", list(var_names), scalar=True)])
    if scalars.columns:
        layout.groups.insert(0, scalars)
    if hidden_scalars.columns:
        layout.groups.append(hidden_scalars)
    auxiliary = list(var_names[len(declared) :])
    if auxiliary:
        layout.groups.append(VariableGroup("auxiliary", auxiliary, hidden=True, scalar=True))
    return layout


def _indexed_group(generator, tree, decl, declared: List[str], position: int) -> Tuple[VariableGroup, int]:
    name = decl["name"]
    hidden = name.startswith("__")
    axes = _declaration_axes(generator, tree, decl)
    combos = _product(axes) if axes is not None else None
    if combos is not None and all(_owns(name, column) for column in declared[position : position + len(combos)]):
        columns = declared[position : position + len(combos)]
        if len(columns) == len(combos):
            return VariableGroup(name, columns, hidden, indices=combos, axes=axes), position + len(columns)
    # The index sets could not be read back: take the run of columns named after
    # the array, each labelled by the rest of its name.
    end = position
    while end < len(declared) and _owns(name, declared[end]):
        end += 1
    columns = declared[position:end]
    labels = [(column[len(name) :].lstrip("_"),) for column in columns]
    return VariableGroup(name, columns, hidden, indices=labels), end


# ---------------------------------------------------------------- text


def _number(value: float) -> str:
    if value == 0:
        return "0"
    return f"{value:.10g}"


def _label(member: Any) -> str:
    if isinstance(member, tuple):
        return "<" + ",".join(_label(part) for part in member) + ">"
    if isinstance(member, float) and member.is_integer():
        return str(int(member))
    return str(member)


def _table(header: Sequence[str], rows: List[Sequence[str]], numeric_from: int) -> List[str]:
    widths = [max(len(row[i]) for row in [header, *rows]) for i in range(len(header))]
    lines = []
    for row in [header, *rows]:
        cells = [
            cell.rjust(widths[i]) if i >= numeric_from else cell.ljust(widths[i]) for i, cell in enumerate(row)
        ]
        lines.append("  ".join(cells).rstrip())
    return lines


def _group_lines(group: VariableGroup, values: Dict[str, float], width: int) -> List[str]:
    present = [(i, column) for i, column in enumerate(group.columns) if column in values]
    if not any(abs(values[column]) > ZERO for _, column in present):
        return []
    # A matrix column is at least a blank and two spaces wide: skip the
    # matrix at once when even that cannot fit.
    if (
        group.axes is not None
        and len(group.axes) == 2
        and group.indices is not None
        and 3 * len(group.axes[1]) + len(group.name) <= width
    ):
        matrix = _matrix_lines(group, values)
        if matrix is not None and max(len(line) for line in matrix) <= width:
            return matrix
    rows = []
    for i, column in present:
        value = values[column]
        if abs(value) <= ZERO:
            continue
        if group.scalar or group.indices is None:
            rows.append([column, _number(value)])
        else:
            rows.append([*(_label(member) for member in group.indices[i]), _number(value)])
    arity = len(rows[0]) - 1
    header = [group.name, *([""] * (arity - 1)), "value"]
    return _table(header, rows, arity)


def _matrix_lines(group: VariableGroup, values: Dict[str, float]) -> Optional[List[str]]:
    assert group.axes is not None and group.indices is not None
    rows_axis, cols_axis = group.axes
    cells: Dict[Tuple[Any, Any], str] = {}
    for index, column in zip(group.indices, group.columns):
        if column not in values:
            return None
        cells[index] = _number(values[column])
    header = [group.name, *(_label(member) for member in cols_axis)]
    body = [[_label(r), *(cells[(r, c)] for c in cols_axis)] for r in rows_axis]
    return _table(header, body, 1)


def terminal_width() -> int:
    """The terminal's width (COLUMNS when set; 80 when there is no terminal)."""
    return shutil.get_terminal_size((80, 24)).columns


def variables_text(layout: Layout, values: Dict[str, float], show_all: bool = False, width: int = 80) -> List[str]:
    """The lines that show the nonzero variables, a table (or a matrix) per group.

    Groups are separated by an empty line, each preceded by one. Hidden
    groups appear only with ``show_all``.
    """
    lines: List[str] = []
    for group in layout.groups:
        if group.hidden and not show_all:
            continue
        block = _group_lines(group, values, width)
        if block:
            lines.append("")
            lines.extend(block)
    return lines


def summary_lines(solution: Solution, sizes: Tuple[int, int, int]) -> List[str]:
    """Model size, status, objective, and what a solve that did not finish reached."""
    variables, equalities, inequalities = sizes
    lines = [
        f"model: {variables} variables, {equalities} equality rows, {inequalities} inequality rows",
        f"status: {solution.status}",
        f"objective: {solution.objective_value}",
    ]
    if solution.status != "OPTIMAL" and solution.best_bound is not None:
        lines.append(f"best bound: {solution.best_bound!r}")
    if solution.status != "OPTIMAL" and solution.mip_gap is not None:
        lines.append(f"gap: {solution.mip_gap:.6g}")
    if solution.message:
        lines.append(f"message: {solution.message}")
    return lines


def conflict_lines(solution: Solution) -> List[str]:
    """The rows of an irreducible infeasible subset and where their constraints were written."""
    if solution.status != "INFEASIBLE":
        return []
    if not solution.conflict and not solution.conflict_bounds:
        return ["", "no irreducible infeasible subset was found"]
    lines = ["", "conflicting constraints (an irreducible infeasible subset):"]
    if solution.conflict:
        rows = [[row.row, row.source or "-", row.label or ""] for row in solution.conflict]
        lines.extend("  " + cells for cells in _table(["row", "source", "label"], rows, 3))
    if solution.conflict_bounds:
        lines.append("  with the bounds: " + ", ".join(solution.conflict_bounds))
    return lines


# ---------------------------------------------------------------- files


def _json_number(value: Optional[float]) -> Optional[float]:
    if value is None or not math.isfinite(value):
        return None
    return float(value) + 0.0  # no "-0.0"


def solution_document(solution: Solution, columns: Sequence[str], is_mip: bool) -> Dict[str, Any]:
    """The JSON document of a solution (schema in the README)."""
    document: Dict[str, Any] = {
        "status": solution.status,
        "objective": _json_number(solution.objective_value),
        "problem": "MIP" if is_mip else "LP",
        "variables": {name: _json_number(solution.values[name]) for name in columns if name in solution.values},
    }
    if is_mip:
        document["best_bound"] = _json_number(solution.best_bound)
        document["gap"] = _json_number(solution.mip_gap)
    if solution.message:
        document["message"] = solution.message
    if not is_mip and solution.row_duals:
        document["rows"] = {
            name: {"activity": _json_number(activity), "dual": _json_number(solution.row_duals.get(name))}
            for name, activity in solution.row_activities.items()
        }
        document["reduced_costs"] = {
            name: _json_number(solution.reduced_costs[name]) for name in columns if name in solution.reduced_costs
        }
    if solution.status == "INFEASIBLE":
        document["conflict"] = {
            "rows": [{"row": row.row, "source": row.source, "label": row.label} for row in solution.conflict],
            "bounds": list(solution.conflict_bounds),
        }
    return document


def solution_json(solution: Solution, columns: Sequence[str], is_mip: bool) -> str:
    return json.dumps(solution_document(solution, columns, is_mip), indent=2, ensure_ascii=False) + "\n"


def solution_csv(solution: Solution, columns: Sequence[str]) -> str:
    """``variable,value``, then one line per variable with a value, in column order."""
    out = io.StringIO()
    writer = csv.writer(out, lineterminator="\n")
    writer.writerow(["variable", "value"])
    for name in columns:
        if name in solution.values:
            writer.writerow([name, repr(float(solution.values[name]) + 0.0)])
    return out.getvalue()


# ---------------------------------------------------------------- sources


def attach_sources(solution: Solution, tree: Dict[str, Any], problem) -> None:
    """Fill in where each conflicting row's constraint was written.

    A row's name starts with the label of its constraint, or ``c<N>`` for the
    N-th top-level constraint when it has no label; indices in brackets and a
    ``#`` suffix may follow. The constraint's ``opl_source`` and ``opl_label``
    (set by the OPL front end) give the place. Rows of a problem without row
    names stay unmatched.
    """
    if not solution.conflict:
        return
    if not getattr(problem, "row_names_ub", None) and not getattr(problem, "row_names_eq", None):
        return
    places = ConstraintPlaces(tree)
    for row in solution.conflict:
        found = places.of_row(row.row)
        if found is not None:
            row.source, row.label = found


Place = Tuple[str, Optional[str]]


def _place(node: Any) -> Optional[Place]:
    if not isinstance(node, dict):
        return None
    source = node.get("opl_source")
    if not isinstance(source, str) or not source:
        return None
    label = node.get("opl_label")
    return source, label if isinstance(label, str) and label else None


def _innermost(node: Any) -> Any:
    """A forall's one body constraint (through nested foralls), or the node itself."""
    while isinstance(node, dict) and isinstance(node.get("constraints"), list) and len(node["constraints"]) == 1:
        node = node["constraints"][0]
    return node


class ConstraintPlaces:
    """The places of a model tree's constraints, by label and by top-level position."""

    def __init__(self, tree: Dict[str, Any]):
        top = tree.get("constraints") or []
        self.by_position: List[Optional[Place]] = [_place(_innermost(node)) or _place(node) for node in top]
        self.by_label: Dict[str, Place] = {}
        pending: List[Any] = list(reversed(top))
        while pending:
            node = pending.pop()
            if not isinstance(node, dict):
                continue
            place = _place(node)
            if place is not None and place[1] is not None:
                self.by_label.setdefault(place[1], place)
            inner = node.get("constraints")
            if isinstance(inner, list):
                pending.extend(reversed(inner))

    def of_row(self, row: str) -> Optional[Place]:
        """The ``(source, label)`` of the constraint a row's name points to, or None."""
        base = re.split(r"[\[#]", row, maxsplit=1)[0]
        if base in self.by_label:
            return self.by_label[base]
        position = re.fullmatch(r"c([1-9][0-9]*)", base)
        if position is not None and int(position.group(1)) <= len(self.by_position):
            return self.by_position[int(position.group(1)) - 1]
        return None
