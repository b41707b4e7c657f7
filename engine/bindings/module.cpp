// The Python face of the engine: converts arguments, forwards to the core,
// converts results back and maps errors. No model logic lives here.
#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <array>
#include <bit>
#include <limits>
#include <memory>
#include <string>
#include <typeinfo>

#include "bindings/convert.hpp"
#include "bindings/opl.hpp"
#include "constraints/build_state.hpp"
#include "data/tuple_set_members.hpp"
#include "evaluator/evaluator.hpp"
#include "generator/generator.hpp"
#include "logic/boolean_variables.hpp"
#include "logic/keys.hpp"
#include "logic/truth_variables.hpp"
#include "model/error.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace nb = nanobind;
using namespace nb::literals;

namespace kolva::bindings {
namespace {

// The Python classes that the engine's errors and results become. Looked up
// once at import; kept for the life of the process.
PyObject* g_semantic_error = nullptr;
PyObject* g_linear_problem = nullptr;

nb::object semantic_error_instance(const Error& e) {
  nb::object err = nb::borrow(g_semantic_error)(e.what());
  // The generator's message stays as it is; where the element was written
  // rides along for the command line to show.
  if (!e.origin().empty()) {
    err.attr("opl_source") = nb::str(e.origin().c_str());
    if (!e.origin_label().empty()) err.attr("opl_label") = nb::str(e.origin_label().c_str());
  }
  return err;
}

void translate_error(const std::exception_ptr& p, void* /*payload*/) {
  try {
    std::rethrow_exception(p);
  } catch (const Error& e) {
    switch (e.kind()) {
      case ErrorKind::kSemantic:
        PyErr_SetObject(g_semantic_error, semantic_error_instance(e).ptr());
        return;
      case ErrorKind::kKey:
        PyErr_SetObject(PyExc_KeyError, nb::str(e.what()).ptr());
        return;
      case ErrorKind::kNotImplemented:
        PyErr_SetString(PyExc_NotImplementedError, e.what());
        return;
      case ErrorKind::kValue:
        PyErr_SetString(PyExc_ValueError, e.what());
        return;
      case ErrorKind::kType:
        PyErr_SetString(PyExc_TypeError, e.what());
        return;
      case ErrorKind::kOverflow:
        PyErr_SetString(PyExc_OverflowError, e.what());
        return;
      case ErrorKind::kIndex:
        PyErr_SetString(PyExc_IndexError, e.what());
        return;
      case ErrorKind::kRecursion:
        PyErr_SetString(PyExc_RecursionError, e.what());
        return;
      case ErrorKind::kAttribute:
        PyErr_SetString(PyExc_AttributeError, e.what());
        return;
    }
  } catch (const std::bad_cast&) {
    // A Python argument of the wrong kind met a conversion in a binding.
    PyErr_SetString(PyExc_TypeError, "an argument is of the wrong type for this operation");
  }
}

class PyLogSink : public LogSink {
 public:
  explicit PyLogSink(nb::object logger) : logger_(std::move(logger)) {}
  bool enabled(LogLevel level) override {
    return nb::cast<bool>(logger_.attr("isEnabledFor")(static_cast<int>(level)));
  }
  void emit(LogLevel level, const std::string& message) override {
    logger_.attr("log")(static_cast<int>(level), message);
  }

 private:
  nb::object logger_;
};

struct PyEvaluator;

struct PyGenerator {
  std::unique_ptr<Generator> gen;
  nb::object logger;

  // Every public call starts here: the logger's levels are read once.
  Generator& core() {
    gen->refresh_log_levels();
    return *gen;
  }

  // A generator serves one build: its phases append to the script and the
  // columns, so a second build would give a different program or fail on
  // the way. It is refused instead, before anything changes.
  Generator& core_for_build() {
    if (built) {
      raise(ErrorKind::kValue,
            "this SciPyCSCCodeGenerator has already built its program; create a new one for another build");
    }
    built = true;
    return core();
  }
  bool built = false;
};

struct PyEvaluator {
  nb::object parent;
  std::unique_ptr<ExpressionEvaluator> owned;
  ExpressionEvaluator* ev = nullptr;

  ExpressionEvaluator& core() {
    nb::cast<PyGenerator&>(parent).gen->refresh_log_levels();
    return *ev;
  }
};

Env to_env(nb::handle env) { return env.is_none() ? Env() : *to_map_or_empty(env, "env"); }

PyObject* g_sparse_row_sequence = nullptr;

// The raw bytes of a vector; the Python side reads them with the matching
// NumPy dtype (int64 or float64, native byte order).
template <typename T>
nb::object numpy_copy(const std::vector<T>& values) {
  static_assert(sizeof(T) == 8, "columns are int64 and values float64");
  return nb::bytes(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

// Rows handed to Python as CSR arrays behind a read-only row sequence: no
// Python object per nonzero.
nb::object sparse_rows_to_python(const SparseRows& m, std::size_t n_cols) {
  std::vector<std::int64_t> indptr(m.row_starts().begin(), m.row_starts().end());
  std::vector<std::int64_t> widths(m.rows());
  for (std::size_t r = 0; r < m.rows(); ++r) widths[r] = static_cast<std::int64_t>(m.width(r));
  // Column numbers go over as 32-bit integers whenever they fit, as SciPy
  // keeps them: half the bytes per nonzero.
  nb::object cols;
  if (n_cols <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    std::vector<std::int32_t> narrow(m.cols().begin(), m.cols().end());
    const nb::bytes raw(reinterpret_cast<const char*>(narrow.data()), narrow.size() * sizeof(std::int32_t));
    const nb::object view = nb::steal(PyMemoryView_FromObject(raw.ptr()));
    if (!view.is_valid()) throw nb::python_error();
    cols = view.attr("cast")("i");
  } else {
    cols = numpy_copy(m.cols());
  }
  return nb::borrow(g_sparse_row_sequence)(numpy_copy(indptr), cols, numpy_copy(m.vals()), numpy_copy(widths),
                                           n_cols);
}

// Python lists built with the C API: one object per entry, nothing more.
nb::object new_list(std::size_t n) {
  PyObject* list = PyList_New(static_cast<Py_ssize_t>(n));
  if (list == nullptr) throw nb::python_error();
  return nb::steal(list);
}

void set_item(const nb::object& list, std::size_t i, PyObject* item) {
  if (item == nullptr) throw nb::python_error();
  PyList_SET_ITEM(list.ptr(), static_cast<Py_ssize_t>(i), item);
}

// Gives the pages that the build phases freed back to the system before the
// snapshot's Python lists are made, so the two do not add up in the
// process's peak memory.
void release_free_memory() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

// Hands out one float object per recent value: floats are immutable, so
// list entries may share them, and the per-column lists of a large model
// (costs, bounds) repeat few values.
class FloatInterner {
 public:
  FloatInterner() = default;
  FloatInterner(const FloatInterner&) = delete;
  FloatInterner& operator=(const FloatInterner&) = delete;
  ~FloatInterner() {
    for (const Slot& slot : slots_) Py_XDECREF(slot.object);
  }

  // A new reference to a float of value d.
  PyObject* get(double d) {
    const auto bits = std::bit_cast<std::uint64_t>(d);
    Slot& slot = slots_[(bits * 0x9E3779B97F4A7C15ULL) >> (64U - kSlotBits)];
    if (slot.object != nullptr && slot.bits == bits) {
      Py_INCREF(slot.object);
      return slot.object;
    }
    PyObject* made = PyFloat_FromDouble(d);
    if (made == nullptr) return nullptr;
    Py_XDECREF(slot.object);
    Py_INCREF(made);
    slot = {bits, made};
    return made;
  }

 private:
  static constexpr unsigned kSlotBits = 10;
  struct Slot {
    std::uint64_t bits = 0;
    PyObject* object = nullptr;
  };
  std::array<Slot, std::size_t{1} << kSlotBits> slots_{};
};

nb::object float_list_fast(const std::vector<double>& values, FloatInterner& floats) {
  nb::object out = new_list(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) set_item(out, i, floats.get(values[i]));
  return out;
}

PyObject* scalar_to_python(const Value& v, FloatInterner& floats) {
  switch (v.kind()) {
    case Value::Kind::kNone:
      Py_INCREF(Py_None);
      return Py_None;
    case Value::Kind::kInt:
      return PyLong_FromLongLong(v.as_int());
    case Value::Kind::kFloat:
      return floats.get(v.as_float());
    default:
      return ToPython()(v).release().ptr();
  }
}

// Pauses Python's cyclic garbage collector while many containers are made:
// the lists built here hold no cycles, and collections triggered by their
// allocation would walk every one of them again and again.
class GcPause {
 public:
  GcPause() : was_enabled_(PyGC_IsEnabled() != 0) { PyGC_Disable(); }
  GcPause(const GcPause&) = delete;
  GcPause& operator=(const GcPause&) = delete;
  ~GcPause() {
    if (was_enabled_) PyGC_Enable();
  }

 private:
  bool was_enabled_;
};

// The LinearProblem of the generator's current state; shares nothing with it.
nb::list string_list(const std::vector<std::string>& v);

nb::object problem_from_generator(const Generator& gen) {
  const GcPause pause;
  if (!gen.integrality)
    raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute 'integrality'");
  nb::object names = new_list(gen.var_names.size());
  for (std::size_t i = 0; i < gen.var_names.size(); ++i) {
    const std::string& n = gen.var_names[i];
    set_item(names, i, PyUnicode_DecodeUTF8(n.data(), static_cast<Py_ssize_t>(n.size()), "surrogatepass"));
  }
  FloatInterner floats;
  nb::object bounds = new_list(gen.bounds.size());
  for (std::size_t i = 0; i < gen.bounds.size(); ++i) {
    nb::object pair = new_list(2);
    set_item(pair, 0, scalar_to_python(gen.bounds[i].lower, floats));
    set_item(pair, 1, scalar_to_python(gen.bounds[i].upper, floats));
    set_item(bounds, i, pair.release().ptr());
  }
  nb::object integrality = new_list(gen.integrality->size());
  for (std::size_t i = 0; i < gen.integrality->size(); ++i) {
    set_item(integrality, i, PyLong_FromLong((*gen.integrality)[i]));
  }
  const std::size_t n_cols = gen.var_names.size();
  nb::dict kwargs;
  kwargs["sense"] = gen.snapshot_sense();
  kwargs["var_names"] = names;
  kwargs["bounds"] = bounds;
  kwargs["integrality"] = integrality;
  kwargs["c"] = float_list_fast(gen.c, floats);
  kwargs["A_eq"] = sparse_rows_to_python(gen.A_eq, n_cols);
  kwargs["b_eq"] = float_list_fast(gen.b_eq, floats);
  kwargs["A_ub"] = sparse_rows_to_python(gen.A_ub, n_cols);
  kwargs["b_ub"] = float_list_fast(gen.b_ub, floats);
  kwargs["objective_offset"] = py_float(gen.obj_const_offset);
  kwargs["row_names_ub"] = string_list(gen.row_names_ub);
  kwargs["row_names_eq"] = string_list(gen.row_names_eq);
  return nb::borrow(g_linear_problem)(**kwargs);
}

nb::list dense_rows(const SparseRows& m) {
  nb::list out;
  for (std::size_t r = 0; r < m.rows(); ++r) {
    nb::list row;
    for (double v : m.dense_row(r)) row.append(v);
    out.append(row);
  }
  return out;
}

nb::list float_list(const std::vector<double>& v) {
  nb::list out;
  for (double d : v) out.append(d);
  return out;
}

nb::list string_list(const std::vector<std::string>& v) {
  nb::list out;
  for (const std::string& s : v) out.append(nb::str(s.c_str(), s.size()));
  return out;
}

nb::object lookup_to_python(const LookupResult& r) {
  return nb::make_tuple(r.is_var, ToPython()(r.shown_value()), r.is_symbolic);
}

nb::object decl_or_none(const MapPtr& decl) {
  return decl == nullptr ? nb::none() : ToPython()(Value::map(decl));
}

std::optional<std::string> optional_str(nb::handle h) {
  if (h.is_none()) return std::nullopt;
  return nb::cast<std::string>(h);
}

void bind_value_hooks(nb::module_& m) {
  m.def("_value_repr", [](nb::handle v) { return py_repr(ToValue()(v)); }, "v"_a.none());
  m.def("_value_str", [](nb::handle v) { return py_str(ToValue()(v)); }, "v"_a.none());
  m.def("_value_roundtrip", [](nb::handle v) { return ToPython()(ToValue()(v)); }, "v"_a.none());
  m.def(
      "_value_eq", [](nb::handle a, nb::handle b) { return py_eq(ToValue()(a), ToValue()(b)); }, "a"_a.none(),
      "b"_a.none());
  m.def(
      "_value_lt", [](nb::handle a, nb::handle b) { return py_lt(ToValue()(a), ToValue()(b)); }, "a"_a.none(),
      "b"_a.none());
  m.def("_value_truth", [](nb::handle v) { return py_truth(ToValue()(v)); }, "v"_a.none());
  m.def(
      "_get_tuple_set",
      [](const std::string& name, nb::handle ast, nb::handle data) {
        const MapPtr root = to_map_or_empty(ast, "ast");
        const MapPtr values = to_map_or_empty(data, "data_dict");
        ToPython py;
        nb::list out;
        for (const Value& member : get_tuple_set(name, *root, *values)) out.append(py(member));
        return out;
      },
      "set_name"_a, "ast"_a.none(), "data_dict"_a.none());
  m.def(
      "_value_hash_equal",
      [](nb::handle a, nb::handle b) { return py_hash(ToValue()(a)) == py_hash(ToValue()(b)); }, "a"_a.none(),
      "b"_a.none());
}

// The logical forms' keys and small helpers, callable on the generator's
// current state.
void bind_logic_helpers(nb::class_<PyGenerator>& cls) {
  cls.def(
      "_comparison_key",
      [](PyGenerator& g, nb::handle node, nb::handle env) {
        const Env scope = to_env(env);
        return ToPython()(logic::comparison_key(g.core(), ToValue()(node), scope));
      },
      "node"_a.none(), "env"_a.none() = nb::none());
  cls.def(
      "_bool_struct_key",
      [](PyGenerator& g, nb::handle node, nb::handle env) {
        const Env scope = to_env(env);
        return ToPython()(logic::bool_struct_key(g.core(), ToValue()(node), scope));
      },
      "node"_a.none(), "env"_a.none() = nb::none());
  cls.def(
      "_atomic_bool_var",
      [](PyGenerator& g, nb::handle node, nb::handle env) {
        const Env scope = to_env(env);
        const auto [name, polarity] = logic::atomic_bool_var(g.core(), ToValue()(node), scope);
        return nb::make_tuple(name, polarity);
      },
      "node"_a.none(), "env"_a.none() = nb::none());
  cls.def(
      "_ground_numeric_value",
      [](PyGenerator& g, nb::handle expr, nb::handle env) -> nb::object {
        const Env scope = to_env(env);
        const std::optional<double> v = logic::ground_numeric_value(g.core(), ToValue()(expr), scope);
        return v ? nb::cast(*v) : nb::none();
      },
      "expr"_a.none(), "env"_a.none() = nb::none());
  cls.def(
      "_coerce_numeric",
      [](PyGenerator& /*g*/, nb::handle value) { return logic::coerce_numeric(ToValue()(value)); },
      "value"_a.none());
  cls.def("_tighten_lower_bound", [](PyGenerator& g, const std::string& name, double val) {
    g.core()._tighten_lower_bound(name, val);
  });
  cls.def("_tighten_upper_bound", [](PyGenerator& g, const std::string& name, double val) {
    g.core()._tighten_upper_bound(name, val);
  });
  cls.def("_tighten_bounds",
          [](PyGenerator& g, const std::string& name, double val) { g.core()._tighten_bounds(name, val); });
  cls.def_prop_ro("_comparison_truth_cache",
                  [](PyGenerator& g) { return ToPython()(Value::map(g.gen->comparison_truth_cache)); });
  cls.def_prop_ro("_bool_subtree_cache",
                  [](PyGenerator& g) { return ToPython()(Value::map(g.gen->bool_subtree_cache)); });
  cls.def_prop_ro("_impl_counter", [](PyGenerator& g) { return g.gen->impl_counter.value_or(0); });
}

void bind_generator(nb::module_& m) {
  nb::class_<PyGenerator> cls(m, "_Generator", nb::dynamic_attr());
  cls.def(
      "__init__",
      [](PyGenerator* self, nb::handle ast, nb::handle data_dict, const nb::object& logger) {
        if (!PyDict_Check(ast.ptr())) raise(ErrorKind::kType, "ast must be a dict");
        ToValue to_value;
        MapPtr root = to_value(ast).as_map();
        MapPtr data = data_dict.is_none() ? nullptr : to_map_or_empty(data_dict, "data_dict");
        auto sink = std::make_shared<PyLogSink>(logger);
        new (self) PyGenerator{std::make_unique<Generator>(std::move(root), std::move(data), sink), logger};
      },
      "ast"_a.none(), "data_dict"_a.none() = nb::none(), "logger"_a.none() = nb::none());

  // Read-only attributes: fresh Python copies of the generator's state.
  cls.def_prop_ro("logger", [](PyGenerator& g) { return g.logger; });
  cls.def_prop_ro("ast", [](PyGenerator& g) { return ToPython()(Value::map(g.gen->ast)); });
  cls.def_prop_ro("data_dict", [](PyGenerator& g) { return ToPython()(Value::map(g.gen->data_dict)); });
  cls.def_prop_ro("data", [](PyGenerator& g) { return ToPython()(Value::map(g.gen->data_dict)); });
  cls.def_prop_ro("scipy_code_lines",
                  [](PyGenerator& g) { return string_list(g.gen->scipy_code_lines.to_vector()); });
  cls.def_prop_ro("var_names", [](PyGenerator& g) { return string_list(g.gen->var_names); });
  cls.def_prop_ro("var_indices", [](PyGenerator& g) {
    nb::dict d;
    g.gen->var_indices.for_each([&d](const std::string& name, std::int64_t column) {
      d[nb::str(name.c_str(), name.size())] = column;
    });
    return d;
  });
  cls.def_prop_ro("bounds", [](PyGenerator& g) {
    ToPython py;
    nb::list out;
    for (const BoundPair& pair : g.gen->bounds) {
      nb::list entry;
      entry.append(py(pair.lower));
      entry.append(py(pair.upper));
      out.append(entry);
    }
    return out;
  });
  cls.def_prop_ro("integrality", [](PyGenerator& g) {
    if (!g.gen->integrality) {
      raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute 'integrality'");
    }
    ToPython py;
    nb::list out;
    for (const std::uint8_t v : *g.gen->integrality) out.append(py(Value::integer(v)));
    return out;
  });
  cls.def_prop_ro("c", [](PyGenerator& g) { return float_list(g.gen->c); });
  cls.def_prop_ro("obj_const_offset", [](PyGenerator& g) { return ToPython()(g.gen->obj_const_offset); });
  cls.def_prop_ro("A_eq", [](PyGenerator& g) { return dense_rows(g.gen->A_eq); });
  cls.def_prop_ro("A_ub", [](PyGenerator& g) { return dense_rows(g.gen->A_ub); });
  cls.def_prop_ro("b_eq", [](PyGenerator& g) { return float_list(g.gen->b_eq); });
  cls.def_prop_ro("b_ub", [](PyGenerator& g) { return float_list(g.gen->b_ub); });
  cls.def_prop_ro("row_names_eq", [](PyGenerator& g) { return string_list(g.gen->row_names_eq); });
  cls.def_prop_ro("row_names_ub", [](PyGenerator& g) { return string_list(g.gen->row_names_ub); });
  cls.def_prop_ro("tuple_types", [](PyGenerator& g) {
    if (g.gen->tuple_types == nullptr) {
      raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute 'tuple_types'");
    }
    return ToPython()(Value::map(g.gen->tuple_types));
  });
  cls.def_prop_ro("aux_created", [](PyGenerator& g) {
    if (!g.gen->aux_created) {
      raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute 'aux_created'");
    }
    return string_list(*g.gen->aux_created);
  });
  cls.def_prop_ro("_collected_lbs",
                  [](PyGenerator& g) { return ToPython()(Value::map(g.gen->collected_lbs)); });
  cls.def_prop_ro("_collected_ubs",
                  [](PyGenerator& g) { return ToPython()(Value::map(g.gen->collected_ubs)); });
  cls.def_prop_ro("lower_bounds", [](PyGenerator& g) {
    ToPython py;
    nb::list out;
    for (const Value& v : g.gen->lower_bounds) out.append(py(v));
    return out;
  });
  cls.def_prop_ro("upper_bounds", [](PyGenerator& g) {
    ToPython py;
    nb::list out;
    for (const Value& v : g.gen->upper_bounds) out.append(py(v));
    return out;
  });
  cls.def_prop_rw(
      "results_varname", [](PyGenerator& g) { return g.gen->results_varname; },
      [](PyGenerator& g, const std::string& v) { g.gen->results_varname = std::move(v); });
  cls.def_prop_rw(
      "indent_level", [](PyGenerator& g) { return g.gen->indent_level; },
      [](PyGenerator& g, std::int64_t v) { g.gen->indent_level = v; });
  cls.def_prop_rw(
      "_allow_symbolic_bool", [](PyGenerator& g) { return g.gen->allow_symbolic_bool; },
      [](PyGenerator& g, nb::handle v) { g.gen->allow_symbolic_bool = PyObject_IsTrue(v.ptr()) == 1; });

  // Public operations and phases.
  cls.def("generate_code", [](PyGenerator& g) { return g.core_for_build().generate_code(); });
  cls.def("build_problem", [](PyGenerator& g) {
    g.core_for_build().run_build_phases();
    release_free_memory();
    return problem_from_generator(*g.gen);
  });
  cls.def(
      "_generate_data_declarations",
      [](PyGenerator& g, nb::handle data) {
        Generator& gen = g.core();
        // The generator's own map, unless a different one is given: Python
        // sees copies, so "the same map" is recognised by equality.
        if (data.is_none()) return gen._generate_data_declarations(gen.data_dict);
        const MapPtr given = to_map_or_empty(data, "data_dict");
        gen._generate_data_declarations(py_eq(Value::map(given), Value::map(gen.data_dict)) ? gen.data_dict
                                                                                            : given);
      },
      "data_dict"_a.none());
  cls.def("_build_variables", [](PyGenerator& g) { g.core()._build_variables(); });
  cls.def("_build_objective", [](PyGenerator& g) { g.core()._build_objective(); });
  cls.def("_build_constraints", [](PyGenerator& g) { g.core()._build_constraints(); });
  cls.def("_apply_top_level_binary_assignments",
          [](PyGenerator& g) { g.core()._apply_top_level_binary_assignments(); });
  cls.def("_reconcile_problem_metadata", [](PyGenerator& g) { g.core()._reconcile_problem_metadata(); });
  cls.def("_refresh_problem_metadata_code_lines",
          [](PyGenerator& g) { g.core()._refresh_problem_metadata_code_lines(); });
  cls.def("_snapshot_linear_problem", [](PyGenerator& g) { return problem_from_generator(g.core()); });

  // Helpers, reachable so behaviour can be tested where it is defined.
  cls.def("_indent", [](PyGenerator& g) { return g.core()._indent(); });
  cls.def("_add_code_line", [](PyGenerator& g, nb::handle line) {
    if (!PyUnicode_Check(line.ptr())) raise(ErrorKind::kType, "_add_code_line requires a str line");
    g.core()._add_code_line(nb::cast<std::string>(line));
  });
  cls.def(
      "_eval_expr",
      [](PyGenerator& g, nb::handle expr, nb::handle env) {
        Generator& gen = g.core();
        const Value node = ToValue()(expr);
        if (env.is_none()) return ToPython().result(gen._eval_expr(node, nullptr));
        const Env scope = to_env(env);
        return ToPython().result(gen._eval_expr(node, &scope));
      },
      "expr"_a.none(), "env"_a.none() = nb::none());
  cls.def(
      "_eval_index_expr",
      [](PyGenerator& g, nb::handle dim, nb::handle env) {
        Generator& gen = g.core();
        return ToPython().result(gen._eval_index_expr(ToValue()(dim), to_env(env)));
      },
      "dim_expr"_a.none(), "env"_a.none());
  // A Python face of the generator's one evaluator; faces compare equal when
  // they stand for the same evaluator.
  cls.def_prop_ro("_expr_evaluator", [](PyGenerator& g) -> nb::object {
    if (!g.gen->has_evaluator()) {
      raise(ErrorKind::kAttribute, "'SciPyCSCCodeGenerator' object has no attribute '_expr_evaluator'");
    }
    return nb::cast(PyEvaluator{nb::find(&g), nullptr, &g.gen->evaluator()}, nb::rv_policy::move);
  });
  cls.def(
      "_not_found_error",
      [](PyGenerator&, const std::string& what, nb::handle name) {
        return semantic_error_instance(Generator::_not_found_error(what, nb::str(name).c_str()));
      },
      "what"_a, "name"_a.none());
  cls.def(
      "_unsupported_type_error",
      [](PyGenerator&, const std::string& what, nb::handle detail) {
        return semantic_error_instance(Generator::_unsupported_type_error(what, nb::str(detail).c_str()));
      },
      "what"_a, "detail"_a.none());
  cls.def(
      "_unsupported_operator_error",
      [](PyGenerator&, const std::string& context, nb::handle op) {
        return semantic_error_instance(Generator::_unsupported_operator_error(context, nb::str(op).c_str()));
      },
      "context"_a, "op"_a.none());
  cls.def(
      "_find_decl",
      [](PyGenerator& g, const std::string& name, nb::handle decl_type) {
        const auto type = optional_str(decl_type);
        return decl_or_none(g.core()._find_decl(name, type ? &*type : nullptr));
      },
      "name"_a, "decl_type"_a.none() = nb::none());
  cls.def(
      "_find_decls",
      [](PyGenerator& g, const std::string& name, nb::handle decl_type) {
        const auto type = optional_str(decl_type);
        nb::list out;
        for (const MapPtr& d : g.core()._find_decls(name, type ? &*type : nullptr))
          out.append(decl_or_none(d));
        return out;
      },
      "name"_a, "decl_type"_a.none() = nb::none());
  cls.def(
      "_lookup_var_or_param",
      [](PyGenerator& g, const std::string& name, nb::handle indices, nb::handle env, bool default_zero) {
        Generator& gen = g.core();
        std::optional<ValueVec> idx;
        if (!indices.is_none()) idx = to_value_list(indices, "indices");
        const std::optional<Env> scope = env.is_none() ? std::nullopt : std::optional<Env>(to_env(env));
        const LookupResult r =
            gen._lookup_var_or_param(name, idx ? &*idx : nullptr, scope ? &*scope : nullptr, default_zero);
        return lookup_to_python(r);
      },
      "name"_a, "indices"_a.none() = nb::none(), "env"_a.none() = nb::none(),
      "default_zero_if_missing"_a = false);
  cls.def(
      "_eval_index",
      [](PyGenerator& g, nb::handle idx, nb::handle env) {
        Generator& gen = g.core();
        return ToPython()(gen._eval_index(ToValue()(idx), to_env(env)));
      },
      "idx"_a.none(), "env"_a.none());
  cls.def(
      "_convert_flat_kv_to_dict",
      [](PyGenerator& g, nb::handle data) -> nb::object {
        const auto converted = g.core()._convert_flat_kv_to_dict(ToValue()(data));
        return converted ? ToPython()(Value::map(*converted)) : nb::none();
      },
      "param_data"_a.none());
  cls.def(
      "_eval_bound",
      [](PyGenerator& g, nb::handle expr) { return ToPython()(g.core()._eval_bound(ToValue()(expr))); },
      "expr"_a.none());
  cls.def_static(
      "normalize_index", [](nb::handle idx) { return ToPython()(normalize_index(ToValue()(idx))); },
      "idx"_a.none());
  cls.def(
      "_format_varname",
      [](PyGenerator& g, const std::string& base, nb::handle indices, bool is_tuple_indexed) {
        return g.core()._format_varname(base, to_value_list(indices, "indices"), is_tuple_indexed);
      },
      "base"_a, "indices"_a, "is_tuple_indexed"_a = false);
  cls.def(
      "_multi_indexed_var_name",
      [](PyGenerator& g, nb::handle expr, nb::handle env, nb::handle eval_index_expr) {
        Generator& gen = g.core();
        const Value node = ToValue()(expr);
        if (!node.is_map()) raise(ErrorKind::kType, "expr must be a dict");
        if (eval_index_expr.is_none()) return gen._multi_indexed_var_name(node, to_env(env), nullptr);
        const IndexEvaluator callback = [eval_index_expr](const Value& dim, const Map& scope) {
          ToPython py;
          return ToValue()(
              nb::borrow(eval_index_expr)(py(dim), py(Value::map(std::make_shared<Map>(scope)))));
        };
        return gen._multi_indexed_var_name(node, to_env(env), &callback);
      },
      "expr"_a.none(), "env"_a.none(), "eval_index_expr"_a.none() = nb::none());
  cls.def(
      "_add_variable",
      [](PyGenerator& g, const std::string& base, nb::handle lower, nb::handle upper) {
        auto [name, column] = g.core()._add_variable(base, ToValue()(lower), ToValue()(upper));
        return nb::make_tuple(name, column);
      },
      "base_name"_a, "lower"_a.none() = 0.0, "upper"_a.none() = 1.0);
  cls.def(
      "_is_tuple_indexed",
      [](PyGenerator& g, nb::handle decl) {
        const Value d = ToValue()(decl);
        return g.core()._is_tuple_indexed(d.is_map() ? d.as_map() : nullptr);
      },
      "decl"_a.none());
  cls.def(
      "_extract_field_access_index",
      [](PyGenerator& g, nb::handle dim, nb::handle env) {
        Generator& gen = g.core();
        return ToPython()(gen._extract_field_access_index(ToValue()(dim), to_env(env)));
      },
      "dim"_a, "env"_a.none());
  cls.def(
      "_extract_tuple_index",
      [](PyGenerator& g, nb::handle dim, nb::handle env) {
        Generator& gen = g.core();
        return ToPython()(gen._extract_tuple_index(ToValue()(dim), to_env(env)));
      },
      "dim"_a, "env"_a.none());
  cls.def(
      "_extract_normal_index",
      [](PyGenerator& g, nb::handle dim, nb::handle env) {
        Generator& gen = g.core();
        return ToPython()(gen._extract_normal_index(ToValue()(dim), to_env(env)));
      },
      "dim"_a, "env"_a.none());
  cls.def(
      "_normalize_index_for_varname", [](PyGenerator&, nb::handle idx) { return nb::borrow(idx); },
      "idx"_a.none());
  cls.def(
      "_unroll_iterators",
      [](PyGenerator& g, nb::handle iterators, nb::handle env) {
        Generator& gen = g.core();
        const std::optional<Env> scope = env.is_none() ? std::nullopt : std::optional<Env>(to_env(env));
        const auto [vars, ranges] =
            gen._unroll_iterators(to_value_list(iterators, "iterators"), scope ? &*scope : nullptr);
        ToPython py;
        nb::list loop_vars;
        for (const Value& v : vars) loop_vars.append(py(v));
        nb::list loop_ranges;
        for (const ValueVec& r : ranges) loop_ranges.append(py(Value::list(r)));
        return nb::make_tuple(loop_vars, loop_ranges);
      },
      "iterators"_a, "env"_a.none() = nb::none());
  cls.def(
      "_iterate_iterators_dynamic",
      [](PyGenerator& g, nb::handle iterators, nb::handle outer_env) {
        Generator& gen = g.core();
        nb::list out;
        gen.iterate_iterators_dynamic(
            to_value_list(iterators, "iterators"), to_env(outer_env),
            [&out](const Env& env, const ValueVec& idx) {
              ToPython py;
              out.append(nb::make_tuple(py(Value::map(std::make_shared<Map>(env))), py(Value::tuple(idx))));
            });
        return out;
      },
      "iterators"_a, "outer_env"_a.none());
  cls.def(
      "_eval_bound_dynamic",
      [](PyGenerator& g, nb::handle expr, nb::handle env) {
        Generator& gen = g.core();
        return gen._eval_bound_dynamic(ToValue()(expr), to_env(env));
      },
      "expr"_a.none(), "env"_a.none());
  cls.def(
      "_should_include_sum_term",
      [](PyGenerator& g, nb::handle loop_vars, nb::handle idx_tuple, nb::handle tuple_set_names,
         nb::handle env, nb::handle index_constraint, nb::handle /*expr*/, nb::handle /*eval_env*/) {
        Generator& gen = g.core();
        ValueVec names;
        for (nb::handle n : nb::iter(tuple_set_names)) names.push_back(ToValue()(n));
        const std::optional<Env> scope = env.is_none() ? std::nullopt : std::optional<Env>(to_env(env));
        auto [env2, keep] = gen._should_include_sum_term(
            to_value_list(loop_vars, "loop_vars"), to_value_list(idx_tuple, "idx_tuple"), names,
            scope ? &*scope : nullptr, ToValue()(index_constraint));
        return nb::make_tuple(ToPython()(Value::map(std::make_shared<Map>(std::move(env2)))), keep);
      },
      "loop_vars"_a, "idx_tuple"_a, "tuple_set_names"_a, "env"_a.none(), "index_constraint"_a.none(),
      "expr"_a.none(), "eval_env"_a.none() = nb::none());
  cls.def(
      "_emit_python_expr",
      [](PyGenerator& g, nb::handle expr, nb::handle env) {
        Generator& gen = g.core();
        return gen._emit_python_expr(ToValue()(expr), to_env(env));
      },
      "expr"_a.none(), "env"_a.none() = nb::none());
  cls.def(
      "_emit_symbolic_expr",
      [](PyGenerator& g, nb::handle expr) { return g.core()._emit_symbolic_expr(ToValue()(expr)); },
      "expr"_a.none());
  cls.def(
      "_traverse_expression",
      [](PyGenerator& g, nb::handle expr) { return g.core()._traverse_expression(ToValue()(expr)); },
      "expr"_a.none());
  cls.def(
      "_resolve_tuple_field",
      [](PyGenerator& g, nb::handle tuple_type, nb::handle field, nb::handle tuple_val) {
        Generator& gen = g.core();
        return ToPython()(
            gen._resolve_tuple_field(ToValue()(tuple_type), ToValue()(field), ToValue()(tuple_val)));
      },
      "tuple_type"_a.none(), "field"_a.none(), "tuple_val"_a.none());
  cls.def(
      "_get_tuple_set_names",
      [](PyGenerator& g, nb::handle iterators) {
        ToPython py;
        nb::object out = nb::steal(PySet_New(nullptr));
        for (const Value& n : g.core()._get_tuple_set_names(to_value_list(iterators, "iterators"))) {
          if (PySet_Add(out.ptr(), py(n).ptr()) != 0) throw nb::python_error();
        }
        return out;
      },
      "iterators"_a);
  cls.def(
      "_resolve_tuple_index_varname",
      [](PyGenerator& g, const std::string& vname) { return g.core()._resolve_tuple_index_varname(vname); },
      "vname"_a);
  cls.def(
      "_handle_tuple_type_declaration",
      [](PyGenerator& g, nb::handle decl) {
        const Value d = ToValue()(decl);
        if (!d.is_map()) raise(ErrorKind::kType, "decl must be a dict");
        g.core()._handle_tuple_type_declaration(*d.as_map());
      },
      "decl"_a);
  cls.def(
      "_infer_var_bounds",
      [](PyGenerator& g, const std::string& vname) {
        const auto [lower, upper] = g.core()._infer_var_bounds(vname);
        ToPython py;
        return nb::make_tuple(py(lower), py(upper));
      },
      "vname"_a);
  cls.def("_get_param_decl_map", [](PyGenerator& g) {
    nb::dict out;
    ToPython py;
    for (const auto& [name, decl] : g.core()._get_param_decl_map())
      out[nb::str(name.c_str(), name.size())] = py(Value::map(decl));
    return out;
  });
  cls.def(
      "_accumulate_sum_to_dict",
      [](PyGenerator& g, nb::handle expr, nb::handle env, double sign) {
        Generator& gen = g.core();
        const auto [coefs, constant] = gen._accumulate_sum_to_dict(ToValue()(expr), to_env(env), sign);
        nb::dict out;
        for (const KeyedCoefs::Item& item : coefs.items()) {
          if (item.first.is_column) {
            out[nb::int_(item.first.column)] = item.second;
          } else {
            out[nb::str(item.first.name.c_str(), item.first.name.size())] = item.second;
          }
        }
        return nb::make_tuple(out, constant);
      },
      "expr"_a.none(), "env"_a.none(), "sign"_a = 1.0);
  cls.def(
      "_big_m_for_comparison",
      [](PyGenerator& g, nb::handle comp, nb::handle env) {
        Generator& gen = g.core();
        const Env scope = to_env(env);
        return gen._big_m_for_comparison(ToValue()(comp), &scope);
      },
      "comp"_a.none(), "env"_a.none() = nb::none());
  cls.def_static(
      "_strict_adjusted_rhs",
      [](const std::string& op, double rhs) {
        const auto [adjusted, value] = Generator::_strict_adjusted_rhs(op, rhs);
        return nb::make_tuple(adjusted, value);
      },
      "op"_a, "rhs_value"_a);
  cls.def_static(
      "_is_linear_comparison",
      [](nb::handle node) { return Generator::_is_linear_comparison(ToValue()(node)); }, "node"_a.none());
  cls.def_static(
      "_flatten_bool",
      [](nb::handle node, const std::string& target) {
        return ToPython()(Value::list(Generator::_flatten_bool(ToValue()(node), target)));
      },
      "node"_a.none(), "target_type"_a);
  cls.def(
      "_linear_bounds_safe",
      [](PyGenerator& g, nb::handle node) {
        const auto [lo, up] = g.core()._linear_bounds_safe(ToValue()(node));
        ToPython py;
        return nb::make_tuple(py(lo), py(up));
      },
      "node"_a.none());
  cls.def(
      "_var_bounds_safe",
      [](PyGenerator& g, nb::handle node) {
        const auto [lo, up] = g.core()._var_bounds_safe(ToValue()(node));
        ToPython py;
        return nb::make_tuple(py(lo), py(up));
      },
      "node"_a.none());
  cls.def(
      "_make_constraint_row",
      [](PyGenerator& g, nb::handle coef_dict) {
        Generator& gen = g.core();
        std::vector<double> row(gen.var_names.size(), 0.0);
        const Value coefs = ToValue()(coef_dict);
        for (const Map::Item& item : coefs.as_map()->items()) {
          if (!item.first.is_str()) continue;
          if (const std::optional<std::int64_t> it = gen.var_indices.find(item.first.as_str());
              it.has_value()) {
            row[static_cast<std::size_t>(*it)] += py_float(item.second);
          }
        }
        return row;
      },
      "coef_dict"_a);
  cls.def(
      "_update_vector_from_coef_dict",
      [](PyGenerator& g, nb::handle coef_dict, nb::list vector, nb::handle op) {
        Generator& gen = g.core();
        std::vector<double> values;
        for (nb::handle v : vector) values.push_back(nb::cast<double>(v));
        CoefDict coefs;
        const Value coefs_value = ToValue()(coef_dict);
        for (const Map::Item& item : coefs_value.as_map()->items()) {
          if (item.first.is_str()) coefs.set(item.first.as_str(), py_float(item.second));
        }
        const std::string how = op.is_none() ? std::string() : nb::cast<std::string>(op);
        gen._update_vector_from_coef_dict(coefs, values, how);
        for (std::size_t i = 0; i < values.size(); ++i) vector[i] = values[i];
      },
      "coef_dict"_a, "vector"_a, "op"_a.none() = nb::none());
  cls.def(
      "_finalize_constraint_state",
      [](PyGenerator& g, const ConstraintBuildState& state) { g.core()._finalize_constraint_state(state); },
      "state"_a);
  cls.def(
      "_append_sparse_row",
      [](PyGenerator& g, ConstraintBuildState& state, const std::vector<double>& row, double rhs,
         const std::string& sense) {
        g.core();
        std::vector<std::pair<std::int64_t, double>> entries;
        for (std::size_t col = 0; col < row.size(); ++col)
          entries.emplace_back(static_cast<std::int64_t>(col), row[col]);
        append_sparse_row(state, entries, rhs, sense);
      },
      "state"_a, "row"_a, "rhs"_a, nb::kw_only(), "sense"_a);
  cls.def(
      "_append_sparse_coef_row",
      [](PyGenerator& g, ConstraintBuildState& state, nb::handle coef_by_var, double rhs,
         const std::string& sense) {
        Generator& gen = g.core();
        std::vector<double> row(gen.var_names.size(), 0.0);
        const Value coefs_value = ToValue()(coef_by_var);
        for (const Map::Item& item : coefs_value.as_map()->items()) {
          if (!item.first.is_str()) continue;
          if (const std::optional<std::int64_t> it = gen.var_indices.find(item.first.as_str());
              it.has_value()) {
            row[static_cast<std::size_t>(*it)] += py_float(item.second);
          }
        }
        std::vector<std::pair<std::int64_t, double>> entries;
        for (std::size_t col = 0; col < row.size(); ++col)
          entries.emplace_back(static_cast<std::int64_t>(col), row[col]);
        append_sparse_row(state, entries, rhs, sense);
      },
      "state"_a, "coef_by_var"_a, "rhs"_a, nb::kw_only(), "sense"_a);
  cls.def("_ensure_aux_binary",
          [](PyGenerator& g, const std::string& base) { return g.core()._ensure_aux_binary(base); });
  bind_logic_helpers(cls);
}

void bind_build_state(nb::module_& m) {
  nb::class_<ConstraintBuildState> cls(m, "_ConstraintBuildState");
  cls.def(nb::init<>());
  cls.def_rw("A_eq_rows", &ConstraintBuildState::A_eq_rows);
  cls.def_rw("A_eq_cols", &ConstraintBuildState::A_eq_cols);
  cls.def_rw("A_eq_data", &ConstraintBuildState::A_eq_data);
  cls.def_rw("b_eq", &ConstraintBuildState::b_eq);
  cls.def_rw("A_ub_rows", &ConstraintBuildState::A_ub_rows);
  cls.def_rw("A_ub_cols", &ConstraintBuildState::A_ub_cols);
  cls.def_rw("A_ub_data", &ConstraintBuildState::A_ub_data);
  cls.def_rw("b_ub", &ConstraintBuildState::b_ub);
  cls.def_rw("eq_row_idx", &ConstraintBuildState::eq_row_idx);
  cls.def_rw("ub_row_idx", &ConstraintBuildState::ub_row_idx);
}

void bind_evaluator(nb::module_& m) {
  nb::class_<PyEvaluator> cls(m, "ExpressionEvaluator");
  cls.def("__init__", [](PyEvaluator* self, nb::object parent) {
    PyGenerator& owner = nb::cast<PyGenerator&>(parent);
    auto ev = std::make_unique<ExpressionEvaluator>(*owner.gen);
    ExpressionEvaluator* raw = ev.get();
    new (self) PyEvaluator{std::move(parent), std::move(ev), raw};
  });
  cls.def_prop_ro("parent", [](PyEvaluator& e) { return e.parent; });
  cls.def("__eq__", [](PyEvaluator& a, nb::handle b) {
    return nb::isinstance<PyEvaluator>(b) && nb::cast<PyEvaluator&>(b).ev == a.ev;
  });
  cls.def("__hash__", [](PyEvaluator& e) { return reinterpret_cast<std::uintptr_t>(e.ev); });
  cls.def(
      "eval",
      [](PyEvaluator& e, nb::handle expr, nb::handle env) {
        ExpressionEvaluator& ev = e.core();
        const Value node = ToValue()(expr);
        if (env.is_none()) return ToPython().result(ev.eval(node, nullptr));
        const Env scope = to_env(env);
        return ToPython().result(ev.eval(node, &scope));
      },
      "expr"_a.none(), "env"_a.none() = nb::none());
  cls.def(
      "_eval_index_expr",
      [](PyEvaluator& e, nb::handle dim, nb::handle env) {
        ExpressionEvaluator& ev = e.core();
        return ToPython().result(ev._eval_index_expr(ToValue()(dim), to_env(env)));
      },
      "dim_expr"_a.none(), "env"_a.none());
}

}  // namespace

}  // namespace kolva::bindings

NB_MODULE(_engine, m) {
  using namespace kolva::bindings;
  g_semantic_error =
      nb::object(nb::module_::import_("kolva.semantic_error").attr("SemanticError")).release().ptr();
  g_linear_problem =
      nb::object(nb::module_::import_("kolva.linear_problem").attr("LinearProblem")).release().ptr();
  g_sparse_row_sequence =
      nb::object(nb::module_::import_("kolva.linear_problem").attr("SparseRowSequence")).release().ptr();
  nb::register_exception_translator(translate_error);
  m.attr("BIG_M_DEFAULT") = kolva::kBigMDefault;
  m.attr("BOOL_EPS") = kolva::kBoolEps;
  bind_value_hooks(m);
  bind_build_state(m);
  bind_generator(m);
  bind_evaluator(m);
  bind_opl(m);
}
