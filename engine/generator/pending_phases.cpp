// The objective and constraint phases are not part of this build yet: a
// model reaches the driver with a zero objective and no rows.
#include "generator/generator.hpp"

namespace kolva {

void Generator::_build_objective() {}
void Generator::_build_constraints() {}

}  // namespace kolva
