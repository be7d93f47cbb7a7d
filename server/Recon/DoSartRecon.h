#pragma once

#include "gpulib/App/TomoSart.h"
#include "server/Recon/DoEmRecon.h"

/// Reconstruction by SART.
class CDoSartRecon : public CDoEmRecon
{
private:
    CTomoRecon& mGetTomoRecon() override { return m_aTomoSart; }
    CTomoSart m_aTomoSart;
};
