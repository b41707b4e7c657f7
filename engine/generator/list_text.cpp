#include "generator/list_text.hpp"

#include <cmath>

#include "generator/generator.hpp"
#include "model/py_format.hpp"
#include "model/repr.hpp"

namespace kolva {
namespace {

template <typename T, typename Append>
std::string list_text(std::span<const T> items, Append append) {
  std::string out = "[";
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) out += ", ";
    append(out, items[i]);
  }
  out += ']';
  // Lists of a large model run to megabytes: keep no growth slack.
  out.shrink_to_fit();
  return out;
}

// A bound as str() prints it, except an infinite one, which str() prints as
// a bare name the script does not know: it is written as float('inf').
void append_bound(std::string& out, const BoundValue& bound) {
  const Value v = bound.value();
  if (v.is_float() && std::isinf(v.as_float())) {
    out += v.as_float() > 0 ? "float('inf')" : "-float('inf')";
    return;
  }
  append_str(out, v);
}

}  // namespace

std::string bounds_text(std::span<const BoundPair> bounds) {
  return list_text(bounds, [](std::string& out, const BoundPair& pair) {
    out += '[';
    append_bound(out, pair.lower);
    out += ", ";
    append_bound(out, pair.upper);
    out += ']';
  });
}

std::string tuple_bounds_text(std::span<const BoundPair> bounds) {
  return list_text(bounds, [](std::string& out, const BoundPair& pair) {
    out += '(';
    append_bound(out, pair.lower);
    out += ", ";
    append_bound(out, pair.upper);
    out += ')';
  });
}

std::string names_text(std::span<const std::string> names) {
  return list_text(names, [](std::string& out, const std::string& n) { out += py_repr_str(n); });
}

std::string values_text(std::span<const Value> values) {
  return list_text(values, [](std::string& out, const Value& v) { append_repr(out, v); });
}

std::string flags_text(std::span<const std::uint8_t> flags) {
  return list_text(flags, [](std::string& out, std::uint8_t v) { out += std::to_string(v); });
}

std::string floats_text(std::span<const double> values) {
  return list_text(values, [](std::string& out, double v) { out += py_repr_float(v); });
}

}  // namespace kolva
