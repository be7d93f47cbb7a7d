#include "gpulib/App/Align/TransformImpl.h"

#include "Util/Util_Volume.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"

int CTransformImpl::GetPieceRows(int iSizeX, int iSizeY)
{
    return GetBackend()->GetPieceRows(iSizeX, iSizeY);
}

bool CTransformImpl::Configure(const AlignJob& rJob, int iRows)
{
    const Util_Volume &rMProjs = *rJob.pMProjs, &rProjs = *rJob.pProjs;
    m_aGTransform.SetMatrix(rJob.afMatrix);
    m_aGTransform.SetIntScale(rJob.afScale);
    m_aGTransform.SetAProjSize(rProjs.GetSizeX());
    if (!m_aMProjTex.Create(rMProjs.GetSliceXY(rJob.iMProj), rMProjs.GetSizeX(),
                            rMProjs.GetSizeY()) ||
        !m_aProj.Create(rProjs.GetSizeX(), iRows) || !m_aMiss.Create(rProjs.GetSizeX(), iRows))
        return false;
    m_aGTransform.SetMProjArray(m_aMProjTex.GetImage());
    return true;
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
