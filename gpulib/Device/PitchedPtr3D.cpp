#include "gpulib/Device/PitchedPtr3D.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

bool CPitchedPtr3D::Create(int iX, int iY, int iZ)
{
    Free();
    if (!GetBackend()) return DeviceFail("no backend");
    DeviceImage aImage;
    aImage.iWidth = iX;
    aImage.iHeight = iY;
    aImage.iDepth = iZ;
    if (!GetBackend()->CreatePitched(aImage)) return false;
    m_aImage = aImage;
    return true;
}

bool CPitchedPtr3D::ToHost(float* pfDest) const
{
    return IsEmpty() || GetBackend()->DownloadTable(m_aImage, pfDest);
}

void CPitchedPtr3D::Free()
{
    if (!IsEmpty() && GetBackend()) GetBackend()->Free(m_aImage);
    m_aImage = DeviceImage();
}
