#pragma once

#include "gpulib/Device/GDriver.h"
#include "gpulib/Device/KernelParams.h"

/// Driver of the back projection kernels.
class GBackProj : public GDriver
{
public:
    /// SART update of iRows slices from the working rows of the set; iY is the first row of the
    /// batch within the worker's band.
    [[nodiscard]] bool DoIt(SetRange aSet, float fRelax, int iY, int iRows) const
    {
        return mLaunch(EUpdate::eSart, aSet, fRelax, iY, iRows);
    }
    /// EM update likewise.
    [[nodiscard]] bool DoItEm(SetRange aSet, float fRelax, int iY, int iRows) const
    {
        return mLaunch(EUpdate::eEm, aSet, fRelax, iY, iRows);
    }

private:
    [[nodiscard]] bool mLaunch(EUpdate eUpdate, SetRange aSet, float fRelax, int iY,
                               int iRows) const;
};
