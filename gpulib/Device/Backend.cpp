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

std::unique_ptr<CBackend> MakeBackend(const std::string& strWanted, std::string& rReason)
{
    if (strWanted == "cuda")
    {
        rReason = "cuda: this program was built without CUDA";
        return nullptr;
    }
    if (!strWanted.empty() && strWanted != "auto" && strWanted != "host")
    {
        rReason = "unknown backend \"" + strWanted + "\", must be auto, cuda or host";
        return nullptr;
    }
    std::unique_ptr<CBackend> pBackend = MakeHostBackend("", 0);
    rReason = std::string(pBackend->GetName()) + " (" + pBackend->GetDetail() + "), " +
              (strWanted == "host" ? "asked for" : "built without CUDA");
    return pBackend;
}
