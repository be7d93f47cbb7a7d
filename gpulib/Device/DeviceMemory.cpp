#include "gpulib/Device/DeviceMemory.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

void CDeviceMemory::Free()
{
    if (!IsEmpty() && GetBackend()) GetBackend()->Free(m_aImage);
    m_aImage = DeviceImage();
}

/// \param fCreate  makes an image of the sizes that it is given
template <class F>
bool CDeviceMemory::mTake(int iWidth, int iHeight, int iDepth, F fCreate)
{
    Free();
    DeviceImage aImage = m_aWanted;
    aImage.iWidth = iWidth;
    aImage.iHeight = iHeight;
    aImage.iDepth = iDepth;
    if (!fCreate(aImage)) return false;
    m_aImage = aImage;
    return true;
}

bool CDeviceMemory::mCreate(int iWidth, int iHeight, int iDepth)
{
    return mTake(iWidth, iHeight, iDepth,
                 [&](DeviceImage& rImage) { return GetBackend()->Create(rImage, m_pcKind); });
}

bool CDeviceMemory::mCreateLent(const float* pfData, int iWidth, int iHeight)
{
    return mTake(iWidth, iHeight, 1,
                 [&](DeviceImage& rImage) { return GetBackend()->CreateLent(rImage, pfData); });
}

bool CDeviceMemory::mCreateLentRows(const HostRows<float>& rRows, int iWidth, int iHeight)
{
    return mTake(iWidth, iHeight, 1,
                 [&](DeviceImage& rImage) { return GetBackend()->CreateLentRows(rImage, rRows); });
}

bool CDeviceMemory::mCreateShared(const DeviceImage& rArray)
{
    return mTake(0, 0, 0,
                 [&](DeviceImage& rImage) { return GetBackend()->CreateShared(rImage, rArray); });
}

bool CDeviceMemory::mToHost(void* pvDest, int iBytes) const
{
    if (IsEmpty()) return true;
    if (m_aImage.iBytes != iBytes)
        return DeviceFail("download of %s",
                          iBytes == 4 ? "doubles as floats" : "floats as doubles");
    return GetBackend()->DownloadTable(m_aImage, pvDest);
}
