#include "gpulib/App/Iteration/TomoRecon.h"

#include <algorithm>

#include "Util/TomoVolume.h"
#include "gpulib/App/Images/RowBatch.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

CTomoRecon::CTomoRecon(const ReconJob& rJob, std::unique_ptr<CReconImpl> pImpl, bool bSart)
    : CReconBase(rJob), m_pImpl(std::move(pImpl)), m_bSart(bSart)
{
}

bool CTomoRecon::DoIt(const JobShare& rShare)
{
    m_vdRfactor.clear();
    if (!mSetBand(rShare) || !mPrepare()) return false;
    m_aTomoSmooth.SetVolume(&mGetVolume());
    m_aTomoSmooth.SetKernel(m_rJob.pKernel);
    m_aTomoSmooth.SetDeviceInfo(rShare.iWorkers, rShare.iDevice, rShare.iWorker);

    const unsigned int uiIterations = m_rJob.uiIterations;
    const unsigned int uiInterval = m_rJob.uiSmoothInt ? m_rJob.uiSmoothInt : uiIterations;
    const unsigned int uiBlocks = std::max(uiIterations / uiInterval, 1U);
    for (unsigned int b = 0; b < uiBlocks; ++b)
    {
        const unsigned int uiFirst = b * uiInterval;
        const unsigned int uiEnd = uiFirst + std::min(uiInterval, uiIterations - uiFirst);
        if (!mDoBlock(uiFirst, uiEnd)) return false;
        if (m_rJob.uiSmoothInt && !mSmooth()) return false;
    }
    if (m_iSizeY > 0 && !m_pImpl->GetRfactor(m_vdRfactor)) return false;
    m_pImpl->FreeMemory();
    return true;
}

/// A band without rows needs nothing; its worker only keeps the rendezvous.
bool CTomoRecon::mPrepare()
{
    if (m_iSizeY == 0) return true;
    mPopulateBand();
    mCalcBatch(EJobKind::eIterative);
    mCalcSetSize();
    return mCreateAnglesTex() && mCreateRangeTex() && mCreateProjIndexTex() &&
           mGenWeights(m_bSart) &&
           mFitBatch([this]
                     { return mCreateProjsTex(false) && mCreateVolumeTex() && mConfigure(); });
}

bool CTomoRecon::mConfigure()
{
    m_pImpl->SetProjs(mGetProjX(), mGetProjs(), m_rJob.uiProjIndex);
    m_pImpl->SetVolSize(mGetVolX(), mGetVolZ());
    m_pImpl->SetIterations(m_rJob.uiIterations);
    m_pImpl->SetRelax(m_rJob.fRelax);
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
    if (!m_aTomoSmooth.DoIt() || !mMeet()) return false;
    m_aTomoSmooth.Assemble();
    return mMeet();
}

bool CTomoRecon::mMeet()
{
    return m_rJob.pTomoVol->Rendezvous() || DeviceFail("another worker gave up");
}
