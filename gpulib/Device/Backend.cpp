#include "gpulib/Device/Backend.h"

#include <utility>

namespace
{
std::unique_ptr<CBackend> s_pBackend;
}

CBackend* GetBackend()
{
    return s_pBackend.get();
}

std::unique_ptr<CBackend> SetBackend(std::unique_ptr<CBackend> pBackend)
{
    return std::exchange(s_pBackend, std::move(pBackend));
}

namespace
{
std::string Describe(const CBackend& rBackend, const std::string& strWhy)
{
    return std::string(rBackend.GetName()) + " (" + rBackend.GetDetail() + "), " + strWhy;
}
}  // namespace

std::unique_ptr<CBackend> MakeBackend(const std::string& strWanted, std::string& rReason)
{
    const bool bAuto = strWanted.empty() || strWanted == "auto", bExact = strWanted == "cuda-exact";
    if (!bAuto && !bExact && strWanted != "cuda" && strWanted != "host")
    {
        rReason = "unknown backend \"" + strWanted + "\", must be auto, cuda, cuda-exact or host";
        return nullptr;
    }
    std::string strWhy = "asked for";
    std::unique_ptr<CBackend> pBackend;
    if (strWanted != "host")
    {
        std::string strNoCuda;
        pBackend = MakeCudaBackend(bExact, 0, strNoCuda);
        if (bAuto) strWhy = pBackend ? "found" : strNoCuda;
        if (!pBackend && !bAuto)
        {
            rReason = strWanted + ": " + strNoCuda;
            return nullptr;
        }
    }
    if (!pBackend) pBackend = MakeHostBackend("", 0);
    rReason = Describe(*pBackend, strWhy);
    return pBackend;
}
