#include <cstdio>

#include "tests/backends/Backends.h"

std::vector<std::string> GetTestBackends()
{
    return {"cuda-exact", "cuda"};
}

std::unique_ptr<CBackend> MakeTestBackend(const std::string& strName, int iDevices, int iMaxRows)
{
    if (strName == "host") return MakeHostBackend("", iDevices, iMaxRows);
    std::string strReason;
    auto pBackend = MakeCudaBackend(strName == "cuda-exact", iMaxRows, strReason);
    if (!pBackend) std::printf("no GPU: %s\n", strReason.c_str());
    return pBackend;
}
