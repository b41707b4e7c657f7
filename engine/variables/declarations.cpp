// The variables phase: declarations become columns with bounds and integrality.
#include <array>
#include <cctype>
#include <string>

#include "generator/generator.hpp"
#include "generator/list_text.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"

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

// "x_1" reads as x['1'] to a person skimming the script.
bool alias_for(const std::string& name, std::string& base, std::string& idx) {
  if (name.find('_') == std::string::npos || name.find('[') != std::string::npos) return false;
  const std::size_t cut = name.find('_');
  base = name.substr(0, cut);
  idx = name.substr(cut + 1);
  if (base.empty() || idx.empty()) return false;
  std::string plain;
  for (char ch : idx) {
    if (ch != '_') plain.push_back(ch);
  }
  // Python's str.isalnum(): non-empty and every character alphanumeric.
  if (plain.empty()) return false;
  for (unsigned char ch : plain) {
    if (ch >= 0x80 || std::isalnum(ch) == 0) return false;
  }
  return true;
}

}  // namespace

void Generator::_build_variables() {
  _add_code_line("# Variable definitions");
  std::vector<std::string> names;
  std::vector<BoundPair> new_bounds;
  std::vector<Value> new_integrality;
  tuple_types = make_map();
  const Value& decls = ast->at("declarations");
  for (const Value& entry : decls.items()) {
    const Map& decl = *entry.as_map();
    const Value type_value = decl.get("type");
    const std::string type = type_value.is_str() ? type_value.as_str() : py_str(type_value);
    if (is_one_of(type, {"dexpr", "dexpr_indexed", "range_declaration_inline", "range_declaration_external",
                         "set_declaration", "parameter_inline", "parameter_inline_indexed",
                         "parameter_external", "parameter_external_indexed", "parameter_external_explicit",
                         "parameter_external_explicit_indexed"})) {
      continue;
    }
    if (type == "dvar") {
      const std::string name = py_str(decl.at("name"));
      record_column(name, static_cast<std::int64_t>(names.size()));
      names.push_back(name);
      const TypeDefaults d = default_bounds_for_type(decl.get("var_type"));
      new_bounds.push_back({d.lower, d.upper});
      new_integrality.push_back(Value::integer(d.integer));
      continue;
    }
    if (is_one_of(type, {"dvar_indexed", "tuple_type", "set_of_tuples", "set_of_tuples_external",
                         "set_of_tuples_array_external", "typed_set", "typed_set_external", "tuple_array",
                         "tuple_array_external"})) {
      raise(ErrorKind::kNotImplemented,
            "Declaration type '" + type + "' is not supported by this build of the generator yet.");
    }
    raise_semantic("Unsupported declaration type: " + type);
  }
  var_names = std::move(names);
  bounds = std::move(new_bounds);
  integrality = std::move(new_integrality);
  _add_code_line("var_names = " + names_text(var_names));
  std::string base;
  std::string idx;
  for (const std::string& name : var_names) {
    if (!alias_for(name, base, idx)) continue;
    std::string alias = "# Alias: ";
    alias += base;
    alias += "['";
    alias += idx;
    alias += "']";
    _add_code_line(alias);
  }
  _add_code_line("bounds = " + bounds_text(bounds));
  _add_code_line("integrality = " + values_text(integrality.value()));
}

// The data, objective and constraint phases are not part of this build yet:
// a model reaches the driver with no data lines, a zero objective and no rows.
void Generator::_generate_data_declarations(const MapPtr& /*data_dict*/) {}
void Generator::_build_objective() {}
void Generator::_build_constraints() {}

}  // namespace kolva
