#include "generator/bound_value.hpp"

#include <bit>

namespace kolva {

BoundValue::BoundValue(const Value& v) {
  switch (v.kind()) {
    case Value::Kind::kNone:
      break;
    case Value::Kind::kBool:
      tag_ = Tag::kBool;
      bits_ = v.as_bool() ? 1 : 0;
      break;
    case Value::Kind::kInt:
      tag_ = Tag::kInt;
      bits_ = static_cast<std::uint64_t>(v.as_int());
      break;
    case Value::Kind::kFloat:
      tag_ = Tag::kFloat;
      bits_ = std::bit_cast<std::uint64_t>(v.as_float());
      break;
    default:
      tag_ = Tag::kOther;
      bits_ = reinterpret_cast<std::uintptr_t>(new Value(v));
      break;
  }
}

BoundValue::BoundValue(const BoundValue& other) { copy_from(other); }

BoundValue::BoundValue(BoundValue&& other) noexcept : tag_(other.tag_), bits_(other.bits_) {
  other.tag_ = Tag::kNone;
}

BoundValue& BoundValue::operator=(const BoundValue& other) {
  if (this != &other) {
    release();
    copy_from(other);
  }
  return *this;
}

BoundValue& BoundValue::operator=(BoundValue&& other) noexcept {
  if (this != &other) {
    release();
    tag_ = other.tag_;
    bits_ = other.bits_;
    other.tag_ = Tag::kNone;
  }
  return *this;
}

BoundValue::~BoundValue() { release(); }

Value BoundValue::value() const {
  switch (tag_) {
    case Tag::kNone:
      return {};
    case Tag::kBool:
      return Value::boolean(bits_ != 0);
    case Tag::kInt:
      return Value::integer(static_cast<std::int64_t>(bits_));
    case Tag::kFloat:
      return Value::real(std::bit_cast<double>(bits_));
    case Tag::kOther:
      return *other();
  }
  return {};
}

void BoundValue::release() {
  if (tag_ == Tag::kOther) delete other();
  tag_ = Tag::kNone;
}

void BoundValue::copy_from(const BoundValue& other_value) {
  tag_ = other_value.tag_;
  bits_ = tag_ == Tag::kOther ? reinterpret_cast<std::uintptr_t>(new Value(*other_value.other()))
                              : other_value.bits_;
}

}  // namespace kolva
