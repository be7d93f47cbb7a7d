#include "server/Data/Recon/SmoothOpt.h"

#include <cstdio>
#include <span>

#include "Util/Util_Volume.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CSmoothOpt> CSmoothOpt::m_pInstance;

namespace
{
constexpr std::uint64_t g_ulMaxExtent = 255;
constexpr std::uint64_t g_ulMaxVoxels = std::uint64_t{1} << 20;

/// Voxels of the kernel that the header announces, 0 when it is refused.
std::uint64_t CountVoxels(const CRemotePacket& rPacket)
{
    std::uint64_t ulVoxels = 1;
    for (int i = 5; i <= 7; ++i)
    {
        if (rPacket.GetNthField(i) > g_ulMaxExtent) return 0;
        ulVoxels *= rPacket.GetNthField(i);
    }
    return ulVoxels <= g_ulMaxVoxels ? ulVoxels : 0;
}
}  // namespace

CSmoothOpt::CSmoothOpt() = default;
CSmoothOpt::~CSmoothOpt() = default;

CSmoothOpt* CSmoothOpt::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CSmoothOpt);
    return m_pInstance.get();
}

void CSmoothOpt::DeleteInstance()
{
    m_pInstance.reset();
}

std::uint32_t CSmoothOpt::GetMaxSmoothOpt(const CRemotePacket& rPacket)
{
    return static_cast<std::uint32_t>(4 * CountVoxels(rPacket));
}

bool CSmoothOpt::HandleSmoothOpt(const CRemotePacket& rPacket, std::string& rReason)
{
    std::puts("Handle SMOOTHOPT Command");
    const std::uint32_t uiX = rPacket.GetNthField(5), uiY = rPacket.GetNthField(6);
    const std::uint32_t uiZ = rPacket.GetNthField(7);
    const std::uint64_t ulVoxels = CountVoxels(rPacket);
    if (ulVoxels == 0)
        return Refuse(rReason, "kernel of %u x %u x %u, must be 1 to %llu each and %llu together",
                      uiX, uiY, uiZ, static_cast<unsigned long long>(g_ulMaxExtent),
                      static_cast<unsigned long long>(g_ulMaxVoxels));
    const unsigned long long ulBytes = 4 * ulVoxels;
    if (rPacket.GetOptSize() != ulBytes)
        return Refuse(rReason, "%u bytes of data, a kernel of %u x %u x %u takes %llu",
                      rPacket.GetOptSize(), uiX, uiY, uiZ, ulBytes);
    auto pKernel = std::make_unique<Util_Volume>();
    pKernel->SetSize(static_cast<int>(uiX), static_cast<int>(uiY), static_cast<int>(uiZ));
    if (!rPacket.CopyData4(0, std::span(pKernel->GetData(), ulVoxels)))
        return Refuse(rReason, "data is missing");
    m_pKernel = std::move(pKernel);
    m_uiInterval = rPacket.GetNthField(4);
    std::printf("SmoothOpt: %u  %u  %u\n", uiX, uiY, uiZ);
    return true;
}
