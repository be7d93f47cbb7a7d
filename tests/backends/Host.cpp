#include "tests/backends/Backends.h"

std::vector<std::string> GetTestBackends()
{
    return GetHostInstructionSets();
}

std::unique_ptr<CBackend> MakeTestBackend(const std::string& strName, int iDevices, int iMaxRows)
{
    return MakeHostBackend(strName == "host" ? "" : strName, iDevices, iMaxRows);
}
