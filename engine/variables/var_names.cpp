// Column names formed from indices, and the candidates a reference tries.
#include "variables/var_names.hpp"

#include <charconv>
#include <cmath>
#include <string>

#include "generator/generator.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {

Value normalize_index(const Value& idx) {
  if (!idx.is_sequence()) return idx;
  ValueVec members;
  members.reserve(idx.items().size());
  for (const Value& member : idx.items()) members.push_back(normalize_index(member));
  return Value::tuple(std::move(members));
}

std::string integral_float_text(double d) {
  std::array<char, 400> buf{};
  const auto res = std::to_chars(buf.data(), buf.data() + buf.size(), d, std::chars_format::fixed, 0);
  std::string out(buf.data(), res.ptr);
  return out == "-0" ? "0" : out;
}

std::string varname_member_text(const Value& v) {
  if (v.is_float()) {
    const double d = v.as_float();
    if (std::isfinite(d) && d == std::floor(d)) return integral_float_text(d);
    return py_str(v);
  }
  std::string out;
  for (char ch : py_str(v)) {
    if (ch == ' ') {
      out.push_back('_');
    } else if (ch != '\'' && ch != '"') {
      out.push_back(ch);
    }
  }
  return out;
}

std::string Generator::_format_varname(const std::string& base, const ValueVec& indices,
                                       bool is_tuple_indexed) {
  if (is_tuple_indexed) {
    if (indices.empty()) raise(ErrorKind::kIndex, "list index out of range");
    return base + "[" + py_repr(indices[0]) + "]";
  }
  std::string out = base;
  out += '_';
  for (std::size_t i = 0; i < indices.size(); ++i) {
    if (i > 0) out += '_';
    const Value& entry = indices[i];
    if (entry.is_tuple()) {
      const ValueVec& members = entry.items();
      for (std::size_t k = 0; k < members.size(); ++k) {
        if (k > 0) out += '_';
        out += varname_member_text(members[k]);
      }
    } else {
      out += varname_member_text(entry);
    }
  }
  return out;
}

namespace {

Value unwrap_eval_pair(const Value& v) {
  if (v.is_tuple() && v.items().size() == 2 && v.items()[0].is_map()) return v.items()[1];
  return v;
}

std::string joined_str(const ValueVec& values) {
  std::string out;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) out += '_';
    append_str(out, values[i]);
  }
  return out;
}

std::string cleaned_expanded_base(const std::string& base) {
  std::string out;
  for (char ch : base) {
    if (ch == '[' || ch == ',') {
      out.push_back('_');
    } else if (ch != ']' && ch != '(' && ch != ')' && ch != ' ') {
      out.push_back(ch);
    }
  }
  return out;
}

}  // namespace

std::string Generator::_multi_indexed_var_name(const Value& expr, const Env& env,
                                               const IndexEvaluator* eval_index_expr) {
  const Map& node = *expr.as_map();
  const Value type = node.get("type");
  if (!type.is_str() || type.as_str() != "indexed_name") return py_str(node.at("name"));
  std::string base = py_str(node.at("name"));
  ValueVec index_values;
  const Value dims = node.get("dimensions", empty_list());
  for (const Value& dim : dims.items()) {
    Value found;
    const Value dim_type = dim.is_map() ? dim.as_map()->get("type") : Value();
    if (dim_type.is_str() && dim_type.as_str() == "number_literal_index") {
      found = dim.as_map()->at("value");
    } else if (eval_index_expr != nullptr) {
      found = (*eval_index_expr)(dim, env);
    } else {
      const Value key = dim.as_map()->get("name");
      found = key.is_list() || key.is_map() ? Value() : env.get(key);
    }
    index_values.push_back(unwrap_eval_pair(found));
  }
  const auto known = [this](const std::string& candidate) {
    return var_indices.contains(candidate) || data_dict->contains(candidate);
  };
  if (index_values.size() == 1 && index_values[0].is_tuple()) {
    std::string vname_tuple = base + "[" + py_repr(index_values[0]) + "]";
    if (known(vname_tuple)) return vname_tuple;
  }
  // The general and the string conversions of the tuple print alike, so the
  // two older probes of the same text need no separate test.
  std::string vname = base + "[" + py_repr(Value::tuple(index_values)) + "]";
  if (known(vname)) return vname;
  if (index_values.size() == 1) {
    std::string vname_single = base + "_" + py_str(index_values[0]);
    if (known(vname_single)) return vname_single;
  }
  if (index_values.size() > 1) {
    std::string vname_multi = base + "_" + joined_str(index_values);
    if (known(vname_multi)) return vname_multi;
  }
  if (base.find('[') != std::string::npos && base.find(']') != std::string::npos) {
    std::string vname_fallback = cleaned_expanded_base(base) + "_" + joined_str(index_values);
    if (known(vname_fallback)) return vname_fallback;
  }
  return base;
}

}  // namespace kolva
