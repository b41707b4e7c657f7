#include "constraints/lossy_constructs.hpp"

#include "model/repr.hpp"

namespace kolva {
namespace {

constexpr std::size_t kShownConstraintLength = 240;

const char* describe(LossyConstruct kind) {
  switch (kind) {
    case LossyConstruct::kBooleanNotEqual:
      return "'!=' between two Boolean expressions: its four rows admit only the all-zero values";
    case LossyConstruct::kOneWayEquality:
      return "'==' used as a truth value: its flag is not forced to 1 when both sides are equal";
    case LossyConstruct::kNotEqualTruthValue:
      return "'!=' used as a truth value: both of its rows ask for a difference of at least 1, "
             "so a negative difference is excluded";
    case LossyConstruct::kTautologicalTree:
      return "a Boolean tree compared with true or 1 is skipped as a tautology: no row fixes it to 1";
    case LossyConstruct::kIndicatorUpperSideOnly:
      return "'y == 0 => x == 0' is written as x - M*y <= 0 only: a variable that may go negative "
             "is not held at zero";
    case LossyConstruct::kEqualityAntecedent:
      return "an implication with an equality antecedent: its four rows hold the antecedent's difference "
             "at zero whatever the flag";
    case LossyConstruct::kConjunctionAntecedent:
      return "'(A and B) == true' as an antecedent: every conjunct is posted as a plain constraint and "
             "the last one stands for the antecedent";
    case LossyConstruct::kCountTermRows:
      return "a count of comparisons: each term's binary gets the same two rows whatever the comparison's "
             "operator, and the constant enters them with opposite signs";
    case LossyConstruct::kZeroAtLeastReadAsPositive:
      return "'0 >= x' as an antecedent is read as 'x > 0'";
    case LossyConstruct::kStrictThresholdAsAtLeast:
      return "'>' on a count threshold is read as '>='";
    case LossyConstruct::kStrictImplicationWithoutMargin:
      return "a strict comparison in an implication is encoded as its non-strict form";
    case LossyConstruct::kCount:
      break;
  }
  return "";
}

}  // namespace

void LossyConstructLog::note(LossyConstruct kind, const MapPtr& constraint) {
  Use& use = uses_[static_cast<std::size_t>(kind)];
  if (use.count++ > 0 || constraint == nullptr) return;
  use.first = py_str(Value::map(constraint));
  if (use.first.size() > kShownConstraintLength) {
    use.first.resize(kShownConstraintLength);
    use.first += "...";
  }
}

void LossyConstructLog::report(const Log& log) const {
  for (std::size_t k = 0; k < uses_.size(); ++k) {
    const Use& use = uses_[k];
    if (use.count == 0) continue;
    log.warning([&] {
      return std::string("[SciPyCSCCodeGenerator] Lossy encoding: ") +
             describe(static_cast<LossyConstruct>(k)) + ". Used " + std::to_string(use.count) +
             " time(s); first in: " + use.first;
    });
  }
}

}  // namespace kolva
