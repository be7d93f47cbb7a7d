#include "gpulib/Device/GSmooth.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
bool CheckVolume(const char* pcImage, const DeviceImage& rImage, const int* piSize)
{
    if (rImage.pvData && rImage.iWidth == piSize[0] && rImage.iHeight == piSize[1] &&
        rImage.iDepth == piSize[2] && rImage.iLanes == 1 && rImage.iChannels == 1 &&
        rImage.iBytes == 4)
        return true;
    return DeviceFail("Smooth: %s is %d x %d x %d, %d x %d x %d needed", pcImage, rImage.iWidth,
                      rImage.iHeight, rImage.iDepth, piSize[0], piSize[1], piSize[2]);
}
}  // namespace

void GSmooth::SetVolSize(int iX, int iY, int iZ)
{
    m_aiVolSize[0] = iX;
    m_aiVolSize[1] = iY;
    m_aiVolSize[2] = iZ;
}

void GSmooth::SetGauSize(int iX, int iY, int iZ)
{
    m_aiGauSize[0] = iX;
    m_aiGauSize[1] = iY;
    m_aiGauSize[2] = iZ;
}

bool GSmooth::DoIt(const DeviceImage& rOut)
{
    constexpr int iMaxKernel = 1024;  // beyond it a tile with its neighbours outgrows any cache
    const int* piGau = m_aiGauSize;
    constexpr int iMaxVolume = 1 << 30;  // positions beside the volume stay within int
    const int* piVol = m_aiVolSize;
    if (piVol[0] > iMaxVolume || piVol[1] > iMaxVolume || piVol[2] > iMaxVolume)
        return DeviceFail("Smooth: volume of %d x %d x %d, at most %d each", piVol[0], piVol[1],
                          piVol[2], iMaxVolume);
    if (piGau[0] > iMaxKernel || piGau[1] > iMaxKernel || piGau[2] > iMaxKernel)
        return DeviceFail("Smooth: kernel of %d x %d x %d, at most %d each", piGau[0], piGau[1],
                          piGau[2], iMaxKernel);
    if (!CheckVolume("the volume", m_aParams.aVol, m_aiVolSize) ||
        !CheckVolume("the kernel", m_aParams.aKernel, m_aiGauSize) ||
        !CheckVolume("the result", rOut, m_aiVolSize))
        return false;
    m_aParams.aOut = rOut;
    return GetBackend()->Smooth(m_aParams);
}
