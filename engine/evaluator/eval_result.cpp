#include "evaluator/eval_result.hpp"

#include "model/py_format.hpp"
#include "model/repr.hpp"

namespace kolva {

std::string repr_coef(const CoefDict& coef) {
  std::string out = "{";
  bool first = true;
  for (const CoefDict::Item& item : coef.items()) {
    if (!first) out += ", ";
    first = false;
    out += py_repr_str(item.first);
    out += ": ";
    out += py_repr_float(item.second);
  }
  out += '}';
  return out;
}

std::string repr_eval_result(const EvalResult& r) {
  std::string out = "(";
  out += r.marker != nullptr ? py_repr(Value::map(r.marker)) : repr_coef(r.coef);
  out += ", ";
  append_repr(out, r.val);
  out += ')';
  return out;
}

}  // namespace kolva
