#include "server/Recon/DoEmRecon.h"

#include "Util/Util_Volume.h"
#include "gpulib/App/TomoVolume.h"

void CDoEmRecon::SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize)
{
    m_uiSets = uiSets;
    m_uiSetSize = uiSetSize;
}

void CDoEmRecon::SetSmooth(const Util_Volume* pKernel, unsigned int uiInterval, int iNumDevices,
                           int iDeviceID, int iThreadID)
{
    m_aTomoSmooth.SetKernel(pKernel);
    m_aTomoSmooth.SetDeviceInfo(iNumDevices, iDeviceID, iThreadID);
    m_uiInterval = uiInterval;
}

bool CDoEmRecon::DoIt(int iStartY, int iSizeY)
{
    mValidateProjIndices();
    mValidateSets();
    mValidateWeightBox();
    CTomoRecon& rRecon = mGetTomoRecon();
    mConfigure(rRecon);
    rRecon.SetNumSets(m_uiSets, m_uiSetSize);
    rRecon.SetIterations(m_uiIterations);
    rRecon.SetRelax(m_fRelax);
    m_aTomoSmooth.SetVolume(m_pTomoVol->GetVolume());
    rRecon.SetSmooth(&m_aTomoSmooth, m_uiInterval);
    return rRecon.DoIt(iStartY, iSizeY);
}

/// Without sizes: one subset of the whole stack, whatever is selected; it is cut at the list's end.
void CDoEmRecon::mValidateSets()
{
    if (!m_uiSetSize.empty()) return;
    m_uiSets = 1;
    m_uiOneSet = static_cast<unsigned int>(m_pProjs->GetSizeZ());
    m_uiSetSize = {&m_uiOneSet, 1};
}
