#include "server/Thread/ProjMain.h"

#include "server/Thread/JobChecks.h"

bool CProjMain::Prepare(std::string& rReason)
{
    ReconJob aJob;
    if (!DescribeJob(aJob, rReason) || !CheckJobMemory(aJob, EJobKind::eForProj, rReason))
        return false;
    m_aDoForwardProj.emplace(aJob);
    return true;
}

bool CProjMain::mRun(const JobShare& rShare)
{
    std::vector<double> vdNone;
    return m_aDoForwardProj->DoIt(rShare, vdNone);
}
