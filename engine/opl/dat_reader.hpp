#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "model/value.hpp"
#include "opl/data_shape.hpp"
#include "opl/source.hpp"

// Reading .dat files. The read is in two steps so that items can come in any
// order: `scan_dat` finds each `name = value;` item and where its value text
// lies, and `shape_item` reads that text once the model has said what the
// item must be (its sets may come later in the file, or from another file).
namespace kolva::opl {

struct DatItem {
  std::string name;
  Place place;              // of the name
  Place value_place;        // of the first token of the value
  std::size_t value_begin;  // byte offsets of the value text in the file
  std::size_t value_end;
};

// All items of one .dat file, in file order. Syntax errors, and the
// spreadsheet and database constructs, are errors at their place.
std::vector<DatItem> scan_dat(const SourceFile& file);

// The item's value in the shape the generator reads for `shape`:
// - scalars: int, float (ints widened), string, bool; tuples as tuples;
// - sets: a list of distinct members in the written order;
// - ranges: {"type": "range_data", "start": a, "end": b};
// - arrays: per dimension, a list (over a range, from its start) or a map
//   from member to value (over a set; tuple members are tuple keys); data may
//   be written positionally `[ ... ]` (in the set's order) or by key `#[ k: v ]#`.
// Every mismatch (wrong type, wrong count, unknown key, missing key, a
// duplicate) is an error at the place in the .dat file, naming the item.
Value shape_item(const SourceFile& file, const DatItem& item, const DataShape& shape);

// The item's value read without a declaration (for parse_data without a
// model): numbers, strings, sets and arrays as lists, tuples as tuples,
// `#[ ]#` as maps, ranges as range_data maps.
Value read_untyped(const SourceFile& file, const DatItem& item);

}  // namespace kolva::opl
