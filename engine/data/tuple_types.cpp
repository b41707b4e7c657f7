// The tuple type registry, tuple-set members and tuple subscripts of names.
#include <string>

#include "data/index_text.hpp"
#include "data/tuple_set_members.hpp"
#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

bool same_source(const Value& cached, const Value* current) {
  if (current == nullptr) return cached.is_none();
  if (current->identity() != nullptr) return current->identity() == cached.identity();
  return false;  // a scalar entry is cheap to reread and never cached as valid
}

bool is_tuple_set_decl(const MapPtr& decl) {
  if (decl == nullptr) return false;
  const Value type = decl->get("type");
  return type.is_str() && (type.as_str() == "set_of_tuples" || type.as_str() == "set_of_tuples_external");
}

}  // namespace

void Generator::_handle_tuple_type_declaration(const Map& decl) {
  if (tuple_types == nullptr) tuple_types = make_map();
  tuple_types->set(decl.at("name"), decl.at("fields"));
}

const IndexedMembers& Generator::tuple_set_members(const std::string& set_name) {
  const Value* entry = data_dict->find(set_name);
  const auto cached = tuple_set_cache_.find(set_name);
  if (cached != tuple_set_cache_.end() && same_source(cached->second.source, entry)) return cached->second;
  IndexedMembers fresh =
      index_members(entry != nullptr ? *entry : Value(), get_tuple_set(set_name, *ast, *data_dict));
  return tuple_set_cache_.insert_or_assign(set_name, std::move(fresh)).first->second;
}

const IndexedMembers& Generator::set_positions(const std::string& set_name, const Value& set_data) {
  const auto cached = set_position_cache_.find(set_name);
  if (cached != set_position_cache_.end() && set_data.identity() != nullptr &&
      cached->second.source.identity() == set_data.identity()) {
    return cached->second;
  }
  IndexedMembers fresh = index_members(set_data, py_iterate(set_data));
  return set_position_cache_.insert_or_assign(set_name, std::move(fresh)).first->second;
}

ValueVec Generator::_get_tuple_set_names(const ValueVec& iterators) {
  ValueVec names;
  for (const Value& it : iterators) {
    const Map& iterator = *it.as_map();
    const Value rng = iterator.get("range", empty_map());
    if (!rng.is_map() || py_str(rng.as_map()->get("type")) != "named_set") continue;
    const Value set_name = rng.as_map()->get("name");
    if (!set_name.is_str() || !is_tuple_set_decl(_find_decl(set_name.as_str()))) continue;
    const Value name = iterator.get("iterator");
    bool seen = false;
    for (const Value& n : names) seen = seen || py_eq(n, name);
    if (!seen) names.push_back(name);
  }
  return names;
}

std::int64_t Generator::_resolve_tuple_index_varname(const std::string& vname) const {
  const std::size_t open = vname.find('[');
  if (open != std::string::npos && !vname.starts_with('\'')) {
    const std::string base = vname.substr(0, open);
    std::string key = vname.substr(open + 1);
    while (key.ends_with(']')) key.pop_back();
    if (key.starts_with('(') && key.ends_with(')')) {
      if (const auto parsed = parse_index_literal(key)) {
        const std::optional<std::int64_t> found = var_indices.find(base + "[" + py_repr(*parsed) + "]");
        if (found) return *found;
      }
    }
  }
  raise_semantic("Variable '" + vname + "' not found in environment.");
}

}  // namespace kolva
