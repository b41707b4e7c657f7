#include "data/set_members.hpp"

#include <string>

#include "model/error.hpp"
#include "model/semantics.hpp"

namespace kolva {

IndexedMembers index_members(Value source, ValueVec members) {
  IndexedMembers out;
  out.source = std::move(source);
  out.members = std::move(members);
  out.positions = make_map();
  for (std::size_t i = 0; i < out.members.size(); ++i) {
    const Value& m = out.members[i];
    out.all_tuples = out.all_tuples && m.is_tuple();
    if (m.is_str()) {
      out.string_positions.emplace(m.as_str(), i);  // emplace keeps the first
      continue;
    }
    try {
      if (!out.positions->contains(m)) out.positions->set(m, Value::integer(static_cast<std::int64_t>(i)));
    } catch (const Error& err) {
      if (err.kind() != ErrorKind::kType) throw;
      out.hashable = false;  // a member holding a list: fall back to comparing
    }
  }
  return out;
}

std::optional<std::size_t> IndexedMembers::position_of(const Value& member) const {
  if (member.is_str()) {
    const auto it = string_positions.find(member.as_str());
    // A string equals only strings, so the string map answers alone.
    return it == string_positions.end() ? std::nullopt : std::optional<std::size_t>(it->second);
  }
  if (hashable && !(member.is_list() || member.is_map())) {
    bool member_hashable = true;
    try {
      (void)py_hash(member);
    } catch (const Error&) {
      member_hashable = false;
    }
    if (member_hashable) {
      const Value* pos = positions->find(member);
      return pos == nullptr ? std::nullopt
                            : std::optional<std::size_t>(static_cast<std::size_t>(pos->as_int()));
    }
  }
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (py_eq(members[i], member)) return i;
  }
  return std::nullopt;
}

ValueVec py_iterate(const Value& v) {
  switch (v.kind()) {
    case Value::Kind::kList:
    case Value::Kind::kTuple:
      return v.items();
    case Value::Kind::kMap: {
      ValueVec keys;
      keys.reserve(v.as_map()->size());
      for (const Map::Item& item : v.as_map()->items()) keys.push_back(item.first);
      return keys;
    }
    case Value::Kind::kStr: {
      ValueVec chars;
      for (std::string& c : utf8_characters(v.as_str())) chars.push_back(Value::str(std::move(c)));
      return chars;
    }
    default:
      raise(ErrorKind::kType, std::string("'") + type_name(v) + "' object is not iterable");
  }
}

}  // namespace kolva
