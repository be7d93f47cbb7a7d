#pragma once

#include <nanobind/nanobind.h>

#include <exception>
#include <string>

namespace talven::python
{

/// Raises talven.NAME or a built-in exception of that name. With the GIL.
[[noreturn]] void Raise(const char* pcName, const std::string& strWhat);

/// Keeps what Python raised in a callback until the C++ in between has ended.
class CCaught
{
public:
    /// Calls rWork with the GIL. \return false when it raised
    template <class F>
    bool Guard(const F& rWork)
    {
        const nanobind::gil_scoped_acquire aLock;
        try
        {
            rWork();
            return true;
        }
        catch (...)
        {
            Keep(std::current_exception());
            return false;
        }
    }
    /// With the GIL; the first one counts.
    void Keep(std::exception_ptr pWhat)
    {
        if (!m_pWhat) m_pWhat = std::move(pWhat);
    }
    /// With the GIL.
    void Rethrow();

private:
    std::exception_ptr m_pWhat;
};

}  // namespace talven::python
