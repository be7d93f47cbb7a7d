#include "server/Thread/JobStatus.h"

#include <mutex>

#include "server/Data/Recon/VolData.h"

namespace
{
std::mutex g_aMutex;  // guards the two below
bool g_bFailed = false;
std::string g_strReason;
}  // namespace

void CJobStatus::Reset()
{
    {
        const std::lock_guard aLock(g_aMutex);
        g_bFailed = false;
        g_strReason.clear();
    }
    CVolData::GetInstance()->GetTomoVolume()->Reset();
}

void CJobStatus::Fail(const std::string& rReason)
{
    {
        const std::lock_guard aLock(g_aMutex);
        if (!g_bFailed) g_strReason = rReason;
        g_bFailed = true;
    }
    CVolData::GetInstance()->GetTomoVolume()->Abort();
}

bool CJobStatus::HasFailed()
{
    const std::lock_guard aLock(g_aMutex);
    return g_bFailed;
}

std::string CJobStatus::GetReason()
{
    const std::lock_guard aLock(g_aMutex);
    return g_strReason;
}
