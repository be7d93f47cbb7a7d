#include "server/Data/Recon/ReconOpt.h"

#include <utility>

#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CReconOpt> CReconOpt::m_pInstance;

namespace
{
constexpr std::uint64_t g_ulMaxWords = std::uint64_t{1} << 24;  // sizes and factors together

/// Subset sizes and relaxation factors that the header announces; above g_ulMaxWords when there
/// are too many.
std::uint64_t CountWords(const CRemotePacket& rPacket)
{
    const std::uint64_t ulIterations = rPacket.GetNthField(5), ulSets = rPacket.GetNthField(6);
    return ulSets > g_ulMaxWords ? ulSets : ulSets + ulIterations * ulSets;
}
}  // namespace

CReconOpt* CReconOpt::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CReconOpt);
    return m_pInstance.get();
}

void CReconOpt::SetDefault()
{
    m_uiReconCmd = CReconCmd::BACKPROJ;
    m_uiIterations = m_uiNumSets = m_uiPosInterval = 1;
    m_vuiSetSize.clear();
    m_vfRelax.clear();
}

std::uint32_t CReconOpt::GetMaxReconOpt(const CRemotePacket& rPacket)
{
    const std::uint64_t ulWords = CountWords(rPacket);
    if (rPacket.GetNthField(4) == 0 || ulWords > g_ulMaxWords) return 0;
    return static_cast<std::uint32_t>(4 * ulWords);
}

bool CReconOpt::HandleReconOpt(const CRemotePacket& rPacket, std::string& rReason)
{
    const std::uint32_t uiMode = rPacket.GetNthField(4);
    if (uiMode == 0)
    {
        SetDefault();
        return true;
    }
    const std::uint32_t uiIterations = rPacket.GetNthField(5), uiSets = rPacket.GetNthField(6);
    const std::uint64_t ulWords = CountWords(rPacket);
    if (ulWords > g_ulMaxWords)
        return Refuse(rReason, "%u iterations of %u subsets, at most %llu numbers", uiIterations,
                      uiSets, static_cast<unsigned long long>(g_ulMaxWords));
    const unsigned long long ulBytes = 4 * ulWords;
    if (rPacket.GetOptSize() != ulBytes)
        return Refuse(rReason, "%u bytes of data, %u iterations of %u subsets take %llu",
                      rPacket.GetOptSize(), uiIterations, uiSets, ulBytes);
    std::vector<std::uint32_t> vuiSetSize(uiSets);
    std::vector<float> vfRelax(ulWords - uiSets);
    if (!rPacket.CopyData4(0, std::span(vuiSetSize)) ||
        !rPacket.CopyData4(4 * uiSets, std::span(vfRelax)))
        return Refuse(rReason, "data is missing");

    if (uiMode == 1) m_uiReconCmd = CReconCmd::SART;
    if (uiMode == 2) m_uiReconCmd = CReconCmd::EM;
    m_uiIterations = uiIterations;
    m_uiNumSets = uiSets;
    m_uiPosInterval = rPacket.GetNthField(8);
    m_vuiSetSize = std::move(vuiSetSize);
    m_vfRelax = std::move(vfRelax);
    return true;
}
