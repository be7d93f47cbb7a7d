#include "gpulib/Device/DeviceMemory.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

void CDeviceMemory::Free()
{
    if (!IsEmpty() && GetBackend()) GetBackend()->Free(m_aImage);
    m_aImage = DeviceImage();
}

bool CDeviceMemory::mCreate(int iWidth, int iHeight, int iDepth)
{
    Free();
    DeviceImage aImage = m_aWanted;
    aImage.iWidth = iWidth;
    aImage.iHeight = iHeight;
    aImage.iDepth = iDepth;
    if (!GetBackend()->Create(aImage, m_pcKind)) return false;
    m_aImage = aImage;
    return true;
}

bool CDeviceMemory::mCreateLent(const float* pfData, int iWidth, int iHeight)
{
    Free();
    DeviceImage aImage;
    aImage.iWidth = iWidth;
    aImage.iHeight = iHeight;
    if (!GetBackend()->CreateLent(aImage, pfData)) return false;
    m_aImage = aImage;
    return true;
}

bool CDeviceMemory::mCreateLentRows(const HostRows<float>& rRows, int iWidth, int iHeight)
{
    Free();
    DeviceImage aImage = m_aWanted;
    aImage.iWidth = iWidth;
    aImage.iHeight = iHeight;
    if (!GetBackend()->CreateLentRows(aImage, rRows)) return false;
    m_aImage = aImage;
    return true;
}

bool CDeviceMemory::mCreateShared(const DeviceImage& rArray)
{
    Free();
    DeviceImage aImage;
    if (!GetBackend()->CreateShared(aImage, rArray)) return false;
    m_aImage = aImage;
    return true;
}

bool CDeviceMemory::HostToDevice(const void* pvData)
{
    return GetBackend()->UploadTable(m_aImage, pvData);
}

bool CDeviceMemory::HostToDevice(const HostRows<const float>& rRows, int iX0, int iY0, int iWidth,
                                 int iHeight)
{
    return GetBackend()->Upload(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
}

bool CDeviceMemory::ToHost(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                           int iHeight) const
{
    return GetBackend()->Download(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
}

bool CDeviceMemory::MoveIn(const HostRows<float>& rRows, int iX0, int iY0, int iWidth, int iHeight)
{
    return GetBackend()->MoveIn(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
}

bool CDeviceMemory::StartMoveOut(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                                 int iHeight)
{
    return GetBackend()->StartMoveOut(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
}

bool CDeviceMemory::DeviceToDevice(const DeviceImage& rSource)
{
    return GetBackend()->Copy(m_aImage, rSource);
}

bool CDeviceMemory::mToHost(void* pvDest, int iBytes) const
{
    if (IsEmpty()) return true;
    if (m_aImage.iBytes != iBytes)
        return DeviceFail("download of %s",
                          iBytes == 4 ? "doubles as floats" : "floats as doubles");
    return GetBackend()->DownloadTable(m_aImage, pvDest);
}
