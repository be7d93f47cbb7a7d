#pragma once

#include "gpulib/App/Iteration/ReconImpl.h"
#include "gpulib/App/Project/DiffProjImpl.h"

/// Worker of SART: each set adds the mean of its weighted residuals.
class CTomoSartImpl : public CReconImpl
{
private:
    CDiffProjImpl& mGetDifProj() override { return m_aDifProjImpl; }
    [[nodiscard]] bool mDoIteration(unsigned int uiIter) override { return mDoSartRecon(uiIter); }
    CDiffProjImpl m_aDifProjImpl;
};
