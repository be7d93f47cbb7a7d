#pragma once

#include "Util/Util_Volume.h"

/// A normalised three-dimensional Gaussian as smoothing takes it.
///
/// The centre of an even extent is the upper of the two middle voxels.
class CGaussianKernel
{
public:
    void SetSize(int iX, int iY, int iZ) { m_aKernel.SetSize(iX, iY, iZ); }
    void SetSize(const int* piSize) { SetSize(piSize[0], piSize[1], piSize[2]); }
    void SetStd(float fX, float fY, float fZ);  ///< standard deviations, voxels, above 0
    void SetStd(const float* pfStd) { SetStd(pfStd[0], pfStd[1], pfStd[2]); }
    void Build();  ///< fills the kernel; it then sums to 1
    const Util_Volume& GetKernel() const { return m_aKernel; }

private:
    Util_Volume m_aKernel;
    float m_fStd[3] = {1.0f, 1.0f, 1.0f};
};
