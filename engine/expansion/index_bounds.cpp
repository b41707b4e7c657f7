// Integer bounds of ranges, computed without the general evaluator.
#include <string>

#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

const std::string& node_type_text(const Map& node, std::string& storage) {
  const Value t = node.get("type");
  storage = t.is_str() ? t.as_str() : py_str(t);
  return storage;
}

void require_numbers(const Value& a, const Value& b, const std::string& op) {
  if (!a.is_number() || !b.is_number()) {
    raise(ErrorKind::kType,
          "unsupported operand type(s) for " + op + ": '" + type_name(a) + "' and '" + type_name(b) + "'");
  }
}

}  // namespace

Value Generator::_eval_bound(const Value& expr) {
  if (!expr.is_map()) throw _unsupported_type_error("expr in index bound", type_name(expr));
  const Map& node = *expr.as_map();
  std::string storage;
  const std::string& type = node_type_text(node, storage);
  if (type == "number") return node.at("value");
  if (type == "name") return data_dict->get(node.at("value"), Value::integer(1));  // unknown names count as 1
  if (type == "binop") {
    const Value left = _eval_bound(node.at("left"));
    const Value right = _eval_bound(node.at("right"));
    const Value op = node.at("op");
    const std::string op_text = py_str(op);
    if (op_text == "+" || op_text == "-" || op_text == "*") {
      require_numbers(left, right, op_text);
      if (op_text == "+") return py_add(left, right);
      if (op_text == "-") return py_sub(left, right);
      return py_mul(left, right);
    }
    throw _unsupported_operator_error("index bound binop", op_text);
  }
  if (type == "uminus") {
    const Value inner = _eval_bound(node.at("value"));
    if (!inner.is_number())
      raise(ErrorKind::kType, std::string("bad operand type for unary -: '") + type_name(inner) + "'");
    return py_neg(inner);
  }
  if (type == "parenthesized_expression") return _eval_bound(node.at("expression"));
  if (type == "minl" || type == "maxl") {
    const Value args = node.get("args", empty_list());
    if (!args.is_sequence() || args.items().empty())
      throw _unsupported_type_error("expr in index bound", type);
    Value best = _eval_bound(args.items()[0]);
    for (std::size_t i = 1; i < args.items().size(); ++i) {
      const Value next = _eval_bound(args.items()[i]);
      // min() and max() keep the first of equal values.
      if (type == "minl" ? py_lt(next, best) : py_lt(best, next)) best = next;
    }
    return best;
  }
  throw _unsupported_type_error("expr in index bound", type);
}

}  // namespace kolva
