#include "server/Thread/CompareMain.h"

#include "server/Data/Recon/CompareOp.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/ComparelOp.h"
#include "server/Recon/DoCompare.h"
#include "server/Thread/JobChecks.h"

namespace
{
void PerformSum(const CompareTotals& rTotals, int iStartY)
{
    CCompareSum::Band aBand;
    aBand.iStartY = iStartY;
    aBand.fSumDiff = rTotals[eCompareDiff];
    aBand.fSumCross = rTotals[eCompareCross];
    aBand.fSumAligned = rTotals[eCompareAligned];
    aBand.fSumAlignedAbs = rTotals[eCompareAlignedAbs];
    aBand.fSumAlignedSqr = rTotals[eCompareAlignedSqr];
    aBand.fSumTransed = rTotals[eCompareTransed];
    aBand.fSumTransedAbs = rTotals[eCompareTransedAbs];
    aBand.fSumTransedSqr = rTotals[eCompareTransedSqr];
    aBand.fCount = rTotals[eCompareCount];
    CCompareSum::GetInstance()->Add(aBand);
}
}  // namespace

bool CCompareMain::Prepare(std::string& rReason)
{
    if (m_aJob.bLog) return DescribeAlign(*CComparelOp::GetInstance(), m_aJob, rReason);
    return DescribeAlign(*CCompareOp::GetInstance(), m_aJob, rReason);
}

bool CCompareMain::mRun(const JobShare& rShare)
{
    CompareTotals aTotals;
    if (!CDoCompare(m_aJob).DoIt(rShare, aTotals)) return false;
    PerformSum(aTotals, rShare.iStartY);
    return true;
}
