// The chain of constraint forms. A constraint is claimed by the first form
// that recognises it; several forms overlap on purpose so that a specialised
// encoding wins over the general linear row. This order decides the emitted
// program: change it only deliberately.
#include <array>
#include <string_view>

#include "constraints/constraint_builder.hpp"
#include "constraints/forms/forms.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

struct Form {
  std::string_view name;
  Claim (*run)(ConstraintBuilder& b, ConstraintCall& call);
};

// Every constraint, whatever its type.
constexpr std::array kChain = {
    Form{"parameter without data", &forms::parameter_without_data},
    Form{"top-level Boolean tree", &forms::not_yet_built},
    Form{"log the constraint", &forms::log_constraint},
    Form{"pre-registration and bound collection", &forms::not_yet_built},
    Form{"constraint over an implies node", &forms::not_yet_built},
    Form{"implication", &forms::implication_not_yet_built},
    Form{"comparison", &forms::comparison},
    Form{"forall", &forms::forall},
    Form{"end of chain", &forms::end_of_chain},
};

// Constraints of type "constraint", tried in this order by the comparison step.
constexpr std::array kComparisonChain = {
    Form{"weighted Boolean sum, early copy", &forms::not_yet_built},
    Form{"sum of comparisons", &forms::not_yet_built},
    Form{"name equals sum of comparisons", &forms::not_yet_built},
    Form{"parenthesis stripping", &forms::not_yet_built},
    Form{"comparison equals true", &forms::not_yet_built},
    Form{"comparison equals false", &forms::not_yet_built},
    Form{"not-equal on Boolean variables", &forms::not_yet_built},
    Form{"not of a comparison against a literal", &forms::not_yet_built},
    Form{"declared Boolean equals evaluated expression", &forms::not_yet_built},
    Form{"Boolean variable equals threshold on a sum", &forms::not_yet_built},
    Form{"Boolean tree against a literal", &forms::not_yet_built},
    Form{"Boolean variable against Boolean expression", &forms::not_yet_built},
    Form{"weighted Boolean sum, second copy", &forms::not_yet_built},
    Form{"sum of comparisons against a number", &forms::not_yet_built},
    Form{"variable equals threshold on a sum of comparisons", &forms::not_yet_built},
    Form{"conjunction or disjunction asserted true", &forms::conjunction_or_disjunction_true},
    Form{"general linear comparison", &forms::general_linear_comparison},
};

Claim run_forms(const auto& chain, ConstraintBuilder& b, ConstraintCall& call) {
  for (const Form& form : chain) {
    if (form.run(b, call) == Claim::kDone) return Claim::kDone;
  }
  return Claim::kPass;
}

}  // namespace

void ConstraintBuilder::handle_constraint(const MapPtr& constr, const Env& env) {
  ConstraintCall call{constr, env};
  run_forms(kChain, *this, call);
}

Claim forms::comparison(ConstraintBuilder& b, ConstraintCall& call) {
  if (py_str(call.constr->get("type")) != "constraint") return Claim::kPass;
  return run_forms(kComparisonChain, b, call);
}

}  // namespace kolva
