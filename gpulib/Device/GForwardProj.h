#pragma once

#include "gpulib/Device/GDriver.h"
#include "gpulib/Device/KernelParams.h"

/// Driver of the forward projection kernels.
class GForwardProj : public GDriver
{
public:
    /// Ray sums of the set, or what becomes of them; other rows keep their content.
    [[nodiscard]] bool DoIt(SetRange aSet, ECombine eOperation = ECombine::eSum) const;
    /// The same of sums that stand already, each projection once.
    [[nodiscard]] bool Combine(SetRange aSet, ECombine eOperation) const;
};
