#pragma once

#include "gpulib/App/Project/BackProjImpl.h"
#include "gpulib/App/ReconBase.h"
#include "gpulib/App/Weights/WeightImpl.h"

/// Plain back projection: adds to every voxel the mean of the measured values that reach it.
/// Weighted only where the job has a box.
class CBackProj : public CReconBase
{
public:
    explicit CBackProj(const ReconJob& rJob) : CReconBase(rJob, EJobKind::eBackProj) {}

private:
    void mSetImages(const RunImages& rImages) override;
    [[nodiscard]] bool mRun() override;
    CBackProjImpl m_aBackProjImpl;
    CWeightImpl m_aWeightImpl;
};
