#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Util/TomoVolume.h"
#include "Util/Util_Singleton.h"
#include "Util/Util_Volume.h"
#include "server/Data/RequestPlan.h"

/// The volume that a reconstruction fills and a reprojection reads.
class CVolData : public Util_Singleton<CVolData>
{
public:
    CVolData();

    /// VOLSIZE: fields 4, 5, 6 = X, Y, Z. The samples stay when the voxel count does, else zeros.
    CRequestPlan HandleVolSize(const CRemotePacket& rPacket);
    /// VOLSET: field 4 = slice, 0 to 32767; data: samples [y][x]; may end early.
    CRequestPlan HandleVolSet(const CRemotePacket& rPacket);

    Util_Volume* GetVolume() const { return m_pUtilVol.get(); }  ///< never null; empty at first
    CTomoVolume* GetTomoVolume() { return &m_aTomoVol; }  ///< the same, shared by the workers
    float* GetNthSlice(short sZ);                         ///< null when there is none
    /// Whether nobody has written the volume since it was made of zeros.
    bool IsZero() const { return m_bZero; }
    void NoteWritten() { m_bZero = false; }
    std::size_t GetBytes() const { return 4 * m_pUtilVol->GetVoxels(); }  ///< memory of the holder

private:
    void mBind();

    std::unique_ptr<Util_Volume> m_pUtilVol;
    CTomoVolume m_aTomoVol;
    bool m_bZero = true;
};
