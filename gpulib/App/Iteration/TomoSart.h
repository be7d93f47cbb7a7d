#pragma once

#include <memory>

#include "gpulib/App/Iteration/TomoRecon.h"
#include "gpulib/App/Iteration/TomoSartImpl.h"

/// Iterative reconstruction by SART.
class CTomoSart : public CTomoRecon
{
public:
    explicit CTomoSart(const ReconJob& rJob)
        : CTomoRecon(rJob, std::make_unique<CTomoSartImpl>(), true)
    {
    }
};
