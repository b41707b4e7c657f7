// Parameter without data: `p <= x` where p is declared but has no value.
// Recognises a direct side (left, then right) that names such a parameter.
// Emits nothing; raises "Constraint references parameter with no data provided".
#include "constraints/forms/forms.hpp"
#include "model/repr.hpp"

namespace kolva::forms {
namespace {

bool is_unbound_param_node(Generator& gen, const Value& node) {
  if (!node.is_map()) return false;
  const Map& n = *node.as_map();
  const std::string type = py_str(n.get("type"));
  if (type != "name" && type != "indexed_name") return false;
  const Value symbol = n.get(type == "name" ? "value" : "name");
  if (symbol.is_none() || !symbol.is_str()) return false;
  const MapPtr decl = gen._find_decl(symbol.as_str());
  if (decl == nullptr) return false;
  const std::string kind = py_str(decl->get("type"));
  const bool inline_kind = kind == "parameter_inline" || kind == "parameter_inline_indexed";
  const bool param_kind = inline_kind || kind == "parameter_external" ||
                          kind == "parameter_external_indexed" || kind == "parameter_external_explicit" ||
                          kind == "parameter_external_explicit_indexed";
  if (!param_kind) return false;
  if (inline_kind && !decl->get("value").is_none()) return false;
  return gen.data_dict->get(symbol).is_none();
}

}  // namespace

Claim parameter_without_data(ConstraintBuilder& b, ConstraintCall& call) {
  const Map& constr = *call.constr;
  if (py_str(constr.get("type")) != "constraint") return Claim::kPass;
  if (is_unbound_param_node(b.gen, constr.get("left")) || is_unbound_param_node(b.gen, constr.get("right"))) {
    raise_semantic("Constraint references parameter with no data provided");
  }
  return Claim::kPass;
}

Claim log_constraint(ConstraintBuilder& b, ConstraintCall& call) {
  b.gen.log().debug(
      [&] { return "[SciPyCSCCodeGenerator] handle_constraint: " + py_str(Value::map(call.constr)); });
  return Claim::kPass;
}

Claim end_of_chain(ConstraintBuilder& b, ConstraintCall& call) {
  const std::string type = py_str(call.constr->get("type"));
  if (type == "implication_constraint") return Claim::kDone;
  b.gen.log().debug([&] { return "Unsupported constraint type: " + type; });
  return Claim::kDone;
}

}  // namespace kolva::forms
