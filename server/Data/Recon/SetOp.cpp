#include "server/Data/Recon/SetOp.h"

#include <numeric>
#include <utility>

#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CSetOp> CSetOp::m_pInstance;

namespace
{
constexpr std::uint32_t g_uiMaxIndices = 1 << 24;
}

CSetOp* CSetOp::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CSetOp);
    return m_pInstance.get();
}

void CSetOp::SetDefault(std::uint32_t uiProjs)
{
    std::vector<std::uint32_t> vuiAll(uiProjs);
    std::iota(vuiAll.begin(), vuiAll.end(), 0);
    m_vuiProjIndex = std::move(vuiAll);
    m_bHasList = true;
}

std::uint32_t CSetOp::GetMaxSetOp(const CRemotePacket& rPacket)
{
    const std::uint32_t uiIndices = rPacket.GetNthField(5);
    return rPacket.GetNthField(4) == 0 || uiIndices > g_uiMaxIndices ? 0 : 4 * uiIndices;
}

bool CSetOp::HandleSetOp(const CRemotePacket& rPacket, std::string& rReason)
{
    if (rPacket.GetNthField(4) == 0) return true;
    const std::uint32_t uiIndices = rPacket.GetNthField(5);
    if (uiIndices > g_uiMaxIndices)
        return Refuse(rReason, "%u indices, at most %u", uiIndices, g_uiMaxIndices);
    if (rPacket.GetOptSize() != 4 * uiIndices)
        return Refuse(rReason, "%u bytes of data, %u indices take %u", rPacket.GetOptSize(),
                      uiIndices, 4 * uiIndices);
    std::vector<std::uint32_t> vuiIndex(uiIndices);
    if (!rPacket.CopyData4(0, std::span(vuiIndex))) return Refuse(rReason, "data is missing");
    m_vuiProjIndex = std::move(vuiIndex);
    m_bHasList = true;
    return true;
}
