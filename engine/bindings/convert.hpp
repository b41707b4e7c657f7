#pragma once

#include <nanobind/nanobind.h>

#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "evaluator/eval_result.hpp"
#include "generator/generator.hpp"
#include "model/nesting_limit.hpp"
#include "model/value.hpp"

namespace kolva::bindings {

namespace nb = nanobind;

// Python objects -> Values. One converter per call keeps shared sub-objects
// shared; a reference cycle or nesting deeper than kMaxNesting is refused.
class ToValue {
 public:
  static constexpr int kMaxNesting = kolva::kMaxNesting;
  // A tree that shares parts is walked as if written out: past this many
  // nodes written out, and sixteen times its distinct nodes, it is refused
  // (a part doubled at every level of a chain grows exponentially).
  static constexpr std::uint64_t kMaxWrittenOut = 10'000'000;
  static constexpr std::uint64_t kMaxSharingFactor = 16;

  Value operator()(nb::handle obj);

 private:
  Value convert(PyObject* obj, int depth);
  Value convert_container(PyObject* obj, int depth);
  [[noreturn]] void refuse_nesting() const;

  // The keys and positions from the root to the value being converted, to
  // say where input nests too deeply.
  std::vector<PyObject*> path_;

  // Nodes of the last value converted, written out (a scalar is one), and
  // the distinct nodes converted so far.
  std::uint64_t written_out_ = 0;
  std::uint64_t distinct_ = 0;

  struct Converted {
    Value value;
    std::uint64_t written_out;
  };
  std::unordered_map<PyObject*, Converted> done_;
  std::unordered_set<PyObject*> open_;
  std::vector<nb::object> keep_;  // every container seen, alive while its address is a key
};

// Values -> Python objects, keeping shared lists and maps shared.
class ToPython {
 public:
  nb::object operator()(const Value& v);
  nb::object coef(const CoefDict& coef);
  nb::object result(const EvalResult& r);

 private:
  // Each entry keeps its Value alive, so an address is never reused for a
  // different container while this converter runs.
  std::unordered_map<const void*, std::pair<Value, nb::object>> done_;
};

MapPtr to_map_or_empty(nb::handle obj, const char* what);
ValueVec to_value_list(nb::handle obj, const char* what);

}  // namespace kolva::bindings
