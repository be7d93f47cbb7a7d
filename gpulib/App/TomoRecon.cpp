#include "gpulib/App/TomoRecon.h"

#include <algorithm>

#include "gpulib/App/JobShape.h"
#include "gpulib/App/RowBatch.h"
#include "gpulib/App/TomoSmooth.h"
#include "gpulib/App/TomoVolume.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

CTomoRecon::CTomoRecon(std::unique_ptr<CReconImpl> pImpl, bool bSart)
    : m_pImpl(std::move(pImpl)), m_bSart(bSart)
{
}

void CTomoRecon::SetSmooth(CTomoSmooth* pSmooth, unsigned int uiInterval)
{
    m_pTomoSmooth = pSmooth;
    m_uiSmoothInt = uiInterval;
}

bool CTomoRecon::DoIt(int iStartY, int iSizeY)
{
    m_vdRfactor.clear();
    if (!mSetBand(iStartY, iSizeY) || !mPrepare()) return false;

    const unsigned int uiInterval = m_uiSmoothInt ? m_uiSmoothInt : m_uiIterations;
    const unsigned int uiBlocks = std::max(m_uiIterations / uiInterval, 1U);
    for (unsigned int b = 0; b < uiBlocks; ++b)
    {
        const unsigned int uiFirst = b * uiInterval;
        const unsigned int uiEnd = uiFirst + std::min(uiInterval, m_uiIterations - uiFirst);
        if (!mDoBlock(uiFirst, uiEnd)) return false;
        if (m_uiSmoothInt && !mSmooth()) return false;
    }
    if (iSizeY > 0 && !m_pImpl->GetRfactor(m_vdRfactor)) return false;
    m_pImpl->FreeMemory();
    return true;
}

/// A band without rows needs nothing; its worker only keeps the rendezvous.
bool CTomoRecon::mPrepare()
{
    if (m_iSizeY == 0) return true;
    mPopulateBand();
    mCalcBatch(g_iIterImages);
    mCalcSetSize();
    return mCreateAnglesTex() && mCreateRangeTex() && mCreateProjIndexTex() &&
           mGenWeights(m_bSart) &&
           mFitBatch([this]
                     { return mCreateProjsTex(false) && mCreateVolumeTex() && mConfigure(); });
}

bool CTomoRecon::mConfigure()
{
    m_pImpl->SetProjs(mGetProjX(), mGetProjs(), m_uiProjIndices);
    m_pImpl->SetVolSize(mGetVolX(), mGetVolZ());
    m_pImpl->SetIterations(m_uiIterations);
    m_pImpl->SetRelax(m_fRelax);
    m_pImpl->SetTextures(&m_aTextures);
    m_pImpl->SetSetSize(&m_aSetSize);
    return m_pImpl->Configure(m_iBatch);
}

/// While the device works on one batch, the one before goes back and the next one comes.
bool CTomoRecon::mDoBlock(unsigned int uiFirst, unsigned int uiEnd)
{
    for (int y = 0; y < m_iSizeY; y += m_iBatch)
    {
        const int iRows = std::min(m_iBatch, m_iSizeY - y);
        const bool bZero = IsZero(mGetVolume(), m_iStartY + y, iRows);
        if (!mSetProjTex(m_iStartY + y, iRows) || !mSetVolTex(m_iStartY + y, iRows) ||
            !m_pImpl->SetBatch(y, iRows, bZero) || !m_pImpl->DoIt(uiFirst, uiEnd) ||
            !GetBackend()->FinishDownload())
            return false;
        mPrefetchProjs(y + m_iBatch);
        mPrefetchVolume(y + m_iBatch);
        if (!m_pImpl->StartToHost(m_iStartY, mGetVolume())) return false;
    }
    return GetBackend()->FinishDownload();
}

/// No worker takes its piece before all rows are stored, puts it back before all pieces are taken,
/// or goes on before the volume is whole.
bool CTomoRecon::mSmooth()
{
    if (!mMeet()) return false;
    if (!m_pTomoSmooth) return true;
    if (!m_pTomoSmooth->DoIt() || !mMeet()) return false;
    m_pTomoSmooth->Assemble();
    return mMeet();
}

bool CTomoRecon::mMeet()
{
    return m_pTomoVol->Rendezvous() || DeviceFail("another worker gave up");
}
