#include "server/Recon/DoCompare.h"

#include "Util/Util_Volume.h"

void CDoCompare::SetMProj(const Util_Volume* pMProjs, int iMProj)
{
    m_pMProjs = pMProjs;
    m_iMProj = iMProj;
}

void CDoCompare::SetAProj(const Util_Volume* pProjs, int iAProj)
{
    m_aCompare.SetAProj(pProjs->GetSliceXY(iAProj), pProjs->GetSizeX(), pProjs->GetSizeY());
}

bool CDoCompare::DoIt(int iStartY, int iSizeY)
{
    return mRun(false, iStartY, iSizeY);
}

bool CDoCompare::DoItLog(int iStartY, int iSizeY)
{
    return mRun(true, iStartY, iSizeY);
}

bool CDoCompare::mRun(bool bLog, int iStartY, int iSizeY)
{
    if (iSizeY <= 0) return true;
    m_aCompare.SetRangeY(iStartY, iSizeY);
    return m_aCompare.SetMProj(m_pMProjs->GetSliceXY(m_iMProj), m_pMProjs->GetSizeX(),
                               m_pMProjs->GetSizeY()) &&
           m_aCompare.DoIt(bLog);
}
