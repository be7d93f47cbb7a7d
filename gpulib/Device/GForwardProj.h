#pragma once

#include "gpulib/Device/GDriver.h"
#include "gpulib/Device/KernelParams.h"

/// Driver of the forward projection kernels.
class GForwardProj : public GDriver
{
public:
    /// Ray sums of the set; other rows keep their content.
    [[nodiscard]] bool DoIt(SetRange aSet) const;
    /// Working rows of the set = measured - ray sums, which stand already.
    [[nodiscard]] bool DoDiff(SetRange aSet) const { return mCombine(ECombine::eDiff, aSet); }
    /// The same with measured / ray sums; 1 where measured < 0 or the sum is 0.
    [[nodiscard]] bool DoDiv(SetRange aSet) const { return mCombine(ECombine::eDiv, aSet); }

private:
    [[nodiscard]] bool mCombine(ECombine eOperation, SetRange aSet) const;
};
