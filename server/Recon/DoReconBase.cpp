#include "server/Recon/DoReconBase.h"

#include <numeric>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"

CDoReconBase::CDoReconBase(const ReconJob& rJob) : m_aJob(rJob)
{
    mValidateProjIndices();
}

void CDoReconBase::mValidateProjIndices()
{
    if (!m_aJob.uiProjIndex.empty()) return;
    m_vuiAllProjs.resize(static_cast<std::size_t>(m_aJob.pProjs->GetSizeZ()));
    std::iota(m_vuiAllProjs.begin(), m_vuiAllProjs.end(), 0U);
    m_aJob.uiProjIndex = m_vuiAllProjs;
}

/// Without sizes: one subset of the whole stack, whatever is selected; it is cut at the list's end.
void CDoReconBase::mValidateSets()
{
    if (!m_aJob.uiSetSize.empty()) return;
    m_uiOneSet = static_cast<unsigned int>(m_aJob.pProjs->GetSizeZ());
    m_aJob.uiNumSets = 1;
    m_aJob.uiSetSize = {&m_uiOneSet, 1};
}

/// Without a box: the whole cross-section of the volume.
void CDoReconBase::mValidateWeightBox()
{
    const int* const piSize = m_aJob.pTomoVol->GetSize();
    const float fX = static_cast<float>(piSize[0]), fZ = static_cast<float>(piSize[2]);
    if (!m_aJob.aBox) m_aJob.aBox = {{0.0f, 0.0f}, {0.5f * fX, 0.5f * fZ}};
}
