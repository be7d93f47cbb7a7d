#include "server/Recon/DoReconBase.h"

#include <numeric>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"

void CDoReconBase::SetProjs(Util_Volume* pProjs, std::span<const float> fAngles)
{
    m_pProjs = pProjs;
    m_fAngles = fAngles;
}

void CDoReconBase::SetWeightBox(const float* pfOrig, const float* pfDim)
{
    m_afOrig.reset();
    m_afDim.reset();
    if (pfOrig) m_afOrig = {pfOrig[0], pfOrig[1]};
    if (pfDim) m_afDim = {pfDim[0], pfDim[1]};
}

void CDoReconBase::mValidateProjIndices()
{
    if (!m_uiProjIndex.empty()) return;
    m_vuiAllProjs.resize(m_pProjs->GetSizeZ());
    std::iota(m_vuiAllProjs.begin(), m_vuiAllProjs.end(), 0U);
    m_uiProjIndex = m_vuiAllProjs;
}

/// Without a box: the whole cross-section of the volume.
void CDoReconBase::mValidateWeightBox()
{
    const int* piSize = m_pTomoVol->GetSize();
    if (!m_afOrig) m_afOrig = {0.0f, 0.0f};
    if (!m_afDim)
        m_afDim = {0.5f * static_cast<float>(piSize[0]), 0.5f * static_cast<float>(piSize[2])};
}

void CDoReconBase::mConfigure()
{
    m_aJob.pProjs = m_pProjs;
    m_aJob.pTomoVol = m_pTomoVol;
    m_aJob.fAngles = m_fAngles;
    m_aJob.uiRangeX = m_uiRangeX;
    m_aJob.uiProjIndex = m_uiProjIndex;
    m_aJob.aBox.reset();
    if (m_afOrig && m_afDim) m_aJob.aBox = {*m_afOrig, *m_afDim};
}
