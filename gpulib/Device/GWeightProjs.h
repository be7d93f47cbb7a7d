#pragma once

#include "gpulib/Device/KernelParams.h"

/// Driver of the box weight kernels. Holds images by value, owns none.
///
/// The first two operations address rows by position [start, end), the last two by the raw numbers
/// that the index list holds at these positions.
class GWeightProjs
{
public:
    void SetProjSize(int iProjX);
    void SetSetRange(int iStart, int iEnd);

    void SetProjIndexArray(const DeviceImage& rImage) { m_aIndex = rImage; }
    void SetProjsArray(const DeviceImage& rImage) { m_aProjs = rImage; }
    void SetRawProjsArray(const DeviceImage& rImage) { m_aRawProjs = rImage; }
    void SetPreWeightArray(const DeviceImage& rImage) { m_aPreWeight = rImage; }
    void SetProjWeightArray(const DeviceImage& rImage) { m_aProjWeight = rImage; }

    [[nodiscard]] bool NoWeightRef(const DeviceImage& rOut);  ///< out = measured
    [[nodiscard]] bool WeightRef(const DeviceImage& rOut);    ///< out = measured * pre-weight
    [[nodiscard]] bool WeightRecon(const DeviceImage& rOut);  ///< out = working * projection weight
    [[nodiscard]] bool WeightProjs(const DeviceImage& rOut);  ///< out = working / pre-weight

private:
    [[nodiscard]] bool mLaunch(EWeight eOperation, const DeviceImage& rOut, const DeviceImage& rIn,
                               const DeviceImage& rWeight);
    DeviceImage m_aIndex, m_aProjs, m_aRawProjs, m_aPreWeight, m_aProjWeight;
    int m_iProjX = 0;
    int m_iFirst = 0, m_iEnd = 0;
};
