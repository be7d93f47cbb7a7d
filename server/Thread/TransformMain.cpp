#include "server/Thread/TransformMain.h"

#include "gpulib/Device/DeviceError.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/TransformOp.h"
#include "server/Data/Recon/TransformlOp.h"
#include "server/Thread/JobChecks.h"
#include "server/Thread/JobStatus.h"

CBandSplit CTransformMain::m_aBands;

namespace
{
const CAlignOp& GetRequest(bool bLog)
{
    if (bLog) return *CTransformlOp::GetInstance();
    return *CTransformOp::GetInstance();
}
}  // namespace

bool CTransformMain::Validate(bool bLog, std::string& rReason)
{
    return CheckAlignInputs(GetRequest(bLog), rReason);
}

void CTransformMain::CalcSubsetDim(int iWorkers)
{
    m_aBands.Calculate(static_cast<int>(CProjData::GetInstance()->GetY()), iWorkers);
}

void CTransformMain::DoIt(bool bLog, int iThreadID)
{
    if (!mRun(bLog, iThreadID)) CJobStatus::Fail(TakeDeviceError());
}

bool CTransformMain::mRun(bool bLog, int iThreadID)
{
    if (!m_aBands.HasBand(iThreadID)) return DeviceFail("no band for worker %d", iThreadID);
    const int iStartY = m_aBands.GetStart(iThreadID), iSizeY = m_aBands.GetSize(iThreadID);
    mSetInputs(bLog);
    return bLog ? m_aDoTransform.DoItLog(iStartY, iSizeY) : m_aDoTransform.DoIt(iStartY, iSizeY);
}

void CTransformMain::mSetInputs(bool bLog)
{
    CProjData& rProjData = *CProjData::GetInstance();
    const CAlignOp& rRequest = GetRequest(bLog);
    const std::uint32_t uiAProj = rRequest.GetAProj();
    m_aDoTransform.SetTranMatrix(rRequest.GetMatrix());
    m_aDoTransform.SetIntScale(rRequest.GetScale());
    m_aDoTransform.SetMProj(CMProjData::GetInstance()->GetProjs(),
                            static_cast<int>(rRequest.GetMProj()));
    m_aDoTransform.SetAProj(rProjData.GetProjs(), static_cast<int>(uiAProj),
                            rProjData.GetRangeX(uiAProj));
}
