#pragma once

#include <string>

namespace talven
{

/// The options of `talven serve`; none given: the server finds its settings itself.
struct ServeArgs
{
    int iPort = 0;
    int iDevices = 0;
    std::string strBind;
    std::string strBackend;
};

/// Becomes talven-server. Returns only when that fails; rError says why.
void RunServe(const ServeArgs& rArgs, std::string& rError);

}  // namespace talven
