// The commands of the session: one table, one handler each.

#include "server/Data/ByteOrder.h"
#include "server/Data/DataReply.h"
#include "server/Data/Recon/CompareOp.h"
#include "server/Data/Recon/ComparelOp.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/TransformOp.h"
#include "server/Data/Recon/TransformlOp.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Thread/ClientMain.h"
#include "server/Thread/GpuThread.h"
#include "server/Util/LogFile.h"

namespace
{
std::uint32_t MaxProjSize(const CRemotePacket& rPacket)
{
    return CProjData::GetInstance()->GetMaxProjSize(rPacket);
}
std::optional<UploadTarget> ProjTarget(const CRemotePacket& rPacket, std::string& rReason)
{
    return CProjData::GetInstance()->HandleProjSet(rPacket, rReason);
}
std::optional<UploadTarget> MProjTarget(const CRemotePacket& rPacket, std::string& rReason)
{
    return CMProjData::GetInstance()->HandleMProjSet(rPacket, rReason);
}
std::optional<UploadTarget> VolTarget(const CRemotePacket& rPacket, std::string& rReason)
{
    return CVolData::GetInstance()->HandleVolSet(rPacket, rReason);
}
}  // namespace

// clang-format off
const CClientMain::Command CClientMain::m_aCommands[] = {
    {CMsgConst::BYTEORDER, "BYTEORDER", EReply::eNone, &CClientMain::mCheckByteOrder, nullptr},
    {CMsgConst::CONTINUATION, "CONTINUATION", EReply::eNone, &CClientMain::mHandleContinuation, nullptr},
    {CMsgConst::PROJGET, "PROJGET", EReply::eData, &CClientMain::mHandleProjGet, nullptr},
    {CMsgConst::PROJSET, "PROJSET", EReply::eCommand, &CClientMain::mHandleImage, nullptr, ProjTarget, true},
    {CMsgConst::PROJSIZE, "PROJSIZE", EReply::eCommand, &CClientMain::mHandleProjSize, MaxProjSize, nullptr, true},
    {CMsgConst::QUIT, "QUIT", EReply::eNone, &CClientMain::mHandleQuit, nullptr},
    {CMsgConst::RECONSTRUCT, "RECONSTRUCT", EReply::eJob, &CClientMain::mStartRecon, nullptr},
    {CMsgConst::RECONSTATGET, "RECONSTATGET", EReply::eData, &CClientMain::mHandleReconStatGet, nullptr},
    {CMsgConst::REPROJECT, "REPROJECT", EReply::eJob, &CClientMain::mStartReproj, nullptr},
    {CMsgConst::SERVERPROP, "SERVERPROP", EReply::eData, &CClientMain::mHandleServerProp, nullptr},
    {CMsgConst::VOLGET, "VOLGET", EReply::eData, &CClientMain::mHandleVolGet, nullptr},
    {CMsgConst::VOLSET, "VOLSET", EReply::eCommand, &CClientMain::mHandleImage, nullptr, VolTarget},
    {CMsgConst::VOLSIZE, "VOLSIZE", EReply::eCommand, &CClientMain::mHandleVolSize, nullptr},
    {CMsgConst::SETOP, "SETOP", EReply::eCommand, &CClientMain::mHandleSetOp, CSetOp::GetMaxSetOp},
    {CMsgConst::RECONOPT, "RECONOPT", EReply::eCommand, &CClientMain::mHandleReconOpt, CReconOpt::GetMaxReconOpt},
    {CMsgConst::MPROJSET, "MPROJSET", EReply::eCommand, &CClientMain::mHandleImage, nullptr, MProjTarget},
    {CMsgConst::MPROJSIZE, "MPROJSIZE", EReply::eCommand, &CClientMain::mHandleMProjSize, nullptr},
    {CMsgConst::TRANSFORM, "TRANSFORM", EReply::eCommand, &CClientMain::mHandleTransform, nullptr},
    {CMsgConst::TRANSFORML, "TRANSFORML", EReply::eCommand, &CClientMain::mHandleTransforml, CTransformlOp::GetMaxData},
    {CMsgConst::COMPARE, "COMPARE", EReply::eCompare, &CClientMain::mHandleCompare, CCompareOp::GetMaxData},
    {CMsgConst::COMPAREL, "COMPAREL", EReply::eCompare, &CClientMain::mHandleComparel, CComparelOp::GetMaxData, nullptr, true},
    {CMsgConst::COMPREPLY, "COMPREPLY", EReply::eData, &CClientMain::mHandleCompReply, nullptr},
    {CMsgConst::WEIGHTOPT, "WEIGHTOPT", EReply::eCommand, &CClientMain::mHandleWeightOpt, nullptr},
    {CMsgConst::SMOOTHOPT, "SMOOTHOPT", EReply::eCommand, &CClientMain::mHandleSmoothOpt, CSmoothOpt::GetMaxSmoothOpt},
};
// clang-format on

const CClientMain::Command* CClientMain::mFindCommand(std::uint32_t uiMsgType)
{
    for (const Command& rCommand : m_aCommands)
        if (rCommand.m_uiMsgType == uiMsgType) return &rCommand;
    return nullptr;  // LOG, CTFOPT and unknown types: read and ignored
}

bool CClientMain::mCheckByteOrder(std::string&)
{
    CByteOrder* pByteOrder = CByteOrder::GetInstance();
    pByteOrder->Determine(m_aRemotePacket.GetNthField(4));
    CLogFile::GetInstance()->LogInfo(pByteOrder->NeedsSwap() ? "Info:  Need to swap byte."
                                                             : "Info:  do not swap byte.");
    return true;
}

bool CClientMain::mHandleContinuation(std::string&)
{
    // The session feeds no tracker, so no continuation finds its message: it is dropped.
    return true;
}

bool CClientMain::mHandleProjGet(std::string& rReason)
{
    return CDataReply::GetInstance()->ProjGet(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleImage(std::string& rReason)
{
    if (m_bStored) return true;  // the data went to its place as it came
    rReason = m_strRefusal;
    return false;
}

bool CClientMain::mHandleProjSize(std::string& rReason)
{
    return CProjData::GetInstance()->HandleProjSize(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleMProjSize(std::string& rReason)
{
    return CMProjData::GetInstance()->HandleMProjSize(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleQuit(std::string&)
{
    mHandleClientQuit();
    return true;
}

bool CClientMain::mHandleVolGet(std::string& rReason)
{
    return CDataReply::GetInstance()->VolGet(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleVolSize(std::string& rReason)
{
    return CVolData::GetInstance()->HandleVolSize(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleSetOp(std::string& rReason)
{
    return CSetOp::GetInstance()->HandleSetOp(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleReconOpt(std::string& rReason)
{
    return CReconOpt::GetInstance()->HandleReconOpt(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleWeightOpt(std::string&)
{
    CWeightOpt::GetInstance()->HandleWeightOpt(m_aRemotePacket);
    return true;
}

bool CClientMain::mHandleSmoothOpt(std::string& rReason)
{
    return CSmoothOpt::GetInstance()->HandleSmoothOpt(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleReconStatGet(std::string& rReason)
{
    return CDataReply::GetInstance()->ReconStatGet(m_aRemotePacket, rReason);
}

bool CClientMain::mHandleServerProp(std::string&)
{
    CDataReply::GetInstance()->ServerProp(m_aRemotePacket);
    return true;
}

bool CClientMain::mHandleCompReply(std::string&)
{
    CDataReply::GetInstance()->CompReply(m_aRemotePacket);
    return true;
}

bool CClientMain::mStartRecon(std::string& rReason)
{
    CLogFile::GetInstance()->LogInfo("Info: Start reconstruction.");
    return CGpuThread::Reconstruct(rReason);
}

bool CClientMain::mStartReproj(std::string& rReason)
{
    CLogFile::GetInstance()->LogInfo("Info: Start reprojection.");
    return CGpuThread::Project(rReason);
}

bool CClientMain::mHandleTransform(std::string& rReason)
{
    return CTransformOp::GetInstance()->HandleTransform(m_aRemotePacket, rReason) &&
           CGpuThread::Transform(false, rReason);
}

bool CClientMain::mHandleTransforml(std::string& rReason)
{
    return CTransformlOp::GetInstance()->HandleTransforml(m_aRemotePacket, rReason) &&
           CGpuThread::Transform(true, rReason);
}

bool CClientMain::mHandleCompare(std::string& rReason)
{
    return CCompareOp::GetInstance()->Handle(m_aRemotePacket, rReason) &&
           CGpuThread::Compare(false, rReason);
}

bool CClientMain::mHandleComparel(std::string& rReason)
{
    return CComparelOp::GetInstance()->Handle(m_aRemotePacket, rReason) &&
           CGpuThread::Compare(true, rReason);
}
