"""Sizes a model may ask for that the engine must survive: ranges at the ends
of the 64-bit integers, ranges too large to enumerate, iterator lists of any
length, and long work stopped from the keyboard."""

import contextlib
import signal
import threading
import time

import pytest
from builders import dvar_indexed, forall, it, range_dim, range_spec, ref, sum_of
from conftest import binop, constraint, indexed, maximize, minimize, model, name, num

from kolva.scipy_codegen_csc import SciPyCSCCodeGenerator
from kolva.semantic_error import SemanticError
from kolva.solve import solve_problem

INT64_MAX = 2**63 - 1
INT64_MIN = -(2**63)


def forall_model(first, last, dim_first=None, dim_last=None):
    """x <= 1 for each k in first..last (tightening and forall both walk the
    range); y over dim_first..dim_last when given."""
    decls = [{"type": "dvar", "name": "x", "var_type": "float+"}]
    if dim_first is not None:
        decls.append(dvar_indexed("y", range_dim(dim_first, dim_last)))
    return model(decls, maximize(name("x")),
                 [forall([it("k", range_spec(first, last))], constraint("<=", name("x"), num(1)))])


@pytest.mark.parametrize("first,last", [(INT64_MAX - 2, INT64_MAX), (INT64_MAX, INT64_MAX),
                                        (INT64_MIN, INT64_MIN + 2)])
def test_ranges_at_the_ends_of_the_integers_end(first, last):
    gen = SciPyCSCCodeGenerator(forall_model(first, last), {})
    problem = gen.build_problem()
    assert len(problem.b_ub) == last - first + 1
    assert solve_problem(problem).objective_value == 1.0


def test_a_variable_indexed_at_the_largest_integer_has_its_column():
    tree = model([dvar_indexed("y", range_dim(INT64_MAX - 1, INT64_MAX))],
                 maximize(sum_of([it("k", range_spec(INT64_MAX - 1, INT64_MAX))], indexed("y", ref("k")))),
                 [forall([it("k", range_spec(INT64_MAX - 1, INT64_MAX))],
                         constraint("<=", indexed("y", ref("k")), num(2)))])
    problem = SciPyCSCCodeGenerator(tree, {}).build_problem()
    assert problem.var_names == [f"y_{INT64_MAX - 1}", f"y_{INT64_MAX}"]
    assert solve_problem(problem).objective_value == 4.0


HUGE = [(1, 10**12), (-(10**12), 10**12), (INT64_MIN, INT64_MAX), (0, 100_000_000)]


@pytest.mark.parametrize("first,last", HUGE)
def test_a_range_too_large_to_enumerate_is_a_model_error(first, last):
    members = last - first + 1
    with pytest.raises(SemanticError) as err:
        SciPyCSCCodeGenerator(forall_model(first, last), {}).build_problem()
    assert str(err.value) == (f"The range {first}..{last} has {members} members, "
                              "more than the 100000000 a range may have.")


@pytest.mark.parametrize("first,last", HUGE)
def test_a_variable_over_a_range_too_large_is_a_model_error(first, last):
    tree = model([dvar_indexed("y", range_dim(first, last))], minimize(num(0)))
    for build in (lambda g: g.build_problem(), lambda g: g.generate_code()):
        with pytest.raises(SemanticError, match=r"^The range .* more than the 100000000 a range may have\.$"):
            build(SciPyCSCCodeGenerator(tree, {}))


@pytest.mark.parametrize("n", [1, 2, 5000, 30000])
def test_sums_over_any_number_of_iterators(n):
    # A sum over n one-member iterators is one term; expansion keeps its
    # levels on the heap, so the count of iterators is not a stack depth.
    iterators = [it(f"k{j}", range_spec(1, 1)) for j in range(n)]
    tree = model([{"type": "dvar", "name": "x", "var_type": "float+"}],
                 maximize(sum_of(iterators, name("x"))),
                 [constraint("<=", name("x"), num(3))])
    gen = SciPyCSCCodeGenerator(tree, {})
    assert solve_problem(gen.build_problem()).objective_value == 3.0


def test_dependent_iterators_see_the_outer_values():
    # j in 1..i: the inner domain is computed from the outer value, for each
    # outer value, and a level that is empty (i = 0) contributes nothing.
    tree = model([dvar_indexed("y", range_dim(0, 3))],
                 maximize(sum_of([it("i", range_spec(0, 3)),
                                  it("j", {"type": "range_specifier", "start": num(1), "end": name("i")})],
                                 indexed("y", ref("i")))),
                 [forall([it("i", range_spec(0, 3))], constraint("<=", indexed("y", ref("i")), num(1)))])
    problem = SciPyCSCCodeGenerator(tree, {}).build_problem()
    # y_i counted i times: 0 + 1 + 2 + 3.
    assert problem.c == [0.0, -1.0, -2.0, -3.0]


@contextlib.contextmanager
def signal_after(seconds, handler=signal.default_int_handler):
    """A real signal (SIGALRM from the kernel, handled like Ctrl-C by
    default) after `seconds`, while the engine holds the GIL: a Python
    thread could not run to send it."""
    old = signal.signal(signal.SIGALRM, handler)
    signal.setitimer(signal.ITIMER_REAL, seconds)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, old)


def long_model():
    # 10**8 combinations of a forall whose filter keeps none: minutes of
    # work, no memory.
    iterators = [it("i", range_spec(1, 10_000)), it("j", range_spec(1, 10_000))]
    return model([{"type": "dvar", "name": "x", "var_type": "float+"}], maximize(name("x")),
                 [constraint("<=", name("x"), num(1)),
                  forall(iterators, constraint("<=", name("x"), num(2)),
                         index_constraint=binop("<", name("i"), num(0)))])


@pytest.mark.parametrize("call", ["build_problem", "generate_code"])
def test_ctrl_c_stops_long_work(call):
    gen = SciPyCSCCodeGenerator(long_model(), {})
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt), signal_after(0.3):
        getattr(gen, call)()
    # Not a timing of the engine: the work takes about half a minute, so
    # having returned within ten seconds means it was stopped midway.
    assert time.monotonic() - start < 10


def test_a_signal_handler_s_own_exception_comes_through():
    class Stop(Exception):
        pass

    def handler(signum, frame):
        raise Stop("asked to stop")

    gen = SciPyCSCCodeGenerator(long_model(), {})
    with pytest.raises(Stop, match="asked to stop"), signal_after(0.3, handler):
        gen.build_problem()


def many_iterator_sum(n, members):
    iterators = [it(f"k{j}", range_spec(1, members)) for j in range(n)]
    return model([{"type": "dvar", "name": "x", "var_type": "float+"}],
                 maximize(sum_of(iterators, name("x"))), [constraint("<=", name("x"), num(1))])


@pytest.mark.parametrize("n,members", [(19, 3), (2, 100_000), (40, 2)])
def test_a_billion_iterator_combinations_are_refused(n, members):
    for build in (lambda g: g.build_problem(), lambda g: g.generate_code()):
        with pytest.raises(SemanticError, match=r"^These iterators have more than 1000000000 combinations\.$"):
            build(SciPyCSCCodeGenerator(many_iterator_sum(n, members), {}))


def test_a_billion_forall_combinations_are_refused_with_the_constraint_named():
    iterators = [it("i", range_spec(1, 100_000)), it("j", range_spec(1, 100_000))]
    labelled = forall(iterators, constraint("<=", name("x"), num(1)))
    labelled.update(opl_source="m.mod:3:1", opl_label="ctBig")
    tree = model([{"type": "dvar", "name": "x", "var_type": "float+"}], maximize(name("x")), [labelled])
    with pytest.raises(SemanticError) as err:
        SciPyCSCCodeGenerator(tree, {}).build_problem()
    assert (err.value.opl_source, err.value.opl_label) == ("m.mod:3:1", "ctBig")


def test_up_to_a_billion_combinations_are_allowed():
    # 3**12 combinations: counted, not refused.
    problem = SciPyCSCCodeGenerator(many_iterator_sum(12, 3), {}).build_problem()
    assert problem.c == [-(3.0**12)]


def written_out_sum(terms):
    """x0 + x1 + ... as a model generator writes it: a left-leaning chain of
    `terms - 1` binops, as deep as it is long."""
    expr = name("x0")
    for i in range(1, terms):
        expr = binop("+", expr, name(f"x{i % 40}"))
    return expr


def chain_model(terms):
    decls = [{"type": "dvar", "name": f"x{i}", "var_type": "float+"} for i in range(40)]
    return model(decls, minimize(written_out_sum(terms)),
                 [constraint(">=", written_out_sum(terms), num(terms))])


def run_in_thread(stack_bytes, fn):
    """Runs fn on a new thread with a stack of `stack_bytes`; gives what it
    returned or raised."""
    out = {}

    def target():
        try:
            out["value"] = fn()
        except BaseException as e:  # handed back to the test
            out["error"] = e

    old = threading.stack_size(stack_bytes)
    try:
        t = threading.Thread(target=target)
        t.start()
        t.join()
    finally:
        threading.stack_size(old)
    return out


def solve_chain(terms):
    gen = SciPyCSCCodeGenerator(chain_model(terms), {})
    problem = gen.build_problem()
    code = SciPyCSCCodeGenerator(chain_model(terms), {}).generate_code()
    compile(code, "<script>", "exec")
    return solve_problem(problem).objective_value


def test_a_written_out_sum_of_ten_thousand_terms_compiles():
    # The chain is 9,998 binops deep under 'left'; with the constraint and
    # model levels the input stays within 10,000.
    assert solve_chain(9_990) == 9_990.0


def test_deep_models_build_on_a_thread_with_a_small_stack():
    # 1 MiB of thread stack is far less than 10,000 levels take: the engine
    # runs on a stack of its own, and frees the tree there too.
    out = run_in_thread(1 << 20, lambda: solve_chain(9_990))
    assert out == {"value": 9_990.0}


def test_nesting_past_the_limit_is_a_recursion_error_naming_the_path():
    tree = model([{"type": "dvar", "name": "x0", "var_type": "float+"}], minimize(written_out_sum(10_010)))
    out = run_in_thread(1 << 20, lambda: SciPyCSCCodeGenerator(tree, {}))
    err = out["error"]
    assert isinstance(err, RecursionError)
    assert str(err) == ("the model or data is nested deeper than 10000 levels, at "
                        "['objective']['expression']['left']['left']['left']['left']...['left']['left']['left'] "
                        "(10000 steps)")


def test_the_path_counts_list_positions():
    data = {"p": [[0, [1, 2]]]}
    value = 1
    for _ in range(10_005):
        value = [value]
    data["p"][0][1].append(value)
    with pytest.raises(RecursionError, match=r"^the model or data is nested deeper than 10000 levels, "
                                             r"at \['p'\]\[0\]\[1\]\[2\]\[0\]\[0\]\.\.\.\[0\]\[0\]\[0\] "
                                             r"\(10000 steps\)$"):
        SciPyCSCCodeGenerator(model(), data)


def doubled(leaf, depth):
    expr = leaf
    for _ in range(depth):
        expr = binop("+", expr, expr)
    return expr


def test_a_part_doubled_at_every_level_is_refused_before_any_work():
    tree = model([{"type": "dvar", "name": "x", "var_type": "float+"}], minimize(doubled(name("x"), 40)))
    with pytest.raises(ValueError) as err:
        SciPyCSCCodeGenerator(tree, {})
    # Written out: 2**40 leaves of three nodes, 2**40 - 1 binops of three
    # nodes besides their operands, the objective's two, the model's seven.
    # Distinct: each level's binop, its two strings and four keys; the
    # leaf's five; the rest of the model's 17.
    written_out = 3 * 2**40 + 3 * (2**40 - 1) + 2 + 7
    distinct = 7 * 40 + 5 + 17
    assert str(err.value) == (f"the model or data shares parts so often that written out it has {written_out} nodes, "
                              f"from {distinct} distinct ones; give each use its own copy, or use a sum over an "
                              "iterator")


def test_moderate_sharing_builds_the_same_as_copies():
    # One constraint object used 2,000 times: 2,000 rows, as written out.
    row = constraint("<=", name("x"), num(4))
    tree = model([{"type": "dvar", "name": "x", "var_type": "float+"}], maximize(name("x")), [row] * 2000)
    problem = SciPyCSCCodeGenerator(tree, {}).build_problem()
    assert problem.b_ub == [4.0] * 2000
    assert solve_problem(problem).objective_value == 4.0


def test_data_keyed_by_nan_builds():
    # Every NaN is a key of its own that no lookup finds, as in Python
    # without the same object; 50,000 of them once took seconds.
    keys = [float("nan") for _ in range(50_000)]
    tree = model([{"type": "set_declaration", "name": "S"},
                  {"type": "parameter_external_indexed", "name": "p",
                   "dimensions": [{"type": "named_set_dimension", "name": "S"}]},
                  {"type": "dvar", "name": "x", "var_type": "float+"}],
                 maximize(name("x")), [constraint("<=", name("x"), num(2))])
    problem = SciPyCSCCodeGenerator(tree, {"S": keys, "p": {k: 1 for k in keys}}).build_problem()
    assert solve_problem(problem).objective_value == 2.0


def test_many_small_arrays_keep_their_columns_in_order():
    n = 20_000
    decls = [dvar_indexed(f"y{i}", range_dim(1, 2)) for i in range(n)]
    problem = SciPyCSCCodeGenerator(model(decls, minimize(num(0))), {}).build_problem()
    assert problem.var_names == [f"y{i}_{k}" for i in range(n) for k in (1, 2)]


def test_opl_reading_runs_on_a_stack_of_its_own():
    from kolva import opl

    # 900 nested parentheses: deep for the parser, within its limit.
    source = "dvar float+ x;\nmaximize x;\nsubject to { " + "(" * 900 + "x" + ")" * 900 + " <= 4; }\n"
    out = run_in_thread(1 << 20, lambda: opl.parse_model(source))
    assert "error" not in out, out.get("error")
    problem = SciPyCSCCodeGenerator(out["value"], {}).build_problem()
    assert solve_problem(problem).objective_value == 4.0


def test_ctrl_c_stops_reading_a_large_data_file(tmp_path):
    from kolva import opl

    model = tmp_path / "m.mod"
    model.write_text("{int} S = ...;\nfloat p[S] = ...;\ndvar float+ x;\nmaximize x;\nsubject to { x <= 1; }\n")
    data = tmp_path / "m.dat"
    n = 3_000_000
    with data.open("w") as f:
        f.write("S = {" + " ".join(map(str, range(n))) + "};\n")
        f.write("p = [" + " ".join(["1.5"] * n) + "];\n")
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt), signal_after(0.2):
        opl.load(model, data)
    # Reading and checking six million numbers takes seconds; stopping at
    # the signal takes well under one.
    assert time.monotonic() - start < 10
