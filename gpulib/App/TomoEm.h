#pragma once

#include <memory>

#include "gpulib/App/TomoEmImpl.h"
#include "gpulib/App/TomoRecon.h"

/// Iterative reconstruction by EM.
class CTomoEm : public CTomoRecon
{
public:
    CTomoEm() : CTomoRecon(std::make_unique<CTomoEmImpl>(), false) {}
};
