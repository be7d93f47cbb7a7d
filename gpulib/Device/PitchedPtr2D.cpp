#include "gpulib/Device/PitchedPtr2D.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

bool CPitchedPtr2D::Create(int iWidth, int iHeight)
{
    Free();
    if (!GetBackend()) return DeviceFail("no backend");
    DeviceImage aImage;
    aImage.iWidth = iWidth;
    aImage.iHeight = iHeight;
    aImage.iLanes = m_iLanes;
    aImage.iBytes = m_iBytes;
    if (!GetBackend()->CreatePitched(aImage)) return false;
    m_aImage = aImage;
    return true;
}

bool CPitchedPtr2D::Init(int /*iValue*/)
{
    return IsEmpty() || GetBackend()->Clear(m_aImage);
}

bool CPitchedPtr2D::ToHost(float* pfDest) const
{
    if (IsEmpty()) return true;
    if (m_aImage.iBytes != 4) return DeviceFail("download of doubles as floats");
    return GetBackend()->DownloadTable(m_aImage, pfDest);
}

bool CPitchedPtr2D::ToHost(double* pdDest) const
{
    if (IsEmpty()) return true;
    if (m_aImage.iBytes != 8) return DeviceFail("download of floats as doubles");
    return GetBackend()->DownloadTable(m_aImage, pdDest);
}

bool CPitchedPtr2D::ToHost(const HostRows<float>& rRows) const
{
    return ToHost(rRows, m_aImage.iHeight);
}

bool CPitchedPtr2D::ToHost(const HostRows<float>& rRows, int iHeight) const
{
    if (IsEmpty()) return true;
    return GetBackend()->Download(m_aImage, rRows, 0, 0, m_aImage.iWidth, iHeight);
}

void CPitchedPtr2D::Free()
{
    if (!IsEmpty() && GetBackend()) GetBackend()->Free(m_aImage);
    m_aImage = DeviceImage();
}
