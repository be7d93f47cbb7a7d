#pragma once

#include "gpulib/App/Project/DiffProjImpl.h"

/// The same with ratios, for EM.
class CDivProjImpl : public CDiffProjImpl
{
public:
    /// Working rows of the set = measured / ray sums; 1 where there is nothing to compare.
    [[nodiscard]] bool DoDiv();
};
