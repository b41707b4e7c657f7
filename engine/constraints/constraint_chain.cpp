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
  Claim (*run)(ConstraintBuilder& b, ConstraintCall& call);
  // The suffix of the rows this form stores ("" for a plain row).
  std::string_view role = "";
};

// Every constraint, whatever its type.
constexpr std::array kChain = {
    Form{"parameter without data", &forms::parameter_without_data},
    Form{"top-level Boolean tree", &forms::top_level_boolean_tree, "logic"},
    Form{"log the constraint", &forms::log_constraint},
    Form{"pre-registration and bound collection", &forms::preregistration_and_bound_collection},
    Form{"constraint over an implies node", &forms::constraint_over_implies, "imp"},
    Form{"implication", &forms::implication, "imp"},
    Form{"comparison", &forms::comparison},
    Form{"forall", &forms::forall},
    Form{"end of chain", &forms::end_of_chain},
};

// Constraints of type "constraint", tried in this order by the comparison step.
constexpr std::array kComparisonChain = {
    Form{"weighted Boolean sum, early copy", &forms::weighted_boolean_sum_early, "count"},
    Form{"sum of comparisons", &forms::sum_of_comparisons, "count"},
    Form{"name equals sum of comparisons", &forms::name_equals_sum_of_comparisons, "count"},
    Form{"parenthesis stripping", &forms::parenthesis_stripping},
    Form{"comparison equals true", &forms::comparison_equals_true, "logic"},
    Form{"comparison equals false", &forms::comparison_equals_false, "logic"},
    Form{"not-equal on Boolean variables", &forms::not_equal, "logic"},
    Form{"not of a comparison against a literal", &forms::not_of_comparison, "logic"},
    Form{"declared Boolean equals evaluated expression", &forms::declared_bool_equals_expression, "logic"},
    Form{"Boolean variable equals threshold on a sum", &forms::boolean_variable_equals_threshold_on_sum,
         "count"},
    Form{"Boolean tree against a literal", &forms::boolean_tree_against_literal, "logic"},
    Form{"Boolean variable against Boolean expression", &forms::boolean_variable_against_expression, "logic"},
    Form{"weighted Boolean sum, second copy", &forms::weighted_boolean_sum_late, "count"},
    Form{"sum of comparisons against a number", &forms::sum_of_comparisons_any_op, "count"},
    Form{"variable equals threshold on a sum of comparisons", &forms::variable_equals_threshold_on_count,
         "count"},
    Form{"conjunction or disjunction asserted true", &forms::conjunction_or_disjunction_true, "logic"},
    Form{"general linear comparison", &forms::general_linear_comparison},
};

Claim run_forms(const auto& chain, ConstraintBuilder& b, ConstraintCall& call) {
  for (const Form& form : chain) {
    const std::string_view outer = b.set_role(form.role);
    const Claim claim = form.run(b, call);
    b.set_role(outer);
    if (claim == Claim::kDone) return Claim::kDone;
  }
  return Claim::kPass;
}

}  // namespace

void ConstraintBuilder::handle_constraint(const MapPtr& constr, const Env& env) {
  ConstraintCall call{constr, env};
  MapPtr outer = current_constraint_;
  const std::string* outer_label = label_;
  current_constraint_ = constr;
  if (const Value* label = constr->find("opl_label"); label != nullptr && label->is_str()) {
    label_ = &label->as_str();
  }
  try {
    run_forms(kChain, *this, call);
  } catch (Error& e) {
    note_origin(e, *constr);
    current_constraint_ = std::move(outer);
    label_ = outer_label;
    throw;
  } catch (...) {
    current_constraint_ = std::move(outer);
    label_ = outer_label;
    throw;
  }
  current_constraint_ = std::move(outer);
  label_ = outer_label;
}

Claim forms::comparison(ConstraintBuilder& b, ConstraintCall& call) {
  if (py_str(call.constr->get("type")) != "constraint") return Claim::kPass;
  return run_forms(kComparisonChain, b, call);
}

}  // namespace kolva
