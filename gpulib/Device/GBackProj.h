#pragma once

#include "gpulib/Device/KernelParams.h"

/// Driver of the back projection kernels. Holds images by value, owns none.
class GBackProj
{
public:
    void SetVolSize(int iVolX, int iVolZ);
    void SetProjSize(int iProjX);
    void SetSetRange(int iStart, int iEnd);  ///< list positions [start, end)
    void SetRelax(float fRelax);

    void SetProjIndexArray(const DeviceImage& rImage) { m_aParams.aProjIndex = rImage; }
    void SetCosSinArray(const DeviceImage& rImage) { m_aParams.aCosSin = rImage; }
    void SetRangeXArray(const DeviceImage& rImage) { m_aParams.aRangeX = rImage; }
    void SetProjsArray(const DeviceImage& rImage) { m_aParams.aProjs = rImage; }
    void SetVolArray(const DeviceImage& rImage) { m_aParams.aVol = rImage; }  ///< updated in place

    /// SART update of iRows slices; iY is the first row of the batch within the worker's band.
    [[nodiscard]] bool DoIt(int iY, int iRows);
    /// EM update likewise.
    [[nodiscard]] bool DoItEm(int iY, int iRows);

private:
    [[nodiscard]] bool mLaunch(EUpdate eUpdate, int iY, int iRows);
    BackParams m_aParams;
};
