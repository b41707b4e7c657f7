#include "model/py_literal.hpp"

#include <array>
#include <cctype>
#include <cmath>
#include <string_view>

#include "model/map.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

void append_literal(std::string& out, const Value& v) {
  switch (v.kind()) {
    case Value::Kind::kFloat: {
      const double d = v.as_float();
      if (std::isnan(d)) {
        out += "float('nan')";
      } else if (std::isinf(d)) {
        out += d > 0 ? "float('inf')" : "-float('inf')";
      } else {
        append_repr(out, v);
      }
      return;
    }
    case Value::Kind::kTuple:
    case Value::Kind::kList: {
      const bool tuple = v.is_tuple();
      out += tuple ? '(' : '[';
      const ValueVec& items = v.items();
      for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) out += ", ";
        append_literal(out, items[i]);
      }
      if (tuple && items.size() == 1) out += ',';
      out += tuple ? ')' : ']';
      return;
    }
    case Value::Kind::kMap: {
      out += '{';
      bool first = true;
      for (const Map::Item& item : v.as_map()->items()) {
        if (!first) out += ", ";
        first = false;
        append_literal(out, item.first);
        out += ": ";
        append_literal(out, item.second);
      }
      out += '}';
      return;
    }
    default:
      append_repr(out, v);
  }
}

constexpr std::array<std::string_view, 35> kKeywords = {
    "False", "None",     "True",  "and",    "as",   "assert", "async",  "await",    "break",
    "class", "continue", "def",   "del",    "elif", "else",   "except", "finally",  "for",
    "from",  "global",   "if",    "import", "in",   "is",     "lambda", "nonlocal", "not",
    "or",    "pass",     "raise", "return", "try",  "while",  "with",   "yield"};

}  // namespace

std::string py_literal(const Value& v) {
  std::string out;
  append_literal(out, v);
  return out;
}

bool is_python_identifier(const std::string& name) {
  if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0) return false;
  for (const unsigned char ch : name) {
    if (std::isalnum(ch) == 0 && ch != '_') return false;
  }
  for (std::string_view kw : kKeywords) {
    if (name == kw) return false;
  }
  return true;
}

}  // namespace kolva
