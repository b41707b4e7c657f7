#include "opl/data_eval.hpp"

#include <cmath>
#include <limits>
#include <unordered_map>

#include "model/error.hpp"
#include "model/int_range.hpp"
#include "model/map.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva::opl {

namespace {

std::string shown(const Value& v) { return py_repr(v); }

// Distinct members in first-seen order, as OPL sets keep them.
class MemberSet {
 public:
  bool add(const Value& v) {
    if (contains(v)) return false;
    index_[py_hash(v)].push_back(items_.size());
    items_.push_back(v);
    return true;
  }
  bool contains(const Value& v) const {
    auto it = index_.find(py_hash(v));
    if (it == index_.end()) return false;
    for (std::size_t i : it->second) {
      if (py_eq(items_[i], v)) return true;
    }
    return false;
  }
  Value take() { return Value::list(std::move(items_)); }

 private:
  ValueVec items_;
  std::unordered_map<std::uint64_t, std::vector<std::size_t>> index_;
};

double number_of(const Value& v, const Place& at, const char* what) {
  if (!v.is_number()) fail_at(at, std::string(what) + " needs a number, got " + shown(v));
  return py_float(v);
}

std::int64_t int_of(const Value& v, const Place& at, const char* what) {
  if (v.is_int_like()) return py_int(v);
  if (v.is_float()) {
    if (auto i = integral_value(v.as_float())) return *i;
  }
  fail_at(at, std::string(what) + " needs an integer, got " + shown(v));
}

}  // namespace

Value range_value(std::int64_t start, std::int64_t end) {
  MapPtr m = make_map();
  m->set("type", Value::str("range_data"));
  m->set("start", Value::integer(start));
  m->set("end", Value::integer(end));
  return Value::map(m);
}

bool is_range_value(const Value& v) { return v.is_map() && node_type(*v.as_map()) == "range_data"; }
std::int64_t range_start(const Value& v) { return v.as_map()->at("start").as_int(); }
std::int64_t range_end(const Value& v) { return v.as_map()->at("end").as_int(); }

Value coerce_to(const ElemType& type, const Value& v, const Place& at, const std::string& what) {
  auto mismatch = [&]() -> Value {
    fail_at(at, what + " expects " + (type.base == ElemType::Base::kInt ? "an " : "a ") + type.spelling() +
                    ", got " + shown(v));
  };
  switch (type.base) {
    case ElemType::Base::kInt:
      if (v.is_int()) return v;
      if (v.is_bool()) return Value::integer(v.as_bool() ? 1 : 0);
      if (v.is_float()) {
        if (auto i = integral_value(v.as_float())) return Value::integer(*i);
      }
      return mismatch();
    case ElemType::Base::kFloat:
      if (v.is_float()) return v;
      if (v.is_int_like()) return Value::real(py_float(v));
      return mismatch();
    case ElemType::Base::kBool:
      if (v.is_bool()) return v;
      if (v.is_int() && (v.as_int() == 0 || v.as_int() == 1)) return Value::boolean(v.as_int() == 1);
      return mismatch();
    case ElemType::Base::kString:
      return v.is_str() ? v : mismatch();
    case ElemType::Base::kTuple: {
      if (!v.is_tuple() || v.items().size() != type.tuple->fields.size()) return mismatch();
      ValueVec items;
      for (std::size_t i = 0; i < v.items().size(); ++i) {
        const TupleField& f = type.tuple->fields[i];
        items.push_back(coerce_to(f.type, v.items()[i], at, what + " (field '" + f.name + "')"));
      }
      return Value::tuple(std::move(items));
    }
  }
  return mismatch();
}

const DataEval::Bound* DataEval::bound(const std::string& name) const {
  for (auto it = bound_.rbegin(); it != bound_.rend(); ++it) {
    if (it->name == name) return &*it;
  }
  return nullptr;
}

std::size_t DataEval::bind_member(const Binding& b, const Value& member) {
  const TupleInfo* tuple = tuple_type_of(*b.domain);
  if (!b.pattern) {
    bind(b.names[0], member, tuple);
    return 1;
  }
  if (!member.is_tuple() || member.items().size() != b.names.size()) {
    fail_at(b.place, "the pattern has " + std::to_string(b.names.size()) + " names but the member " +
                         shown(member) + " does not have as many fields");
  }
  for (std::size_t i = 0; i < b.names.size(); ++i) {
    const TupleInfo* inner = nullptr;
    if (tuple != nullptr && i < tuple->fields.size()) inner = tuple->fields[i].type.tuple;
    bind(b.names[i], member.items()[i], inner);
  }
  return b.names.size();
}

std::vector<Value> DataEval::members(const Value& domain, const Place& at) const {
  if (is_range_value(domain)) {
    const std::int64_t lo = range_start(domain);
    const std::int64_t hi = range_end(domain);
    std::vector<Value> out;
    if (hi < lo) return out;
    // The difference in unsigned arithmetic: exact for any two int64 values.
    if (static_cast<std::uint64_t>(hi) - static_cast<std::uint64_t>(lo) >= kMaxRangeMembers) {
      fail_at(at,
              "the range " + std::to_string(lo) + ".." + std::to_string(hi) + " is too large to enumerate");
    }
    out.reserve(static_cast<std::size_t>(hi - lo + 1));
    for (std::int64_t i = lo;; ++i) {
      out.push_back(Value::integer(i));
      if (i == hi) break;
    }
    return out;
  }
  if (domain.is_sequence()) return domain.items();
  fail_at(at, "expected a set or a range here, got " + shown(domain));
}

void DataEval::for_each(const Iteration& it, const std::function<void()>& body) {
  for_each_from(it, 0, body);
}

void DataEval::for_each_from(const Iteration& it, std::size_t k, const std::function<void()>& body) {
  if (k == it.bindings.size()) {
    if (it.filter == nullptr || truth(*it.filter)) body();
    return;
  }
  const Binding& b = it.bindings[k];
  const std::vector<Value> dom = members(eval(*b.domain), b.domain->place);
  for (const Value& member : dom) {
    const std::size_t n = bind_member(b, member);
    for_each_from(it, k + 1, body);
    unbind(n);
  }
}

const TupleInfo* DataEval::tuple_type_of(const Expr& e) const {
  switch (e.kind) {
    case ExprKind::kName: {
      if (const Bound* b = bound(e.text)) return b->tuple;
      const Symbol* s = symbols_.find(e.text);
      return s != nullptr && s->elem.base == ElemType::Base::kTuple ? s->elem.tuple : nullptr;
    }
    case ExprKind::kIndex:
      return tuple_type_of(*e.args[0]);
    case ExprKind::kField: {
      const TupleInfo* base = tuple_type_of(*e.args[0]);
      if (base == nullptr) return nullptr;
      const int i = base->field_index(e.text);
      return i < 0 ? nullptr : base->fields[static_cast<std::size_t>(i)].type.tuple;
    }
    case ExprKind::kBinary:
    case ExprKind::kConditional:
      return tuple_type_of(*e.args[e.kind == ExprKind::kConditional ? 1 : 0]);
    case ExprKind::kComprehension:
      return tuple_type_of(*e.args[0]);
    case ExprKind::kSetLiteral:
      return e.args.empty() ? nullptr : tuple_type_of(*e.args[0]);
    case ExprKind::kCall:
      if (e.text == "first" || e.text == "last" || e.text == "next" || e.text == "prev" ||
          e.text == "asSet" || e.text == "item" || e.text == "nextc" || e.text == "prevc") {
        return e.args.empty() ? nullptr : tuple_type_of(*e.args[0]);
      }
      return nullptr;
    default:
      return nullptr;
  }
}

bool DataEval::truth(const Expr& e) {
  const Value v = eval(e);
  if (!v.is_number()) fail_at(e.place, "a condition must be true or false, got " + shown(v));
  return py_truth(v);
}

Value DataEval::eval(const Expr& e) {
  // The value rules raise the engine's errors (an overflow, unlike types
  // compared); here they become errors at the expression that met them.
  try {
    return eval_node(e);
  } catch (const Error& err) {
    fail_at(e.place, err.what());
  }
}

Value DataEval::eval_node(const Expr& e) {
  switch (e.kind) {
    case ExprKind::kInt:
      return Value::integer(e.int_value);
    case ExprKind::kFloat:
      return Value::real(e.float_value);
    case ExprKind::kString:
      return Value::str(e.text);
    case ExprKind::kBool:
      return Value::boolean(e.int_value != 0);
    case ExprKind::kInfinity:
      return Value::real(std::numeric_limits<double>::infinity());
    case ExprKind::kName:
      return name_value(e);
    case ExprKind::kIndex:
      return index_value(e);
    case ExprKind::kField:
      return field_value(e);
    case ExprKind::kCall:
      return call_value(e);
    case ExprKind::kUnary:
      return unary_value(e);
    case ExprKind::kBinary:
      return binary_value(e);
    case ExprKind::kConditional:
      return truth(*e.args[0]) ? eval(*e.args[1]) : eval(*e.args[2]);
    case ExprKind::kAggregate:
      return aggregate_value(e);
    case ExprKind::kSetLiteral:
      return set_value(e);
    case ExprKind::kRange: {
      const Value lo = eval(*e.args[0]);
      const Value hi = eval(*e.args[1]);
      return range_value(int_of(lo, e.args[0]->place, "a range bound"),
                         int_of(hi, e.args[1]->place, "a range bound"));
    }
    case ExprKind::kTuple: {
      ValueVec items;
      for (const ExprPtr& a : e.args) items.push_back(eval(*a));
      return Value::tuple(std::move(items));
    }
    case ExprKind::kArray: {
      ValueVec items;
      for (const ExprPtr& a : e.args) items.push_back(eval(*a));
      return Value::list(std::move(items));
    }
    case ExprKind::kComprehension:
      return comprehension_value(e);
  }
  fail_at(e.place, "unsupported expression");
}

Value DataEval::name_value(const Expr& e) {
  if (const Bound* b = bound(e.text)) return b->value;
  const Symbol* s = symbols_.find(e.text);
  if (s == nullptr) fail_at(e.place, "unknown name '" + e.text + "'");
  if (!s->is_data()) {
    fail_at(e.place, "'" + e.text + "' is a " + kind_word(s->kind) + " and cannot be used in data");
  }
  if (!s->evaluated) fail_at(e.place, "the value of '" + e.text + "' is not known here (it has no data yet)");
  return s->value;
}

Value DataEval::element(const Symbol& sym, const std::vector<Value>& keys, const Place& at) const {
  if (keys.size() != sym.dims.size()) {
    fail_at(at, "'" + sym.name + "' has " + std::to_string(sym.dims.size()) + " indices, but " +
                    std::to_string(keys.size()) + " are given");
  }
  Value v = sym.value;
  for (std::size_t k = 0; k < keys.size(); ++k) {
    const DimInfo& dim = sym.dims[k];
    const Value& key = keys[k];
    const Value* found = nullptr;
    Value holder;
    if (v.is_list() && dim.is_range && key.is_number()) {
      const std::int64_t i = int_of(key, at, "an index");
      if (i >= dim.start && i <= dim.end) {
        holder = v.list_items()[static_cast<std::size_t>(i - dim.start)];
        found = &holder;
      }
    } else if (v.is_map()) {
      found = v.as_map()->find(key);
    }
    if (found == nullptr) {
      fail_at(at,
              "index " + shown(key) + " of '" + sym.name + "' is not in its index set '" + dim.name + "'");
    }
    v = *found;
  }
  return v;
}

Value DataEval::index_value(const Expr& e) {
  const Expr& base = *e.args[0];
  if (base.kind != ExprKind::kName) fail_at(e.place, "only declared arrays can be subscripted");
  const Symbol* s = symbols_.find(base.text);
  if (s == nullptr) fail_at(base.place, "unknown name '" + base.text + "'");
  if (!s->is_data() || s->dims.empty()) {
    if (s->is_data() || s->kind == SymKind::kDvar || s->kind == SymKind::kDexpr) {
      fail_at(base.place, "'" + base.text + "' is a " + kind_word(s->kind) +
                              (s->is_data() ? " without indices" : " and cannot be used in data"));
    }
    fail_at(base.place, "'" + base.text + "' cannot be subscripted");
  }
  if (!s->evaluated)
    fail_at(e.place, "the value of '" + base.text + "' is not known here (it has no data yet)");
  std::vector<Value> keys;
  for (std::size_t i = 1; i < e.args.size(); ++i) keys.push_back(eval(*e.args[i]));
  // x[<a, b>] and x[a, b] address the same entry of an array over a tuple set.
  if (keys.size() > 1 && s->dims.size() == 1) keys = {Value::tuple(std::move(keys))};
  return element(*s, keys, e.place);
}

Value DataEval::field_value(const Expr& e) {
  const Value base = eval(*e.args[0]);
  const TupleInfo* type = tuple_type_of(*e.args[0]);
  if (!base.is_tuple()) fail_at(e.place, "'." + e.text + "' needs a tuple, got " + shown(base));
  if (type == nullptr)
    fail_at(e.place, "the tuple type of this value is not known, so '." + e.text + "' cannot be read");
  const int i = type->field_index(e.text);
  if (i < 0) fail_at(e.place, "tuple type '" + type->name + "' has no field '" + e.text + "'");
  return base.items()[static_cast<std::size_t>(i)];
}

Value DataEval::unary_value(const Expr& e) {
  const Value v = eval(*e.args[0]);
  if (e.text == "!") return Value::boolean(!truth(*e.args[0]));
  number_of(v, e.place, e.text == "-" ? "'-'" : "'+'");
  return e.text == "-" ? py_neg(v) : v;
}

namespace {

Value arithmetic(const std::string& op, const Value& a, const Value& b, const Place& at) {
  const char* what = "arithmetic";
  number_of(a, at, what);
  number_of(b, at, what);
  if (op == "+") return py_add(a, b);
  if (op == "-") return py_sub(a, b);
  if (op == "*") return py_mul(a, b);
  if (op == "/") {
    if (py_float(b) == 0.0) fail_at(at, "division by zero");
    return Value::real(py_float(a) / py_float(b));
  }
  // div and mod truncate toward zero, as integer division does in OPL.
  const std::int64_t x = int_of(a, at, op == "div" ? "'div'" : "'mod'");
  const std::int64_t y = int_of(b, at, op == "div" ? "'div'" : "'mod'");
  if (y == 0) fail_at(at, "division by zero");
  if (x == std::numeric_limits<std::int64_t>::min() && y == -1)
    fail_at(at, "integer overflow in '" + op + "'");
  return Value::integer(op == "div" ? x / y : x % y);
}

bool compare(const std::string& op, const Value& a, const Value& b, const Place& at) {
  if (op == "==") return py_eq(a, b);
  if (op == "!=") return !py_eq(a, b);
  const bool both_numbers = a.is_number() && b.is_number();
  const bool both_strings = a.is_str() && b.is_str();
  const bool both_tuples = a.is_tuple() && b.is_tuple();
  if (!both_numbers && !both_strings && !both_tuples) {
    fail_at(at, "cannot compare " + shown(a) + " and " + shown(b) + " with '" + op + "'");
  }
  if (op == "<") return py_lt(a, b);
  if (op == ">") return py_lt(b, a);
  if (op == "<=") return !py_lt(b, a);
  return !py_lt(a, b);  // >=
}

}  // namespace

Value DataEval::binary_value(const Expr& e) {
  const std::string& op = e.text;
  if (op == "&&") return Value::boolean(truth(*e.args[0]) && truth(*e.args[1]));
  if (op == "||") return Value::boolean(truth(*e.args[0]) || truth(*e.args[1]));
  if (op == "=>") return Value::boolean(!truth(*e.args[0]) || truth(*e.args[1]));
  const Value a = eval(*e.args[0]);
  const Value b = eval(*e.args[1]);
  if (op == "in" || op == "not in") {
    bool found = false;
    if (is_range_value(b)) {
      const std::int64_t v = int_of(a, e.args[0]->place, "membership in a range");
      found = v >= range_start(b) && v <= range_end(b);
    } else {
      for (const Value& m : members(b, e.args[1]->place)) {
        if (py_eq(m, a)) {
          found = true;
          break;
        }
      }
    }
    return Value::boolean(op == "in" ? found : !found);
  }
  if (op == "union" || op == "inter" || op == "diff" || op == "symdiff") {
    MemberSet left;
    for (const Value& m : members(a, e.args[0]->place)) left.add(m);
    MemberSet right;
    for (const Value& m : members(b, e.args[1]->place)) right.add(m);
    MemberSet out;
    for (const Value& m : members(a, e.args[0]->place)) {
      const bool in_right = right.contains(m);
      if (op == "union" || (op == "inter" && in_right) || ((op == "diff" || op == "symdiff") && !in_right))
        out.add(m);
    }
    if (op == "union" || op == "symdiff") {
      for (const Value& m : members(b, e.args[1]->place)) {
        if (op == "union" || !left.contains(m)) out.add(m);
      }
    }
    return out.take();
  }
  if (op == "==" || op == "!=" || op == "<" || op == "<=" || op == ">" || op == ">=") {
    return Value::boolean(compare(op, a, b, e.place));
  }
  if (op == "+" && a.is_str() && b.is_str()) return Value::str(a.as_str() + b.as_str());
  return arithmetic(op == "%" ? "mod" : op, a, b, e.place);
}

Value DataEval::aggregate_value(const Expr& e) {
  const std::string& op = e.text;
  Value acc;
  bool any = false;
  const Expr& body = *e.args[0];
  for_each(*e.iteration, [&]() {
    if (op == "and" || op == "or") {
      const bool t = truth(body);
      acc = Value::boolean(any ? (op == "and" ? (py_truth(acc) && t) : (py_truth(acc) || t)) : t);
      any = true;
      return;
    }
    const Value v = eval(body);
    number_of(v, body.place, op.c_str());
    if (!any) {
      acc = v;
    } else if (op == "sum") {
      acc = py_add(acc, v);
    } else if (op == "prod") {
      acc = py_mul(acc, v);
    } else if (op == "min") {
      if (py_lt(v, acc)) acc = v;
    } else if (op == "max") {
      if (py_lt(acc, v)) acc = v;
    }
    any = true;
  });
  if (any) return acc;
  if (op == "sum") return Value::integer(0);
  if (op == "prod") return Value::integer(1);
  if (op == "and") return Value::boolean(true);
  if (op == "or") return Value::boolean(false);
  // OPL gives the identity of the operation: +infinity for min, -infinity for max.
  return Value::real(op == "min" ? std::numeric_limits<double>::infinity()
                                 : -std::numeric_limits<double>::infinity());
}

Value DataEval::set_value(const Expr& e) {
  MemberSet out;
  for (const ExprPtr& a : e.args) {
    const Value v = eval(*a);
    if (!out.add(v)) fail_at(a->place, "the set lists " + shown(v) + " twice");
  }
  return out.take();
}

Value DataEval::comprehension_value(const Expr& e) {
  MemberSet out;
  for_each(*e.iteration, [&]() { out.add(eval(*e.args[0])); });
  return out.take();
}

Value DataEval::call_value(const Expr& e) {
  const std::string& f = e.text;
  auto arity = [&](std::size_t lo, std::size_t hi) {
    if (e.args.size() < lo || e.args.size() > hi) {
      fail_at(e.place,
              "'" + f + "' takes " +
                  (lo == hi ? std::to_string(lo) : std::to_string(lo) + " or " + std::to_string(hi)) +
                  " argument" + (hi == 1 ? "" : "s") + ", got " + std::to_string(e.args.size()));
    }
  };
  if (f == "minl" || f == "maxl") {
    if (e.args.empty()) fail_at(e.place, "'" + f + "' needs at least one argument");
    Value best = eval(*e.args[0]);
    number_of(best, e.args[0]->place, f.c_str());
    for (std::size_t i = 1; i < e.args.size(); ++i) {
      const Value v = eval(*e.args[i]);
      number_of(v, e.args[i]->place, f.c_str());
      if (f == "minl" ? py_lt(v, best) : py_lt(best, v)) best = v;
    }
    return best;
  }
  if (f == "abs" || f == "floor" || f == "ceil" || f == "round" || f == "trunc" || f == "sqrt" ||
      f == "exp" || f == "log" || f == "ftoi" || f == "frac") {
    arity(1, 1);
    const Value v = eval(*e.args[0]);
    const double x = number_of(v, e.args[0]->place, f.c_str());
    if (f == "abs")
      return v.is_int_like() ? Value::integer(std::llabs(py_int(v))) : Value::real(std::fabs(x));
    if (f == "sqrt") return Value::real(std::sqrt(x));
    if (f == "exp") return Value::real(std::exp(x));
    if (f == "log") return Value::real(std::log(x));
    if (f == "frac") return Value::real(x - std::trunc(x));
    double r = 0.0;
    if (f == "floor") r = std::floor(x);
    if (f == "ceil") r = std::ceil(x);
    if (f == "round") r = std::round(x);
    if (f == "trunc" || f == "ftoi") r = std::trunc(x);
    if (!std::isfinite(r) || std::fabs(r) >= 9.2e18)
      fail_at(e.place, "'" + f + "' of " + shown(v) + " is not an integer");
    return Value::integer(static_cast<std::int64_t>(r));
  }
  if (f == "pow") {
    arity(2, 2);
    const double x = number_of(eval(*e.args[0]), e.args[0]->place, "pow");
    const double y = number_of(eval(*e.args[1]), e.args[1]->place, "pow");
    return Value::real(std::pow(x, y));
  }
  if (f == "card" || f == "first" || f == "last" || f == "asSet" || f == "ord" || f == "next" ||
      f == "prev" || f == "nextc" || f == "prevc" || f == "item") {
    const bool one = f == "card" || f == "first" || f == "last" || f == "asSet";
    if (one) {
      arity(1, 1);
    } else {
      arity(2, f == "next" || f == "prev" ? 3 : 2);
    }
    const Value set = eval(*e.args[0]);
    const std::vector<Value> ms = members(set, e.args[0]->place);
    if (f == "card") return Value::integer(static_cast<std::int64_t>(ms.size()));
    if (f == "asSet") return Value::list(ms);
    if (f == "first" || f == "last") {
      if (ms.empty()) fail_at(e.place, "'" + f + "' of an empty set");
      return f == "first" ? ms.front() : ms.back();
    }
    const Value x = eval(*e.args[1]);
    if (f == "item") {
      const std::int64_t k = int_of(x, e.args[1]->place, "'item'");
      if (k < 0 || k >= static_cast<std::int64_t>(ms.size()))
        fail_at(e.place, "'item' position " + std::to_string(k) + " is outside the set");
      return ms[static_cast<std::size_t>(k)];
    }
    std::int64_t pos = -1;
    for (std::size_t i = 0; i < ms.size(); ++i) {
      if (py_eq(ms[i], x)) {
        pos = static_cast<std::int64_t>(i);
        break;
      }
    }
    if (pos < 0) fail_at(e.args[1]->place, shown(x) + " is not a member of the set given to '" + f + "'");
    if (f == "ord") return Value::integer(pos);  // positions count from 0, as in OPL
    std::int64_t step = 1;
    if (e.args.size() == 3) step = int_of(eval(*e.args[2]), e.args[2]->place, ("'" + f + "'").c_str());
    const auto n = static_cast<std::int64_t>(ms.size());
    std::int64_t target = (f == "next" || f == "nextc") ? pos + step : pos - step;
    if (f == "nextc" || f == "prevc") target = ((target % n) + n) % n;
    if (target < 0 || target >= n)
      fail_at(e.place, "'" + f + "' of " + shown(x) + " goes past the end of the set");
    return ms[static_cast<std::size_t>(target)];
  }
  fail_at(e.place, "unknown function '" + f + "'");
}

}  // namespace kolva::opl
