// The data phase: model data checked against its declarations, normalised
// into the shapes later lookups read, written back into the generator's
// data_dict, and emitted as the script's data lines.
#include <string>

#include "data/set_members.hpp"
#include "generator/generator.hpp"
#include "generator/script_names.hpp"
#include "model/int_range.hpp"
#include "model/py_literal.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

std::string type_of(const Map& node) { return py_str(node.get("type")); }

bool is_parameter_kind(const std::string& t) {
  return t == "parameter_external" || t == "parameter_external_indexed" ||
         t == "parameter_external_explicit" || t == "parameter_external_explicit_indexed" ||
         t == "parameter_inline" || t == "parameter_inline_indexed";
}

ValueVec dimensions_of(const Map& decl) {
  const Value dims = decl.get("dimensions", empty_list());
  return dims.is_sequence() ? dims.items() : ValueVec{};
}

// A set's members as data: a map holding `elements` stands for that list.
Value unwrap_elements(const Value& v) {
  if (v.is_map() && v.as_map()->contains("elements")) return v.as_map()->at("elements");
  return v;
}

}  // namespace

// Name -> declaration for every parameter kind; a later namesake wins.
std::vector<std::pair<std::string, MapPtr>> Generator::_get_param_decl_map() {
  std::vector<std::pair<std::string, MapPtr>> out;
  std::unordered_map<std::string, std::size_t> position;
  const Value decls = ast->get("declarations", empty_list());
  for (const Value& entry : decls.items()) {
    if (!entry.is_map() || !is_parameter_kind(type_of(*entry.as_map()))) continue;
    const std::string name = py_str(entry.as_map()->get("name"));
    if (const auto it = position.find(name); it != position.end()) {
      out[it->second].second = entry.as_map();
    } else {
      position.emplace(name, out.size());
      out.emplace_back(name, entry.as_map());
    }
  }
  return out;
}

// Range bounds for shape checks: numbers, names of data values, and + - * //.
Value Generator::range_bound_value(const Value& expr) {
  if (!expr.is_map()) {
    if (expr.is_number()) return expr;
    raise_semantic("Unsupported range bound expr");
  }
  const Map& node = *expr.as_map();
  const std::string type = type_of(node);
  if (type == "number") return node.at("value");
  if (type == "name") {
    const Value* v = data_dict->find(node.at("value"));
    if (v != nullptr && v->is_number()) return *v;
    raise_semantic("Unsupported range bound expr: " + py_str(expr));
  }
  if (type == "binop") {
    const Value l = range_bound_value(node.at("left"));
    const Value r = range_bound_value(node.at("right"));
    const std::string op = py_str(node.at("op"));
    if (op == "+") return py_add(l, r);
    if (op == "-") return py_sub(l, r);
    if (op == "*") return py_mul(l, r);
    if (op == "//" || op == "/") return Value::integer(floor_div(py_int(l), py_int(r)));
    raise_semantic("Unsupported binop in range bound expr: " + op);
  }
  raise_semantic("Unsupported range bound expr: " + py_str(expr));
}

std::pair<std::int64_t, std::int64_t> Generator::get_range_bounds(const std::string& range_name) {
  static const std::string kRangeDecl = "range_declaration_inline";
  const MapPtr range =
      _find_decls(range_name, &kRangeDecl).empty() ? nullptr : _find_decls(range_name, &kRangeDecl)[0];
  if (range == nullptr || !range->contains("start") || !range->contains("end")) {
    raise_semantic("Named range '" + range_name + "' has no bounds.");
  }
  return {py_int(range_bound_value(range->at("start"))), py_int(range_bound_value(range->at("end")))};
}

// The number of members of a set, from its data or its declaration; -1 when
// neither tells.
std::int64_t Generator::declared_set_size(const std::string& set_name) {
  if (const Value* entry = data_dict->find(set_name)) {
    const Value members = unwrap_elements(*entry);
    if (members.is_sequence()) return static_cast<std::int64_t>(members.items().size());
    if (members.is_map()) return static_cast<std::int64_t>(members.as_map()->size());
  }
  for (const MapPtr& decl : _find_decls(set_name)) {
    const std::string kind = type_of(*decl);
    if (kind != "typed_set" && kind != "set_declaration") continue;
    const Value members = unwrap_elements(decl->get("value"));
    if (members.is_sequence()) return static_cast<std::int64_t>(members.items().size());
  }
  return -1;
}

void Generator::check_shape(const Value& param_data, const ValueVec& dims, const std::string& param_name) {
  if (!param_data.is_sequence()) return;
  const ValueVec& rows = param_data.items();
  if (dims.size() == 1 && dims[0].is_map()) {
    const Map& dim = *dims[0].as_map();
    const std::string dim_type = type_of(dim);
    const auto length = static_cast<std::int64_t>(rows.size());
    if (dim_type == "named_range_dimension") {
      const std::string range_name = py_str(dim.at("name"));
      const auto [start, end] = get_range_bounds(range_name);
      const std::int64_t expected = end - start + 1;
      if (length != expected) {
        raise_semantic("Parameter '" + param_name + "' has " + std::to_string(length) +
                       " items but declared range '" + range_name + "' expects " + std::to_string(expected) +
                       ".");
      }
    } else if (dim_type == "named_set_dimension") {
      const std::string set_name = py_str(dim.at("name"));
      const std::int64_t size = declared_set_size(set_name);
      if (size >= 0 && length != size) {
        raise_semantic("Parameter '" + param_name + "' has " + std::to_string(length) +
                       " items but declared set '" + set_name + "' has " + std::to_string(size) +
                       " elements.");
      }
    }
  } else if (dims.size() == 2) {
    bool rectangular = true;
    std::size_t width = 0;
    for (std::size_t i = 0; i < rows.size() && rectangular; ++i) {
      if (!rows[i].is_sequence()) {
        rectangular = false;
      } else if (i == 0) {
        width = rows[i].items().size();
      } else {
        rectangular = rows[i].items().size() == width;
      }
    }
    if (!rectangular)
      raise_semantic("Parameter '" + param_name + "' 2-D data must be rectangular (all rows same length).");
  }
}

// The ordered keys of one dimension of a parameter, when the dimension is a
// named range or a set whose members are known; empty otherwise.
ValueVec Generator::dimension_keys(const Value& dim) {
  if (!dim.is_map()) return {};
  const Map& node = *dim.as_map();
  const std::string dim_type = type_of(node);
  const std::string name = py_str(node.get("name"));
  if (dim_type == "named_range_dimension") {
    const auto [start, end] = get_range_bounds(name);
    return range_members(start, end);
  }
  if (dim_type != "named_set_dimension") return {};
  const MapPtr decl = _find_decl(name);
  if (decl != nullptr && (type_of(*decl) == "set_of_tuples" || type_of(*decl) == "set_of_tuples_external")) {
    return tuple_set_members(name).members;
  }
  if (const Value* entry = data_dict->find(name)) {
    const Value members = unwrap_elements(*entry);
    return members.is_sequence() ? members.items() : ValueVec{};
  }
  if (decl != nullptr) {
    const Value members = unwrap_elements(decl->get("value"));
    return members.is_sequence() ? members.items() : ValueVec{};
  }
  return {};
}

// Two-dimensional parameters over (set or tuple set) x (range or set) become
// {member: {index: float}}, whether the data came as rows or as a map.
void Generator::normalise_two_dimensional(const std::string& name, const ValueVec& dims) {
  if (dims.size() != 2 || !dims[0].is_map() || !dims[1].is_map()) return;
  if (type_of(*dims[0].as_map()) != "named_set_dimension") return;
  const std::string second = type_of(*dims[1].as_map());
  if (second != "named_range_dimension" && second != "named_set_dimension") return;
  const Value* data = data_dict->find(name);
  if (data == nullptr || !(data->is_sequence() || data->is_map())) return;
  const ValueVec outer_keys = dimension_keys(dims[0]);
  const ValueVec inner_keys = dimension_keys(dims[1]);
  const auto row_map = [&](const Value& row) -> Value {
    MapPtr out = make_map();
    if (row.is_sequence()) {
      const ValueVec& cells = row.items();
      if (cells.size() != inner_keys.size()) return Value();
      for (std::size_t j = 0; j < cells.size(); ++j) {
        if (!cells[j].is_number()) return Value();
        out->set(inner_keys[j], Value::real(py_float(cells[j])));
      }
    } else if (row.is_map()) {
      for (const Map::Item& cell : row.as_map()->items()) {
        if (!cell.second.is_number()) return Value();
        out->set(cell.first, Value::real(py_float(cell.second)));
      }
    } else {
      return Value();
    }
    return Value::map(out);
  };
  MapPtr normalised = make_map();
  if (data->is_sequence()) {
    const ValueVec& rows = data->items();
    if (rows.size() != outer_keys.size()) return;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const Value row = row_map(rows[i]);
      if (row.is_none()) return;
      normalised->set(outer_keys[i], row);
    }
  } else {
    for (const Map::Item& item : data->as_map()->items()) {
      const Value row = row_map(item.second);
      if (row.is_none()) return;
      normalised->set(item.first, row);
    }
  }
  data_dict->set(name, Value::map(normalised));
}

namespace {

// Each data item becomes the line `name = value` of the script: a name the
// script itself reads afterwards (an import, `sense`, a builtin it calls)
// would change what the script does, so it is refused before any work.
void refuse_names_the_script_reads(const Map& data) {
  for (const Map::Item& item : data.items()) {
    if (item.first.is_str() && script_reads_name(item.first.as_str())) {
      raise_semantic("Data item " + py_repr(item.first) +
                     " has a name the emitted script itself uses; give it another name.");
    }
  }
}

// Python's parser takes about 200 nested brackets in one expression; data
// lines stay well within that.
constexpr int kMaxLiteralNesting = 100;

// Whether `v`, written as a literal, nests brackets deeper than `limit`.
bool nests_deeper_than(const Value& v, int limit) {
  if (!v.is_sequence() && !v.is_map()) return false;
  if (limit == 0) return true;
  if (v.is_map()) {
    for (const Map::Item& item : v.as_map()->items()) {
      if (nests_deeper_than(item.first, limit - 1) || nests_deeper_than(item.second, limit - 1)) return true;
    }
    return false;
  }
  for (const Value& member : v.items()) {
    if (nests_deeper_than(member, limit - 1)) return true;
  }
  return false;
}

// A data item is one line of the script: one that Python could not parse is
// refused before any work.
void refuse_data_too_deep_for_a_line(const Map& data) {
  for (const Map::Item& item : data.items()) {
    if (nests_deeper_than(item.second, kMaxLiteralNesting)) {
      raise_semantic("Data item " + py_repr(item.first) + " nests deeper than " +
                     std::to_string(kMaxLiteralNesting) +
                     " levels of lists, tuples and dicts, more than one line " + "of the script can hold.");
    }
  }
}

}  // namespace

void Generator::_generate_data_declarations(const MapPtr& data) {
  refuse_names_the_script_reads(*data);
  refuse_data_too_deep_for_a_line(*data);
  const std::vector<std::pair<std::string, MapPtr>> params = _get_param_decl_map();
  // One-dimensional parameters hold one number per key.
  for (const auto& [name, decl] : params) {
    const ValueVec dims = dimensions_of(*decl);
    if (dims.size() != 1 || !dims[0].is_map()) continue;
    const std::string dim_type = type_of(*dims[0].as_map());
    if (dim_type != "named_set_dimension" && dim_type != "named_range_dimension") continue;
    const Value entry = data->get(name);
    if (!entry.is_map()) continue;
    for (const Map::Item& item : entry.as_map()->items()) {
      if (item.second.is_sequence() || item.second.is_map()) {
        raise_semantic("Parameter '" + name + "' declared as 1-D over '" +
                       py_str(dims[0].as_map()->get("name")) +
                       "' expects scalar values per key, but data provides an array for key " +
                       py_repr(item.first) + ". Use scalar values (e.g., 2.0), not [2.0].");
      }
    }
  }
  for (const auto& [name, decl] : params) {
    const ValueVec dims = dimensions_of(*decl);
    if (dims.empty()) continue;
    const Value entry = data->get(name);
    if (const auto converted = _convert_flat_kv_to_dict(entry)) {
      data->set(name, Value::map(*converted));
      continue;
    }
    if (entry.is_sequence()) check_shape(entry, dims, name);
  }
  for (const auto& [name, decl] : params) normalise_two_dimensional(name, dimensions_of(*decl));
  std::vector<std::string> index_lines;
  const Value decls = ast->get("declarations", empty_list());
  for (const Value& entry : decls.items()) {
    if (!entry.is_map()) continue;
    const Map& decl = *entry.as_map();
    const std::string kind = type_of(decl);
    if (kind == "tuple_type") {
      _handle_tuple_type_declaration(decl);
    } else if (kind == "set_of_tuples") {
      const std::string name = py_str(decl.at("name"));
      if (data->contains(name) || decl.contains("value")) {
        data->set(name, Value::list(tuple_set_members(name).members));
      }
    } else if (kind == "typed_set" || kind == "typed_set_external") {
      const std::string name = py_str(decl.at("name"));
      if (!data->contains(name) && decl.contains("value") && !decl.get("value").is_none()) {
        data->set(name, decl.at("value"));
      }
      index_lines.push_back(name);
    } else if (kind == "tuple_array" || kind == "tuple_array_external") {
      normalise_tuple_array(decl);
    } else if (kind == "parameter_inline_indexed") {
      normalise_inline_tuple_parameter(decl);
    }
  }
  list_starts_.clear();
  _add_code_line("# Data from .dat file");
  for (const Map::Item& item : std::vector<Map::Item>(data->items())) {
    const std::string name = py_str(item.first);
    for (const auto& [param_name, decl] : params) {
      if (param_name == name && item.second.is_sequence())
        check_shape(item.second, dimensions_of(*decl), name);
    }
    // A name that is no identifier still gets a line that runs.
    std::string data_line = is_python_identifier(name) ? name : "globals()[" + py_repr(item.first) + "]";
    data_line += " = ";
    data_line += py_literal(item.second);
    _add_code_line(std::move(data_line));
    bool wants_index = false;
    for (const std::string& n : index_lines) wants_index = wants_index || n == name;
    if (!wants_index || !is_python_identifier(name)) continue;
    const Value members = unwrap_elements(item.second);
    if (!members.is_sequence()) continue;
    bool simple = true;
    for (const Value& m : members.items()) simple = simple && (m.is_str() || m.is_int());
    if (!simple) continue;
    std::string index_line = name;
    index_line += "_index = {v: i for i, v in enumerate(";
    index_line += name;
    index_line += ")}";
    _add_code_line(std::move(index_line));
  }
}

// A tuple array's entries {member: [f1, f2, ...]} become {member: {field: value}}.
void Generator::normalise_tuple_array(const Map& decl) {
  const std::string name = py_str(decl.at("name"));
  const Value* entry = data_dict->find(name);
  if (entry == nullptr || !entry->is_map() || tuple_types == nullptr) return;
  const Value* fields = tuple_types->find(decl.at("tuple_type"));
  if (fields == nullptr || !fields->is_sequence()) return;
  ValueVec field_names;
  for (const Value& f : fields->items())
    field_names.push_back(f.is_map() ? f.as_map()->get("name") : Value());
  MapPtr structured = make_map();
  for (const Map::Item& item : entry->as_map()->items()) {
    if (!item.second.is_sequence() || item.second.items().size() != field_names.size()) {
      structured->set(item.first, item.second);
      continue;
    }
    MapPtr record = make_map();
    for (std::size_t i = 0; i < field_names.size(); ++i) record->set(field_names[i], item.second.items()[i]);
    structured->set(item.first, Value::map(record));
  }
  data_dict->set(name, Value::map(structured));
}

// An inline array over a tuple set, given as a list in member order, becomes
// a map keyed by the member tuples.
void Generator::normalise_inline_tuple_parameter(const Map& decl) {
  const std::string name = py_str(decl.at("name"));
  if (data_dict->contains(name)) return;
  const ValueVec dims = dimensions_of(decl);
  const Value value = decl.get("value");
  if (dims.size() != 1 || !dims[0].is_map() || !value.is_list()) return;
  const std::string set_name = py_str(dims[0].as_map()->get("name"));
  const MapPtr set_decl = _find_decl(set_name);
  if (set_decl == nullptr ||
      (type_of(*set_decl) != "set_of_tuples" && type_of(*set_decl) != "set_of_tuples_external")) {
    return;
  }
  const ValueVec& members = tuple_set_members(set_name).members;
  if (members.size() != value.items().size()) return;
  MapPtr keyed = make_map();
  for (std::size_t i = 0; i < members.size(); ++i) {
    keyed->set(members[i].is_tuple() ? members[i] : Value::tuple({members[i]}), value.items()[i]);
  }
  data_dict->set(name, Value::map(keyed));
}

}  // namespace kolva
