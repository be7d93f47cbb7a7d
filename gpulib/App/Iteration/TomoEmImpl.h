#pragma once

#include "gpulib/App/Iteration/ReconImpl.h"
#include "gpulib/App/Project/DivProjImpl.h"

/// Worker of EM: each set multiplies by the mean of its ratios. Iteration 0 is a SART iteration,
/// because EM cannot leave a volume of zeros.
class CTomoEmImpl : public CReconImpl
{
private:
    CDiffProjImpl& mGetDifProj() override { return m_aDivProjImpl; }
    [[nodiscard]] bool mDoIteration(unsigned int uiIter) override;
    [[nodiscard]] bool mDoEmRecon(unsigned int uiIter);
    CDivProjImpl m_aDivProjImpl;
};
