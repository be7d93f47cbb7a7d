#include "gpulib/Device/DeviceArray3D.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

bool CDeviceArray3D::Create(int iX, int iY, int iZ)
{
    Free();
    if (!GetBackend()) return DeviceFail("no backend");
    DeviceImage aImage;
    aImage.iWidth = iX;
    aImage.iHeight = iY;
    aImage.iDepth = iZ;
    if (!GetBackend()->CreateArray(aImage)) return false;
    m_aImage = aImage;
    return true;
}

bool CDeviceArray3D::HostToDevice(const float* pfData)
{
    if (IsEmpty()) return DeviceFail("upload to an empty array");
    return GetBackend()->UploadTable(m_aImage, pfData);
}

bool CDeviceArray3D::DeviceToDevice(const DeviceImage& rSource)
{
    if (IsEmpty()) return DeviceFail("copy to an empty array");
    return GetBackend()->Copy(m_aImage, rSource);
}

void CDeviceArray3D::Free()
{
    if (!IsEmpty() && GetBackend()) GetBackend()->Free(m_aImage);
    m_aImage = DeviceImage();
}
