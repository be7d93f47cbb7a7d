#pragma once

#include <vector>

#include "gpulib/App/Job.h"

/// Base of the job drivers: completes the description of a job, once, and runs any worker's share.
class CDoReconBase
{
public:
    virtual ~CDoReconBase() = default;
    CDoReconBase(const CDoReconBase&) = delete;
    CDoReconBase& operator=(const CDoReconBase&) = delete;

    const ReconJob& GetJob() const { return m_aJob; }
    /// Runs one worker's share; workers call it at once.
    /// \param rRfactor  receives the R-factor sums of the band, shape [iteration][list
    /// position][2];
    ///                  stays as it is where there are none
    /// \return false with the reason noted (TakeDeviceError)
    [[nodiscard]] virtual bool DoIt(const JobShare& rShare,
                                    std::vector<double>& rRfactor) const = 0;

protected:
    /// \param rJob  without projections: all of the stack
    explicit CDoReconBase(const ReconJob& rJob);
    void mValidateSets();
    void mValidateWeightBox();

    ReconJob m_aJob;

private:
    void mValidateProjIndices();

    std::vector<unsigned int> m_vuiAllProjs;
    unsigned int m_uiOneSet = 0;
};
