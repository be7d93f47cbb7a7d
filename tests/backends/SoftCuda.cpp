#include "tests/softcuda/SoftCuda.h"
#include "tests/backends/Backends.h"

std::vector<std::string> GetTestBackends()
{
    return {"cuda-exact", "cuda"};
}

std::unique_ptr<CBackend> MakeTestBackend(const std::string& strName, int iDevices, int iMaxRows)
{
    if (strName == "host") return MakeHostBackend("", iDevices, iMaxRows);
    SoftCuda::SetDevices(iDevices);
    std::string strReason;
    return MakeCudaBackend(strName == "cuda-exact", iMaxRows, strReason);
}
