// The variables phase: declarations become columns with bounds and
// integrality, in declaration order; within an array, the product order of
// its dimensions is the column order.
#include <cctype>
#include <memory>
#include <optional>
#include <string>

#include "expansion/product.hpp"
#include "generator/finite_numbers.hpp"
#include "generator/generator.hpp"
#include "generator/list_text.hpp"
#include "model/growth.hpp"
#include "model/int_range.hpp"
#include "model/interrupt.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

struct TypeDefaults {
  Value lower;
  Value upper;
  std::int64_t integer;
};

TypeDefaults default_bounds_for_type(const Value& var_type) {
  const std::string t = var_type.is_str() ? var_type.as_str() : std::string();
  if (t == "boolean") return {Value::integer(0), Value::integer(1), 1};
  if (t == "int+") return {Value::integer(0), Value(), 1};
  if (t == "int") return {Value(), Value(), 1};
  if (t == "float+") return {Value::integer(0), Value(), 0};
  return {Value(), Value(), 0};
}

bool is_one_of(const std::string& type, std::initializer_list<std::string_view> kinds) {
  for (std::string_view k : kinds) {
    if (type == k) return true;
  }
  return false;
}

std::string type_of(const Map& node) { return py_str(node.get("type")); }

// "x_1" reads as x['1'] to a person skimming the script: a name with an
// underscore and no "[", whose part after the first underscore is
// alphanumeric once its underscores are removed.
bool alias_for(std::string_view name, std::string_view& base, std::string_view& idx) {
  const std::size_t cut = name.find('_');
  if (cut == std::string_view::npos || name.find('[') != std::string_view::npos) return false;
  base = name.substr(0, cut);
  idx = name.substr(cut + 1);
  if (base.empty() || idx.empty()) return false;
  bool ascii_only = true;
  bool any = false;
  for (const char c : idx) {
    if (c == '_') continue;
    any = true;
    const auto u = static_cast<unsigned char>(c);
    if (u >= 0x80) {
      ascii_only = false;
    } else if (std::isalnum(u) == 0) {
      return false;
    }
  }
  if (!any) return false;
  if (ascii_only) return true;
  std::string plain;
  for (const char c : idx) {
    if (c != '_') plain.push_back(c);
  }
  return py_str_isalnum(plain);
}

ValueVec int_range(const Value& start, const Value& end) { return range_members(py_int(start), py_int(end)); }

}  // namespace

void Generator::_build_variables() {
  _add_code_line("# Variable definitions");
  std::vector<std::string> names;
  std::vector<BoundPair> new_bounds;
  std::vector<std::uint8_t> new_integrality;
  tuple_types = make_map();
  const Value& decls = ast->at("declarations");
  for (const Value& entry : decls.items()) {
    const Map& decl = *entry.as_map();
    const std::string type = type_of(decl);
    if (is_one_of(type, {"dexpr", "dexpr_indexed", "range_declaration_inline", "range_declaration_external",
                         "set_declaration", "parameter_inline", "parameter_inline_indexed",
                         "parameter_external", "parameter_external_indexed", "parameter_external_explicit",
                         "parameter_external_explicit_indexed"})) {
      continue;
    }
    if (type == "tuple_type") {
      _handle_tuple_type_declaration(decl);
    } else if (is_one_of(type, {"set_of_tuples", "set_of_tuples_external", "set_of_tuples_array_external",
                                "typed_set", "typed_set_external", "tuple_array", "tuple_array_external"})) {
      // Tuple sets are read when the data declarations are generated.
    } else if (type == "dvar") {
      handle_scalar_variable_declaration(decl, names, new_bounds, new_integrality);
    } else if (type == "dvar_indexed") {
      handle_indexed_variable_declaration(decl, names, new_bounds, new_integrality);
    } else {
      raise_semantic("Unsupported declaration type: " + type);
    }
  }
  _tighten_bounds_from_constraints(new_bounds, ast->get("constraints", empty_list()));
  require_numeric_bounds(names, new_bounds);
  // Alias blocks of an earlier build print from the names they were made
  // with; they become plain lines before those names are replaced.
  scipy_code_lines.materialize(CodeLines::Source::kVarNames);
  scipy_code_lines.materialize(CodeLines::Source::kColumnLists);
  var_names = std::move(names);
  bounds = std::move(new_bounds);
  integrality = std::move(new_integrality);
  add_metadata_line(MetaLine::kVarNames);
  emit_alias_lines();
  add_metadata_line(MetaLine::kBounds);
  add_metadata_line(MetaLine::kIntegrality);
}

namespace {

// "# Alias: base['idx']" for each of a run of columns whose names all have
// an alias form, printed from var_names when the line is read.
class AliasBlock : public CodeLines::Block {
 public:
  AliasBlock(const std::vector<std::string>& names, std::size_t first, std::size_t count)
      : names_(names), first_(first), count_(count) {}
  CodeLines::Source source() const override { return CodeLines::Source::kVarNames; }
  std::size_t size() const override { return count_; }
  std::string_view head(std::size_t /*k*/) const override { return "# Alias: "; }
  bool same_head() const override { return true; }
  void render(std::size_t k, std::string& out) const override {
    std::string_view base;
    std::string_view idx;
    alias_for(names_[first_ + k], base, idx);
    append_alias(out, base, idx);
  }
  static void append_alias(std::string& out, std::string_view base, std::string_view idx) {
    out += "# Alias: ";
    out += base;
    out += "['";
    out += idx;
    out += "']";
  }

 private:
  const std::vector<std::string>& names_;
  std::size_t first_;
  std::size_t count_;
};

// Runs shorter than this are written as plain lines.
constexpr std::size_t kShortestAliasBlock = 16;

}  // namespace

void Generator::emit_alias_lines() {
  // The indent is read once: a block prints its lines without one.
  const bool indented = indent_level > 0;
  std::string_view base;
  std::string_view idx;
  std::size_t k = 0;
  while (k < var_names.size()) {
    std::size_t end = k;
    while (end < var_names.size() && alias_for(var_names[end], base, idx)) ++end;
    if (end - k >= kShortestAliasBlock && !indented) {
      scipy_code_lines.push_block(std::make_unique<AliasBlock>(var_names, k, end - k));
    } else {
      for (std::size_t j = k; j < end; ++j) {
        alias_for(var_names[j], base, idx);
        std::string alias;
        AliasBlock::append_alias(alias, base, idx);
        _add_code_line(alias);
      }
    }
    k = end == k ? k + 1 : end;
  }
}

void Generator::handle_scalar_variable_declaration(const Map& decl, std::vector<std::string>& names,
                                                   std::vector<BoundPair>& new_bounds,
                                                   std::vector<std::uint8_t>& new_integrality) {
  const std::string name = py_str(decl.at("name"));
  record_column(name, static_cast<std::int64_t>(names.size()));
  names.push_back(name);
  const TypeDefaults d = default_bounds_for_type(decl.get("var_type"));
  new_bounds.push_back({d.lower, d.upper});
  new_integrality.push_back(static_cast<std::uint8_t>(d.integer));
}

void Generator::handle_indexed_variable_declaration(const Map& decl, std::vector<std::string>& names,
                                                    std::vector<BoundPair>& new_bounds,
                                                    std::vector<std::uint8_t>& new_integrality) {
  const std::string name = py_str(decl.at("name"));
  const Value& dims = decl.at("dimensions");
  log_.debug([&] {
    return "[SciPyCSCCodeGenerator] _handle_indexed_variable_declaration: name=" + name +
           ", dims=" + py_str(dims);
  });
  const auto eval_decl_bound = [&](const Value& expr, const Env& env) -> Value {
    if (!expr.is_map()) return expr;
    const EvalResult r = _eval_expr(expr, &env);
    if (r.has_vars()) raise_semantic("Decision variables are not supported in dvar declaration bounds.");
    return r.val;
  };
  const Value var_type = decl.get("var_type");
  const TypeDefaults defaults = default_bounds_for_type(var_type);
  const Value* lower_bound = decl.find("lower_bound");
  const Value* upper_bound = decl.find("upper_bound");
  const bool bounds_need_env = lower_bound != nullptr || upper_bound != nullptr;
  bool names_as_block = false;  // the array's names were recorded as one block
  const auto add = [&](std::string column_name, const Env& env) {
    poll_interrupt();
    if (!names_as_block) record_column(column_name, static_cast<std::int64_t>(names.size()));
    names.push_back(std::move(column_name));
    BoundPair pair{defaults.lower, defaults.upper};
    // A bound key present with a null value clears the type's default.
    if (lower_bound != nullptr) pair.lower = eval_decl_bound(*lower_bound, env);
    if (upper_bound != nullptr) pair.upper = eval_decl_bound(*upper_bound, env);
    new_bounds.push_back(std::move(pair));
    new_integrality.push_back(static_cast<std::uint8_t>(defaults.integer));
  };
  ValueVec iter_names;
  const Value iterators = decl.get("iterators", empty_list());
  for (const Value& it : iterators.items()) {
    if (it.is_map()) iter_names.push_back(it.as_map()->get("iterator"));
  }
  static const std::string kRangeDecl = "range_declaration_inline";
  const ValueVec& dim_list = dims.items();
  if (dim_list.size() == 1 && dim_list[0].is_map() &&
      type_of(*dim_list[0].as_map()) == "named_set_dimension") {
    const std::string set_name = py_str(dim_list[0].as_map()->at("name"));
    const MapPtr set_decl = _find_decl(set_name);
    ValueVec elements;
    if (set_decl != nullptr && is_one_of(type_of(*set_decl), {"set_of_tuples", "set_of_tuples_external"})) {
      elements = tuple_set_members(set_name).members;
    } else if (const Value* entry = data_dict->find(set_name)) {
      const bool wrapped = entry->is_map() && entry->as_map()->contains("elements");
      elements = py_iterate(wrapped ? entry->as_map()->at("elements") : *entry);
    } else if (set_decl != nullptr) {
      const Value value = set_decl->get("value");
      elements = value.is_none() ? ValueVec{} : py_iterate(value);
    }
    log_.debug([&] {
      return "[SciPyCSCCodeGenerator] Elements for " + name + " over " + set_name + ": " +
             repr_list(elements);
    });
    for (const Value& element : elements) {
      Env env;
      if (bounds_need_env && !iter_names.empty()) env.set(iter_names[0], element);
      add(element.is_tuple() ? name + "[" + py_repr(element) + "]" : name + "_" + py_str(element), env);
    }
    return;
  }
  log_.debug([&] { return "[SciPyCSCCodeGenerator] Fallback for " + name + ", dims=" + py_str(dims); });
  std::vector<ValueVec> elements_list;
  std::vector<std::string> dim_strs;
  bool all_integer_ranges = true;  // every dimension a range of consecutive ints
  const auto add_range = [&](const Map& range, const char* label) {
    const Value start = _eval_bound(range.at("start"));
    const Value end = _eval_bound(range.at("end"));
    log_.debug([&] {
      return std::string("[SciPyCSCCodeGenerator] ") + label + name + ": start=" + py_str(start) +
             ", end=" + py_str(end);
    });
    elements_list.push_back(int_range(start, end));
    dim_strs.push_back("range(" + _emit_symbolic_expr(range.at("start")) + ", " +
                       _emit_symbolic_expr(range.at("end")) + " + 1)");
  };
  for (const Value& dim_value : dim_list) {
    if (!dim_value.is_map()) {
      all_integer_ranges = false;
      continue;
    }
    const Map& dim = *dim_value.as_map();
    const std::string dim_type = type_of(dim);
    if (dim_type == "range_index") {
      add_range(dim, "Range for ");
    } else if (dim_type == "named_range_dimension") {
      const std::string range_name = py_str(dim.at("name"));
      const MapPtr range = _find_decl(range_name, &kRangeDecl);
      if (range == nullptr) throw _not_found_error("range", range_name);
      add_range(*range, "Named range for ");
    } else if (dim_type == "named_set_dimension") {
      all_integer_ranges = false;
      const std::string set_name = py_str(dim.at("name"));
      const MapPtr set_decl = _find_decl(set_name);
      ValueVec members;
      if (set_decl != nullptr && is_one_of(type_of(*set_decl), {"set_of_tuples", "set_of_tuples_external"})) {
        members = tuple_set_members(set_name).members;
      } else {
        members = py_iterate(data_dict->get(set_name, empty_list()));
      }
      log_.debug(
          [&] { return "[SciPyCSCCodeGenerator] Named set for " + set_name + ": " + repr_list(members); });
      elements_list.push_back(std::move(members));
      dim_strs.push_back(set_name);
    }
  }
  std::string dims_text;
  for (std::size_t i = 0; i < dim_strs.size(); ++i) {
    if (i > 0) dims_text += ", ";
    dims_text += dim_strs[i];
  }
  _add_code_line("# OPL: dvar " + py_str(var_type) + " " + name + "[" + dims_text + "]");
  if (all_integer_ranges && !elements_list.empty()) {
    ArrayLayout layout;
    layout.first_column = static_cast<std::int64_t>(names.size());
    for (const ValueVec& members : elements_list) {
      layout.starts.push_back(members.empty() ? 0 : members.front().as_int());
      layout.sizes.push_back(static_cast<std::int64_t>(members.size()));
    }
    // Without bound expressions nothing is evaluated while the columns are
    // made, so recording all the names at once is the same as one by one;
    // it needs that no name starts with the array's name yet.
    if (!bounds_need_env && !underscore_prefixes_.contains(name)) {
      names_as_block = var_indices.insert_block(name, layout.starts, layout.sizes, layout.first_column);
      if (names_as_block) record_block_prefixes(name, elements_list);
    }
    array_layouts_.insert_or_assign(&decl, std::move(layout));
  }
  std::uint64_t product = 1;
  for (const ValueVec& members : elements_list) add_combination_factor(product, members.size());
  if (!names_as_block) var_indices.reserve(product);
  reserve_more(names, product);
  reserve_more(new_bounds, product);
  reserve_more(new_integrality, product);
  for_each_product(elements_list, [&](const std::vector<std::size_t>& pos) {
    std::string column_name = name;
    Env env;
    for (std::size_t i = 0; i < elements_list.size(); ++i) {
      const Value& member = elements_list[i][pos[i]];
      column_name += '_';
      append_str(column_name, member);
      // The Env only serves bound expressions; without them it stays empty.
      if (bounds_need_env && i < iter_names.size()) env.set(iter_names[i], member);
    }
    // With no dimension left the product has one empty member: name + "_".
    if (elements_list.empty()) column_name += '_';
    log_.debug([&] { return "[SciPyCSCCodeGenerator] Adding range-indexed variable: " + column_name; });
    add(std::move(column_name), env);
  });
}

namespace {

bool ascii_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool ascii_digit(char c) { return c >= '0' && c <= '9'; }

// The base symbol of a column name: leading letters and digits (starting
// with a letter), followed by nothing or by "_" and a rest on one line. A
// scan, not a regular expression, so that no name is too long to read.
std::optional<std::string> base_symbol(const std::string& vname) {
  if (vname.empty() || !ascii_letter(vname[0])) return std::nullopt;
  std::size_t end = 1;
  while (end < vname.size() && (ascii_letter(vname[end]) || ascii_digit(vname[end]))) ++end;
  if (end == vname.size()) return vname;
  if (vname[end] != '_' || vname.find_first_of("\n\r", end) != std::string::npos) return std::nullopt;
  return vname.substr(0, end);
}

}  // namespace

std::pair<Value, Value> Generator::_infer_var_bounds(const std::string& vname) {
  const std::optional<std::int64_t> column = var_indices.find(vname);
  if (column && *column >= 0 && static_cast<std::size_t>(*column) < bounds.size()) {
    const BoundPair& pair = bounds[static_cast<std::size_t>(*column)];
    return {pair.lower, pair.upper};
  }
  const auto collected = [this](const std::string& key) -> std::optional<std::pair<Value, Value>> {
    Value lower = collected_lbs->get(key);
    Value upper = collected_ubs->get(key);
    if (lower.is_none() && upper.is_none()) return std::nullopt;
    return std::make_pair(std::move(lower), std::move(upper));
  };
  if (auto found = collected(vname)) return *found;
  if (auto base = base_symbol(vname)) {
    if (auto found = collected(*base)) return *found;
  }
  return {Value(), Value()};
}

}  // namespace kolva
