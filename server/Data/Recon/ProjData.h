#pragma once

#include <span>
#include <vector>

#include "Util/Util_Singleton.h"
#include "server/Data/Recon/ProjStack.h"

/// The tilt series: what a reconstruction works from and what a reprojection overwrites.
///
/// The session's thread fills it; workers read it while that thread waits for them.
class CProjData : public Util_Singleton<CProjData>, public CProjStack
{
public:
    CProjData();

    /// PROJSIZE: fields 4, 5, 6 = X, Y, projections; data: (tilt angle, defocus) floats, one pair
    /// per projection; missing pairs are 0. Starts a stack of zeros and selects all projections.
    CRequestPlan HandleProjSize(const CRemotePacket& rPacket);
    /// PROJSET: field 4 = projection; data: Y pairs of columns (first valid, one past the last
    /// valid), then the pixels [y][x]; may end early.
    CRequestPlan HandleProjSet(const CRemotePacket& rPacket);

    std::span<const float> GetAngles() const { return m_vfAngles; }    ///< degrees, [proj]
    std::span<const float> GetDefocus() const { return m_vfDefocus; }  ///< [proj]; no job reads it
    /// First valid column and one past the last one, [proj][y][2].
    std::span<const std::uint32_t> GetRangeX() const { return m_vuiRangeX; }
    std::span<std::uint32_t> GetRangeX(std::uint32_t uiProj);  ///< of one projection, [y][2]

    /// Computes the ranges from the pixels. A pixel below -1e15 is missing; a row without any valid
    /// pixel gets (X + 1, 0).
    void DetRangeX();

private:
    bool mSetSize(const Extents& rSize, const CRemotePacket& rPacket);

    std::vector<float> m_vfAngles;
    std::vector<float> m_vfDefocus;
    std::vector<std::uint32_t> m_vuiRangeX;
};
