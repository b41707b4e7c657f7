#include "model/repr.hpp"

#include <string>

#include "model/map.hpp"
#include "model/py_format.hpp"

namespace kolva {
namespace {

void append_sequence(std::string& out, const ValueVec& items, char open, char close, bool one_tuple) {
  out.push_back(open);
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) out += ", ";
    append_repr(out, items[i]);
  }
  if (one_tuple && items.size() == 1) out.push_back(',');
  out.push_back(close);
}

void append_map(std::string& out, const Map& map) {
  out.push_back('{');
  bool first = true;
  for (const Map::Item& item : map.items()) {
    if (!first) out += ", ";
    first = false;
    append_repr(out, item.first);
    out += ": ";
    append_repr(out, item.second);
  }
  out.push_back('}');
}

}  // namespace

void append_repr(std::string& out, const Value& v) {
  switch (v.kind()) {
    case Value::Kind::kNone:
      out += "None";
      return;
    case Value::Kind::kBool:
      out += v.as_bool() ? "True" : "False";
      return;
    case Value::Kind::kInt:
      out += std::to_string(v.as_int());
      return;
    case Value::Kind::kFloat:
      out += py_repr_float(v.as_float());
      return;
    case Value::Kind::kStr:
      out += py_repr_str(v.as_str());
      return;
    case Value::Kind::kTuple:
      append_sequence(out, v.items(), '(', ')', true);
      return;
    case Value::Kind::kList:
      append_sequence(out, v.items(), '[', ']', false);
      return;
    case Value::Kind::kMap:
      append_map(out, *v.as_map());
      return;
  }
}

void append_str(std::string& out, const Value& v) {
  if (v.is_str()) {
    out += v.as_str();
    return;
  }
  append_repr(out, v);
}

std::string py_repr(const Value& v) {
  std::string out;
  append_repr(out, v);
  return out;
}

std::string py_str(const Value& v) {
  std::string out;
  append_str(out, v);
  return out;
}

}  // namespace kolva
