#pragma once

#include <string>

namespace talven
{

/// The options of `talven serve`; none given: the server finds its settings itself.
struct ServeArgs
{
    int m_iPort = 0;
    int m_iDevices = 0;
    std::string m_strBind;
    std::string m_strBackend;
};

/// Becomes talven-server. Returns only when that fails; rError says why.
void RunServe(const ServeArgs& rArgs, std::string& rError);

}  // namespace talven
