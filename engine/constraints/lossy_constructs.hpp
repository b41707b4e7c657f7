#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "generator/log.hpp"
#include "model/map.hpp"

namespace kolva {

// Encodings that are one-way or lose part of what the model says. Their rows
// are the program's contract and stay as they are; the build only tells the
// user, once per kind, which constraint first used each of them.
enum class LossyConstruct : std::uint8_t {
  kBooleanNotEqual,
  kOneWayEquality,
  kNotEqualTruthValue,
  kTautologicalTree,
  kIndicatorUpperSideOnly,
  kEqualityAntecedent,
  kConjunctionAntecedent,
  kCountTermRows,
  kZeroAtLeastReadAsPositive,
  kStrictThresholdAsAtLeast,
  kStrictImplicationWithoutMargin,
  kCount,
};

class LossyConstructLog {
 public:
  void note(LossyConstruct kind, const MapPtr& constraint);
  // One WARNING per kind used since the log was made.
  void report(const Log& log) const;

 private:
  struct Use {
    std::size_t count = 0;
    std::string first;
  };
  std::array<Use, static_cast<std::size_t>(LossyConstruct::kCount)> uses_{};
};

}  // namespace kolva
