#pragma once

#include "gpulib/App/BackProjImpl.h"
#include "gpulib/App/DiffProjImpl.h"
#include "gpulib/App/ReconBase.h"

/// Plain back projection: adds to every voxel the mean of the measured values that reach it.
class CBackProj : public CReconBase
{
public:
    /// Weighting is on when both are given.
    void SetPreweightBox(const float* pfOrig, const float* pfDim) override;
    [[nodiscard]] bool DoIt(int iStartY, int iSizeY) override;

private:
    [[nodiscard]] bool mPrepare();
    void mConfigBackProj();
    void mConfigDiffProj();
    [[nodiscard]] bool mDoBatch(int iY, int iRows);
    CBackProjImpl m_aBackProjImpl;
    CDiffProjImpl m_aDiffProjImpl;  // for its weights
    bool m_bWeight = false;
};
