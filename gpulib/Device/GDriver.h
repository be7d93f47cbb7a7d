#pragma once

#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/RunImages.h"

/// Base of the drivers of a run's kernels. A driver names the images that its kernels work on and
/// launches them; it owns no image.
class GDriver
{
public:
    /// All at once; what follows sets one of them.
    void SetImages(const RunImages& rImages) { m_aImages = rImages; }

    void SetVolSize(int iVolX, int iVolZ)
    {
        m_aImages.iVolX = iVolX;
        m_aImages.iVolZ = iVolZ;
    }
    void SetProjSize(int iProjX) { m_aImages.iProjX = iProjX; }
    void SetProjIndexArray(const DeviceImage& rImage) { m_aImages.aProjIndex = rImage; }
    void SetCosSinArray(const DeviceImage& rImage) { m_aImages.aCosSin = rImage; }
    void SetRangeXArray(const DeviceImage& rImage) { m_aImages.aRangeX = rImage; }
    void SetProjsArray(const DeviceImage& rImage) { m_aImages.aProjs = rImage; }
    void SetRawProjsArray(const DeviceImage& rImage) { m_aImages.aRawProjs = rImage; }
    void SetVolArray(const DeviceImage& rImage) { m_aImages.aVol = rImage; }
    void SetPreWeightArray(const DeviceImage& rImage) { m_aImages.aPreWeight = rImage; }
    void SetProjWeightArray(const DeviceImage& rImage) { m_aImages.aProjWeight = rImage; }

protected:
    /// What a method makes of ray sums: weighted differences, or ratios.
    CompareRule mRule(ECombine eOperation) const
    {
        const bool bAfter = eOperation == ECombine::eDiff;
        return {eOperation, m_aImages.aRawProjs, m_aImages.aPreWeight,
                bAfter ? m_aImages.aProjWeight : DeviceImage()};
    }
    ForwardParams mForwardParams(SetRange aSet, ECombine eOperation) const
    {
        return {.aSums = m_aImages.aSums,
                .aVol = m_aImages.aVol,
                .aCosSin = m_aImages.aCosSin,
                .aProjIndex = m_aImages.aProjIndex,
                .iVolX = m_aImages.iVolX,
                .iVolZ = m_aImages.iVolZ,
                .iProjX = m_aImages.iProjX,
                .iFirst = aSet.iFirst,
                .iEnd = aSet.iEnd,
                .aRule = mRule(eOperation)};
    }

    RunImages m_aImages;
};
