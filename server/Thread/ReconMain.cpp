#include "server/Thread/ReconMain.h"

#include "Mrcfile/SaveMrc.h"
#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/ReconCmd.h"
#include "server/Data/Refuse.h"
#include "server/Recon/DoBackProj.h"
#include "server/Recon/DoSartRecon.h"
#include "server/Thread/JobChecks.h"

bool CReconMain::Prepare(std::string& rReason)
{
    const unsigned int uiReconCmd = CReconOpt::GetInstance()->GetReconCmd();
    m_bIterative = uiReconCmd == CReconCmd::SART || uiReconCmd == CReconCmd::EM;
    if (!m_bIterative && uiReconCmd != CReconCmd::BACKPROJ)
        return Refuse(rReason, "there is no method %u", uiReconCmd);
    ReconJob aJob;
    if (!DescribeJob(aJob, rReason) || (m_bIterative && !DescribeIterations(aJob, rReason)) ||
        !CheckJobMemory(aJob, m_bIterative ? EJobKind::eIterative : EJobKind::eBackProj, rReason))
        return false;
    if (uiReconCmd == CReconCmd::BACKPROJ) m_pDoReconBase = std::make_unique<CDoBackProj>(aJob);
    if (uiReconCmd == CReconCmd::EM) m_pDoReconBase = std::make_unique<CDoEmRecon>(aJob);
    if (uiReconCmd == CReconCmd::SART) m_pDoReconBase = std::make_unique<CDoSartRecon>(aJob);
    CProjData::GetInstance()->DetRangeX();
    CVolData::GetInstance()->NoteWritten();
    aJob.pTomoVol->Reset();
    if (m_bIterative)
        CRfactor::GetInstance()->SetSize(static_cast<unsigned int>(aJob.uiProjIndex.size()),
                                         aJob.uiIterations);
    return true;
}

/// Workers smooth by columns, and meet for it: those without rows, too.
bool CReconMain::mHasWork(const JobShare& rShare) const
{
    return rShare.iSizeY > 0 || m_pDoReconBase->GetJob().uiSmoothInt > 0;
}

bool CReconMain::mRun(const JobShare& rShare)
{
    std::vector<double> vdRfactor;
    if (!m_pDoReconBase->DoIt(rShare, vdRfactor)) return false;
    if (m_bIterative) CRfactor::GetInstance()->SetRfactor(vdRfactor);
    return true;
}

void CReconMain::mRelease()
{
    m_pDoReconBase->GetJob().pTomoVol->Abort();
}

void CReconMain::mDiscard()
{
    if (m_bIterative) CRfactor::GetInstance()->SetSize(0, 0);
}

bool CReconMain::SaveVol()
{
    const Util_Volume* const pVolume = CVolData::GetInstance()->GetVolume();
    if (!pVolume->GetData()) return false;
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
