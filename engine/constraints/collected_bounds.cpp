// Bounds collected from simple constraints (`x >= 2`, `5 >= x`), which feed
// every big-M of the build.
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

}  // namespace kolva
