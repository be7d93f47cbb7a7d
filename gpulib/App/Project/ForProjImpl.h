#pragma once

#include <span>

#include "gpulib/App/Weights/WeightImpl.h"
#include "gpulib/Device/GForwardProj.h"
#include "gpulib/Device/PitchedPtr2D.h"

class Util_Volume;
struct CTextures;

/// Reprojects a batch of volume slices along the selected projections.
class CForProjImpl
{
public:
    void SetTextures(const CTextures& rTextures);
    /// \param uiIndices  the list that is on the device too; borrowed
    void SetProjIndices(std::span<const unsigned int> uiIndices);
    [[nodiscard]] bool AllocMemory(int iProjX, int iProjs, int iLanes);
    void SetVolSize(int iVolX, int iVolZ) { m_aGForwardProj.SetVolSize(iVolX, iVolZ); }
    void SetSetRange(const int* piRange);

    /// \param bWeight  divide the rows by their pre-weight
    [[nodiscard]] bool DoIt(bool bWeight);
    /// Writes rows iY, iY + 1, ... (iRows of them) of the selected projections; the others stay.
    [[nodiscard]] bool ToHost(Util_Volume& rProjs, int iY, int iRows) const;
    void FreeMemory() { m_aSums.Free(); }

private:
    CPitchedPtr2D m_aSums;  // [proj][x], row n belongs to raw number n
    CWeightImpl m_aWeightImpl;
    GForwardProj m_aGForwardProj;
    std::span<const unsigned int> m_uiIndices;
};
