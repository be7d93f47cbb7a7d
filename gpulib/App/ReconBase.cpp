#include "gpulib/App/ReconBase.h"

#include <algorithm>
#include <utility>

#include "Util/Util_Memory.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/CalcWeights.h"
#include "gpulib/App/JobShape.h"
#include "gpulib/App/RowBatch.h"
#include "gpulib/App/TomoVolume.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

void CReconBase::SetProjs(Util_Volume* pProjs, std::span<const float> fAngles)
{
    m_pProjs = pProjs;
    m_fAngles = fAngles;
}

void CReconBase::SetPreweightBox(const float* pfOrig, const float* pfDim)
{
    m_pfPrewOrig = pfOrig;
    m_pfPrewDim = pfDim;
}

void CReconBase::SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize)
{
    m_uiNumSets = uiSets;
    m_uiSetSize = uiSetSize;
}

bool CReconBase::mSetBand(int iStartY, int iSizeY)
{
    m_iStartY = iStartY;
    m_iSizeY = iSizeY;
    return mCheckInputs();
}

bool CReconBase::mCheckInputs() const
{
    if (!GetBackend()) return DeviceFail("no backend");
    if (!m_pProjs || !m_pProjs->GetData()) return DeviceFail("no projections");
    if (!m_pTomoVol || !m_pTomoVol->GetVolume() || !mGetVolume().GetData())
        return DeviceFail("no volume");
    const int iProjY = m_pProjs->GetSizeY(), iVolY = mGetVolume().GetSizeY();
    if (m_iStartY < 0 || m_iSizeY < 0 || m_iStartY > std::min(iProjY, iVolY) - m_iSizeY)
        return DeviceFail("rows %d to %d of a stack of %d and a volume of %d", m_iStartY,
                          m_iStartY + m_iSizeY - 1, iProjY, iVolY);
    if (std::ssize(m_fAngles) < mGetProjs())
        return DeviceFail("%zu angles for %d projections", m_fAngles.size(), mGetProjs());
    if (m_uiProjIndices.empty()) return DeviceFail("no projection selected");
    const unsigned int uiMost = *std::ranges::max_element(m_uiProjIndices);
    if (uiMost >= unsigned(mGetProjs()))
        return DeviceFail("projection %u of %d", uiMost, mGetProjs());
    if (m_uiNumSets == 0 || m_uiIterations == 0)
        return DeviceFail("%u sets, %u iterations", m_uiNumSets, m_uiIterations);
    const std::size_t tFactors = std::size_t(m_uiNumSets) * m_uiIterations;
    if (!m_fRelax.empty() && m_fRelax.size() < tFactors)
        return DeviceFail("%zu relaxation factors, %zu needed", m_fRelax.size(), tFactors);
    return true;
}

void CReconBase::mCalcBatch(int iProjImages)
{
    JobShape aShape;
    aShape.iProjX = mGetProjX();
    aShape.iProjs = mGetProjs();
    aShape.iVolX = mGetVolX();
    aShape.iVolZ = mGetVolZ();
    aShape.iRows = m_iSizeY;
    aShape.iProjImages = iProjImages;
    m_iBatch = aShape.GetBatch();
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
           m_aTextures.m_aAnglesTex.SetData(m_fAngles);
}

bool CReconBase::mCreateVolumeTex()
{
    return m_aTextures.m_aVolTex.Create(mGetVolX(), mGetVolZ(), m_iBatch);
}

bool CReconBase::mCreateRangeTex()
{
    return m_aTextures.m_aRangeTex.Create(m_iSizeY, mGetProjs()) &&
           m_aTextures.m_aRangeTex.SetData(m_uiRangeX, m_pProjs->GetSizeY(), m_iStartY);
}

bool CReconBase::mCreateProjIndexTex()
{
    return m_aTextures.m_aProjIndexTex.Create(m_uiProjIndices);
}

void CReconBase::mCalcSetSize()
{
    m_aSetSize.SetNumProjs(static_cast<unsigned int>(m_uiProjIndices.size()));
    m_aSetSize.SetNumSets(m_uiNumSets, m_uiSetSize);
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
    aWeights.SetProjs(mGetProjX(), mGetProjs(), m_fAngles);
    aWeights.SetTextures(&m_aTextures);
    aWeights.SetWeightBox(m_pfPrewOrig, m_pfPrewDim);
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
    return m_aTextures.m_aProjsTex.SetRawData(GetBatch(std::as_const(*m_pProjs), iY, iRows));
}

bool CReconBase::mSetVolTex(int iY, int iRows)
{
    return m_aTextures.m_aVolTex.SetData(GetBatch(std::as_const(mGetVolume()), iY, iRows));
}

void CReconBase::mPrefetchProjs(int iY) const
{
    const int iRows = std::min(m_iBatch, m_iSizeY - iY);
    if (iRows > 0)
        GetBackend()->Prefetch(GetBatch(std::as_const(*m_pProjs), m_iStartY + iY, iRows),
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
    return *m_pTomoVol->GetVolume();
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
    return m_pProjs->GetSizeX();
}
int CReconBase::mGetProjs() const
{
    return m_pProjs->GetSizeZ();
}
