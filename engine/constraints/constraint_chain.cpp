// The chain of constraint forms. A constraint is claimed by the first form
// that recognises it; several forms overlap on purpose so that a specialised
// encoding wins over the general linear row. This order decides the emitted
// program: change it only deliberately.
#include <array>
#include <string_view>
#include <utility>

#include "constraints/constraint_builder.hpp"
#include "constraints/forms/forms.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

struct Form {
  std::string_view name;
  // What the rows of an encoding do, for their names ("ctLink#implication"):
  // empty for forms whose rows are the constraint itself.
  std::string_view role;
  Claim (*run)(ConstraintBuilder& b, ConstraintCall& call);
};

// Every constraint, whatever its type.
constexpr std::array kChain = {
    Form{"parameter without data", "", &forms::parameter_without_data},
    Form{"top-level Boolean tree", "bool_tree", &forms::top_level_boolean_tree},
    Form{"log the constraint", "", &forms::log_constraint},
    Form{"pre-registration and bound collection", "", &forms::preregistration_and_bound_collection},
    Form{"constraint over an implies node", "implication", &forms::constraint_over_implies},
    Form{"implication", "implication", &forms::implication},
    Form{"comparison", "", &forms::comparison},
    Form{"forall", "", &forms::forall},
    Form{"end of chain", "", &forms::end_of_chain},
};

// Constraints of type "constraint", tried in this order by the comparison step.
constexpr std::array kComparisonChain = {
    Form{"weighted Boolean sum, early copy", "weighted_count", &forms::weighted_boolean_sum_early},
    Form{"sum of comparisons", "count", &forms::sum_of_comparisons},
    Form{"name equals sum of comparisons", "count", &forms::name_equals_sum_of_comparisons},
    Form{"parenthesis stripping", "", &forms::parenthesis_stripping},
    Form{"comparison equals true", "", &forms::comparison_equals_true},
    Form{"comparison equals false", "negation", &forms::comparison_equals_false},
    Form{"not-equal on Boolean variables", "not_equal", &forms::not_equal},
    Form{"not of a comparison against a literal", "negation", &forms::not_of_comparison},
    Form{"declared Boolean equals evaluated expression", "bool_link",
         &forms::declared_bool_equals_expression},
    Form{"Boolean variable equals threshold on a sum", "threshold",
         &forms::boolean_variable_equals_threshold_on_sum},
    Form{"Boolean tree against a literal", "bool_tree", &forms::boolean_tree_against_literal},
    Form{"Boolean variable against Boolean expression", "bool_link",
         &forms::boolean_variable_against_expression},
    Form{"weighted Boolean sum, second copy", "weighted_count", &forms::weighted_boolean_sum_late},
    Form{"sum of comparisons against a number", "count", &forms::sum_of_comparisons_any_op},
    Form{"variable equals threshold on a sum of comparisons", "threshold",
         &forms::variable_equals_threshold_on_count},
    Form{"conjunction or disjunction asserted true", "or_and", &forms::conjunction_or_disjunction_true},
    Form{"general linear comparison", "", &forms::general_linear_comparison},
};

Claim run_forms(const auto& chain, ConstraintBuilder& b, ConstraintCall& call) {
  for (const Form& form : chain) {
    const ConstraintBuilder::RoleScope role(b, form.role);
    if (form.run(b, call) == Claim::kDone) return Claim::kDone;
  }
  return Claim::kPass;
}

}  // namespace

void ConstraintBuilder::handle_constraint(const MapPtr& constr, const Env& env) {
  ConstraintCall call{constr, env};
  MapPtr outer = current_constraint_;
  current_constraint_ = constr;
  // A labelled constraint names its rows; nodes that forms make from it
  // carry no label and keep the one in force.
  std::string outer_label = label_;
  if (const Value* label = constr->find("opl_label"); label != nullptr && label->is_str())
    label_ = label->as_str();
  const auto restore = [&] {
    current_constraint_ = std::move(outer);
    label_ = std::move(outer_label);
  };
  try {
    run_forms(kChain, *this, call);
  } catch (Error& e) {
    note_origin(e, *constr);
    restore();
    throw;
  } catch (...) {
    restore();
    throw;
  }
  restore();
}

Claim forms::comparison(ConstraintBuilder& b, ConstraintCall& call) {
  if (py_str(call.constr->get("type")) != "constraint") return Claim::kPass;
  return run_forms(kComparisonChain, b, call);
}

}  // namespace kolva
