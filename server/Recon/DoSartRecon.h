#pragma once

#include "gpulib/App/Iteration/TomoSart.h"
#include "server/Recon/DoEmRecon.h"

/// Reconstruction by SART.
class CDoSartRecon : public CDoEmRecon
{
private:
    std::unique_ptr<CTomoRecon> mMakeTomoRecon() const override
    {
        return std::make_unique<CTomoSart>(m_aJob);
    }
};
