#include "tests/backends/Backends.h"

#include <cstdio>

std::vector<std::string> GetTestBackends()
{
#if defined(TALVEN_TEST_CUDA)
    return {"cuda"};
#else
    return GetHostInstructionSets();
#endif
}

std::unique_ptr<CBackend> MakeTestBackend(const std::string& strName, int iDevices, int iMaxRows)
{
    if (strName != "cuda")
        return MakeHostBackend(strName == "host" ? "" : strName, iDevices, iMaxRows);
    std::string strReason;
    auto pBackend = MakeCudaBackend(iMaxRows, strReason);
    if (!pBackend) std::printf("no GPU: %s\n", strReason.c_str());
    return pBackend;
}
