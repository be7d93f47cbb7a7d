#pragma once

#include <memory>

#include "gpulib/App/TomoRecon.h"
#include "gpulib/App/TomoSartImpl.h"

/// Iterative reconstruction by SART.
class CTomoSart : public CTomoRecon
{
public:
    CTomoSart() : CTomoRecon(std::make_unique<CTomoSartImpl>(), true) {}
};
