#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "gpulib/App/Iteration/ReconImpl.h"
#include "gpulib/App/ReconBase.h"
#include "gpulib/App/Smooth/TomoSmooth.h"

/// Base of the iterative jobs: runs a worker over the batches of a band, in blocks of iterations.
class CTomoRecon : public CReconBase
{
public:
    /// All workers of the job meet after every uiSmoothInt iterations, with all slices stored, and
    /// smooth the volume together; without a kernel they only meet. Iterations past the last whole
    /// interval are not run, unless there is none.
    [[nodiscard]] bool DoIt(const JobShare& rShare) override;
    /// Hands over the sums of the band, see CRfactorImpl; empty when there are none.
    std::vector<double> GetRfactor() { return std::exchange(m_vdRfactor, {}); }

protected:
    CTomoRecon(const ReconJob& rJob, std::unique_ptr<CReconImpl> pImpl, bool bSart);

private:
    [[nodiscard]] bool mPrepare();
    [[nodiscard]] bool mConfigure();
    [[nodiscard]] bool mDoBlock(unsigned int uiFirst, unsigned int uiEnd);
    [[nodiscard]] bool mSmooth();
    [[nodiscard]] bool mMeet();

    std::unique_ptr<CReconImpl> m_pImpl;
    const bool m_bSart;
    CTomoSmooth m_aTomoSmooth;
    std::vector<double> m_vdRfactor;
};
