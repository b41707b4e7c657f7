"""Coverage-guided fuzzing of the generator with atheris.

Each input is either JSON text {"tree": ..., "data": ...} (the starting corpus is
that: the example models, see make_corpus.py), or, when it is not JSON, bytes
from which a model tree and data are built by a small grammar. Either way the
generator must end in a model or one of the documented exceptions, and an
emitted script must compile; anything else (another exception, a crash, a
sanitizer report) stops the run with the input saved as crash-*.

    pip install ".[fuzz]"
    python fuzz/fuzz_generator.py build/fuzz/generator fuzz/seed/generator -max_total_time=600

Arguments after the script are libFuzzer's: corpus directories (the first
collects new inputs), -max_total_time=SECONDS or -runs=N (without either it
runs until stopped), -jobs=N, and a single file to replay one input.
"""

from __future__ import annotations

import json
import logging
import math
import sys

import atheris

from signal_table import shape, signal, size_class

with atheris.instrument_imports():
    from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
    from kolva.semantic_error import SemanticError

DOCUMENTED = (SemanticError, ValueError, TypeError, KeyError, IndexError, OverflowError, RecursionError,
              NotImplementedError)

NODE_TYPES = [
    "number", "name", "binop", "uminus", "indexed_name", "sum", "conditional", "minl", "maxl", "not", "and", "or",
    "implies", "field_access", "tuple_literal", "parenthesized_expression", "boolean_literal", "string_literal",
    "name_reference_index", "number_literal_index", "constraint", "forall_constraint", "implication_constraint",
    "range_specifier", "named_set", "named_range", "range_index", "named_set_dimension", "named_range_dimension",
    "dvar", "dvar_indexed", "parameter_inline", "parameter_external", "parameter_external_indexed",
    "set_declaration", "typed_set", "range_declaration_inline", "dexpr", "minimize", "maximize",
]
KEYS = ["type", "value", "name", "op", "left", "right", "dimensions", "iterators", "iterator", "range", "start",
        "end", "expression", "index_constraint", "condition", "then", "else", "args", "base", "field", "elements",
        "var_type", "sem_type", "constraint", "constraints", "antecedent", "consequent", "lower_bound",
        "upper_bound"]
OPS = ["+", "-", "*", "/", "==", "!=", "<=", ">=", "<", ">", "and", "or", "%", "div", "mod"]
NAMES = ["x", "y", "p", "q", "S", "R", "i", "j", "k", "n", "c", "linprog", "a\nb", "a\0b", "'", "\"", "\\", ""]
VAR_TYPES = ["float", "float+", "int", "int+", "boolean", "string"]
NUMBERS = [0, 1, -1, 2, 0.5, -0.0, 1e-300, 1e300, math.inf, -math.inf, math.nan, 2**63 - 1, -(2**63), 2**63, 10**30]


class Grammar:
    """Builds values from the fuzz bytes: each choice eats a few of them."""

    def __init__(self, data: bytes):
        self.fdp = atheris.FuzzedDataProvider(data)
        self.budget = 400

    def pick(self, items):
        return items[self.fdp.ConsumeIntInRange(0, len(items) - 1)]

    def scalar(self):
        kind = self.fdp.ConsumeIntInRange(0, 7)
        if kind == 0:
            return self.pick(NUMBERS)
        if kind == 1:
            return self.fdp.ConsumeIntInRange(-10, 10)
        if kind == 2:
            return self.fdp.ConsumeRegularFloat()
        if kind == 3:
            return self.pick(NAMES)
        if kind == 4:
            return self.fdp.ConsumeUnicodeNoSurrogates(self.fdp.ConsumeIntInRange(0, 12))
        if kind == 5:
            return self.fdp.ConsumeBool()
        if kind == 6:
            return None
        return self.pick(OPS)

    def value(self, depth=0):
        self.budget -= 1
        if depth > 12 or self.budget <= 0 or self.fdp.remaining_bytes() == 0:
            return self.scalar()
        kind = self.fdp.ConsumeIntInRange(0, 5)
        if kind <= 1:
            return self.scalar()
        if kind == 2:
            return [self.value(depth + 1) for _ in range(self.fdp.ConsumeIntInRange(0, 4))]
        node = {"type": self.pick(NODE_TYPES)} if kind >= 4 else {}
        for _ in range(self.fdp.ConsumeIntInRange(0, 5)):
            node[self.pick(KEYS)] = self.value(depth + 1)
        return node

    def model(self):
        decls = []
        for _ in range(self.fdp.ConsumeIntInRange(0, 4)):
            decl = self.value(1)
            if not isinstance(decl, dict):
                decl = {"type": self.pick(["dvar", "dvar_indexed", "parameter_inline", "parameter_external",
                                           "set_declaration"]), "name": self.pick(NAMES),
                        "var_type": self.pick(VAR_TYPES), "value": decl}
            decls.append(decl)
        tree = {"declarations": decls, "constraints": [self.value(1) for _ in range(self.fdp.ConsumeIntInRange(0, 3))]}
        if self.fdp.ConsumeBool():
            tree["objective"] = {"type": self.pick(["minimize", "maximize"]), "expression": self.value(1)}
        data = {self.pick(NAMES): self.value(2) for _ in range(self.fdp.ConsumeIntInRange(0, 3))}
        return tree, data


def inputs(data: bytes):
    try:
        doc = json.loads(data)
    except (ValueError, RecursionError):
        doc = None
    if isinstance(doc, dict) and "tree" in doc:
        return doc["tree"], doc.get("data") or {}
    return Grammar(data).model()


def TestOneInput(data: bytes):
    tree, values = inputs(data)
    try:
        code = SciPyCSCCodeGenerator(tree, values).generate_code()
    except DOCUMENTED as err:
        signal("code", type(err).__name__, shape(str(err)))
        code = None
    if code is not None:
        compile(code, "<kolva script>", "exec")
    try:
        problem = SciPyCSCCodeGenerator(tree, values).build_problem()
    except DOCUMENTED as err:
        signal("problem", type(err).__name__, shape(str(err)))
        return
    signal("built", size_class(len(problem.var_names)), size_class(len(problem.b_ub)), size_class(len(problem.b_eq)),
           any(problem.integrality), problem.sense)


def main():
    logging.disable(logging.CRITICAL)  # the generator logs every SemanticError it raises
    # The example models as JSON run to some 30 kB.
    argv = sys.argv if any(a.startswith("-max_len=") for a in sys.argv) else [*sys.argv, "-max_len=65536"]
    atheris.Setup(argv, TestOneInput)
    atheris.Fuzz()


if __name__ == "__main__":
    main()
