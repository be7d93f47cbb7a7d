#include "gpulib/App/MProjTex.h"

bool CMProjTex::Create(int iSizeX, int iSizeY)
{
    const DeviceImage& rImage = m_aMProj.GetImage();
    if (!m_aMProj.IsEmpty() && rImage.iWidth == iSizeX && rImage.iHeight == iSizeY) return true;
    m_aMProj.SetFloat();
    return m_aMProj.Create(iSizeX, iSizeY);
}
