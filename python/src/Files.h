#pragma once

#include <nanobind/nanobind.h>

namespace talven::python
{

/// Stacks, volumes and the files that come with them.
void BindFiles(nanobind::module_& rModule);
/// The specimen whose projections are known.
void BindPhantom(nanobind::module_& rModule);

}  // namespace talven::python
