#include "server/Data/Recon/ReconOpt.h"

#include <utility>

#include "server/Data/RemotePacket.h"

void CReconOpt::SetDefault()
{
    m_uiReconCmd = CReconCmd::BACKPROJ;
    m_uiIterations = m_uiNumSets = 1;
    m_vuiSetSize.clear();
    m_vfRelax.clear();
}

CRequestPlan CReconOpt::HandleReconOpt(const CRemotePacket& rPacket)
{
    constexpr std::uint64_t ulMost = std::uint64_t{1} << 24;  // sizes and factors together
    if (rPacket.GetNthField(4) == 0)
        return CRequestPlan(
            [this](const CRemotePacket&, std::string&)
            {
                SetDefault();
                return true;
            });
    const std::uint32_t uiIterations = rPacket.GetNthField(5), uiSets = rPacket.GetNthField(6);
    const std::uint32_t uiBytes = rPacket.GetOptSize();
    const std::uint64_t ulFactors = std::uint64_t{uiIterations} * uiSets;
    if (uiSets > ulMost || ulFactors > ulMost - uiSets)
        return CRequestPlan::Refuse("%u iterations of %u subsets, at most %llu numbers",
                                    uiIterations, uiSets, static_cast<unsigned long long>(ulMost));
    const unsigned long long ulBytes = 4 * (uiSets + ulFactors);
    if (uiBytes != ulBytes)
        return CRequestPlan::Refuse("%u bytes of data, %u iterations of %u subsets take %llu",
                                    uiBytes, uiIterations, uiSets, ulBytes);
    return CRequestPlan([this](const CRemotePacket& rSent, std::string&) { return mSet(rSent); },
                        uiBytes);
}

bool CReconOpt::mSet(const CRemotePacket& rPacket)
{
    const std::uint32_t uiMode = rPacket.GetNthField(4), uiSets = rPacket.GetNthField(6);
    std::vector<std::uint32_t> vuiSetSize(uiSets);
    std::vector<float> vfRelax(rPacket.GetDataBytes() / 4 - uiSets);
    if (!rPacket.CopyData4(0, std::span(vuiSetSize)) ||
        !rPacket.CopyData4(4 * uiSets, std::span(vfRelax)))
        return false;
    if (uiMode == 1) m_uiReconCmd = CReconCmd::SART;
    if (uiMode == 2) m_uiReconCmd = CReconCmd::EM;
    m_uiIterations = rPacket.GetNthField(5);
    m_uiNumSets = uiSets;
    m_vuiSetSize = std::move(vuiSetSize);
    m_vfRelax = std::move(vfRelax);
    return true;
}
