#include "opl/frontend.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unordered_map>
#include <utility>

#include "model/map.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"
#include "opl/dat_reader.hpp"
#include "opl/data_eval.hpp"
#include "opl/derived.hpp"
#include "opl/lower_nodes.hpp"
#include "opl/lowering.hpp"
#include "opl/parser.hpp"
#include "opl/symbols.hpp"

namespace kolva::opl {

namespace {

IncludeReader include_reader(SourceSet& sources) {
  return [&sources](const Place& at, const std::string& path) -> const SourceFile& {
    namespace fs = std::filesystem;
    fs::path p(path);
    if (p.is_relative() && at.file != nullptr) p = fs::path(at.file->name()).parent_path() / p;
    std::ifstream in(p, std::ios::binary);
    if (!in) fail_at(at, "cannot read the included file '" + p.string() + "'");
    std::ostringstream text;
    text << in.rdbuf();
    return sources.add(p.string(), text.str());
  };
}

struct ParsedModel {
  Model model;
  SymbolTable symbols;
  LoweredModel lowered;
};

ParsedModel read_model(SourceSet& sources, const SourceInput& input) {
  const SourceFile& file = sources.add(input.name, input.text);
  ParsedModel pm;
  pm.model = parse_model_source(file, include_reader(sources));
  pm.symbols = resolve(pm.model);
  pm.lowered = lower_model(pm.model, pm.symbols);
  return pm;
}

struct DataSource {
  const SourceFile* file;
  DatItem item;
};

// Evaluates the model's data declarations in order, from the .dat items and
// the model's own expressions, into the generator's data dictionary.
class DataLoader {
 public:
  DataLoader(ParsedModel& pm, std::unordered_map<std::string, DataSource> items)
      : pm_(pm), items_(std::move(items)), eval_(pm.symbols) {}

  Value run() {
    check_items_are_declared();
    for (Symbol* s : pm_.symbols.in_order()) load_symbol(*s);
    std::unordered_map<std::string, Value> hidden;
    for (const Lifted& l : pm_.lowered.lifted) {
      Value v = compute_lifted(l, eval_, hidden);
      hidden.emplace(l.name, v);
      data_->set(l.name, l.kind == Lifted::Kind::kDomain ? v : generator_keys(v));
    }
    if (!pm_.lowered.ground_domains.empty()) ground_domain_rows();
    return Value::map(data_);
  }

 private:
  // One `var <= number` / `var >= number` row per element: the form that the
  // big-M estimates of logical rows read bounds from.
  void ground_domain_rows() {
    ValueVec rows;
    for (const Decl* d : pm_.lowered.ground_domains) {
      const Symbol& s = *pm_.symbols.find(d->name);
      std::vector<Value> keys;
      ground_level(*d, s, 0, keys, rows);
    }
    ValueVec& all = pm_.lowered.tree.as_map()->find("constraints")->list_items();
    const auto begin = all.begin() + static_cast<std::ptrdiff_t>(pm_.lowered.domain_rows_begin);
    const auto end = all.begin() + static_cast<std::ptrdiff_t>(pm_.lowered.domain_rows_end);
    all.erase(begin, end);
    all.insert(all.begin() + static_cast<std::ptrdiff_t>(pm_.lowered.domain_rows_begin), rows.begin(),
               rows.end());
  }

  void ground_level(const Decl& d, const Symbol& s, std::size_t k, std::vector<Value>& keys, ValueVec& rows) {
    if (k < d.dims.size()) {
      const DimSpec& dim = d.dims[k];
      for (const Value& key : eval_.members(eval_.eval(*dim.domain), dim.domain->place)) {
        std::size_t bound = 0;
        if (!dim.iterator.empty()) {
          eval_.bind(dim.iterator, key, eval_.tuple_type_of(*dim.domain));
          bound = 1;
        }
        keys.push_back(key);
        ground_level(d, s, k + 1, keys, rows);
        keys.pop_back();
        eval_.unbind(bound);
      }
      return;
    }
    Value var = node({{"type", Value::str("name")}, {"value", Value::str(d.name)}});
    if (!keys.empty()) {
      ValueVec dims;
      for (const Value& key : keys) dims.push_back(index_literal(key));
      var = node({{"type", Value::str("indexed_name")},
                  {"name", Value::str(d.name)},
                  {"dimensions", Value::list(std::move(dims))}});
    }
    add_ground_row(var, d.lower.get(), ">=", rows);
    add_ground_row(var, d.upper.get(), "<=", rows);
  }

  static Value index_literal(const Value& key) {
    if (key.is_tuple()) {
      ValueVec elems;
      for (const Value& k : key.items()) elems.push_back(index_literal(k));
      return node({{"type", Value::str("tuple_literal")}, {"elements", Value::list(std::move(elems))}});
    }
    if (key.is_str()) return node({{"type", Value::str("string_literal")}, {"value", key}});
    return node({{"type", Value::str("number_literal_index")}, {"value", key}});
  }

  void add_ground_row(const Value& var, const Expr* bound, const char* op, ValueVec& rows) {
    if (bound == nullptr) return;
    const Value v = eval_.eval(*bound);
    if (!v.is_number()) fail_at(bound->place, "a variable bound must be a number, got " + py_repr(v));
    if (std::isinf(py_float(v))) return;
    Value row = node({{"type", Value::str("constraint")},
                      {"op", Value::str(op)},
                      {"left", deep_copy(var)},
                      {"right", node({{"type", Value::str("number")}, {"value", v}})}});
    row.as_map()->set("opl_source", Value::str(bound->place.text()));
    rows.push_back(row);
  }

 public:
 private:
  void check_items_are_declared() {
    for (const auto& [name, src] : items_) {
      const Symbol* s = pm_.symbols.find(name);
      if (s == nullptr) fail_at(src.item.place, "'" + name + "' is not declared in the model");
      if (!s->is_data()) {
        fail_at(src.item.place, "'" + name + "' is a " + kind_word(s->kind) + " and cannot be given data");
      }
      if (!s->decl->external) {
        fail_at(src.item.place, "'" + name + "' already has a value in the model (at " +
                                    s->decl->place.text() +
                                    "); declare it with '= ...' to read it from data");
      }
    }
  }

  const DataSource& source_of(const Symbol& s) {
    auto it = items_.find(s.name);
    if (it == items_.end()) {
      fail_at(s.decl->place,
              "no data for '" + s.name + "': it is declared with '= ...' but no .dat file gives it");
    }
    return it->second;
  }

  void load_symbol(Symbol& s) {
    const Decl& d = *s.decl;
    switch (s.kind) {
      case SymKind::kRange:
        return load_range(s, d);
      case SymKind::kSet:
        return load_set(s, d);
      case SymKind::kParam:
        return load_param(s, d);
      default:
        return;
    }
  }

  // What the declaration says its data must look like.
  static DataShape shape_of(const Symbol& s, DataShape::Kind kind) {
    DataShape shape;
    shape.kind = kind;
    shape.name = s.name;
    shape.declared_at = s.decl->place;
    shape.elem = s.elem;
    shape.array_of_sets = s.array_of_sets;
    shape.dims = s.dims;
    return shape;
  }

  Value read_item(const Symbol& s, const DataShape& shape) {
    const DataSource& src = source_of(s);
    return shape_item(*src.file, src.item, shape);
  }

  void load_range(Symbol& s, const Decl& d) {
    if (d.external) {
      s.value = read_item(s, shape_of(s, DataShape::Kind::kRange));
    } else {
      s.value = eval_.eval(*d.value);
    }
    s.evaluated = true;
    for (int which = 0; which < 2; ++which) {
      if (range_bound_is_hidden(d, which)) {
        data_->set(range_bound_name(s.name, which),
                   Value::integer(which == 0 ? range_start(s.value) : range_end(s.value)));
      }
    }
  }

  void load_set(Symbol& s, const Decl& d) {
    if (d.external) {
      s.value = read_item(s, shape_of(s, DataShape::Kind::kSet));
    } else if (d.value) {
      s.value = typed_members(s, eval_.eval(*d.value), d.value->place);
    } else {
      s.value = Value::list(ValueVec{});
    }
    s.evaluated = true;
    data_->set(script_data_name(s.name, pm_.symbols), s.value);
  }

  Value typed_members(const Symbol& s, const Value& v, const Place& at) {
    ValueVec out;
    for (const Value& m : eval_.members(v, at))
      out.push_back(coerce_to(s.elem, m, at, "set '" + s.name + "'"));
    return Value::list(std::move(out));
  }

  std::vector<DimInfo> dims_of(const Decl& d) {
    std::vector<DimInfo> dims;
    for (const DimSpec& dim_spec : d.dims) {
      DimInfo dim;
      const Value dom = eval_.eval(*dim_spec.domain);
      dim.name = dim_spec.domain->kind == ExprKind::kName ? dim_spec.domain->text : std::string("index set");
      if (is_range_value(dom)) {
        dim.is_range = true;
        dim.start = range_start(dom);
        dim.end = range_end(dom);
      } else {
        dim.members = Value::list(eval_.members(dom, dim_spec.domain->place));
      }
      dims.push_back(std::move(dim));
    }
    return dims;
  }

  void load_param(Symbol& s, const Decl& d) {
    s.dims = dims_of(d);
    if (d.external) {
      s.value =
          read_item(s, shape_of(s, d.dims.empty() ? DataShape::Kind::kScalar : DataShape::Kind::kArray));
    } else if (d.dims.empty()) {
      s.value = coerce_to(s.elem, eval_.eval(*d.value), d.value->place, "'" + s.name + "'");
    } else {
      s.value = generated_array(s, d);
    }
    if (mixes_ranges_and_sets(s.dims)) s.value = maps_throughout(s.value, s.dims, 0);
    s.evaluated = true;
    if (!s.array_of_sets) data_->set(script_data_name(s.name, pm_.symbols), generator_keys(s.value));
  }

  // The generator reads a subscript that is a string of digits ("7") as the
  // integer 7, so entries keyed by such strings are keyed by the integer.
  static Value generator_keys(const Value& v) {
    if (!v.is_map()) return v;
    const auto& items = v.as_map()->items();
    // Most data has no such keys: keep the map as it is unless one level
    // below or this level itself has to change.
    std::vector<Value> inner;
    inner.reserve(items.size());
    bool changed = false;
    for (const auto& [key, item] : items) {
      inner.push_back(generator_keys(item));
      const bool rekeyed = key.is_str() && !generator_subscript(key).is_str();
      changed = changed || rekeyed || inner.back().identity() != item.identity();
    }
    if (!changed) return v;
    MapPtr out = make_map();
    for (std::size_t i = 0; i < items.size(); ++i)
      out->set(generator_subscript(items[i].first), std::move(inner[i]));
    return Value::map(out);
  }

  static bool mixes_ranges_and_sets(const std::vector<DimInfo>& dims) {
    const bool any_range = std::any_of(dims.begin(), dims.end(), [](const DimInfo& d) { return d.is_range; });
    const bool any_set = std::any_of(dims.begin(), dims.end(), [](const DimInfo& d) { return !d.is_range; });
    return any_range && any_set;
  }

  // An array over ranges and sets together is read level by level as maps:
  // the generator checks list data as rectangular lists of numbers, which a
  // list of maps is not. Range levels become maps from index to value.
  static Value maps_throughout(const Value& v, const std::vector<DimInfo>& dims, std::size_t k) {
    if (k == dims.size()) return v;
    MapPtr out = make_map();
    if (v.is_list()) {
      std::int64_t index = dims[k].start;
      for (const Value& item : v.list_items())
        out->set(Value::integer(index++), maps_throughout(item, dims, k + 1));
    } else if (v.is_map()) {
      for (const auto& [key, item] : v.as_map()->items()) out->set(key, maps_throughout(item, dims, k + 1));
    } else {
      return v;
    }
    return Value::map(out);
  }

  // An array written in the model: `[v1, v2]` positionally, or generated
  // `a[i in I] = expr`.
  Value generated_array(const Symbol& s, const Decl& d) {
    const bool generated =
        std::any_of(d.dims.begin(), d.dims.end(), [](const DimSpec& x) { return !x.iterator.empty(); });
    if (!generated) {
      const Value v = eval_.eval(*d.value);
      return shape_positional(s, v, 0, d.value->place);
    }
    return generate_level(s, d, 0);
  }

  Value element_of(const Symbol& s, const Value& v, const Place& at) {
    if (s.array_of_sets) return typed_members(s, v, at);
    return coerce_to(s.elem, v, at, "'" + s.name + "'");
  }

  Value generate_level(const Symbol& s, const Decl& d, std::size_t k) {
    if (k == d.dims.size()) return element_of(s, eval_.eval(*d.value), d.value->place);
    const DimInfo& dim = s.dims[k];
    const std::string& it = d.dims[k].iterator;
    const std::vector<Value> keys = dim_keys(dim, d.dims[k].place);
    ValueVec list;
    MapPtr map = make_map();
    for (const Value& key : keys) {
      std::size_t bound = 0;
      if (!it.empty()) {
        eval_.bind(it, key, eval_.tuple_type_of(*d.dims[k].domain));
        bound = 1;
      }
      Value inner = generate_level(s, d, k + 1);
      eval_.unbind(bound);
      if (dim.is_range && !s.array_of_sets) {
        list.push_back(std::move(inner));
      } else {
        map->set(key, std::move(inner));
      }
    }
    return dim.is_range && !s.array_of_sets ? Value::list(std::move(list)) : Value::map(map);
  }

  std::vector<Value> dim_keys(const DimInfo& dim, const Place& at) {
    if (dim.is_range) return eval_.members(range_value(dim.start, dim.end), at);
    return dim.members.items();
  }

  Value shape_positional(const Symbol& s, const Value& v, std::size_t k, const Place& at) {
    if (k == s.dims.size()) return element_of(s, v, at);
    const DimInfo& dim = s.dims[k];
    if (!v.is_list())
      fail_at(at, "'" + s.name + "' expects an array of " + std::to_string(dim.size()) + " values here");
    const ValueVec& items = v.list_items();
    if (static_cast<std::int64_t>(items.size()) != dim.size()) {
      fail_at(at, "'" + s.name + "' has " + std::to_string(items.size()) + " values but its index set '" +
                      dim.name + "' has " + std::to_string(dim.size()) + " members");
    }
    const std::vector<Value> keys = dim_keys(dim, at);
    ValueVec list;
    MapPtr map = make_map();
    for (std::size_t i = 0; i < items.size(); ++i) {
      Value inner = shape_positional(s, items[i], k + 1, at);
      if (dim.is_range && !s.array_of_sets) {
        list.push_back(std::move(inner));
      } else {
        map->set(keys[i], std::move(inner));
      }
    }
    return dim.is_range && !s.array_of_sets ? Value::list(std::move(list)) : Value::map(map);
  }

  ParsedModel& pm_;
  std::unordered_map<std::string, DataSource> items_;
  DataEval eval_;
  MapPtr data_ = make_map();
};

std::unordered_map<std::string, DataSource> scan_all(SourceSet& sources,
                                                     const std::vector<SourceInput>& data) {
  std::unordered_map<std::string, DataSource> items;
  for (const SourceInput& in : data) {
    const SourceFile& file = sources.add(in.name, in.text);
    for (DatItem& item : scan_dat(file)) {
      auto [it, fresh] = items.try_emplace(item.name, DataSource{&file, item});
      if (!fresh)
        fail_at(item.place, "'" + item.name + "' is already given at " + it->second.item.place.text());
    }
  }
  return items;
}

}  // namespace

ModelResult parse_model(SourceSet& sources, const SourceInput& model) {
  ParsedModel pm = read_model(sources, model);
  return ModelResult{pm.lowered.tree, std::move(pm.lowered.warnings)};
}

Value parse_data(SourceSet& sources, const SourceInput& data, const SourceInput* model) {
  if (model != nullptr) return load(sources, *model, {data}).data;
  const SourceFile& file = sources.add(data.name, data.text);
  MapPtr out = make_map();
  for (const DatItem& item : scan_dat(file)) out->set(item.name, read_untyped(file, item));
  return Value::map(out);
}

LoadResult load(SourceSet& sources, const SourceInput& model, const std::vector<SourceInput>& data) {
  ParsedModel pm = read_model(sources, model);
  Value dict = DataLoader(pm, scan_all(sources, data)).run();
  return LoadResult{pm.lowered.tree, dict, std::move(pm.lowered.warnings)};
}

}  // namespace kolva::opl
