#include "gpulib/App/Images/ProjsTexture.h"

bool CProjsTexture::Create(int iSizeX, int iProjs, int iLanes, bool bOneImage)
{
    ClearDevice();
    m_iSizeX = iSizeX;
    m_iProjs = iProjs;
    m_bOneImage = bOneImage;
    m_aRaw.SetLanes(iLanes);
    m_aProjs.SetLanes(iLanes);
    if (!m_aProjs.Create(iSizeX, iProjs)) return false;
    return bOneImage || m_aRaw.Create(iSizeX, iProjs);
}

bool CProjsTexture::SetRawData(const HostRows<const float>& rRows)
{
    CDeviceArray2D& rTarget = m_bOneImage ? m_aProjs : m_aRaw;
    return rTarget.HostToDevice(rRows, 0, 0, m_iSizeX, m_iProjs);
}

void CProjsTexture::ClearDevice()
{
    m_aProjs.Free();
    m_aRaw.Free();
}
