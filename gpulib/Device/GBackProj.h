#pragma once

#include "gpulib/Device/GDriver.h"
#include "gpulib/Device/KernelParams.h"

/// Driver of the back projection kernels.
class GBackProj : public GDriver
{
public:
    /// SART update of iRows slices from the working rows of the set; iY is the first row of the
    /// batch within the worker's band. Then the working rows of aNext, which may be empty.
    [[nodiscard]] bool DoIt(SetRange aSet, float fRelax, int iY, int iRows,
                            SetRange aNext = {}) const
    {
        return mLaunch(EUpdate::eSart, aSet, fRelax, iY, iRows, aNext);
    }
    /// EM update likewise.
    [[nodiscard]] bool DoItEm(SetRange aSet, float fRelax, int iY, int iRows,
                              SetRange aNext = {}) const
    {
        return mLaunch(EUpdate::eEm, aSet, fRelax, iY, iRows, aNext);
    }

private:
    [[nodiscard]] bool mLaunch(EUpdate eUpdate, SetRange aSet, float fRelax, int iY, int iRows,
                               SetRange aNext) const;
};
