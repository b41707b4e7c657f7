// Slots of the chain whose forms are compiled in a later stage of the engine.
#include "constraints/forms/forms.hpp"
#include "model/repr.hpp"

namespace kolva::forms {

Claim not_yet_built(ConstraintBuilder& /*b*/, ConstraintCall& /*call*/) { return Claim::kPass; }

Claim implication_not_yet_built(ConstraintBuilder& b, ConstraintCall& call) {
  if (py_str(call.constr->get("type")) != "implication_constraint") return Claim::kPass;
  b.gen.log().warning([&] {
    return "[SciPyCSCCodeGenerator] implication constraints are not compiled by this build; dropped: " +
           py_str(Value::map(call.constr));
  });
  return Claim::kDone;
}

}  // namespace kolva::forms
