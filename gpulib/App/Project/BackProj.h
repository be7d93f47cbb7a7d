#pragma once

#include "gpulib/App/Project/BackProjImpl.h"
#include "gpulib/App/Project/DiffProjImpl.h"
#include "gpulib/App/ReconBase.h"

/// Plain back projection: adds to every voxel the mean of the measured values that reach it.
class CBackProj : public CReconBase
{
public:
    using CReconBase::CReconBase;
    [[nodiscard]] bool DoIt(const JobShare& rShare) override;

private:
    [[nodiscard]] bool mPrepare();
    void mConfigBackProj();
    void mConfigDiffProj();
    [[nodiscard]] bool mDoBatch(int iY, int iRows);
    CBackProjImpl m_aBackProjImpl;
    CDiffProjImpl m_aDiffProjImpl;  // for its weights
};
