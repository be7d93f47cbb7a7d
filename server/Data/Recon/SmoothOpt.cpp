#include "server/Data/Recon/SmoothOpt.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/RemotePacket.h"

CRequestPlan CSmoothOpt::HandleSmoothOpt(const CRemotePacket& rPacket)
{
    const CRequestPlan aPlan = mPlan(rPacket);
    return CRequestPlan(
        [aPlan](const CRemotePacket& rSent, std::string& rReason)
        {
            std::puts("Handle SMOOTHOPT Command");  // of one that is refused too
            return aPlan.DoIt(rSent, rReason);
        },
        aPlan.GetKept());
}

CRequestPlan CSmoothOpt::mPlan(const CRemotePacket& rPacket)
{
    constexpr std::uint32_t uiMostExtent = 255, uiMostVoxels = 1 << 20;
    const std::uint32_t uiX = rPacket.GetNthField(5), uiY = rPacket.GetNthField(6);
    const std::uint32_t uiZ = rPacket.GetNthField(7), uiBytes = rPacket.GetOptSize();
    if (std::max({uiX, uiY, uiZ}) > uiMostExtent || uiX * uiY * uiZ > uiMostVoxels)
        return CRequestPlan::Refuse("kernel of %u x %u x %u, at most %u each and %u together", uiX,
                                    uiY, uiZ, uiMostExtent, uiMostVoxels);
    if (uiBytes > 4 * uiX * uiY * uiZ)
        return CRequestPlan::Refuse("%u bytes of data, a kernel of %u x %u x %u takes %u", uiBytes,
                                    uiX, uiY, uiZ, 4 * uiX * uiY * uiZ);
    return CRequestPlan(
        [this](const CRemotePacket& rSent, std::string&)
        {
            mSet(rSent);
            return true;
        },
        uiBytes);
}

void CSmoothOpt::mSet(const CRemotePacket& rPacket)
{
    auto pKernel = std::make_unique<Util_Volume>();
    const int iX = static_cast<int>(rPacket.GetNthField(5));
    const int iY = static_cast<int>(rPacket.GetNthField(6));
    const int iZ = static_cast<int>(rPacket.GetNthField(7));
    pKernel->SetSize(iX, iY, iZ);
    std::ranges::copy(rPacket.GetData4(0, rPacket.GetDataBytes()),
                      reinterpret_cast<std::byte*>(pKernel->GetData()));
    m_pKernel = std::move(pKernel);
    m_uiInterval = rPacket.GetNthField(4);
    std::printf("SmoothOpt: %d  %d  %d\n", iX, iY, iZ);
}
