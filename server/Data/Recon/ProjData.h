#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "server/Data/UploadTarget.h"

class CRemotePacket;
class Util_Volume;

/// The tilt series: what a reconstruction works from and what a reprojection overwrites.
///
/// The session's thread fills it; workers read it while that thread waits for them. A handler that
/// returns false or nothing has changed nothing and says why in rReason.
class CProjData
{
public:
    static CProjData* GetInstance();
    static void DeleteInstance();
    ~CProjData();

    /// PROJSIZE: fields 4, 5, 6 = X, Y, projections; data: (tilt angle, defocus) floats, one pair
    /// per projection; missing pairs are 0. Starts a stack of zeros and selects all projections.
    [[nodiscard]] bool HandleProjSize(const CRemotePacket& rPacket, std::string& rReason);
    std::uint32_t GetMaxProjSize(const CRemotePacket& rPacket) const;  ///< data in use, bytes
    /// PROJSET: field 4 = projection; data: Y pairs of columns (first valid, one past the last
    /// valid), then the pixels [y][x]; may end early. The data is received into the target.
    [[nodiscard]] std::optional<UploadTarget> HandleProjSet(const CRemotePacket& rPacket,
                                                            std::string& rReason);

    Util_Volume* GetProjs() const { return m_pProjs.get(); }           ///< null before PROJSIZE
    std::span<const float> GetAngles() const { return m_vfAngles; }    ///< degrees, [proj]
    std::span<const float> GetDefocus() const { return m_vfDefocus; }  ///< [proj]; no job reads it
    /// First valid column and one past the last one, [proj][y][2].
    std::span<const std::uint32_t> GetRangeX() const { return m_vuiRangeX; }
    std::span<std::uint32_t> GetRangeX(std::uint32_t uiProj);  ///< of one projection, [y][2]
    std::uint32_t GetX() const { return m_auiSize[0]; }
    std::uint32_t GetY() const { return m_auiSize[1]; }
    std::uint32_t GetNumProjs() const { return m_auiSize[2]; }
    std::size_t GetBytes() const;  ///< memory of the holder

    /// Computes the ranges from the pixels. A pixel below -1e15 is missing; a row without any valid
    /// pixel gets (X + 1, 0).
    void DetRangeX();

private:
    CProjData();
    bool mCheckSize(const CRemotePacket& rPacket, std::string& rReason) const;

    static std::unique_ptr<CProjData> m_pInstance;
    std::unique_ptr<Util_Volume> m_pProjs;
    std::vector<float> m_vfAngles;
    std::vector<float> m_vfDefocus;
    std::vector<std::uint32_t> m_vuiRangeX;
    std::uint32_t m_auiSize[3] = {0, 0, 0};
};
