#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "gpulib/App/ReconBase.h"
#include "gpulib/App/ReconImpl.h"

class CTomoSmooth;

/// Base of the iterative jobs: runs a worker over the batches of a band, in blocks of iterations.
class CTomoRecon : public CReconBase
{
public:
    /// All workers of the job meet after every uiInterval iterations (0: never), with all slices
    /// stored, and smooth the volume together; without a smoother they only meet. Iterations past
    /// the last whole interval are not run, unless there is none.
    /// \param pSmooth  this worker's part, borrowed until DoIt() has returned; may be null
    void SetSmooth(CTomoSmooth* pSmooth, unsigned int uiInterval);
    [[nodiscard]] bool DoIt(int iStartY, int iSizeY) override;
    /// Hands over the sums of the band, see CRfactorImpl; empty when there are none.
    std::vector<double> GetRfactor() { return std::exchange(m_vdRfactor, {}); }

protected:
    CTomoRecon(std::unique_ptr<CReconImpl> pImpl, bool bSart);

private:
    [[nodiscard]] bool mPrepare();
    [[nodiscard]] bool mConfigure();
    [[nodiscard]] bool mDoBlock(unsigned int uiFirst, unsigned int uiEnd);
    [[nodiscard]] bool mSmooth();
    [[nodiscard]] bool mMeet();

    std::unique_ptr<CReconImpl> m_pImpl;
    const bool m_bSart;
    CTomoSmooth* m_pTomoSmooth = nullptr;
    unsigned int m_uiSmoothInt = 0;
    std::vector<double> m_vdRfactor;
};
