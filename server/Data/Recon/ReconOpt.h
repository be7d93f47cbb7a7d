#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Util/Util_Singleton.h"
#include "server/Data/ReconCmd.h"
#include "server/Data/RequestPlan.h"

/// How the next reconstruction runs. Starts with the defaults: one plain back projection.
class CReconOpt : public Util_Singleton<CReconOpt>
{
public:
    /// RECONOPT: field 4 = 0 defaults (nothing else is read), 1 SART, 2 EM, other: method stays;
    /// 5 iterations, 6 subsets S, 8 position interval (no job needs it); data: S subset sizes, then
    /// iterations x S relaxation factors, no more and no less.
    CRequestPlan HandleReconOpt(const CRemotePacket& rPacket);
    void SetDefault();

    std::uint32_t GetReconCmd() const { return m_uiReconCmd; }  ///< a CReconCmd
    std::uint32_t GetIterations() const { return m_uiIterations; }
    std::uint32_t GetNumSets() const { return m_uiNumSets; }
    // Both empty with the defaults.
    std::span<const std::uint32_t> GetSetSizes() const { return m_vuiSetSize; }
    std::span<const float> GetRelax() const { return m_vfRelax; }  ///< [iteration][subset]

private:
    bool mSet(const CRemotePacket& rPacket);

    std::uint32_t m_uiReconCmd = CReconCmd::BACKPROJ;
    std::uint32_t m_uiIterations = 1;
    std::uint32_t m_uiNumSets = 1;
    std::vector<std::uint32_t> m_vuiSetSize;
    std::vector<float> m_vfRelax;
};
