#include "gpulib/Device/DriverChecks.h"

#include "gpulib/Device/DeviceError.h"

bool CheckImage(const char* pcKernel, const char* pcImage, const DeviceImage& rImage, int iWidth,
                int iHeight, int iChannels, int iBytes)
{
    if (rImage.pvData && rImage.iWidth >= iWidth && rImage.iHeight >= iHeight &&
        rImage.iChannels == iChannels && rImage.iBytes == iBytes)
        return true;
    return DeviceFail("%s: %s is %d x %d x %d, %d x %d x %d needed", pcKernel, pcImage,
                      rImage.iWidth, rImage.iHeight, rImage.iChannels, iWidth, iHeight, iChannels);
}

bool CheckSameBatch(const char* pcKernel, const DeviceImage& rA, const DeviceImage& rB)
{
    if (rA.iWidth == rB.iWidth && rA.iLanes == rB.iLanes) return true;
    return DeviceFail("%s: images of %d columns x %d rows and %d x %d", pcKernel, rA.iWidth,
                      rA.iLanes, rB.iWidth, rB.iLanes);
}

bool CheckRange(const char* pcKernel, const DeviceImage& rIndex, int iFirst, int iEnd)
{
    if (rIndex.pvData && iFirst >= 0 && iFirst <= iEnd && iEnd <= rIndex.iWidth) return true;
    return DeviceFail("%s: set %d to %d of %d projections", pcKernel, iFirst, iEnd, rIndex.iWidth);
}

namespace
{
constexpr int g_iMaxExtent = 1 << 23;
}

bool CheckExtents(const char* pcKernel, int iVolX, int iVolZ, int iProjX)
{
    if (iVolX > 0 && iVolZ > 0 && iProjX > 0 && iVolX < g_iMaxExtent && iVolZ < g_iMaxExtent &&
        iProjX < g_iMaxExtent)
        return true;
    return DeviceFail("%s: volume %d x %d, projection %d, must be 1 to %d", pcKernel, iVolX, iVolZ,
                      iProjX, g_iMaxExtent - 1);
}

bool CheckImageExtents(const char* pcKernel, int iX, int iY)
{
    if (iX > 0 && iY > 0 && iX < g_iMaxExtent && iY < g_iMaxExtent) return true;
    return DeviceFail("%s: projection of %d x %d, must be 1 to %d", pcKernel, iX, iY,
                      g_iMaxExtent - 1);
}
