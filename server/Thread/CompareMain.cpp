#include "server/Thread/CompareMain.h"

#include "gpulib/Device/DeviceError.h"
#include "server/Data/Recon/CompareOp.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/ComparelOp.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Thread/JobChecks.h"
#include "server/Thread/JobStatus.h"

CBandSplit CCompareMain::m_aBands;

namespace
{
const CAlignOp& GetRequest(bool bLog)
{
    if (bLog) return *CComparelOp::GetInstance();
    return *CCompareOp::GetInstance();
}
}  // namespace

bool CCompareMain::Validate(bool bLog, std::string& rReason)
{
    return CheckAlignInputs(GetRequest(bLog), rReason);
}

void CCompareMain::CalcSubsetDim(int iWorkers)
{
    m_aBands.Calculate(static_cast<int>(CProjData::GetInstance()->GetY()), iWorkers);
}

void CCompareMain::DoIt(bool bLog, int iThreadID)
{
    if (!mRun(bLog, iThreadID)) CJobStatus::Fail(TakeDeviceError());
}

bool CCompareMain::mRun(bool bLog, int iThreadID)
{
    if (!m_aBands.HasBand(iThreadID)) return DeviceFail("no band for worker %d", iThreadID);
    const int iStartY = m_aBands.GetStart(iThreadID), iSizeY = m_aBands.GetSize(iThreadID);
    mSetInputs(bLog);
    if (!(bLog ? m_aDoCompare.DoItLog(iStartY, iSizeY) : m_aDoCompare.DoIt(iStartY, iSizeY)))
        return false;
    mPerformSum(iStartY);
    return true;
}

void CCompareMain::mSetInputs(bool bLog)
{
    const CAlignOp& rRequest = GetRequest(bLog);
    m_aDoCompare.SetTranMatrix(rRequest.GetMatrix());
    m_aDoCompare.SetIntScale(rRequest.GetScale());
    m_aDoCompare.SetMProj(CMProjData::GetInstance()->GetProjs(),
                          static_cast<int>(rRequest.GetMProj()));
    m_aDoCompare.SetAProj(CProjData::GetInstance()->GetProjs(),
                          static_cast<int>(rRequest.GetAProj()));
}

void CCompareMain::mPerformSum(int iStartY) const
{
    const CompareTotals& rTotals = m_aDoCompare.GetTotals();
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
