#pragma once

#include <string>

#include "server/Thread/JobMain.h"

/// The comparison job; the sums go to CCompareSum. All rows of the stack are compared, whatever
/// rows the request names.
class CCompareMain : public CJobMain
{
public:
    /// \param bLog  the request with the logarithmic scale
    explicit CCompareMain(bool bLog) : CJobMain("Compare", false) { m_aJob.bLog = bLog; }
    [[nodiscard]] bool Prepare(std::string& rReason) override;

private:
    [[nodiscard]] bool mRun(const JobShare& rShare) override;
    AlignJob m_aJob;
};
