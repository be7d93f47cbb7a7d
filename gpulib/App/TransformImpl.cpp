#include "gpulib/App/TransformImpl.h"

#include "gpulib/Device/Backend.h"

bool CTransformImpl::SetMProj(const float* pfMProj, int iSizeX, int iSizeY)
{
    if (!m_aMProjTex.Create(pfMProj, iSizeX, iSizeY)) return false;
    m_aGTransform.SetMProjArray(m_aMProjTex.GetImage());
    return true;
}

void CTransformImpl::SetAProjSize(int iSizeX, int iSizeY)
{
    m_iAProjX = iSizeX;
    m_aGTransform.SetAProjSize(iSizeX, iSizeY);
}

int CTransformImpl::GetPieceRows(int iSizeX, int iSizeY)
{
    return GetBackend()->GetPieceRows(iSizeX, iSizeY);
}

bool CTransformImpl::AllocMemory(int iRows)
{
    return m_aProj.Create(m_iAProjX, iRows) && m_aMiss.Create(m_iAProjX, iRows);
}

bool CTransformImpl::DoIt(bool bLog, int iStartY, int iSizeY)
{
    const DeviceImage &rProj = m_aProj.GetImage(), &rMiss = m_aMiss.GetImage();
    return bLog ? m_aGTransform.DoItLog(rProj, rMiss, iStartY, iSizeY)
                : m_aGTransform.DoIt(rProj, rMiss, iStartY, iSizeY);
}

void CTransformImpl::ClearDevice()
{
    m_aProj.Free();
    m_aMiss.Free();
    m_aMProjTex.ClearDevice();
}
