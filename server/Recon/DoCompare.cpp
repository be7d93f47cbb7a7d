#include "server/Recon/DoCompare.h"

void CDoCompare::SetMProj(const Util_Volume* pMProjs, int iMProj)
{
    m_aJob.pMProjs = pMProjs;
    m_aJob.iMProj = iMProj;
}

void CDoCompare::SetAProj(Util_Volume* pProjs, int iAProj)
{
    m_aJob.pProjs = pProjs;
    m_aJob.iAProj = iAProj;
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
    m_aJob.bLog = bLog;
    CCompare aCompare(m_aJob);
    if (!aCompare.DoIt({.iStartY = iStartY, .iSizeY = iSizeY})) return false;
    m_aTotals = aCompare.GetTotals();
    return true;
}
