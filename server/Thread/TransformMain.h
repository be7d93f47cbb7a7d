#pragma once

#include <string>

#include "server/Thread/JobMain.h"

/// The transform job: from the measured stack to the stack.
class CTransformMain : public CJobMain
{
public:
    /// \param bLog  the request with the logarithmic scale
    explicit CTransformMain(bool bLog) : CJobMain("Transform", false) { m_aJob.bLog = bLog; }
    [[nodiscard]] bool Prepare(std::string& rReason) override;

private:
    [[nodiscard]] bool mRun(const JobShare& rShare) override;
    AlignJob m_aJob;
};
