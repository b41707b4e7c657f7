// Bound estimates of linear expressions, the big-M of a comparison, the
// strict-inequality adjustment and the flattening of Boolean nodes.
#include <cmath>
#include <string>

#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

constexpr double kDefaultBoxLower = -1000.0;
constexpr double kDefaultBoxUpper = 1000.0;

std::string type_of(const Value& v) { return v.is_map() ? py_str(v.as_map()->get("type")) : std::string(); }

std::optional<double> opt_number(const Value& v) {
  if (v.is_none()) return std::nullopt;
  return py_float(v);
}

Value from_opt(const std::optional<double>& d) { return d ? Value::real(*d) : Value(); }

}  // namespace

double Generator::_big_m_for_comparison(const Value& comp, const Env* env) {
  const Env empty;
  const Env& scope = env != nullptr ? *env : empty;
  try {
    const Map& node = *comp.as_map();
    const EvalResult lhs = _eval_expr(node.at("left"), &scope);
    const Value& right = node.at("right");
    EvalResult rhs;
    if (right.is_map()) {
      rhs = _eval_expr(right, &scope);
    } else {
      rhs = EvalResult::constant(right);
    }
    // Constants that Python could not subtract leave the default.
    if (lhs.marker != nullptr || rhs.marker != nullptr || !lhs.val.is_number() || !rhs.val.is_number()) {
      return kBigMDefault;
    }
    CoefDict expr_coef = lhs.coef;
    for (const CoefDict::Item& item : rhs.coef.items()) expr_coef.add(item.first, -item.second);
    const double expr_const = py_float(lhs.val) - py_float(rhs.val);
    double f_min = expr_const;
    double f_max = expr_const;
    for (const CoefDict::Item& item : expr_coef.items()) {
      const double lb = py_float(collected_lbs->get(item.first, Value::real(kDefaultBoxLower)));
      const double ub = py_float(collected_ubs->get(item.first, Value::real(kDefaultBoxUpper)));
      const double cf = item.second;
      if (cf >= 0) {
        f_min += cf * lb;
        f_max += cf * ub;
      } else {
        f_min += cf * ub;
        f_max += cf * lb;
      }
    }
    const double width = f_max - f_min;
    return std::max(std::max({std::fabs(f_min), std::fabs(f_max), std::fabs(width)}) + 1.0, 1.0);
  } catch (const Error&) {
    return kBigMDefault;
  }
}

std::pair<std::string, double> Generator::_strict_adjusted_rhs(const std::string& op, double rhs_value) {
  if (op == ">") return {">=", rhs_value + kBoolEps};
  if (op == "<") return {"<=", rhs_value - kBoolEps};
  return {op, rhs_value};
}

bool Generator::_is_linear_comparison(const Value& node) {
  if (!node.is_map()) return false;
  const Map& n = *node.as_map();
  const std::string op = py_str(n.get("op"));
  return type_of(node) == "binop" && py_str(n.get("sem_type")) == "boolean" &&
         (op == "<=" || op == ">=" || op == "==" || op == "!=");
}

ValueVec Generator::_flatten_bool(const Value& node, const std::string& target_type) {
  if (!node.is_map() || type_of(node) != target_type) return {node};
  ValueVec out = _flatten_bool(node.as_map()->at("left"), target_type);
  ValueVec right = _flatten_bool(node.as_map()->at("right"), target_type);
  out.insert(out.end(), right.begin(), right.end());
  return out;
}

std::pair<Value, Value> Generator::_var_bounds_safe(const Value& node) {
  const std::string type = type_of(node);
  if (type == "number") {
    const Value v = node.as_map()->get("value", Value::integer(0));
    return {v, v};
  }
  if (type != "name" && type != "indexed_name") return {Value(), Value()};
  const Value symbol = node.as_map()->get(type == "name" ? "value" : "name");
  // A scan over the declarations per call, as the rule is stated.
  const Value decls = ast->get("declarations", empty_list());
  for (const Value& d : decls.items()) {
    if (!d.is_map()) continue;
    const std::string kind = type_of(d);
    if ((kind != "dvar" && kind != "dvar_indexed") || !py_eq(d.as_map()->get("name"), symbol)) continue;
    const std::string var_type = py_str(d.as_map()->get("var_type"));
    if (var_type == "boolean") return {Value::real(0.0), Value::real(1.0)};
    if (var_type == "int+" || var_type == "float+") return {Value::real(0.0), Value()};
    return {Value(), Value()};
  }
  return {Value(), Value()};
}

std::pair<Value, Value> Generator::_linear_bounds_safe(const Value& node) {
  try {
    const std::string type = type_of(node);
    if (type == "name" || type == "indexed_name") {
      const Map& n = *node.as_map();
      const std::string vname =
          type == "name" ? py_str(n.at("value")) : _multi_indexed_var_name(node, Env(), nullptr);
      std::optional<double> lb = opt_number(collected_lbs->get(vname));
      std::optional<double> ub = opt_number(collected_ubs->get(vname));
      if (type == "indexed_name") {
        const std::string base = py_str(n.at("name"));
        if (!lb) lb = opt_number(collected_lbs->get(base));
        if (!ub) ub = opt_number(collected_ubs->get(base));
      }
      if (!lb || !ub) {
        const auto [tlb_v, tub_v] = _var_bounds_safe(node);
        const std::optional<double> tlb = opt_number(tlb_v);
        const std::optional<double> tub = opt_number(tub_v);
        if (tlb) lb = lb ? std::max(*tlb, *lb) : *tlb;
        if (tub) ub = ub ? std::min(*tub, *ub) : *tub;
      }
      return {from_opt(lb), from_opt(ub)};
    }
    if (type == "number") {
      const Value v = node.as_map()->at("value");
      return {v, v};
    }
    if (type == "unaryop" && py_str(node.as_map()->get("op")) == "-") {
      const auto [lo, up] = _linear_bounds_safe(node.as_map()->at("value"));
      const std::optional<double> l = opt_number(lo);
      const std::optional<double> u = opt_number(up);
      return {from_opt(u ? std::optional<double>(-*u) : std::nullopt),
              from_opt(l ? std::optional<double>(-*l) : std::nullopt)};
    }
    if (type == "binop") {
      const Map& n = *node.as_map();
      const std::string op = py_str(n.get("op"));
      const Value& left = n.at("left");
      const Value& right = n.at("right");
      if (op == "+" || op == "-") {
        const auto [ll, lu] = _linear_bounds_safe(left);
        const auto [rl, ru] = _linear_bounds_safe(right);
        if (ll.is_none() || lu.is_none() || rl.is_none() || ru.is_none()) return {Value(), Value()};
        if (op == "+")
          return {Value::real(py_float(ll) + py_float(rl)), Value::real(py_float(lu) + py_float(ru))};
        return {Value::real(py_float(ll) - py_float(ru)), Value::real(py_float(lu) - py_float(rl))};
      }
      if (op == "*") {
        const bool left_num = type_of(left) == "number";
        const Value& number = left_num ? left : right;
        const Value& var = left_num ? right : left;
        if (type_of(number) != "number" || (type_of(var) != "name" && type_of(var) != "indexed_name")) {
          return {Value(), Value()};
        }
        const double c = py_float(number.as_map()->at("value"));
        const auto [vl, vu] = _linear_bounds_safe(var);
        if (vl.is_none() || vu.is_none()) return {Value(), Value()};
        if (c >= 0) return {Value::real(c * py_float(vl)), Value::real(c * py_float(vu))};
        return {Value::real(c * py_float(vu)), Value::real(c * py_float(vl))};
      }
    }
    return {Value(), Value()};
  } catch (const Error&) {
    return {Value(), Value()};  // callers read a failure as unknown bounds
  }
}

}  // namespace kolva
