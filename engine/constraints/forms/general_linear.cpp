// General linear comparison: `lhs op rhs` for ==, <=, >=, <, >.
// Recognises every comparison that no earlier form claimed.
// Emits one row: an equality row for ==, an upper-bound row otherwise
// (>= stored negated, strict comparisons moved by BOOL_EPS). Any other
// operator is logged and the constraint is dropped.
#include <string>
#include <utility>

#include "constraints/forms/forms.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"

namespace kolva::forms {
namespace {

std::string key_text(const CoefKey& key) {
  return key.is_column ? std::to_string(key.column) : py_repr_str(key.name);
}

std::string coefs_text(const KeyedCoefs& coefs) {
  std::string out = "{";
  bool first = true;
  for (const KeyedCoefs::Item& item : coefs.items()) {
    if (!first) out += ", ";
    first = false;
    out += key_text(item.first) + ": " + py_repr_float(item.second);
  }
  return out + "}";
}

std::string dense_text(const std::vector<std::pair<std::int64_t, double>>& entries, std::size_t width) {
  std::vector<double> dense(width, 0.0);
  for (const auto& [col, v] : entries) {
    if (std::cmp_less(col, width)) dense[static_cast<std::size_t>(col)] = v;
  }
  std::string out = "[";
  for (std::size_t i = 0; i < dense.size(); ++i) {
    if (i > 0) out += ", ";
    out += py_repr_float(dense[i]);
  }
  return out + "]";
}

}  // namespace

Claim general_linear_comparison(ConstraintBuilder& b, ConstraintCall& call) {
  Generator& gen = b.gen;
  const Map& constr = *call.constr;
  const auto [lhs, lhs_const] = gen._accumulate_sum_to_dict(constr.at("left"), call.env, 1.0);
  const auto [rhs, rhs_const] = gen._accumulate_sum_to_dict(constr.at("right"), call.env, 1.0);
  const Log& log = gen.log();
  log.debug([&] {
    return "[SciPyCSCCodeGenerator] lhs_dict: " + coefs_text(lhs) +
           ", lhs_const: " + py_repr_float(lhs_const);
  });
  log.debug([&] {
    return "[SciPyCSCCodeGenerator] rhs_dict: " + coefs_text(rhs) +
           ", rhs_const: " + py_repr_float(rhs_const);
  });
  RowAccumulator& row = b.row();
  row.reset();
  const auto add_side = [&](const KeyedCoefs& side, double factor, const char* word) {
    for (const KeyedCoefs::Item& item : side.items()) {
      std::optional<std::int64_t> idx;
      if (item.first.is_column) {
        idx = item.first.column;
      } else if (const std::optional<std::int64_t> it = gen.var_indices.find(item.first.name);
                 it.has_value()) {
        idx = it;
      }
      log.debug([&] {
        return std::string("[SciPyCSCCodeGenerator] ") + word +
               " vname: " + (item.first.is_column ? std::to_string(item.first.column) : item.first.name) +
               ", coef: " + py_repr_float(item.second) + ", idx: " + (idx ? std::to_string(*idx) : "None");
      });
      if (idx) row.add(*idx, factor * item.second);
    }
  };
  add_side(lhs, 1.0, "LHS");
  add_side(rhs, -1.0, "RHS");
  const double rhs_value = rhs_const - lhs_const;
  log.debug([&] {
    return "[SciPyCSCCodeGenerator] Final constraint row: " +
           dense_text(row.sorted_entries(), gen.var_names.size()) +
           ", rhs_value: " + py_repr_float(rhs_value);
  });
  const std::string op = py_str(constr.at("op"));
  if (op == "==") {
    b.append_eq_row(rhs_value);
  } else if (op == "<=") {
    b.append_ub_row(rhs_value);
  } else if (op == ">=") {
    row.negate();
    b.append_ub_row(-rhs_value);
  } else if (op == ">" || op == "<") {
    const auto [adjusted_op, adjusted_rhs] = Generator::_strict_adjusted_rhs(op, rhs_value);
    if (adjusted_op == "<=") {
      b.append_ub_row(adjusted_rhs);
    } else {
      row.negate();
      b.append_ub_row(-adjusted_rhs);
    }
  } else {
    // An unknown operator drops the constraint; that loss is the rule.
    log.debug([&] { return "Unsupported op: " + op; });
  }
  return Claim::kDone;
}

}  // namespace kolva::forms
