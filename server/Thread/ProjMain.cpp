#include "server/Thread/ProjMain.h"

#include <cstdio>

#include "Util/Util_Time.h"
#include "gpulib/Device/DeviceError.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Thread/JobChecks.h"
#include "server/Thread/JobStatus.h"

CBandSplit CProjMain::m_aBands;

bool CProjMain::Validate(std::string& rReason)
{
    return CheckJobInputs(rReason) && CheckJobMemory(EJobKind::eForProj, rReason);
}

void CProjMain::CalcSubsetDim(int iWorkers)
{
    m_aBands.Calculate(static_cast<int>(CProjData::GetInstance()->GetY()), iWorkers);
}

void CProjMain::DoIt(int iThreadID)
{
    Util_Time aTime;
    aTime.Measure();
    if (!mRun(iThreadID)) return CJobStatus::Fail(TakeDeviceError());
    std::printf("Proj time (s) %9.2f\n", double(aTime.GetElapsedSeconds()));
}

bool CProjMain::mRun(int iThreadID)
{
    if (!m_aBands.HasBand(iThreadID)) return DeviceFail("no band for worker %d", iThreadID);
    mSetInputs();
    return m_aDoForwardProj.DoIt(m_aBands.GetStart(iThreadID), m_aBands.GetSize(iThreadID));
}

void CProjMain::mSetInputs()
{
    const CProjData& rProjData = *CProjData::GetInstance();
    const CWeightOpt& rWeightOpt = *CWeightOpt::GetInstance();
    m_aDoForwardProj.SetProjs(rProjData.GetProjs(), rProjData.GetAngles());
    m_aDoForwardProj.SetProjIndices(CSetOp::GetInstance()->GetProjIndex());
    m_aDoForwardProj.SetVolume(CVolData::GetInstance()->GetTomoVolume());
    m_aDoForwardProj.SetWeightBox(rWeightOpt.GetOrig(), rWeightOpt.GetDim());
}
