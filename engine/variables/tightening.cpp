// Simple constraints read as variable bounds before any bound is written:
// `x <= 5`, `x == 2`, and the same under a forall over a literal range. The
// constraints still become rows later; this only narrows the boxes that the
// solver and the big-M estimates see. Nothing here raises for a model it
// cannot read: such a constraint narrows nothing.
#include <string>

#include "evaluator/evaluator.hpp"
#include "generator/generator.hpp"
#include "model/int_range.hpp"
#include "model/interrupt.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

std::string type_of(const Map& node) { return py_str(node.get("type")); }

class Tightener {
 public:
  Tightener(Generator& gen, std::vector<Value>& lower, std::vector<Value>& upper)
      : gen_(gen), lower_(lower), upper_(upper) {}

  void constraint(const Value& constr, const Env& env) {
    if (!constr.is_map()) return;
    const std::string type = type_of(*constr.as_map());
    if (type == "constraint") simple(*constr.as_map(), env);
    if (type == "forall_constraint") forall(*constr.as_map(), env);
  }

 private:
  void update(std::optional<std::int64_t> idx, const std::string& op, double val) {
    if (!idx || *idx < 0 || static_cast<std::size_t>(*idx) >= lower_.size()) return;
    Value& lo = lower_[static_cast<std::size_t>(*idx)];
    Value& up = upper_[static_cast<std::size_t>(*idx)];
    const Value v = Value::real(val);
    if (op == ">=") {
      if (lo.is_none() || py_lt(lo, v)) lo = v;
    } else if (op == "<=") {
      if (up.is_none() || py_lt(v, up)) up = v;
    } else if (op == "==") {
      lo = v;
      up = v;
    }
  }

  std::optional<std::int64_t> column_of(const Value& name) const {
    if (!name.is_str()) return std::nullopt;
    const std::optional<std::int64_t> it = gen_.var_indices.find(name.as_str());
    return it;
  }

  void simple(const Map& constr, const Env& env) {
    const Value& left = constr.at("left");
    const Value& right = constr.at("right");
    const std::string op = py_str(constr.at("op"));
    EvalResult rhs;
    try {
      rhs = gen_._eval_expr(right, &env);
    } catch (const Error&) {
      return;
    }
    if (rhs.has_vars() || !rhs.val.is_number()) return;
    const double rhs_val = py_float(rhs.val);
    if (!left.is_map()) return;
    const Map& lhs = *left.as_map();
    const std::string left_type = type_of(lhs);
    if (left_type == "name") {
      update(column_of(lhs.at("value")), op, rhs_val);
    } else if (left_type == "indexed_name") {
      indexed(left, env, op, rhs_val);
    }
  }

  void indexed(const Value& left, const Env& env, const std::string& op, double rhs_val) {
    const Map& lhs = *left.as_map();
    ExpressionEvaluator& ev = gen_.evaluator();
    try {
      const IndexEvaluator by_index = [&ev](const Value& dim, const Map& scope) {
        return ev._eval_index_expr(dim, scope).val;
      };
      if (const auto column = column_of(Value::str(gen_._multi_indexed_var_name(left, env, &by_index)))) {
        update(column, op, rhs_val);
        return;
      }
    } catch (const Error&) {  // NOLINT(bugprone-empty-catch): the lookup by indices below follows
    }
    try {
      ValueVec remapped;
      for (const Value& d : lhs.at("dimensions").items()) {
        const std::string dim_type = d.is_map() ? type_of(*d.as_map()) : std::string();
        Value v;
        if (dim_type == "name_reference_index") {
          const Value& n = d.as_map()->at("name");
          v = n.is_list() || n.is_map() ? Value() : env.get(n);
        } else if (dim_type == "number_literal_index") {
          v = d.as_map()->at("value");
        } else {
          v = ev._eval_index_expr(d, env).val;
        }
        remapped.push_back(v.is_float() ? normalize_integral(v) : v);
      }
      const LookupResult found = gen_._lookup_var_or_param(py_str(lhs.at("name")), &remapped, &env);
      if (found.is_var) update(found.column, op, rhs_val);
    } catch (const Error&) {  // NOLINT(bugprone-empty-catch): a reference it cannot resolve narrows nothing
    }
  }

  static Value literal_bound(const Value& v) {
    if (v.is_map() && v.as_map()->contains("value")) return v.as_map()->at("value");
    return v;
  }

  void forall(const Map& constr, const Env& env) {
    const Value iterators = constr.get("iterators");
    if (!iterators.is_sequence() || iterators.items().empty()) return;
    ValueVec loop_vars;
    for (const Value& it : iterators.items()) loop_vars.push_back(it.as_map()->at("iterator"));
    const Value rng = iterators.items()[0].as_map()->get("range");
    if (!rng.is_map()) return;
    const Map& range = *rng.as_map();
    Value start;
    Value end;
    if (range.contains("start") && range.contains("end")) {
      start = literal_bound(range.at("start"));
      end = literal_bound(range.at("end"));
    } else if (range.contains("name")) {
      static const std::string kRangeDecl = "range_declaration_inline";
      const Value name = range.at("name");
      const MapPtr decl = name.is_str() ? gen_._find_decl(name.as_str(), &kRangeDecl) : nullptr;
      if (decl == nullptr) return;
      start = literal_bound(decl->get("start"));
      end = literal_bound(decl->get("end"));
    } else {
      return;
    }
    std::int64_t first = 0;
    std::int64_t last = 0;
    try {
      first = py_int(start);
      last = py_int(end);
    } catch (const Error&) {
      return;  // only literal bounds tighten
    }
    const Value index_constraint = constr.get("index_constraint");
    ValueVec inner;
    if (const Value* one = constr.find("constraint")) {
      inner.push_back(*one);
    } else {
      const Value many = constr.get("constraints", empty_list());
      if (many.is_sequence()) inner = many.items();
    }
    checked_range_size(first, last);
    for_each_in_range(first, last, [&](std::int64_t t) {
      poll_interrupt();
      Env env2 = env;
      // Every iterator takes the first one's value: this pass visits the
      // diagonal of a multi-iterator forall only.
      for (const Value& v : loop_vars) env2.set(v, Value::integer(t));
      if (!gen_.index_filter_keeps(index_constraint, env2)) return;
      for (const Value& c : inner) constraint(c, env2);
    });
  }

  Generator& gen_;
  std::vector<Value>& lower_;
  std::vector<Value>& upper_;
};

}  // namespace

void Generator::_tighten_bounds_from_constraints(std::vector<BoundPair>& bounds_in_out,
                                                 const Value& constraints) {
  std::vector<Value> lower;
  std::vector<Value> upper;
  for (const BoundPair& pair : bounds_in_out) {
    lower.push_back(pair.lower);
    upper.push_back(pair.upper);
  }
  Tightener tightener(*this, lower, upper);
  const Env empty;
  if (constraints.is_sequence()) {
    for (const Value& constr : constraints.items()) tightener.constraint(constr, empty);
  }
  for (std::size_t i = 0; i < lower.size() && i < bounds_in_out.size(); ++i) {
    bounds_in_out[i].lower = lower[i];
    bounds_in_out[i].upper = upper[i];
  }
}

}  // namespace kolva
