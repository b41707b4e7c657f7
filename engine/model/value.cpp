#include "model/value.hpp"

#include <string>

#include "model/error.hpp"
#include "model/map.hpp"

namespace kolva {

Value Value::str(std::string s) {
  return Value(Storage(std::in_place_index<4>, StrRef{std::make_shared<const std::string>(std::move(s))}));
}

Value Value::tuple(ValueVec items) {
  return Value(Storage(std::in_place_index<5>, TupleRef{std::make_shared<const ValueVec>(std::move(items))}));
}

Value Value::list(ValueVec items) {
  return Value(Storage(std::in_place_index<6>, ListRef{std::make_shared<ValueVec>(std::move(items))}));
}

Value Value::list(std::shared_ptr<ValueVec> shared) {
  return Value(Storage(std::in_place_index<6>, ListRef{std::move(shared)}));
}

Value Value::map(MapPtr m) { return Value(Storage(std::in_place_index<7>, std::move(m))); }

void Value::wrong_kind(const char* expected) const {
  raise(ErrorKind::kType,
        std::string("expected a ") + expected + " in the model or data, got '" + type_name(*this) + "'");
}

const ValueVec& Value::items() const {
  if (is_tuple()) return *std::get<5>(data_).items;
  if (is_list()) return *std::get<6>(data_).items;
  raise(ErrorKind::kType, std::string("'") + type_name(*this) + "' object is not a sequence");
}

const void* Value::identity() const {
  switch (kind()) {
    case Kind::kList:
      return std::get<6>(data_).items.get();
    case Kind::kMap:
      return std::get<7>(data_).get();
    case Kind::kTuple:
      return std::get<5>(data_).items.get();
    default:
      return nullptr;
  }
}

const Value& empty_list() {
  static const Value kEmpty = Value::list(ValueVec{});
  return kEmpty;
}

const Value& empty_map() {
  static const Value kEmpty = Value::map(make_map());
  return kEmpty;
}

const char* type_name(Value::Kind kind) {
  switch (kind) {
    case Value::Kind::kNone:
      return "NoneType";
    case Value::Kind::kBool:
      return "bool";
    case Value::Kind::kInt:
      return "int";
    case Value::Kind::kFloat:
      return "float";
    case Value::Kind::kStr:
      return "str";
    case Value::Kind::kTuple:
      return "tuple";
    case Value::Kind::kList:
      return "list";
    case Value::Kind::kMap:
      return "dict";
  }
  return "object";
}

std::string class_text(const Value& v) { return std::string("<class '") + type_name(v) + "'>"; }

}  // namespace kolva
