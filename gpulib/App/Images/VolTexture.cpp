#include "gpulib/App/Images/VolTexture.h"

bool CVolTexture::Create(int iSizeX, int iSizeZ, int iLanes)
{
    m_iSizeX = iSizeX;
    m_iSizeZ = iSizeZ;
    m_aVolume.SetLanes(iLanes);
    return m_aVolume.Create(iSizeX + 2, iSizeZ + 2);
}

bool CVolTexture::SetData(const HostRows<const float>& rRows)
{
    return m_aVolume.HostToDevice(rRows, 1, 1, m_iSizeX, m_iSizeZ);
}

bool CVolTexture::StartToHost(const HostRows<float>& rRows) const
{
    return m_aVolume.StartToHost(rRows, 1, 1, m_iSizeX, m_iSizeZ);
}
