#include "Errors.h"

#include <utility>

namespace nb = nanobind;

namespace talven::python
{

void Raise(const char* pcName, const std::string& strWhat)
{
    const nb::module_ aOurs = nb::module_::import_("talven._errors");
    const nb::object aType = nb::hasattr(aOurs, pcName)
                                 ? nb::object(aOurs.attr(pcName))
                                 : nb::object(nb::module_::import_("builtins").attr(pcName));
    PyErr_SetString(aType.ptr(), strWhat.c_str());
    throw nb::python_error();
}

void CCaught::Rethrow()
{
    if (m_pWhat) std::rethrow_exception(std::exchange(m_pWhat, nullptr));
}

}  // namespace talven::python
