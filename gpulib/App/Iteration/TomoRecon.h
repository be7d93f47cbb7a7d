#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "gpulib/App/Iteration/ReconImpl.h"
#include "gpulib/App/ReconBase.h"
#include "gpulib/App/Smooth/TomoSmooth.h"

/// Base of the iterative jobs: runs a worker over the batches of a band, in blocks of iterations.
///
/// All workers of the job meet after every uiSmoothInt iterations, with all slices stored, and
/// smooth the volume together; without a kernel they only meet. Iterations past the last whole
/// interval are not run, unless there is none.
class CTomoRecon : public CReconBase
{
public:
    /// Hands over the sums of the band, see CRfactorImpl; empty when there are none.
    std::vector<double> GetRfactor() { return std::exchange(m_vdRfactor, {}); }

protected:
    CTomoRecon(const ReconJob& rJob, std::unique_ptr<CReconImpl> pImpl);

private:
    [[nodiscard]] bool mPrepare() override;
    void mSetImages(const RunImages& rImages) override { m_pImpl->SetImages(rImages); }
    [[nodiscard]] bool mRun() override;
    [[nodiscard]] bool mDoBlock(unsigned int uiFirst, unsigned int uiEnd);
    [[nodiscard]] bool mSmooth();
    [[nodiscard]] bool mMeet();

    std::unique_ptr<CReconImpl> m_pImpl;
    CTomoSmooth m_aTomoSmooth;
    std::vector<double> m_vdRfactor;
};
