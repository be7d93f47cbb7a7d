#include "gpulib/Device/GTransform.h"

#include <algorithm>

#include "gpulib/Device/Backend.h"

void GTransform::SetMatrix(std::span<const float, 6> fMatrix)
{
    std::ranges::copy(fMatrix, m_aParams.afMatrix);
}

void GTransform::SetIntScale(std::span<const float, 6> fScale)
{
    std::ranges::copy(fScale, m_aParams.afScale);
}

bool GTransform::mLaunch(bool bLog, const DeviceImage& rProj, const DeviceImage& rMiss, int iStartY,
                         int iSizeY)
{
    m_aParams.bLog = bLog;
    m_aParams.aOut = rProj;
    m_aParams.aMiss = rMiss;
    m_aParams.iStartY = iStartY;
    m_aParams.iRows = iSizeY;
    return GetBackend()->Transform(m_aParams);
}
