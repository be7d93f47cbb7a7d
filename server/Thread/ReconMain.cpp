#include "server/Thread/ReconMain.h"

#include <cstddef>
#include <cstdio>

#include "Mrcfile/SaveMrc.h"
#include "Util/Util_Time.h"
#include "Util/Util_Volume.h"
#include "gpulib/Device/DeviceError.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Data/ReconCmd.h"
#include "server/Data/Refuse.h"
#include "server/Recon/DoBackProj.h"
#include "server/Recon/DoSartRecon.h"
#include "server/Thread/JobChecks.h"
#include "server/Thread/JobStatus.h"

CBandSplit CReconMain::m_aBands;

namespace
{
bool IsIterative(unsigned int uiReconCmd)
{
    return uiReconCmd == CReconCmd::SART || uiReconCmd == CReconCmd::EM;
}
}  // namespace

CReconMain::CReconMain() = default;
CReconMain::~CReconMain() = default;

bool CReconMain::Validate(std::string& rReason)
{
    const unsigned int uiReconCmd = CReconOpt::GetInstance()->GetReconCmd();
    if (!CheckJobInputs(rReason)) return false;
    if (uiReconCmd == CReconCmd::BACKPROJ) return CheckJobMemory(EJobKind::eBackProj, rReason);
    if (!IsIterative(uiReconCmd)) return Refuse(rReason, "there is no method %u", uiReconCmd);
    if (!CheckIterations(rReason) || !CheckSmooth(rReason)) return false;
    return CheckJobMemory(EJobKind::eIterative, rReason, GetSmoothBytes());
}

void CReconMain::Prepare()
{
    const CReconOpt& rOpt = *CReconOpt::GetInstance();
    if (!IsIterative(rOpt.GetReconCmd())) return;
    CSmoothOpt::GetInstance();  // made before the workers read it
    CRfactor::GetInstance()->SetSize(CSetOp::GetInstance()->GetNumIndices(), rOpt.GetIterations());
}

void CReconMain::CalcSubsetDim(int iWorkers)
{
    m_aBands.Calculate(static_cast<int>(CProjData::GetInstance()->GetY()), iWorkers);
}

void CReconMain::DoIt(int iThreadID, int iDeviceID)
{
    Util_Time aTime;
    aTime.Measure();
    if (!mRun(iThreadID, iDeviceID)) return CJobStatus::Fail(TakeDeviceError());
    std::printf("Recon time (s) %9.2f\n", double(aTime.GetElapsedSeconds()));
}

bool CReconMain::mRun(int iThreadID, int iDeviceID)
{
    if (!m_aBands.HasBand(iThreadID)) return DeviceFail("no band for worker %d", iThreadID);
    mCreateInstance(iThreadID, iDeviceID);
    mSetInputs();
    if (!m_pDoReconBase->DoIt(m_aBands.GetStart(iThreadID), m_aBands.GetSize(iThreadID)))
        return false;
    mAssembleRfactor();
    return true;
}

void CReconMain::mCreateInstance(int iThreadID, int iDeviceID)
{
    const CReconOpt& rOpt = *CReconOpt::GetInstance();
    m_pIterative = nullptr;
    if (!IsIterative(rOpt.GetReconCmd()))
    {
        m_pDoReconBase = std::make_unique<CDoBackProj>();
        return;
    }
    auto pIterative = rOpt.GetReconCmd() == CReconCmd::SART ? std::make_unique<CDoSartRecon>()
                                                            : std::make_unique<CDoEmRecon>();
    pIterative->SetIterations(rOpt.GetIterations());
    pIterative->SetNumSets(rOpt.GetNumSets(), rOpt.GetSetSizes());
    pIterative->SetRelax(rOpt.GetRelax());
    const CSmoothOpt& rSmooth = *CSmoothOpt::GetInstance();
    pIterative->SetSmooth(rSmooth.GetKernel(), rSmooth.GetInterval(),
                          CGpuConfig::GetInstance()->GetNumDevices(), iDeviceID, iThreadID);
    m_pIterative = pIterative.get();
    m_pDoReconBase = std::move(pIterative);
}

bool CReconMain::SaveVol()
{
    const Util_Volume* const pVolume = CVolData::GetInstance()->GetVolume();
    if (!pVolume || !pVolume->GetData()) return false;
    CSaveMrc aSave;
    aSave.SetMode(2);
    aSave.SetImageSize(pVolume->GetSizeX(), pVolume->GetSizeY());
    if (!aSave.OpenFile(CGpuConfig::GetInstance()->GetDebugVolume().c_str())) return false;
    for (int z = 0; z < pVolume->GetSizeZ(); ++z)
    {
        aSave.SetImage(pVolume->GetSliceXY(z));
        if (!aSave.DoIt(z)) return false;
    }
    return true;
}

void CReconMain::mSetInputs()
{
    const CProjData& rProjData = *CProjData::GetInstance();
    const CWeightOpt& rWeightOpt = *CWeightOpt::GetInstance();
    m_pDoReconBase->SetProjs(rProjData.GetProjs(), rProjData.GetAngles());
    m_pDoReconBase->SetRangeX(rProjData.GetRangeX());
    m_pDoReconBase->SetProjIndices(CSetOp::GetInstance()->GetProjIndex());
    m_pDoReconBase->SetVolume(CVolData::GetInstance()->GetTomoVolume());
    m_pDoReconBase->SetWeightBox(rWeightOpt.GetOrig(), rWeightOpt.GetDim());
}

void CReconMain::mAssembleRfactor()
{
    if (m_pIterative) CRfactor::GetInstance()->SetRfactor(m_pIterative->GetRfactor());
}
