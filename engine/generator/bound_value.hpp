#pragma once

#include <cstdint>

#include "model/value.hpp"

namespace kolva {

// One bound of a column in 16 bytes: None or a number almost always, so
// those are kept inline; anything else a model may put there is kept as a
// full Value on the heap. Converts to and from Value implicitly.
class BoundValue {
 public:
  BoundValue() = default;
  BoundValue(const Value& v);  // NOLINT(*-explicit-constructor): a bound is a Value
  BoundValue(const BoundValue& other);
  BoundValue(BoundValue&& other) noexcept;
  BoundValue& operator=(const BoundValue& other);
  BoundValue& operator=(BoundValue&& other) noexcept;
  ~BoundValue();

  operator Value() const { return value(); }  // NOLINT(*-explicit-constructor)
  Value value() const;

 private:
  enum class Tag : std::uint8_t { kNone, kBool, kInt, kFloat, kOther };
  void release();
  void copy_from(const BoundValue& other);

  // The bits hold the address only for the rare bound that is not a number.
  Value* other() const {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<Value*>(static_cast<std::uintptr_t>(bits_));
  }

  Tag tag_ = Tag::kNone;
  // The int, the float's bits, or the address of the heap Value.
  std::uint64_t bits_ = 0;
};

}  // namespace kolva
