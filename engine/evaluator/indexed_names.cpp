// Subscripted names: decision variables, parameter arrays (with set members
// mapped to positions) and tuple-indexed entries.
#include <array>
#include <charconv>
#include <string>

#include "evaluator/evaluator.hpp"
#include "evaluator/index_values.hpp"
#include "model/repr.hpp"
#include "model/semantics.hpp"

namespace kolva {
namespace {

std::string_view type_of(const Map& node) { return node_type(node); }

bool is_tuple_set_type(std::string_view t) { return t == "set_of_tuples" || t == "set_of_tuples_external"; }

Value data_entry(const Map& data_dict, const std::string& name) {
  if (const Value* mapped = data_dict.find(name + "__map")) return *mapped;
  return data_dict.get(name);
}

}  // namespace

Value ExpressionEvaluator::_extract_index_value(const Value& idx) {
  if (idx.is_tuple() && idx.items().size() == 2 && idx.items()[0].is_map()) return idx.items()[1];
  return idx;
}

// Parameter arrays over a set of strings hold list data: a string subscript
// becomes its 1-based position in the set.
bool ExpressionEvaluator::remap_set_members(const Map& decl, const Value& param_data, ValueVec& indices) {
  const Value dims_decl = decl.get("dimensions", empty_list());
  if (!param_data.is_list() || !dims_decl.is_sequence() || dims_decl.items().size() != indices.size())
    return false;
  ValueVec work;
  bool remapped_any = false;
  for (std::size_t i = 0; i < indices.size(); ++i) {
    const Value& idx = indices[i];
    const Value& dim = dims_decl.items()[i];
    if (dim.is_map() && type_of(*dim.as_map()) == "named_set_dimension" && idx.is_str()) {
      const std::string set_name = py_str(dim.as_map()->get("name"));
      Value set_data = parent_.data_dict->get(set_name);
      if (set_data.is_none()) {
        const MapPtr set_decl = parent_._find_decl(set_name);
        if (set_decl != nullptr) {
          const std::string_view kind = type_of(*set_decl);
          if (kind == "typed_set" || kind == "typed_set_external" || kind == "set_declaration") {
            set_data = set_decl->get("value");
            if (!py_truth(set_data)) set_data = Value::list(ValueVec{});
          }
        }
      }
      if (set_data.is_list()) {
        if (const auto pos = parent_.set_positions(set_name, set_data).position_of(idx)) {
          work.push_back(Value::integer(static_cast<std::int64_t>(*pos) + 1));
          remapped_any = true;
          continue;
        }
      }
    }
    if (idx.is_int_like()) work.push_back(idx);
  }
  if (remapped_any) indices = std::move(work);
  return remapped_any;
}

std::shared_ptr<const IndexedNameShape> ExpressionEvaluator::make_indexed_name_shape(const Map& node) {
  const Value* name = node.find("name");
  const Value* dims = node.find("dimensions");
  if (name == nullptr || !name->is_str() || dims == nullptr || !dims->is_sequence()) return nullptr;
  auto shape = std::make_shared<IndexedNameShape>();
  shape->name = name->as_str();
  for (const Value& d : dims->items()) {
    if (!d.is_map()) return nullptr;
    const Map& dim = *d.as_map();
    const std::string_view kind = node_type(dim);
    if (kind == "number_literal_index" && dim.contains("value")) {
      shape->dims.push_back({true, dim.at("value")});
    } else if (kind == "name_reference_index") {
      shape->dims.push_back({false, dim.get("name")});
    } else {
      return nullptr;  // other subscripts go through the index evaluator each time
    }
  }
  try {
    shape->decl = parent_._find_decl(shape->name);
  } catch (const Error&) {
    return nullptr;  // let the general path raise it in its own order
  }
  if (shape->decl != nullptr) {
    const Value* decl_dims = shape->decl->find("dimensions");
    if (decl_dims != nullptr && decl_dims->is_sequence() && decl_dims->items().size() == 1 &&
        decl_dims->items()[0].is_map() && type_of(*decl_dims->items()[0].as_map()) == "named_set_dimension") {
      const MapPtr set_decl = parent_._find_decl(py_str(decl_dims->items()[0].as_map()->get("name")));
      shape->tuple_indexed = set_decl != nullptr && is_tuple_set_type(type_of(*set_decl));
    }
    shape->parameter = !shape->tuple_indexed && type_of(*shape->decl).starts_with("parameter");
    if (decl_dims != nullptr && decl_dims->is_sequence()) {
      for (const Value& d : decl_dims->items()) {
        shape->may_remap = shape->may_remap || (d.is_map() && type_of(*d.as_map()) == "named_set_dimension");
      }
    }
    shape->variable_array = !shape->tuple_indexed && type_of(*shape->decl) == "dvar_indexed";
  }
  return shape;
}

// A subscripted variable found under the name its subscripts form, as the
// first step of the variable lookup would find it; none when that step
// would not, and the full lookup then decides.
std::optional<EvalResult> ExpressionEvaluator::direct_variable_term(const IndexedNameShape& shape,
                                                                    const ValueVec& indices) {
  std::string& vname = name_buffer_;
  vname.assign(shape.name);
  vname += '_';
  for (std::size_t i = 0; i < indices.size(); ++i) {
    if (i > 0) vname += '_';
    const Value& idx = indices[i];
    if (idx.is_int()) {
      std::array<char, 24> digits{};
      const auto res = std::to_chars(digits.data(), digits.data() + digits.size(), idx.as_int());
      vname.append(digits.data(), res.ptr);
    } else {
      append_str(vname, normalize_integral(idx));
    }
  }
  std::optional<std::int64_t> column = parent_.array_column(*shape.decl, indices, vname);
  if (!column) {
    const std::optional<std::int64_t> found = parent_.var_indices.find(vname);
    if (!found) return std::nullopt;
    column = found;
  }
  EvalResult out;
  out.coef.set_column(vname, 1.0, *column);
  out.val = Value::real(0.0);
  return out;
}

EvalResult ExpressionEvaluator::_eval_indexed_name(const Value& expr, const Env& env) {
  const Map& node = *expr.as_map();
  const EvalNodeInfo* info = EvalNodeInfo::borrowed(node);
  const IndexedNameShape* shape =
      info != nullptr && !parent_.log().on(LogLevel::kDebug) ? info->shape.get() : nullptr;
  std::string name_text;
  const std::string& name = shape != nullptr ? shape->name : [&]() -> const std::string& {
    const Value& name_value = node.at("name");
    return name_value.is_str() ? name_value.as_str() : (name_text = py_str(name_value));
  }();
  ValueVec remapped;
  if (shape != nullptr) {
    remapped.reserve(shape->dims.size());
    // Plain subscripts give what the index evaluator would, without it.
    for (const IndexedNameShape::Dim& dim : shape->dims) {
      remapped.push_back(dim.literal ? normalized_index(dim.value)
                                     : index_value_of_name(dim.value, env, *parent_.data_dict));
    }
  } else {
    for (const Value& d : node.at("dimensions").items()) remapped.push_back(_eval_index_expr(d, env).val);
  }
  const MapPtr decl = shape != nullptr ? shape->decl : parent_._find_decl(name);
  if (shape != nullptr) {
    if (shape->tuple_indexed) return _handle_tuple_indexed(expr, remapped);
    if (shape->parameter && shape->may_remap) {
      remap_set_members(*decl, data_entry(*parent_.data_dict, name), remapped);
    }
    if (shape->variable_array) {
      if (auto term = direct_variable_term(*shape, remapped)) return std::move(*term);
    }
  } else if (decl != nullptr) {
    const Value* dims_value = decl->find("dimensions");
    const Value& dims = dims_value != nullptr ? *dims_value : empty_list();
    if (dims.is_sequence() && dims.items().size() == 1 && dims.items()[0].is_map() &&
        type_of(*dims.items()[0].as_map()) == "named_set_dimension") {
      const MapPtr set_decl = parent_._find_decl(py_str(dims.items()[0].as_map()->get("name")));
      if (set_decl != nullptr && is_tuple_set_type(type_of(*set_decl)))
        return _handle_tuple_indexed(expr, remapped);
    }
    if (type_of(*decl).starts_with("parameter")) {
      remap_set_members(*decl, data_entry(*parent_.data_dict, name), remapped);
    }
  }
  // A parameter that no variable name can extend is looked up as data at
  // once: the variable lookup could only find nothing and check nothing.
  const bool known_parameter = shape != nullptr && shape->parameter && !parent_.may_prefix_a_variable(name);
  const LookupResult found = known_parameter ? parent_.lookup_parameter(name, &remapped, env, false)
                                             : parent_._lookup_var_or_param(name, &remapped, &env);
  if (found.is_var) {
    EvalResult out;
    out.coef.set_column(found.var_name, 1.0, found.column);
    out.val = Value::real(0.0);
    return out;
  }
  if (!found.is_symbolic) {
    const Value& val = found.val;
    if (val.is_number()) return EvalResult::constant(Value::real(py_float(val)));
    if (val.is_str() || val.is_map()) return EvalResult::constant(val);
    raise_semantic("Expected float, str, or dict for parameter value, got " + class_text(val) + ": " +
                   py_str(val));
  }
  // Only the symbolic cases need the reference's name; forming it evaluates
  // the subscripts again, so it is done only here.
  const IndexEvaluator by_index = [this](const Value& dim, const Map& scope) {
    return _eval_index_expr(dim, scope).val;
  };
  const std::string vname = parent_._multi_indexed_var_name(expr, env, &by_index);
  bool all_int = true;
  for (const Value& idx : remapped) all_int = all_int && idx.is_int_like();
  if (all_int) throw Generator::_not_found_error("indexed variable or parameter", vname);
  EvalResult out;
  out.coef.set(vname, 1.0);
  out.val = Value::real(0.0);
  return out;
}

EvalResult ExpressionEvaluator::_handle_tuple_indexed(const Value& expr, const ValueVec& indices) {
  const Map& node = *expr.as_map();
  const std::string name = py_str(node.at("name"));
  if (indices.empty()) raise(ErrorKind::kIndex, "list index out of range");
  const Value tuple_key = _extract_index_value(indices[0]);
  const std::string vname_tuple = name + "[" + py_repr(tuple_key) + "]";
  const auto var_term = [](const std::string& vname) {
    EvalResult out;
    out.coef.set(vname, 1.0);
    out.val = Value::real(0.0);
    return out;
  };
  if (parent_.var_indices.contains(vname_tuple)) return var_term(vname_tuple);
  const Value param_dict = data_entry(*parent_.data_dict, name);
  if (!param_dict.is_none()) {
    bool holds = false;
    try {
      holds = py_contains(param_dict, tuple_key);
    } catch (const Error& err) {
      if (err.kind() != ErrorKind::kType) throw;
    }
    if (holds) return EvalResult::constant(py_getitem(param_dict, tuple_key));
  }
  static const std::string kInlineIndexed = "parameter_inline_indexed";
  for (const MapPtr& d : parent_._find_decls(name, &kInlineIndexed)) {
    try {
      const Value dims = d->get("dimensions", empty_list());
      if (!dims.is_sequence() || dims.items().size() != 1 ||
          type_of(*dims.items()[0].as_map()) != "named_set_dimension") {
        continue;
      }
      const std::string set_name = py_str(dims.items()[0].as_map()->get("name"));
      const IndexedMembers& members = parent_.tuple_set_members(set_name);
      // Members compare as tuples: a single value k stands for (k,).
      std::optional<std::size_t> idx;
      if (members.all_tuples) {
        idx = members.position_of(tuple_key);
      } else {
        for (std::size_t i = 0; i < members.members.size() && !idx; ++i) {
          const Value& m = members.members[i];
          if (py_eq(m.is_tuple() ? m : Value::tuple({m}), tuple_key)) idx = i;
        }
      }
      const Value value = d->get("value");
      if (idx && value.is_list() && value.items().size() > *idx)
        return EvalResult::constant(value.items()[*idx]);
    } catch (const Error&) {  // NOLINT(bugprone-empty-catch): this declaration cannot answer; try the next
    }
  }
  const std::string vname_str = name + "[" + py_str(tuple_key) + "]";
  if (parent_.var_indices.contains(vname_str)) return var_term(vname_str);
  throw Generator::_not_found_error("tuple-indexed variable or parameter", vname_tuple);
}

}  // namespace kolva
