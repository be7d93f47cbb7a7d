#pragma once

#include <vector>

#include "gpulib/App/Iteration/RfactorImpl.h"
#include "gpulib/App/Iteration/SetSize.h"
#include "gpulib/App/Project/BackProjImpl.h"
#include "gpulib/App/Project/DiffProjImpl.h"

struct ReconJob;

/// Base of the workers that run the iterations of a method, set by set, on one batch of rows.
class CReconImpl
{
public:
    explicit CReconImpl(const ReconJob& rJob);
    virtual ~CReconImpl() = default;
    CReconImpl(const CReconImpl&) = delete;
    CReconImpl& operator=(const CReconImpl&) = delete;

    /// Makes the sums of the R-factors, all 0.
    [[nodiscard]] bool AllocMemory();
    /// The images of all batches, after they were created.
    void SetImages(const RunImages& rImages);
    /// Tells that a batch was loaded.
    /// \param iY     first row of the batch within the band
    /// \param bZero  its slices are 0 everywhere
    [[nodiscard]] bool SetBatch(int iY, int iRows, bool bZero);
    /// Runs iterations [uiFirst, uiEnd) on the batch.
    [[nodiscard]] bool DoIt(unsigned int uiFirst, unsigned int uiEnd);
    /// See CRfactorImpl.
    [[nodiscard]] bool GetRfactor(std::vector<double>& rRfactor) const;

protected:
    /// Updates the slices once, from the projections of one set.
    [[nodiscard]] virtual bool mDoSet(unsigned int uiIter, SetRange aSet, float fRelax) = 0;
    /// Adds the mean of the weighted residuals, and makes the working rows of the next set.
    [[nodiscard]] bool mDoSartRecon(SetRange aSet, float fRelax);
    /// Multiplies by the mean of the ratios, likewise.
    [[nodiscard]] bool mDoEmRecon(SetRange aSet, float fRelax);

private:
    [[nodiscard]] bool mDoIteration(unsigned int uiIter);
    [[nodiscard]] bool mCalcRfactor(unsigned int uiIter);
    float mCalcRelax(unsigned int uiIter, unsigned int uiSet) const;

    const ReconJob& m_rJob;
    CSetSize m_aSetSize;
    CDivProjImpl m_aDifProjImpl;
    CBackProjImpl m_aBackProjImpl;
    CRfactorImpl m_aRfactorImpl;
    int m_iRows = 0;   // of the batch at work
    SetRange m_aNext;  // the set after the one at work in this iteration, or none
};
