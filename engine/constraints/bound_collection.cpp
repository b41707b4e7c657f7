// Bounds collected from simple constraints (`x >= 2`, `5 >= x`), which feed
// every big-M of the build, and the way binary flags join the columns.
#include <limits>
#include <string>

#include "generator/generator.hpp"
#include "model/semantics.hpp"

namespace kolva {

void Generator::_tighten_lower_bound(const std::string& name, double val) {
  const Value current = collected_lbs->get(name);
  const double now = current.is_none() ? -std::numeric_limits<double>::infinity() : py_float(current);
  if (val > now) collected_lbs->set(name, Value::real(val));
}

void Generator::_tighten_upper_bound(const std::string& name, double val) {
  const Value current = collected_ubs->get(name);
  const double now = current.is_none() ? std::numeric_limits<double>::infinity() : py_float(current);
  if (val < now) collected_ubs->set(name, Value::real(val));
}

void Generator::_tighten_bounds(const std::string& name, double val) {
  _tighten_lower_bound(name, val);
  _tighten_upper_bound(name, val);
}

std::int64_t Generator::add_binary_flag(const std::string& name) {
  const std::int64_t column = add_column(name);
  bounds.push_back({Value::integer(0), Value::integer(1)});
  if (!integrality) integrality.emplace();
  integrality->push_back(1);
  if (c.size() < var_names.size()) c.push_back(0.0);
  return column;
}

void Generator::keep_node_alive(const MapPtr& node) { identity_nodes_.try_emplace(node.get(), node); }

}  // namespace kolva
