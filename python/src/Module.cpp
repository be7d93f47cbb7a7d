#include <nanobind/nanobind.h>

#include "Files.h"
#include "Requests.h"
#include "Session.h"

NB_MODULE(_core, rModule)
{
    rModule.doc() = "The client library, for the modules of this package.";
    rModule.attr("version") = TALVEN_VERSION;
    talven::python::BindRequests(rModule);
    talven::python::BindJobs(rModule);
    talven::python::BindFiles(rModule);
    talven::python::BindPhantom(rModule);
}
