// Expressions as text, for the script's comments: "# Symbolic objective: ..."
// and the range texts of "# OPL: dvar". Nothing is evaluated here.
#include <initializer_list>
#include <string>
#include <string_view>

#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

// The pieces joined in order. (Chains of operator+ on temporaries set off
// a false -Wrestrict in GCC 12 once inlined deeply enough.)
std::string concat(std::initializer_list<std::string_view> pieces) {
  std::string out;
  for (const std::string_view piece : pieces) out += piece;
  return out;
}

// The two walks differ in a few node kinds; `env` is null for the walk that
// has no Env, which also reads some keys with defaults instead of directly.
class ExpressionText {
 public:
  ExpressionText(const Map* tuple_types, const Env* env) : tuple_types_(tuple_types), env_(env) {}

  std::string text(const Value& expr) {
    if (!expr.is_map()) return py_str(expr);
    const Map& node = *expr.as_map();
    const std::string type = py_str(node.get("type"));
    const bool lenient = env_ == nullptr;
    const auto key = [&](std::string_view k) -> Value { return lenient ? node.get(k) : node.at(k); };
    if (type == "number") return py_str(key("value"));
    if (type == "name") return py_str(key("value"));
    if (type == "binop")
      return concat({"(", text(key("left")), " ", py_str(key("op")), " ", text(key("right")), ")"});
    if (type == "uminus") return concat({"-(", text(key("value")), ")"});
    if (type == "parenthesized_expression") return concat({"(", text(node.at("expression")), ")"});
    if (type == "conditional") {
      return concat({"(", text(node.at("then")), " if (", text(node.at("condition")), ") else ",
                     text(node.at("else")), ")"});
    }
    if (type == "indexed_name") return py_str(node.at("name")) + "[" + joined(node.at("dimensions")) + "]";
    if (type == "field_access") return field_access(node);
    if (type == "boolean_literal") return py_truth(node.get("value")) ? "True" : "False";
    if (type == "minl" || type == "maxl") {
      return std::string(type == "minl" ? "min" : "max") + "(" + joined(node.get("args", empty_list())) + ")";
    }
    if (type == "name_reference_index") {
      const Value name = node.get("name");
      if (lenient || name.is_list() || name.is_map()) return py_str(name);
      return py_str(env_->get(name, name));
    }
    if (type == "number_literal_index") return py_str(node.at("value"));
    if (type == "string_literal") return py_repr(node.at("value"));
    if (type == "tuple_literal" && lenient) return "(" + joined(node.at("elements")) + ")";
    return py_str(expr);
  }

 private:
  std::string joined(const Value& items) {
    std::string out;
    const ValueVec members = items.is_sequence() ? items.items() : ValueVec{};
    for (std::size_t i = 0; i < members.size(); ++i) {
      if (i > 0) out += ", ";
      out += text(members[i]);
    }
    return out;
  }

  std::string field_access(const Map& node) {
    const Value& base = node.at("base");
    const std::string base_text = text(base);
    const Value& field = node.at("field");
    const Value sem_type = base.is_map() ? base.as_map()->get("sem_type") : Value();
    if (tuple_types_ != nullptr && py_truth(sem_type) && !sem_type.is_list() && !sem_type.is_map()) {
      if (const Value* fields = tuple_types_->find(sem_type)) {
        const ValueVec& records = fields->items();
        for (std::size_t i = 0; i < records.size(); ++i) {
          if (records[i].is_map() && py_eq(records[i].as_map()->get("name"), field)) {
            return base_text + "[" + std::to_string(i) + "]";
          }
        }
      }
    }
    return base_text + "['" + py_str(field) + "']";
  }

  const Map* tuple_types_;
  const Env* env_;
};

}  // namespace

std::string Generator::_emit_python_expr(const Value& expr, const Env& env) {
  return ExpressionText(tuple_types.get(), &env).text(expr);
}

std::string Generator::_traverse_expression(const Value& expr) {
  return ExpressionText(tuple_types.get(), nullptr).text(expr);
}

std::string Generator::_emit_symbolic_expr(const Value& expr) {
  return expr.is_map() ? _traverse_expression(expr) : py_str(expr);
}

}  // namespace kolva
