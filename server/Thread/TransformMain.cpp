#include "server/Thread/TransformMain.h"

#include "server/Data/Recon/TransformOp.h"
#include "server/Data/Recon/TransformlOp.h"
#include "server/Recon/DoTransform.h"
#include "server/Thread/JobChecks.h"

bool CTransformMain::Prepare(std::string& rReason)
{
    if (m_aJob.bLog) return DescribeAlign(*CTransformlOp::GetInstance(), m_aJob, rReason);
    return DescribeAlign(*CTransformOp::GetInstance(), m_aJob, rReason);
}

bool CTransformMain::mRun(const JobShare& rShare)
{
    return CDoTransform(m_aJob).DoIt(rShare);
}
