#include "server/Data/Recon/SetOp.h"

#include <numeric>
#include <utility>

#include "server/Data/RemotePacket.h"

void CSetOp::SetDefault(std::uint32_t uiProjs)
{
    std::vector<std::uint32_t> vuiAll(uiProjs);
    std::iota(vuiAll.begin(), vuiAll.end(), 0);
    m_vuiProjIndex = std::move(vuiAll);
}

CRequestPlan CSetOp::HandleSetOp(const CRemotePacket& rPacket)
{
    constexpr std::uint32_t uiMost = 1 << 24;
    const std::uint32_t uiIndices = rPacket.GetNthField(5), uiBytes = rPacket.GetOptSize();
    if (rPacket.GetNthField(4) == 0) return CRequestPlan();
    if (uiIndices > uiMost)
        return CRequestPlan::Refuse("%u indices, at most %u", uiIndices, uiMost);
    if (uiBytes != 4 * uiIndices)
        return CRequestPlan::Refuse("%u bytes of data, %u indices take %u", uiBytes, uiIndices,
                                    4 * uiIndices);
    return CRequestPlan(
        [this](const CRemotePacket& rSent, std::string&)
        {
            std::vector<std::uint32_t> vuiIndex(rSent.GetDataBytes() / 4);
            if (!rSent.CopyData4(0, std::span(vuiIndex))) return false;
            m_vuiProjIndex = std::move(vuiIndex);
            return true;
        },
        uiBytes);
}
