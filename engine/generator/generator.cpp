#include "generator/generator.hpp"

#include <string>

#include "evaluator/evaluator.hpp"
#include "model/error.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

const ValueVec& as_declaration_list(const Value& decls) {
  if (!decls.is_sequence()) {
    raise(ErrorKind::kType, std::string("'declarations' must be a list, not '") + type_name(decls) + "'");
  }
  return decls.items();
}

const Map& as_node(const Value& v, const char* what) {
  if (!v.is_map()) {
    raise(ErrorKind::kType, std::string(what) + " must be a dict, not '" + type_name(v) + "'");
  }
  return *v.as_map();
}

}  // namespace

Generator::Generator(MapPtr ast_root, const MapPtr& data, std::shared_ptr<LogSink> sink)
    : ast(std::move(ast_root)), log_(std::move(sink)) {
  // A shallow copy: the caller's map is never written to.
  data_dict = std::make_shared<Map>(data != nullptr ? *data : Map());
  const Value decls = ast->get("declarations", empty_list());
  for (const Value& entry : as_declaration_list(decls)) {
    const Map& decl = as_node(entry, "a declaration");
    const Value type = decl.get("type");
    if (!type.is_str() || type.as_str() != "parameter_inline") continue;
    const Value& name = decl.at("name");
    if (!data_dict->contains(name)) data_dict->set(name, decl.at("value"));
  }
}

Generator::~Generator() = default;

std::string Generator::_indent() const {
  std::string out;
  for (std::int64_t i = 0; i < indent_level; ++i) out += "    ";
  return out;
}

void Generator::_add_code_line(std::string_view line) {
  std::string text = _indent();
  text += line;
  scipy_code_lines.push_back(std::move(text));
}

void Generator::_add_code_line(std::string&& line) {
  if (indent_level <= 0) {
    scipy_code_lines.push_back(std::move(line));  // no indent: the line is kept as it is
    return;
  }
  _add_code_line(std::string_view(line));
}

ExpressionEvaluator& Generator::evaluator() {
  if (expr_evaluator_ == nullptr) expr_evaluator_ = std::make_unique<ExpressionEvaluator>(*this);
  return *expr_evaluator_;
}

EvalResult Generator::_eval_expr(const Value& expr, const Env* env) { return evaluator().eval(expr, env); }

EvalResult Generator::_eval_index_expr(const Value& dim_expr, const Env& env) {
  return evaluator()._eval_index_expr(dim_expr, env);
}

Error Generator::_not_found_error(std::string_view what, std::string_view name) {
  return {ErrorKind::kSemantic, "Not found: " + std::string(what) + " '" + std::string(name) + "'"};
}

Error Generator::_unsupported_type_error(std::string_view what, std::string_view detail) {
  return {ErrorKind::kSemantic,
          "Semantic Error: Unsupported " + std::string(what) + " type: " + std::string(detail)};
}

Error Generator::_unsupported_operator_error(std::string_view context, std::string_view op) {
  return {ErrorKind::kSemantic,
          "Semantic Error: Unsupported operator in " + std::string(context) + ": " + std::string(op)};
}

const std::vector<MapPtr>& Generator::declarations_named(std::string_view name) {
  if (!decls_indexed_) {
    const Value decls = ast->get("declarations", empty_list());
    for (const Value& entry : as_declaration_list(decls)) {
      const Map& decl = as_node(entry, "a declaration");
      const Value decl_name = decl.get("name");
      if (decl_name.is_str()) decls_by_name_[decl_name.as_str()].push_back(entry.as_map());
    }
    decls_indexed_ = true;
  }
  static const std::vector<MapPtr> kNone;
  const auto it = decls_by_name_.find(name);
  return it == decls_by_name_.end() ? kNone : it->second;
}

MapPtr Generator::_find_decl(std::string_view name, const std::string* decl_type) {
  ast->at("declarations");  // this lookup requires the key, as direct access would
  for (const MapPtr& decl : declarations_named(name)) {
    if (decl_type == nullptr || node_type(*decl) == *decl_type) return decl;
  }
  return nullptr;
}

std::vector<MapPtr> Generator::_find_decls(std::string_view name, const std::string* decl_type) {
  std::vector<MapPtr> out;
  for (const MapPtr& decl : declarations_named(name)) {
    const Value type = decl->get("type");
    if (decl_type == nullptr || (type.is_str() && type.as_str() == *decl_type)) out.push_back(decl);
  }
  return out;
}

void Generator::record_column(const std::string& name, std::int64_t column) {
  if (!var_indices.insert_or_assign(name, column)) {
    names_reassigned_ = true;
    return;
  }
  bracket_free_names_.add(name, var_indices.size() - 1);
  // Consecutive columns of an array share their prefixes: compare with the
  // previous name's before hashing.
  for (std::size_t cut = name.find('_'); cut != std::string::npos; cut = name.find('_', cut + 1)) {
    const std::string_view prefix = std::string_view(name).substr(0, cut);
    if (cut < last_recorded_name_.size() && last_recorded_name_[cut] == '_' &&
        std::string_view(last_recorded_name_).substr(0, cut) == prefix) {
      continue;
    }
    if (!underscore_prefixes_.contains(prefix)) underscore_prefixes_.emplace(prefix);
  }
  last_recorded_name_ = name;
}

// The texts before an underscore in the names of an array recorded as a
// block: its name, then its name with each leading run of subscripts.
void Generator::record_block_prefixes(const std::string& base, const std::vector<ValueVec>& elements) {
  underscore_prefixes_.emplace(base);
  std::vector<std::string> level = {base};
  for (std::size_t k = 0; k + 1 < elements.size(); ++k) {
    std::vector<std::string> next;
    next.reserve(level.size() * elements[k].size());
    for (const std::string& prefix : level) {
      for (const Value& member : elements[k]) next.push_back(prefix + "_" + std::to_string(member.as_int()));
    }
    for (const std::string& prefix : next) underscore_prefixes_.insert(prefix);
    level = std::move(next);
  }
}

std::optional<std::int64_t> Generator::array_column(const Map& decl, const ValueVec& indices,
                                                    std::string_view name) const {
  if (names_reassigned_) return std::nullopt;
  const auto it = array_layouts_.find(&decl);
  if (it == array_layouts_.end() || it->second.sizes.size() != indices.size()) return std::nullopt;
  const ArrayLayout& layout = it->second;
  std::int64_t offset = 0;
  for (std::size_t k = 0; k < indices.size(); ++k) {
    if (!indices[k].is_int()) return std::nullopt;
    const std::int64_t pos = indices[k].as_int() - layout.starts[k];
    if (pos < 0 || pos >= layout.sizes[k]) return std::nullopt;
    offset = offset * layout.sizes[k] + pos;
  }
  const std::int64_t column = layout.first_column + offset;
  if (column < 0 || static_cast<std::size_t>(column) >= var_names.size() || var_names[column] != name)
    return std::nullopt;
  return column;
}

std::int64_t Generator::add_column(const std::string& name) {
  const auto column = static_cast<std::int64_t>(var_names.size());
  var_names.push_back(name);
  record_column(name, column);
  return column;
}

std::pair<std::string, std::int64_t> Generator::_add_variable(const std::string& base_name,
                                                              const Value& lower, const Value& upper) {
  std::string name = base_name;
  for (std::int64_t counter = 1; var_indices.contains(name); ++counter) {
    name = base_name + "_" + std::to_string(counter);
  }
  const std::int64_t column = add_column(name);
  lower_bounds.push_back(lower);
  upper_bounds.push_back(upper);
  return {name, column};
}

std::string Generator::_ensure_aux_binary(const std::string& base_name) {
  // Names are never removed from var_indices, so the first free counter of
  // a base only grows: the search resumes where it last stopped instead of
  // probing every name made before (a count makes one binary per term).
  std::string name = base_name;
  std::int64_t& counter = aux_counters_[base_name];
  if (counter > 0) name = base_name + "_" + std::to_string(counter);
  while (var_indices.contains(name)) {
    ++counter;
    name = base_name + "_" + std::to_string(counter);
  }
  add_column(name);
  bounds.push_back({Value::integer(0), Value::integer(1)});
  if (!integrality) integrality.emplace();
  integrality->push_back(1);
  c.push_back(0.0);
  if (!aux_created) aux_created.emplace();
  aux_created->push_back(name);
  return name;
}

std::int64_t Generator::add_binary_flag(const std::string& name) {
  const std::int64_t column = add_column(name);
  bounds.push_back({Value::integer(0), Value::integer(1)});
  if (!integrality) integrality.emplace();
  integrality->push_back(1);
  if (c.size() < var_names.size()) c.push_back(0.0);
  return column;
}

void Generator::keep_node_alive(const MapPtr& node) { identity_nodes_.try_emplace(node.get(), node); }

}  // namespace kolva
