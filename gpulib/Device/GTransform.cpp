#include "gpulib/Device/GTransform.h"

#include <algorithm>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/DriverChecks.h"

void GTransform::SetMatrix(std::span<const float, 6> fMatrix)
{
    std::ranges::copy(fMatrix, m_aParams.afMatrix);
}

void GTransform::SetIntScale(std::span<const float, 6> fScale)
{
    std::ranges::copy(fScale, m_aParams.afScale);
}

void GTransform::SetAProjSize(int iX, int iY)
{
    m_aParams.iProjX = iX;
    m_iProjY = iY;
}

bool GTransform::DoIt(const DeviceImage& rProj, const DeviceImage& rMiss, int iStartY, int iSizeY)
{
    m_aParams.bLog = false;
    return mLaunch(rProj, rMiss, iStartY, iSizeY);
}

bool GTransform::DoItLog(const DeviceImage& rProj, const DeviceImage& rMiss, int iStartY,
                         int iSizeY)
{
    m_aParams.bLog = true;
    return mLaunch(rProj, rMiss, iStartY, iSizeY);
}

bool GTransform::mLaunch(const DeviceImage& rProj, const DeviceImage& rMiss, int iStartY,
                         int iSizeY)
{
    constexpr const char* pcName = "Transform";
    if (iSizeY <= 0) return true;
    m_aParams.aOut = rProj;
    m_aParams.aMiss = rMiss;
    m_aParams.iStartY = iStartY;
    m_aParams.iRows = iSizeY;
    const DeviceImage& rMeasured = m_aParams.aMeasured;
    const int iX = m_aParams.iProjX;
    if (iStartY < 0 || iSizeY > m_iProjY - iStartY)
        return DeviceFail("%s: %d rows from row %d of %d", pcName, iSizeY, iStartY, m_iProjY);
    if (!CheckImageExtents(pcName, iX, m_iProjY) ||
        !CheckImageExtents(pcName, rMeasured.iWidth, rMeasured.iHeight) ||
        !CheckImage(pcName, "measured projection", rMeasured, 1, 1) ||
        !CheckImage(pcName, "result", rProj, iX, iSizeY) ||
        !CheckImage(pcName, "mask", rMiss, iX, iSizeY))
        return false;
    return GetBackend()->Transform(m_aParams);
}
