// What a name with subscripts stands for: a decision variable, a data
// parameter or an inline parameter of the model, tried in that order.
#include <cctype>
#include <string>

#include "data/index_text.hpp"
#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

std::string indices_text(const ValueVec* indices) {
  return indices == nullptr ? std::string("None") : repr_list(*indices);
}

std::string not_found_message(const std::string& name, const ValueVec* indices) {
  return "Parameter or variable '" + name + "' with indices " + indices_text(indices) +
         " not found in environment.";
}

bool has_type(const Map& node, std::string_view type) {
  const Value* t = node.find("type");
  return t != nullptr && t->is_str() && t->as_str() == type;
}

bool is_key_like(const Value& v) { return v.is_sequence() || v.is_str(); }

Value as_key(const Value& v) { return v.is_sequence() ? Value::tuple(v.items()) : v; }

// [k1, v1, k2, v2, ...] or [[k1, v1], ...] with keys that can name an entry
// and numeric values; null when the list is not of that shape. The tests stop
// at the first element that fails them.
MapPtr convert_key_value_list(const ValueVec& items) {
  if (!items.empty() && items.size() % 2 == 0) {
    bool ok = true;
    for (std::size_t i = 0; i < items.size() && ok; i += 2) ok = is_key_like(items[i]);
    for (std::size_t i = 1; i < items.size() && ok; i += 2) ok = items[i].is_number();
    if (ok) {
      MapPtr out = make_map();
      for (std::size_t i = 0; i < items.size(); i += 2) out->set(as_key(items[i]), items[i + 1]);
      return out;
    }
  }
  const auto is_pair = [](const Value& v) { return v.is_sequence() && v.items().size() == 2; };
  bool ok = true;
  for (std::size_t i = 0; i < items.size() && ok; ++i) ok = is_pair(items[i]);
  for (std::size_t i = 0; i < items.size() && ok; ++i) ok = is_key_like(items[i].items()[0]);
  for (std::size_t i = 0; i < items.size() && ok; ++i) ok = items[i].items()[1].is_number();
  if (!ok) return nullptr;
  MapPtr out = make_map();
  for (const Value& pair : items) out->set(as_key(pair.items()[0]), pair.items()[1]);
  return out;
}

std::string keys_text(const Map& map) {
  ValueVec keys;
  keys.reserve(map.size());
  for (const Map::Item& item : map.items()) keys.push_back(item.first);
  return repr_list(keys);
}

}  // namespace

LookupResult Generator::_lookup_var_or_param(const std::string& name, const ValueVec* indices, const Env* env,
                                             bool default_zero_if_missing) {
  default_zero_if_missing = default_zero_if_missing || default_zero_override_;
  const Env empty;
  const Env& scope = env != nullptr ? *env : empty;
  if (indices == nullptr) {
    if (const Value* bound = scope.find(name)) return LookupResult::value(*bound);
  }
  if (auto var = _resolve_variable(name, indices)) return *var;
  return lookup_parameter(name, indices, scope, default_zero_if_missing);
}

// The lookup once the name is known not to be a variable: data parameter,
// then inline parameter, then "not found" (or the symbolic name).
LookupResult Generator::lookup_parameter(const std::string& name, const ValueVec* indices, const Env& scope,
                                         bool default_zero_if_missing) {
  default_zero_if_missing = default_zero_if_missing || default_zero_override_;
  try {
    return _resolve_parameter(name, indices, scope, default_zero_if_missing);
  } catch (const Error& err) {
    if (err.kind() != ErrorKind::kSemantic) throw;
  }
  try {
    return _resolve_ast_parameter(name, indices);
  } catch (const Error& err) {
    if (err.kind() != ErrorKind::kSemantic) throw;
  }
  if (!default_zero_if_missing) {
    log_.error([&] { return "[resolve_param_value] SemanticError: " + not_found_message(name, indices); });
    raise_semantic(not_found_message(name, indices));
  }
  if (indices == nullptr) return LookupResult::value(Value::str(name), true);
  std::string symbolic = name + "[";
  for (std::size_t i = 0; i < indices->size(); ++i) {
    if (i > 0) symbolic += "][";
    append_str(symbolic, (*indices)[i]);
  }
  symbolic += ']';
  return LookupResult::value(Value::str(symbolic), true);
}

std::optional<LookupResult> Generator::_resolve_variable(const std::string& name, const ValueVec* indices) {
  if (indices == nullptr) {
    if (const std::optional<std::int64_t> column = var_indices.find(name)) {
      log_.debug([&] { return "[resolve_variable] Found scalar variable: " + name; });
      return LookupResult::variable(name, *column);
    }
    log_.debug([&] { return "[resolve_variable] Scalar variable not found: " + name; });
    return std::nullopt;
  }
  ValueVec norm_indices;
  norm_indices.reserve(indices->size());
  for (const Value& idx : *indices) norm_indices.push_back(normalize_integral(idx));
  // No variable starts with `name_`: neither the formed name nor a bracket
  // spelling of it can match, and only the domain check remains.
  if (!underscore_prefixes_.contains(std::string_view(name)) && !log_.on(LogLevel::kDebug)) {
    return resolve_variable_domain(name, *indices, norm_indices, "");
  }
  std::string vname = name + "_";
  for (std::size_t i = 0; i < norm_indices.size(); ++i) {
    if (i > 0) vname += '_';
    append_str(vname, norm_indices[i]);
  }
  log_.debug([&] {
    return "[resolve_variable] Trying indexed variable: " + vname + " (indices=" + repr_list(norm_indices) +
           ")";
  });
  if (const std::optional<std::int64_t> column = var_indices.find(vname)) {
    log_.debug([&] { return "[resolve_variable] Found indexed variable: " + vname; });
    return LookupResult::variable(std::move(vname), *column);
  }
  // Names formed from tuples, such as x_(1, 2), whatever the bracket spelling.
  if (const std::optional<std::string> match =
          bracket_free_names_.first_match(name + "_", vname, var_indices)) {
    log_.debug([&] { return "[resolve_variable] Found symbolic indexed variable: " + *match; });
    if (const std::optional<std::int64_t> column = var_indices.find(*match)) {
      return LookupResult::variable(*match, *column);
    }
  }
  return resolve_variable_domain(name, *indices, norm_indices, vname);
}

// The end of a variable lookup that found no column: an index outside the
// declared domain is an error, anything else is "not a variable".
std::optional<LookupResult> Generator::resolve_variable_domain(const std::string& name,
                                                               const ValueVec& indices,
                                                               const ValueVec& norm_indices,
                                                               const std::string& vname) {
  std::string details;
  bool out_of_domain = false;
  try {
    out_of_domain = domain_check_fails(name, norm_indices, details);
  } catch (const Error& err) {
    if (err.kind() == ErrorKind::kSemantic) throw;
  }
  if (out_of_domain) {
    std::string msg = "Index " + repr_list(norm_indices) + " for '" + name + "' is out of declared domain";
    if (!details.empty()) msg += " (" + details + ")";
    log_.debug([&] { return "[resolve_variable] " + msg; });
    raise_semantic(msg);
  }
  log_.debug([&] {
    return "[resolve_variable] Indexed variable not found: " + vname + " (indices=" + repr_list(indices) +
           ")";
  });
  return std::nullopt;
}

bool Generator::domain_check_fails(const std::string& name, const ValueVec& norm_indices,
                                   std::string& details) {
  const MapPtr decl = _find_decl(name);
  if (decl == nullptr || !has_type(*decl, "dvar_indexed")) return false;
  const Value& dims = decl->at("dimensions");
  if (!dims.is_sequence() || dims.items().size() != norm_indices.size()) return false;
  bool failed = false;
  const auto add_detail = [&](const std::string& text) {
    if (!details.empty()) details += "; ";
    details += text;
    failed = true;
  };
  const auto check_range = [&](const Value& idx_val, const Map& range_node) {
    const Value s = _eval_bound(range_node.at("start"));
    const Value e = _eval_bound(range_node.at("end"));
    if (!idx_val.is_int_like() || py_int(idx_val) < py_int(s) || py_int(idx_val) > py_int(e)) {
      add_detail(py_str(idx_val) + " not in [" + py_str(s) + ".." + py_str(e) + "]");
    }
  };
  static const std::string kRangeDecl = "range_declaration_inline";
  for (std::size_t i = 0; i < norm_indices.size(); ++i) {
    const Map& dim = *dims.items()[i].as_map();
    const Value& idx_val = norm_indices[i];
    if (has_type(dim, "range_index")) {
      check_range(idx_val, dim);
    } else if (has_type(dim, "named_range_dimension")) {
      if (const MapPtr range = _find_decl(py_str(dim.at("name")), &kRangeDecl)) check_range(idx_val, *range);
    } else if (has_type(dim, "named_set_dimension")) {
      const Value set_name = dim.at("name");
      Value set_vals;
      if (const Value* entry = data_dict->find(set_name)) {
        set_vals = *entry;
        if (entry->is_map() && entry->as_map()->contains("elements"))
          set_vals = entry->as_map()->at("elements");
      } else if (const MapPtr set_decl = _find_decl(py_str(set_name))) {
        if (has_type(*set_decl, "typed_set")) {
          set_vals = set_decl->get("value");
        } else if ((has_type(*set_decl, "set_of_tuples") || has_type(*set_decl, "set_of_tuples_external")) &&
                   set_decl->contains("value")) {
          ValueVec members;
          for (const Value& member : set_decl->at("value").items()) {
            members.push_back(Value::tuple(member.as_map()->at("elements").items()));
          }
          set_vals = Value::list(std::move(members));
        }
      }
      if (!set_vals.is_none() && !py_contains(set_vals, idx_val)) {
        add_detail(py_str(idx_val) + " not in " + py_str(set_name));
      }
    }
  }
  return failed;
}

LookupResult Generator::_resolve_parameter(const std::string& name, const ValueVec* indices, const Env& env,
                                           bool default_zero_if_missing) {
  // The mapped form of a parameter, when the data has one, is preferred.
  std::string& mapped_key = key_buffer_;
  mapped_key.assign(name);
  mapped_key += "__map";
  const Value* mapped = data_dict->find(std::string_view(mapped_key));
  Value val = mapped != nullptr ? *mapped : data_dict->get(name);
  if (val.is_list() && indices != nullptr) {
    try {
      if (MapPtr converted = convert_key_value_list(val.items())) {
        data_dict->set(name, Value::map(converted));
        list_starts_.clear();
        val = Value::map(converted);
        log_.debug([&] {
          return "[resolve_parameter] Converted flat KV list to dict for param '" + name +
                 "': " + py_repr(val);
        });
      }
    } catch (const Error&) {  // NOLINT(bugprone-empty-catch): a list that cannot become a map stays a list
    }
  }
  log_.debug([&] {
    return "[resolve_parameter] Lookup param: " + name + ", indices=" + indices_text(indices) +
           ", val=" + py_str(val) + ", env=" + py_repr(Value::map(std::make_shared<Map>(env)));
  });
  if (indices != nullptr) {
    try {
      return LookupResult::value(resolve_scalar_data(name, indices, env, val));
    } catch (const Error& err) {
      // Every failure of an indexed lookup ends in "not found".
      log_.debug([&] { return std::string("[resolve_parameter] Exception during lookup: ") + err.what(); });
    }
  }
  if (indices == nullptr && (val.is_str() || val.is_bool())) {
    log_.debug([&] { return "[resolve_parameter] Found scalar non-numeric param: " + py_str(val); });
    return LookupResult::value(val);
  }
  if (indices == nullptr && val.is_number()) {
    log_.debug([&] { return "[resolve_parameter] Found scalar param: " + py_str(val); });
    return LookupResult::value(Value::real(py_float(val)));
  }
  log_.debug(
      [&] { return "[resolve_parameter] Param not found: " + name + ", indices=" + indices_text(indices); });
  if (default_zero_if_missing) return LookupResult::value(Value::real(0.0));
  raise_semantic(not_found_message(name, indices));
}

namespace {

// Signals "no usable value" from the indexed walk; caught as a lookup failure.
[[noreturn]] void unusable_value() { raise(ErrorKind::kValue, "no usable parameter value"); }

}  // namespace

// The indexed part of a parameter lookup: tuple keys first, else a walk
// through maps and lists one subscript at a time. Returns the value found or
// raises; the caller turns any failure into "not found".
Value Generator::resolve_scalar_data(const std::string& name, const ValueVec* indices, const Env& env,
                                     const Value& val) {
  const auto dispatch = [&](const Value& v, bool any_type) -> Value {
    if (v.is_number()) {
      log_.debug([&] { return "[resolve_parameter] Found numeric param: " + py_str(v); });
      return Value::real(py_float(v));
    }
    if (v.is_str()) {
      log_.debug([&] { return "[resolve_parameter] Found scalar indexed param: " + py_str(v); });
      return v;
    }
    if (v.is_map()) {
      log_.debug([&] { return "[resolve_parameter] Found dict param: " + py_str(v); });
      return v;
    }
    if (v.is_sequence()) {
      log_.debug([&] { return "[resolve_parameter] Found list/tuple param: " + py_str(v); });
      return v;
    }
    if (any_type) return v;
    unusable_value();
  };
  if (val.is_map() && val.as_map()->has_tuple_key()) {
    ValueVec evaluated;
    for (const Value& idx : *indices) evaluated.push_back(_eval_index(idx, env));
    const Value key =
        evaluated.size() == 1 && evaluated[0].is_tuple() ? evaluated[0] : Value::tuple(evaluated);
    if (const Value* entry = val.as_map()->find(key)) return dispatch(*entry, true);
  }
  std::optional<MapPtr> decl_of_name;  // found when a list first needs its start
  Value v = val;
  for (std::size_t i = 0; i < indices->size(); ++i) {
    const Value& idx = (*indices)[i];
    Value idx_eval = _eval_index(idx, env);
    log_.debug([&] {
      return "[resolve_parameter] Index eval: idx=" + py_str(idx) + ", idx_eval=" + py_str(idx_eval) +
             ", v=" + py_str(v) + ", env=" + py_repr(Value::map(std::make_shared<Map>(env)));
    });
    if (v.is_map()) {
      log_.debug([&] {
        return "[resolve_parameter] Dict lookup: v[" + py_str(idx_eval) +
               "] (keys=" + keys_text(*v.as_map()) + ")";
      });
      v = py_getitem(v, idx_eval);
      continue;
    }
    idx_eval = idx_eval.is_float() ? normalize_integral(idx_eval) : idx_eval;
    if (!idx_eval.is_int_like()) {
      log_.debug([&] {
        return "[resolve_parameter] Non-int index: idx_eval=" + py_str(idx_eval) +
               " (type=" + class_text(idx_eval) + ")";
      });
      raise(ErrorKind::kValue, "Index '" + py_str(idx) + "' could not be resolved to int (got " +
                                   py_str(idx_eval) + ") for param '" + name +
                                   "' with env=" + py_repr(Value::map(std::make_shared<Map>(env))));
    }
    if (v.is_list()) {
      const std::int64_t start_idx = list_start_offset(name, i, decl_of_name);
      const std::int64_t offset = checked_sub(py_int(idx_eval), start_idx);
      log_.debug([&] {
        return "[resolve_parameter] List lookup with start=" + std::to_string(start_idx) + ": v[" +
               std::to_string(offset) + "] (len=" + std::to_string(v.items().size()) + ")";
      });
      v = py_getitem(v, Value::integer(offset));
      continue;
    }
    log_.debug([&] {
      return "[resolve_parameter] List/dict lookup: v[" + py_str(idx_eval) + "] (type=" + class_text(v) + ")";
    });
    v = py_getitem(v, idx_eval);
  }
  return dispatch(v, false);
}

// The first index of a list parameter's dimension: 1 unless its declaration
// gives a range start.
std::int64_t Generator::list_start_offset(const std::string& name, std::size_t position,
                                          std::optional<MapPtr>& decl_of_name) {
  static const std::string kRangeDecl = "range_declaration_inline";
  if (!decl_of_name) {
    try {
      decl_of_name = _find_decl(name);
    } catch (const Error&) {
      decl_of_name = MapPtr();
    }
  }
  const MapPtr& decl = *decl_of_name;
  if (decl == nullptr) return 1;
  // A declaration's starts do not change within a build; read each once.
  std::vector<std::optional<std::int64_t>>& starts = list_starts_[decl.get()];
  if (position < starts.size()) {
    const std::optional<std::int64_t>& known = starts[position];
    if (known) return *known;
  }
  std::int64_t start = 1;
  try {
    const Value* dims = decl->find("dimensions");
    if (dims != nullptr && dims->is_sequence() && position < dims->items().size()) {
      const Map& dim = *dims->items()[position].as_map();
      if (node_type(dim) == "range_index") {
        start = py_int(_eval_bound(dim.at("start")));
      } else if (node_type(dim) == "named_range_dimension") {
        if (const MapPtr range = _find_decl(py_str(dim.at("name")), &kRangeDecl)) {
          start = py_int(_eval_bound(range->at("start")));
        }
      }
    }
  } catch (const Error&) {
    start = 1;  // a declaration that cannot tell its start keeps 1
  }
  if (starts.size() <= position) starts.resize(position + 1);
  starts[position] = start;
  return start;
}

LookupResult Generator::_resolve_ast_parameter(const std::string& name, const ValueVec* indices) {
  const Value decls = ast->get("declarations", empty_list());
  const Env empty;
  for (const Value& entry : decls.items()) {
    const Map& decl = *entry.as_map();
    const Value decl_name = decl.get("name");
    if (!decl_name.is_str() || decl_name.as_str() != name) continue;
    if (has_type(decl, "parameter_inline"))
      return LookupResult::value(Value::real(py_float(decl.at("value"))));
    if (!has_type(decl, "parameter_inline_indexed") || indices == nullptr) continue;
    try {
      Value v = decl.at("value");
      for (const Value& idx : *indices) {
        const Value idx_eval = _eval_index(idx, empty);
        // Inline arrays are always 1-based.
        v = v.is_list() && idx_eval.is_int_like()
                ? py_getitem(v, Value::integer(checked_sub(py_int(idx_eval), 1)))
                : py_getitem(v, idx_eval);
      }
      if (v.is_number()) return LookupResult::value(Value::real(py_float(v)));
    } catch (const Error&) {  // NOLINT(bugprone-empty-catch): this declaration cannot give it; try the next
    }
  }
  raise_semantic("AST parameter '" + name + "' with indices " + indices_text(indices) + " not found.");
}

namespace {

// An ASCII identifier that Python reads as a plain name: not a keyword (the
// keywords True, False and None are literals).
bool is_plain_name(std::string_view text) {
  if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0])) != 0) return false;
  for (const char ch : text) {
    if (std::isalnum(static_cast<unsigned char>(ch)) == 0 && ch != '_') return false;
  }
  return !is_python_keyword(text);
}

}  // namespace

Value Generator::_eval_index(const Value& idx, const Env& env) {
  if (!idx.is_str()) return idx;
  const std::string& text = idx.as_str();
  const auto lookup = [&](std::string_view name) -> Value {
    if (const Value* bound = env.find(name)) return *bound;
    if (const Value* entry = data_dict->find(name)) return *entry;
    return Value::str(name);
  };
  // A plain name (most subscripts: set members such as "seattle") is no
  // literal; as arithmetic it is the number it is bound to, else itself.
  // Deciding that here spares the general readers, which reject by raising.
  if (is_plain_name(text)) {
    const Value bound = lookup(text);
    if (!bound.is_number()) return idx;
    if (bound.is_bool()) return Value::integer(bound.as_bool() ? 1 : 0);
    return bound.is_float() ? normalize_integral(bound) : bound;
  }
  if (auto literal = parse_index_literal(text)) return *literal;
  if (auto computed = eval_index_arithmetic(text, lookup)) {
    return computed->is_float() ? normalize_integral(*computed) : *computed;
  }
  // int(text) as the last resort; most subscripts that get here are plain
  // names ("seattle"), which must not cost a raised error each.
  try {
    if (auto i = int_from_text(text)) return Value::integer(*i);
  } catch (const Error&) {
    // past 64 bits: the text stays a string, as any other failed conversion
  }
  return idx;
}

std::optional<MapPtr> Generator::_convert_flat_kv_to_dict(const Value& param_data) const {
  if (!param_data.is_list()) return std::nullopt;
  const ValueVec& items = param_data.items();
  if (items.empty() || items.size() % 2 != 0) return std::nullopt;
  for (std::size_t i = 0; i < items.size(); i += 2) {
    if (!items[i].is_str() || !items[i + 1].is_number()) return std::nullopt;
  }
  MapPtr out = make_map();
  for (std::size_t i = 0; i < items.size(); i += 2) out->set(items[i], items[i + 1]);
  return out;
}

}  // namespace kolva
