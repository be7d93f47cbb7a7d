#include "server/Recon/DoEmRecon.h"

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"

void CDoEmRecon::SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize)
{
    m_uiSets = uiSets;
    m_uiSetSize = uiSetSize;
}

void CDoEmRecon::SetSmooth(const Util_Volume* pKernel, unsigned int uiInterval, int iNumDevices,
                           int iDeviceID, int iThreadID)
{
    m_pKernel = pKernel;
    m_aShare.iWorkers = iNumDevices;
    m_aShare.iWorker = iThreadID;
    m_aShare.iDevice = iDeviceID;
    m_uiInterval = uiInterval;
}

bool CDoEmRecon::DoIt(int iStartY, int iSizeY)
{
    mValidateProjIndices();
    mValidateSets();
    mValidateWeightBox();
    mConfigure();
    m_aJob.uiNumSets = m_uiSets;
    m_aJob.uiSetSize = m_uiSetSize;
    m_aJob.uiIterations = m_uiIterations;
    m_aJob.fRelax = m_fRelax;
    m_aJob.pKernel = m_pKernel;
    m_aJob.uiSmoothInt = m_uiInterval;
    m_aShare.iStartY = iStartY;
    m_aShare.iSizeY = iSizeY;
    m_pTomoRecon = mMakeTomoRecon();
    return m_pTomoRecon->DoIt(m_aShare);
}

/// Without sizes: one subset of the whole stack, whatever is selected; it is cut at the list's end.
void CDoEmRecon::mValidateSets()
{
    if (!m_uiSetSize.empty()) return;
    m_uiSets = 1;
    m_uiOneSet = static_cast<unsigned int>(m_pProjs->GetSizeZ());
    m_uiSetSize = {&m_uiOneSet, 1};
}
