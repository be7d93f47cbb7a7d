#include "gpulib/App/Iteration/TomoRecon.h"

#include <algorithm>

#include "Util/TomoVolume.h"
#include "gpulib/Device/DeviceError.h"

CTomoRecon::CTomoRecon(const ReconJob& rJob, std::unique_ptr<CReconImpl> pImpl)
    : CReconBase(rJob, EJobKind::eIterative), m_pImpl(std::move(pImpl))
{
}

bool CTomoRecon::mPrepare()
{
    return m_pImpl->AllocMemory() && CReconBase::mPrepare();
}

/// A band without rows needs nothing of a device; its worker only keeps the rendezvous.
bool CTomoRecon::mRun()
{
    m_aTomoSmooth.SetVolume(&mGetVolume());
    m_aTomoSmooth.SetKernel(m_rJob.pKernel);
    m_aTomoSmooth.SetDeviceInfo(m_aShare.iWorkers, m_aShare.iDevice, m_aShare.iWorker);

    const unsigned int uiIterations = m_rJob.uiIterations;
    const unsigned int uiInterval = m_rJob.uiSmoothInt ? m_rJob.uiSmoothInt : uiIterations;
    const unsigned int uiBlocks = std::max(uiIterations / uiInterval, 1U);
    for (unsigned int b = 0; b < uiBlocks; ++b)
    {
        const unsigned int uiFirst = b * uiInterval;
        if (!mDoBlock(uiFirst, uiFirst + std::min(uiInterval, uiIterations - uiFirst)))
            return false;
        if (m_rJob.uiSmoothInt && !mSmooth()) return false;
    }
    return m_aShare.iSizeY == 0 || m_pImpl->GetRfactor(m_vdRfactor);
}

bool CTomoRecon::mDoBlock(unsigned int uiFirst, unsigned int uiEnd)
{
    return mForEachBatch(
        [&](int iY, int iRows, bool bZero)
        { return m_pImpl->SetBatch(iY, iRows, bZero) && m_pImpl->DoIt(uiFirst, uiEnd); });
}

/// No worker takes its piece before all rows are stored, puts it back before all pieces are taken,
/// or goes on before the volume is whole.
bool CTomoRecon::mSmooth()
{
    if (!mMeet() || !m_aTomoSmooth.DoIt() || !mMeet()) return false;
    m_aTomoSmooth.Assemble();
    return mMeet();
}

bool CTomoRecon::mMeet()
{
    return m_rJob.pTomoVol->Rendezvous() || DeviceFail("another worker gave up");
}
