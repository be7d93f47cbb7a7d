#pragma once

#include <memory>

#include "gpulib/App/Iteration/TomoRecon.h"

/// Worker of SART.
class CTomoSartImpl : public CReconImpl
{
public:
    using CReconImpl::CReconImpl;

private:
    [[nodiscard]] bool mDoSet(unsigned int /*uiIter*/, SetRange aSet, float fRelax) override
    {
        return mDoSartRecon(aSet, fRelax);
    }
};

/// Iterative reconstruction by SART.
class CTomoSart : public CTomoRecon
{
public:
    explicit CTomoSart(const ReconJob& rJob)
        : CTomoRecon(rJob, std::make_unique<CTomoSartImpl>(rJob))
    {
    }
};
