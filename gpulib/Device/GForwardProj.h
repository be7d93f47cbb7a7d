#pragma once

#include "gpulib/Device/KernelParams.h"

/// Driver of the forward projection kernels. Holds images by value, owns none.
class GForwardProj
{
public:
    void SetVolSize(int iVolX, int iVolZ);
    void SetProjX(int iProjX);
    void SetSetRange(int iStart, int iEnd);  ///< list positions [start, end)

    void SetProjIndexArray(const DeviceImage& rImage) { m_aForward.aProjIndex = rImage; }
    void SetCosSinArray(const DeviceImage& rImage) { m_aForward.aCosSin = rImage; }
    void SetVolArray(const DeviceImage& rImage) { m_aForward.aVol = rImage; }
    void SetRawProjsArray(const DeviceImage& rImage) { m_aCombine.aRaw = rImage; }

    /// Ray sums of the set into rSums; other rows keep their content. An empty set does nothing.
    [[nodiscard]] bool DoIt(const DeviceImage& rSums);
    /// rOut = measured - rSums for the set, from ray sums that stand already in rSums.
    [[nodiscard]] bool DoDiff(const DeviceImage& rSums, const DeviceImage& rOut);
    /// rOut = measured / rSums likewise; 1 where measured < 0 or the sum is 0.
    [[nodiscard]] bool DoDiv(const DeviceImage& rSums, const DeviceImage& rOut);

private:
    [[nodiscard]] bool mCombine(ECombine eOperation, const DeviceImage& rSums,
                                const DeviceImage& rOut);
    ForwardParams m_aForward;
    CombineParams m_aCombine;
};
