#pragma once

#include "gpulib/App/Iteration/TomoSart.h"
#include "server/Recon/DoEmRecon.h"

/// Reconstruction by SART.
class CDoSartRecon : public CDoEmRecon
{
public:
    using CDoEmRecon::CDoEmRecon;
    [[nodiscard]] bool DoIt(const JobShare& rShare, std::vector<double>& rRfactor) const override
    {
        return mRun(CTomoSart(m_aJob), rShare, rRfactor);
    }
};
