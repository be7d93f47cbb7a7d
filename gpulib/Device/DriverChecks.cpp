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

bool CheckRectangle(const char* pcOperation, const DeviceImage& rImage, int iX0, int iY0,
                    int iWidth, int iHeight)
{
    if (rImage.pvData && iX0 >= 0 && iY0 >= 0 && iWidth >= 0 && iHeight >= 0 &&
        iX0 <= rImage.iWidth - iWidth && iY0 <= rImage.iHeight - iHeight && rImage.iChannels == 1 &&
        rImage.iBytes == 4 && rImage.iDepth == 1)
        return true;
    return DeviceFail("%s: %d x %d at (%d, %d) of an image of %d x %d", pcOperation, iWidth,
                      iHeight, iX0, iY0, rImage.iWidth, rImage.iHeight);
}

bool CheckCopy(const DeviceImage& rDest, const DeviceImage& rSource)
{
    if (rDest.pvData && rSource.pvData && rDest.iBytes == rSource.iBytes &&
        rDest.iWidth == rSource.iWidth && rDest.iHeight == rSource.iHeight &&
        rDest.iDepth == rSource.iDepth && rDest.iChannels == rSource.iChannels &&
        rDest.iLanes == rSource.iLanes)
        return true;
    return DeviceFail("copy: image of %d x %d x %d to %d x %d x %d", rSource.iWidth,
                      rSource.iHeight, rSource.iDepth, rDest.iWidth, rDest.iHeight, rDest.iDepth);
}
