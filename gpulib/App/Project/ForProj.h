#pragma once

#include "gpulib/App/ReconBase.h"
#include "gpulib/App/Weights/WeightImpl.h"
#include "gpulib/Device/GForwardProj.h"

/// Reprojects a batch of volume slices along the selected projections.
class CForProjImpl
{
public:
    /// \param uiIndices  the list that is on the device too, borrowed
    void Configure(const RunImages& rImages, std::span<const unsigned int> uiIndices);
    /// \param bWeight  divide the rows by their pre-weight
    [[nodiscard]] bool DoIt(bool bWeight) const;
    /// Writes rows iY, iY + 1, ... (iRows of them) of the selected projections; the others stay.
    [[nodiscard]] bool ToHost(Util_Volume& rProjs, int iY, int iRows) const;

private:
    GForwardProj m_aGForwardProj;
    CWeightImpl m_aWeightImpl;
    DeviceImage m_aSums;
    std::span<const unsigned int> m_uiIndices;
};

/// Reprojects the volume at the angles of the stack and writes the selected projections into it.
/// Weighted only where the job has a box.
class CForProj : public CReconBase
{
public:
    explicit CForProj(const ReconJob& rJob) : CReconBase(rJob, EJobKind::eForProj) {}

private:
    void mSetImages(const RunImages& rImages) override
    {
        m_aForProjImpl.Configure(rImages, m_rJob.uiProjIndex);
    }
    [[nodiscard]] bool mRun() override;
    CForProjImpl m_aForProjImpl;
};
