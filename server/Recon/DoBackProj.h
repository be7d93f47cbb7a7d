#pragma once

#include "gpulib/App/Project/BackProj.h"
#include "server/Recon/DoReconBase.h"

/// Plain back projection. Weighted only when the client gave a box.
class CDoBackProj : public CDoReconBase
{
public:
    explicit CDoBackProj(const ReconJob& rJob) : CDoReconBase(rJob) {}
    [[nodiscard]] bool DoIt(const JobShare& rShare, std::vector<double>&) const override
    {
        return CBackProj(m_aJob).DoIt(rShare);
    }
};
