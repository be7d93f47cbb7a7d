#pragma once

#include "gpulib/App/Project/ForProjImpl.h"
#include "gpulib/App/ReconBase.h"

/// Reprojects the volume at the angles of the stack and writes the selected projections into it.
class CForProj : public CReconBase
{
public:
    using CReconBase::CReconBase;
    [[nodiscard]] bool DoIt(const JobShare& rShare) override;

private:
    [[nodiscard]] bool mPrepare();
    [[nodiscard]] bool mConfigForProj();
    CForProjImpl m_aForProjImpl;
};
