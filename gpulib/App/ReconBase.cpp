#include "gpulib/App/ReconBase.h"

#include <algorithm>
#include <utility>

#include "Util/TomoVolume.h"
#include "Util/Util_Memory.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/Images/RowBatch.h"
#include "gpulib/App/Job.h"
#include "gpulib/App/Weights/CalcWeights.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

bool CReconBase::mSetBand(const JobShare& rShare)
{
    m_iStartY = rShare.iStartY;
    m_iSizeY = rShare.iSizeY;
    return mCheckInputs();
}

bool CReconBase::mCheckInputs() const
{
    if (!GetBackend()) return DeviceFail("no backend");
    if (!m_rJob.pProjs || !m_rJob.pProjs->GetData()) return DeviceFail("no projections");
    if (!m_rJob.pTomoVol || !m_rJob.pTomoVol->GetVolume() || !mGetVolume().GetData())
        return DeviceFail("no volume");
    const int iProjY = m_rJob.pProjs->GetSizeY(), iVolY = mGetVolume().GetSizeY();
    if (m_iStartY < 0 || m_iSizeY < 0 || m_iStartY > std::min(iProjY, iVolY) - m_iSizeY)
        return DeviceFail("rows %d to %d of a stack of %d and a volume of %d", m_iStartY,
                          m_iStartY + m_iSizeY - 1, iProjY, iVolY);
    if (std::ssize(m_rJob.fAngles) < mGetProjs())
        return DeviceFail("%zu angles for %d projections", m_rJob.fAngles.size(), mGetProjs());
    if (m_rJob.uiProjIndex.empty()) return DeviceFail("no projection selected");
    const unsigned int uiMost = *std::ranges::max_element(m_rJob.uiProjIndex);
    if (uiMost >= unsigned(mGetProjs()))
        return DeviceFail("projection %u of %d", uiMost, mGetProjs());
    if (m_rJob.uiNumSets == 0 || m_rJob.uiIterations == 0)
        return DeviceFail("%u sets, %u iterations", m_rJob.uiNumSets, m_rJob.uiIterations);
    const std::size_t tFactors = std::size_t(m_rJob.uiNumSets) * m_rJob.uiIterations;
    if (!m_rJob.fRelax.empty() && m_rJob.fRelax.size() < tFactors)
        return DeviceFail("%zu relaxation factors, %zu needed", m_rJob.fRelax.size(), tFactors);
    return true;
}

void CReconBase::mCalcBatch(EJobKind eKind)
{
    m_iBatch = JobShape(m_rJob, eKind).GetBatch(m_iSizeY);
}

bool CReconBase::mFitBatch(const std::function<bool()>& fCreate)
{
    while (!fCreate())
    {
        if (m_iBatch == 1) return false;
        m_iBatch = (m_iBatch + 1) / 2;
        TakeDeviceError();
    }
    return true;
}

bool CReconBase::mCreateProjsTex(bool bOneImage)
{
    return m_aTextures.m_aProjsTex.Create(mGetProjX(), mGetProjs(), m_iBatch, bOneImage);
}

bool CReconBase::mCreateAnglesTex()
{
    return m_aTextures.m_aAnglesTex.Create(mGetProjs()) &&
           m_aTextures.m_aAnglesTex.SetData(m_rJob.fAngles);
}

bool CReconBase::mCreateVolumeTex()
{
    return m_aTextures.m_aVolTex.Create(mGetVolX(), mGetVolZ(), m_iBatch);
}

bool CReconBase::mCreateRangeTex()
{
    return m_aTextures.m_aRangeTex.Create(m_iSizeY, mGetProjs()) &&
           m_aTextures.m_aRangeTex.SetData(m_rJob.uiRangeX, m_rJob.pProjs->GetSizeY(), m_iStartY);
}

bool CReconBase::mCreateProjIndexTex()
{
    return m_aTextures.m_aProjIndexTex.Create(m_rJob.uiProjIndex);
}

void CReconBase::mCalcSetSize()
{
    m_aSetSize.SetNumProjs(static_cast<unsigned int>(m_rJob.uiProjIndex.size()));
    m_aSetSize.SetNumSets(m_rJob.uiNumSets, m_rJob.uiSetSize);
    m_aSetSize.Calculate();
}

bool CReconBase::mGenWeights(bool bSart)
{
    CCalcWeights aWeights;
    if (bSart)
        aWeights.SetSart();
    else
        aWeights.SetEm();
    aWeights.SetVolSize(mGetVolX(), mGetVolZ());
    aWeights.SetProjs(mGetProjX(), mGetProjs(), m_rJob.fAngles);
    aWeights.SetTextures(&m_aTextures);
    if (m_rJob.aBox) aWeights.SetWeightBox(m_rJob.aBox->afOrig.data(), m_rJob.aBox->afDim.data());
    return aWeights.DoIt();
}

void CReconBase::mPopulateBand()
{
    const std::size_t tX = mGetVolX();
    for (int z = 0; z < mGetVolZ(); ++z)
        Util_Memory::Populate(mGetVolume().GetSliceXY(z) + tX * m_iStartY,
                              tX * m_iSizeY * sizeof(float));
}

bool CReconBase::mSetProjTex(int iY, int iRows)
{
    return m_aTextures.m_aProjsTex.SetRawData(GetBatch(std::as_const(*m_rJob.pProjs), iY, iRows));
}

bool CReconBase::mSetVolTex(int iY, int iRows)
{
    return m_aTextures.m_aVolTex.SetData(GetBatch(std::as_const(mGetVolume()), iY, iRows));
}

void CReconBase::mPrefetchProjs(int iY) const
{
    const int iRows = std::min(m_iBatch, m_iSizeY - iY);
    if (iRows > 0)
        GetBackend()->Prefetch(GetBatch(std::as_const(*m_rJob.pProjs), m_iStartY + iY, iRows),
                               mGetProjX(), mGetProjs());
}

void CReconBase::mPrefetchVolume(int iY) const
{
    const int iRows = std::min(m_iBatch, m_iSizeY - iY);
    if (iRows > 0)
        GetBackend()->Prefetch(GetBatch(std::as_const(mGetVolume()), m_iStartY + iY, iRows),
                               mGetVolX(), mGetVolZ());
}

Util_Volume& CReconBase::mGetVolume() const
{
    return *m_rJob.pTomoVol->GetVolume();
}
int CReconBase::mGetVolX() const
{
    return mGetVolume().GetSizeX();
}
int CReconBase::mGetVolZ() const
{
    return mGetVolume().GetSizeZ();
}
int CReconBase::mGetProjX() const
{
    return m_rJob.pProjs->GetSizeX();
}
int CReconBase::mGetProjs() const
{
    return m_rJob.pProjs->GetSizeZ();
}
