#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Util/TomoVolume.h"
#include "server/Data/UploadTarget.h"

class CRemotePacket;
class Util_Volume;

/// The volume that a reconstruction fills and a reprojection reads.
///
/// A handler that returns false or nothing has changed nothing and says why in rReason.
class CVolData
{
public:
    static constexpr std::uint32_t m_uiMaxSlice = 32767;  // VOLSET addresses no slice beyond it

    static CVolData* GetInstance();
    static void DeleteInstance();
    ~CVolData();

    /// VOLSIZE: fields 4, 5, 6 = X, Y, Z. The samples stay when the voxel count does, else zeros.
    [[nodiscard]] bool HandleVolSize(const CRemotePacket& rPacket, std::string& rReason);
    /// VOLSET: field 4 = slice; data: samples [y][x]; may end early. The data is received into the
    /// target.
    [[nodiscard]] std::optional<UploadTarget> HandleVolSet(const CRemotePacket& rPacket,
                                                           std::string& rReason);

    Util_Volume* GetVolume() const { return m_pUtilVol.get(); }  ///< never null; empty at first
    CTomoVolume* GetTomoVolume()
    {
        return &m_aTomoVol;
    }                              ///< the same volume, shared by the workers
    float* GetNthSlice(short sZ);  ///< null when there is no such slice
    std::size_t GetBytes() const;  ///< memory of the holder

private:
    CVolData();
    void mBind();

    static std::unique_ptr<CVolData> m_pInstance;
    std::unique_ptr<Util_Volume> m_pUtilVol;
    CTomoVolume m_aTomoVol;
};
