#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kolva {

class Value;
class Map;
using ValueVec = std::vector<Value>;
using MapPtr = std::shared_ptr<Map>;

// A dynamic value with the semantics of the Python object it stands for.
// Strings and tuples are immutable and shared; lists and maps are shared and
// mutable, so two Values may name the same list or map, as in Python. Model
// tree nodes are maps: a node is a MapPtr, and sharing a node shares identity.
class Value {
 public:
  enum class Kind : std::uint8_t { kNone, kBool, kInt, kFloat, kStr, kTuple, kList, kMap };

  Value() = default;

  static Value none() { return {}; }
  static Value boolean(bool b) { return Value(Storage(std::in_place_index<1>, b)); }
  static Value integer(std::int64_t i) { return Value(Storage(std::in_place_index<2>, i)); }
  static Value real(double d) { return Value(Storage(std::in_place_index<3>, d)); }
  static Value str(std::string s);
  static Value str(std::string_view s) { return str(std::string(s)); }
  static Value str(const char* s) { return str(std::string(s)); }
  static Value tuple(ValueVec items);
  static Value list(ValueVec items);
  static Value list(std::shared_ptr<ValueVec> shared);
  static Value map(MapPtr m);

  Kind kind() const { return static_cast<Kind>(data_.index()); }
  bool is_none() const { return kind() == Kind::kNone; }
  bool is_bool() const { return kind() == Kind::kBool; }
  // An int in the strict sense; Python's isinstance(v, int) is is_int_like().
  bool is_int() const { return kind() == Kind::kInt; }
  bool is_int_like() const { return is_int() || is_bool(); }
  bool is_float() const { return kind() == Kind::kFloat; }
  bool is_number() const { return is_int_like() || is_float(); }
  bool is_str() const { return kind() == Kind::kStr; }
  bool is_tuple() const { return kind() == Kind::kTuple; }
  bool is_list() const { return kind() == Kind::kList; }
  bool is_sequence() const { return is_tuple() || is_list(); }
  bool is_map() const { return kind() == Kind::kMap; }

  // Accessors of one kind; used on another kind they raise a TypeError that
  // names both, as Python would on the same misuse of a malformed tree.
  bool as_bool() const {
    if (!is_bool()) wrong_kind("bool");
    return std::get<1>(data_);
  }
  std::int64_t as_int() const {
    if (!is_int()) wrong_kind("int");
    return std::get<2>(data_);
  }
  double as_float() const {
    if (!is_float()) wrong_kind("float");
    return std::get<3>(data_);
  }
  const std::string& as_str() const {
    if (!is_str()) wrong_kind("str");
    return *std::get<4>(data_).text;
  }
  // Members of a tuple or list.
  const ValueVec& items() const;
  // The list itself, shared with every other Value naming it.
  ValueVec& list_items() const {
    if (!is_list()) wrong_kind("list");
    return *std::get<6>(data_).items;
  }
  const MapPtr& as_map() const {
    if (!is_map()) wrong_kind("dict");
    return std::get<7>(data_);
  }

  // Identity of a shared container, for memo tables; null for scalars.
  const void* identity() const;

 private:
  struct StrRef {
    std::shared_ptr<const std::string> text;
  };
  struct TupleRef {
    std::shared_ptr<const ValueVec> items;
  };
  struct ListRef {
    std::shared_ptr<ValueVec> items;
  };
  using Storage = std::variant<std::monostate, bool, std::int64_t, double, StrRef, TupleRef, ListRef, MapPtr>;

  explicit Value(Storage data) : data_(std::move(data)) {}
  [[noreturn]] void wrong_kind(const char* expected) const;

  Storage data_;
};

// Shared empty containers for read-only defaults (dict.get(key, [])):
// building a fresh one per lookup would allocate on hot paths. Callers must
// not mutate them.
const Value& empty_list();
const Value& empty_map();

// Python's type name of a value ("int", "dict", ...), as used in messages.
const char* type_name(Value::Kind kind);
inline const char* type_name(const Value& v) { return type_name(v.kind()); }
// The printed form of a type in messages: "<class 'float'>".
std::string class_text(const Value& v);

}  // namespace kolva
