#pragma once

#include <memory>

#include "gpulib/App/Iteration/TomoEmImpl.h"
#include "gpulib/App/Iteration/TomoRecon.h"

/// Iterative reconstruction by EM.
class CTomoEm : public CTomoRecon
{
public:
    explicit CTomoEm(const ReconJob& rJob)
        : CTomoRecon(rJob, std::make_unique<CTomoEmImpl>(), false)
    {
    }
};
