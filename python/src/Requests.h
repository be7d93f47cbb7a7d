#pragma once

#include <nanobind/nanobind.h>

namespace talven::python
{

/// What jobs are asked to do, and their plans.
void BindRequests(nanobind::module_& rModule);

}  // namespace talven::python
