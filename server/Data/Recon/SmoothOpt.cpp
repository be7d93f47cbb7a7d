#include "server/Data/Recon/SmoothOpt.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

#include "Util/Util_Volume.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CSmoothOpt> CSmoothOpt::m_pInstance;

namespace
{
constexpr std::uint32_t g_uiMaxExtent = 255;
constexpr std::uint32_t g_uiMaxVoxels = 1 << 20;

/// Bytes of the kernel that the header announces; nothing when it is too large.
std::optional<std::uint32_t> CountBytes(const CRemotePacket& rPacket)
{
    std::uint32_t uiVoxels = 1;
    for (int i = 5; i <= 7; ++i)
    {
        if (rPacket.GetNthField(i) > g_uiMaxExtent) return {};
        uiVoxels *= rPacket.GetNthField(i);
    }
    if (uiVoxels > g_uiMaxVoxels) return {};
    return 4 * uiVoxels;
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
    return CountBytes(rPacket).value_or(0);
}

bool CSmoothOpt::HandleSmoothOpt(const CRemotePacket& rPacket, std::string& rReason)
{
    std::puts("Handle SMOOTHOPT Command");
    const std::uint32_t uiX = rPacket.GetNthField(5), uiY = rPacket.GetNthField(6);
    const std::uint32_t uiZ = rPacket.GetNthField(7);
    const std::optional<std::uint32_t> uiBytes = CountBytes(rPacket);
    if (!uiBytes)
        return Refuse(rReason, "kernel of %u x %u x %u, at most %u each and %u together", uiX, uiY,
                      uiZ, g_uiMaxExtent, g_uiMaxVoxels);
    if (rPacket.GetOptSize() > *uiBytes)
        return Refuse(rReason, "%u bytes of data, a kernel of %u x %u x %u takes %u",
                      rPacket.GetOptSize(), uiX, uiY, uiZ, *uiBytes);
    auto pKernel = std::make_unique<Util_Volume>();
    pKernel->SetSize(static_cast<int>(uiX), static_cast<int>(uiY), static_cast<int>(uiZ));
    const std::vector<std::byte> vData = rPacket.GetData4(0, rPacket.GetDataBytes());
    std::ranges::copy(vData, reinterpret_cast<std::byte*>(pKernel->GetData()));
    m_pKernel = std::move(pKernel);
    m_uiInterval = rPacket.GetNthField(4);
    std::printf("SmoothOpt: %u  %u  %u\n", uiX, uiY, uiZ);
    return true;
}
