#include "server/Recon/DoTransform.h"

void CDoTransform::SetMProj(const Util_Volume* pMProjs, int iMProj)
{
    m_aJob.pMProjs = pMProjs;
    m_aJob.iMProj = iMProj;
}

void CDoTransform::SetAProj(Util_Volume* pProjs, int iAProj, std::span<unsigned int> uiRangeX)
{
    m_aJob.pProjs = pProjs;
    m_aJob.iAProj = iAProj;
    m_aJob.uiRangeX = uiRangeX;
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
    m_aJob.bLog = bLog;
    CTransform aTransform(m_aJob);
    return aTransform.DoIt({.iStartY = iStartY, .iSizeY = iSizeY});
}
