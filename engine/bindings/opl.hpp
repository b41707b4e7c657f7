#pragma once

#include <nanobind/nanobind.h>

namespace kolva::bindings {

// Registers the OPL front end's functions and its error translation.
void bind_opl(nanobind::module_& m);

}  // namespace kolva::bindings
