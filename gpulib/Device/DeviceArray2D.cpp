#include "gpulib/Device/DeviceArray2D.h"

#include <algorithm>
#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
bool UploadTable(const DeviceImage& rImage, const void* pvData)
{
    if (rImage.iWidth == 0) return DeviceFail("upload to an empty array");
    return GetBackend()->UploadTable(rImage, pvData);
}

template <class T>
bool UploadPairs(const DeviceImage& rImage, const T* pA, const T* pB)
{
    const std::size_t tElements = std::size_t(rImage.iWidth) * rImage.iHeight;
    if (rImage.iChannels != 2)
        return DeviceFail("pairs for an array of %d channel", rImage.iChannels);
    std::vector<T> vPairs(2 * tElements);
    for (std::size_t i = 0; i < tElements; ++i)
    {
        vPairs[2 * i] = pA[i];
        vPairs[2 * i + 1] = pB[i];
    }
    return UploadTable(rImage, vPairs.data());
}
}  // namespace

bool CDeviceArray2D::Create(int iWidth, int iHeight)
{
    Free();
    if (!GetBackend()) return DeviceFail("no backend");
    DeviceImage aImage;
    aImage.iWidth = iWidth;
    aImage.iHeight = iHeight;
    aImage.iChannels = m_iChannels;
    aImage.bSampled = m_iLanes > 0;
    aImage.iLanes = std::max(m_iLanes, 1);
    if (!GetBackend()->CreateArray(aImage)) return false;
    m_aImage = aImage;
    return true;
}

bool CDeviceArray2D::CreateLent(const float* pfData, int iWidth, int iHeight)
{
    Free();
    if (!GetBackend()) return DeviceFail("no backend");
    DeviceImage aImage;
    aImage.iWidth = iWidth;
    aImage.iHeight = iHeight;
    if (!GetBackend()->CreateLent(aImage, pfData)) return false;
    m_aImage = aImage;
    return true;
}

void CDeviceArray2D::Free()
{
    if (!IsEmpty() && GetBackend()) GetBackend()->Free(m_aImage);
    m_aImage = DeviceImage();
}

bool CDeviceArray2D::HostToDevice(const float* pfData)
{
    return UploadTable(m_aImage, pfData);
}
bool CDeviceArray2D::HostToDevice(const int* piData)
{
    return UploadTable(m_aImage, piData);
}
bool CDeviceArray2D::HostToDevice(const unsigned int* puiData)
{
    return UploadTable(m_aImage, puiData);
}

bool CDeviceArray2D::HostToDevice(const float* pfA, const float* pfB)
{
    return UploadPairs(m_aImage, pfA, pfB);
}
bool CDeviceArray2D::HostToDevice(const int* piA, const int* piB)
{
    return UploadPairs(m_aImage, piA, piB);
}
bool CDeviceArray2D::HostToDevice(const unsigned int* puiA, const unsigned int* puiB)
{
    return UploadPairs(m_aImage, puiA, puiB);
}

bool CDeviceArray2D::HostToDevice(const HostRows<const float>& rRows, int iX0, int iY0, int iWidth,
                                  int iHeight)
{
    if (IsEmpty()) return DeviceFail("upload to an empty array");
    return GetBackend()->Upload(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
}

bool CDeviceArray2D::ToHost(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                            int iHeight) const
{
    if (IsEmpty()) return DeviceFail("download from an empty array");
    return GetBackend()->Download(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
}

bool CDeviceArray2D::StartToHost(const HostRows<float>& rRows, int iX0, int iY0, int iWidth,
                                 int iHeight) const
{
    if (IsEmpty()) return DeviceFail("download from an empty array");
    return GetBackend()->StartDownload(m_aImage, rRows, iX0, iY0, iWidth, iHeight);
}

bool CDeviceArray2D::DeviceToDevice(const DeviceImage& rSource)
{
    if (IsEmpty()) return DeviceFail("copy to an empty array");
    return GetBackend()->Copy(m_aImage, rSource);
}
