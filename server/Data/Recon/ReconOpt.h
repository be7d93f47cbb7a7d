#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "server/Data/ReconCmd.h"

class CRemotePacket;

/// How the next reconstruction runs. Starts with the defaults: one plain back projection.
class CReconOpt
{
public:
    static CReconOpt* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    /// RECONOPT: field 4 = 0 defaults (nothing else is read), 1 SART, 2 EM, other: method stays;
    /// 5 iterations, 6 subsets S, 8 position interval; data: S subset sizes, then iterations x S
    /// relaxation factors. False with a reason when the data does not fit; nothing changes then.
    [[nodiscard]] bool HandleReconOpt(const CRemotePacket& rPacket, std::string& rReason);
    static std::uint32_t GetMaxReconOpt(const CRemotePacket& rPacket);  ///< data in use, bytes
    void SetDefault();

    std::uint32_t GetReconCmd() const { return m_uiReconCmd; }  ///< a CReconCmd
    std::uint32_t GetIterations() const { return m_uiIterations; }
    std::uint32_t GetNumSets() const { return m_uiNumSets; }
    std::uint32_t GetPosInterval() const { return m_uiPosInterval; }  ///< no job reads it
    // Both empty with the defaults.
    std::span<const std::uint32_t> GetSetSizes() const { return m_vuiSetSize; }
    std::span<const float> GetRelax() const { return m_vfRelax; }  ///< [iteration][subset]

private:
    CReconOpt() = default;
    static std::unique_ptr<CReconOpt> m_pInstance;
    std::uint32_t m_uiReconCmd = CReconCmd::BACKPROJ;
    std::uint32_t m_uiIterations = 1;
    std::uint32_t m_uiNumSets = 1;
    std::uint32_t m_uiPosInterval = 1;
    std::vector<std::uint32_t> m_vuiSetSize;
    std::vector<float> m_vfRelax;
};
