#pragma once

#include <memory>

#include "gpulib/App/Iteration/TomoRecon.h"

/// Worker of EM. Iteration 0 is a SART iteration, because EM cannot leave a volume of zeros.
class CTomoEmImpl : public CReconImpl
{
public:
    using CReconImpl::CReconImpl;

private:
    [[nodiscard]] bool mDoSet(unsigned int uiIter, SetRange aSet, float fRelax) override
    {
        return uiIter == 0 ? mDoSartRecon(aSet, fRelax) : mDoEmRecon(aSet, fRelax);
    }
};

/// Iterative reconstruction by EM.
class CTomoEm : public CTomoRecon
{
public:
    explicit CTomoEm(const ReconJob& rJob) : CTomoRecon(rJob, std::make_unique<CTomoEmImpl>(rJob))
    {
    }
};
