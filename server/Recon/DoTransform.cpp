#include "server/Recon/DoTransform.h"

#include "Util/Util_Volume.h"

void CDoTransform::SetMProj(const Util_Volume* pMProjs, int iMProj)
{
    m_pMProjs = pMProjs;
    m_iMProj = iMProj;
}

void CDoTransform::SetAProj(Util_Volume* pProjs, int iAProj, std::span<unsigned int> uiRangeX)
{
    m_aTransform.SetRangeX(uiRangeX);
    m_aTransform.SetAProj(pProjs->GetSliceXY(iAProj), pProjs->GetSizeX(), pProjs->GetSizeY());
}

bool CDoTransform::DoIt(int iStartY, int iSizeY)
{
    return mRun(false, iStartY, iSizeY);
}

bool CDoTransform::DoItLog(int iStartY, int iSizeY)
{
    return mRun(true, iStartY, iSizeY);
}

bool CDoTransform::mRun(bool bLog, int iStartY, int iSizeY)
{
    if (iSizeY <= 0) return true;
    m_aTransform.SetRangeY(iStartY, iSizeY);
    return m_aTransform.SetMProj(m_pMProjs->GetSliceXY(m_iMProj), m_pMProjs->GetSizeX(),
                                 m_pMProjs->GetSizeY()) &&
           m_aTransform.DoIt(bLog);
}
