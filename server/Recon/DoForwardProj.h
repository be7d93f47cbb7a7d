#pragma once

#include "gpulib/App/Project/ForProj.h"
#include "server/Recon/DoReconBase.h"

/// Reprojection of the volume into the stack.
class CDoForwardProj : public CDoReconBase
{
public:
    explicit CDoForwardProj(const ReconJob& rJob) : CDoReconBase(rJob) { mValidateWeightBox(); }
    [[nodiscard]] bool DoIt(const JobShare& rShare, std::vector<double>&) const override
    {
        return CForProj(m_aJob).DoIt(rShare);
    }
};
