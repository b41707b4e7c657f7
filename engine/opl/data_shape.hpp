#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/value.hpp"
#include "opl/source.hpp"

// What the model says a data item must look like, so that the data reader can
// check a value and give it the shape the generator reads.
namespace kolva::opl {

struct TupleInfo;

// The type of one scalar or set element.
struct ElemType {
  enum class Base : std::uint8_t { kInt, kFloat, kString, kBool, kTuple };
  Base base = Base::kFloat;
  const TupleInfo* tuple = nullptr;  // for kTuple
  // Name as the model wrote it, for messages: "int", "float", "Arc".
  std::string spelling() const;
};

struct TupleField {
  std::string name;
  ElemType type;
};

struct TupleInfo {
  std::string name;
  Place place;
  std::vector<TupleField> fields;
  // Position of a field by name; -1 when absent.
  int field_index(const std::string& field) const;
};

// One index set of an array, already evaluated.
struct DimInfo {
  std::string name;  // the range's or set's name, or its written text ("1..3")
  bool is_range = false;
  std::int64_t start = 0;  // for ranges, both inclusive
  std::int64_t end = -1;
  Value members;  // for sets: a list of members (tuples for tuple sets)

  std::int64_t size() const;
};

// The declared shape of one data item.
struct DataShape {
  enum class Kind : std::uint8_t {
    kScalar,  // int n, float f, string s, boolean b, or a tuple value
    kSet,     // {int} S, {string} S, {Arc} S (set of `elem`)
    kRange,   // range R
    kArray,   // elem a[dims], or an array of sets when `array_of_sets`
  };
  Kind kind = Kind::kScalar;
  std::string name;
  Place declared_at;
  ElemType elem;
  bool array_of_sets = false;
  std::vector<DimInfo> dims;
};

}  // namespace kolva::opl
