#pragma once

#include "gpulib/App/Iteration/TomoEm.h"
#include "server/Recon/DoReconBase.h"

/// Reconstruction by EM; base of the one by SART, which differs in the library object alone.
class CDoEmRecon : public CDoReconBase
{
public:
    explicit CDoEmRecon(const ReconJob& rJob) : CDoReconBase(rJob)
    {
        mValidateSets();
        mValidateWeightBox();
    }
    [[nodiscard]] bool DoIt(const JobShare& rShare, std::vector<double>& rRfactor) const override
    {
        return mRun(CTomoEm(m_aJob), rShare, rRfactor);
    }

protected:
    static bool mRun(CTomoRecon&& rRecon, const JobShare& rShare, std::vector<double>& rRfactor)
    {
        if (!rRecon.DoIt(rShare)) return false;
        rRfactor = rRecon.GetRfactor();
        return true;
    }
};
