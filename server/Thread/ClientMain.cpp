#include "server/Thread/ClientMain.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "Util/Util_TcpServer.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/ByteOrder.h"
#include "server/Data/CmdReply.h"
#include "server/Data/DataReply.h"
#include "server/Data/Messages.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/TransformOp.h"
#include "server/Data/Recon/TransformlOp.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Refuse.h"
#include "server/Data/SendMain.h"
#include "server/Thread/GpuThread.h"
#include "server/Util/LogFile.h"

bool CClientMain::ConnectClient()
{
    Util_TcpServer* pServer = Util_TcpServer::GetInstance();
    pServer->SetIdleTimeout(CGpuConfig::GetInstance()->GetIdleTimeout());
    const int iResult = mAccept();
    CLogFile* pLogFile = CLogFile::GetInstance();
    pLogFile->LogTime();
    pLogFile->LogInfo(iResult == 1 ? "Info: Client has been connected."
                                   : "Error: Client connection failed.");
    return iResult == 1;
}

/// Waits for a client as long as it takes. \return as Util_TcpServer::ConnectClient, never 0
int CClientMain::mAccept()
{
    Util_TcpServer* pServer = Util_TcpServer::GetInstance();
    int iResult = 0, iShortage = 0;
    while (iResult == 0)
    {
        iResult = pServer->ConnectClient(5.0f);
        const int iNow = pServer->GetShortage();
        if (iNow == 0 || iNow == iShortage) continue;
        iShortage = iNow;  // said once
        CLogFile::GetInstance()->LogInfo(
            (std::string("Error: A client has to wait: ") + std::strerror(iNow) + ".").c_str());
    }
    if (iShortage != 0) CLogFile::DeleteInstance();  // the file may open now
    return iResult;
}

void CClientMain::DoIt()
{
    m_bQuit = false;
    for (;;)
    {
        if (!mHasClientPacket()) continue;
        if (!ServePacket()) m_bQuit = !ConnectClient();
    }
}

bool CClientMain::ServePacket()
{
    CRequestPlan aPlan;
    if (mRecvPacket(aPlan))
        CLogFile::GetInstance()->LogClientPacket(&m_aRemotePacket);
    else
    {
        CLogFile::GetInstance()->LogInfo("Error: Failed to receive client packet.");
        aPlan = CRequestPlan();
        m_aRemotePacket.SetMsgType(CMsgConst::QUIT);  // a lost connection is a client that quits
    }
    mProcessCmd(aPlan);
    return !m_bQuit;
}

bool CClientMain::mHasClientPacket()
{
    return mAccept() == 1 && Util_TcpServer::GetInstance()->CanRecvNow(0.01f);
}

/// Receives a packet, its data to where it belongs. \param rPlan  what is to be done then
bool CClientMain::mRecvPacket(CRequestPlan& rPlan)
{
    try
    {
        if (!m_aRemotePacket.RecvHeader()) return false;
        const Message* const pMessage = FindMessage(m_aRemotePacket.GetMsgType());
        if (pMessage && pMessage->pHandler) rPlan = pMessage->pHandler(m_aRemotePacket);
        return m_aRemotePacket.RecvData(rPlan);
    }
    catch (const std::bad_alloc&)  // nobody knows where the next packet begins
    {
        return false;
    }
}

void CClientMain::mProcessCmd(const CRequestPlan& rPlan)
{
    const std::uint32_t uiMsgType = m_aRemotePacket.GetMsgType();
    if (const Message* const pMessage = FindMessage(uiMsgType)) mServe(*pMessage, rPlan);
    // A QUIT has ended the client already and does it a second time here.
    if (m_bQuit) mHandleClientQuit();
    if (uiMsgType == CMsgConst::INVALID) mHandleClientQuit();
}

void CClientMain::mServe(const Message& rMessage, const CRequestPlan& rPlan)
{
    const bool bDone = mHandle(rMessage, rPlan);
    if (rMessage.bAnnounce) std::printf("CClientMain: Responding %s\n", rMessage.pcName);
    mReply(rMessage, bDone);
}

/// Carries the request out; says in one line why it was refused or failed.
bool CClientMain::mHandle(const Message& rMessage, const CRequestPlan& rPlan)
{
    std::string strReason;
    bool bDone = false;
    try
    {
        bDone = rPlan.DoIt(m_aRemotePacket, strReason) && mRun(rMessage.uiType, strReason);
    }
    catch (const std::bad_alloc&)
    {
        Refuse(strReason, "out of memory");
        if (rMessage.eReply == EReply::eData)
            CDataReply::GetInstance()->GiveNothing(m_aRemotePacket);
    }
    if (!bDone && rMessage.eReply == EReply::eCompare) CCompareSum::GetInstance()->SetZero();
    if (!bDone)
        CLogFile::GetInstance()->LogInfo(
            (std::string("Error: ") + rMessage.pcName + ": " + strReason).c_str());
    return bDone;
}

/// What a message asks for beyond its holder.
bool CClientMain::mRun(std::uint32_t uiMsgType, std::string& rReason)
{
    CLogFile& rLogFile = *CLogFile::GetInstance();
    switch (uiMsgType)
    {
    case CMsgConst::BYTEORDER:
        rLogFile.LogInfo(CByteOrder::GetInstance()->NeedsSwap() ? "Info:  Need to swap byte."
                                                                : "Info:  do not swap byte.");
        return true;
    case CMsgConst::QUIT:
        mHandleClientQuit();
        return true;
    case CMsgConst::RECONSTRUCT:
        rLogFile.LogInfo("Info: Start reconstruction.");
        return CGpuThread::Reconstruct(rReason);
    case CMsgConst::REPROJECT:
        rLogFile.LogInfo("Info: Start reprojection.");
        return CGpuThread::Project(rReason);
    case CMsgConst::TRANSFORM:
    case CMsgConst::TRANSFORML:
        return CGpuThread::Transform(uiMsgType == CMsgConst::TRANSFORML, rReason);
    case CMsgConst::COMPARE:
    case CMsgConst::COMPAREL:
        return CGpuThread::Compare(uiMsgType == CMsgConst::COMPAREL, rReason);
    default:
        return true;
    }
}

void CClientMain::mReply(const Message& rMessage, bool bDone)
{
    switch (rMessage.eReply)
    {
    case EReply::eNone:
        return;
    case EReply::eCommand:
    case EReply::eJob:
        CCmdReply::GetInstance()->Create(m_aRemotePacket, bDone);
        if (!CSendMain::GetInstance()->CmdReply() && rMessage.eReply != EReply::eJob)
            m_bQuit = true;
        return;
    case EReply::eCompare:
        CCmdReply::GetInstance()->CompReply(m_aRemotePacket, bDone);
        if (!CSendMain::GetInstance()->CmdReply()) m_bQuit = true;
        return;
    case EReply::eData:
        if (!CSendMain::GetInstance()->DataReply()) m_bQuit = true;
        return;
    }
}

void CClientMain::mHandleClientQuit()
{
    CSendMain::GetInstance()->SendQuit();
    Util_TcpServer::GetInstance()->CloseClient();
    m_bQuit = true;
    CLogFile::GetInstance()->LogInfo("Info: Client connection has been closed.");
    std::puts("\n");
    mFinal();
}

/// Ends all that belongs to one client. The weight box, the last comparison and the packet numbers
/// go on.
void CClientMain::mFinal()
{
    CProjData::DeleteInstance();
    CMProjData::DeleteInstance();
    CVolData::DeleteInstance();
    CRfactor::DeleteInstance();
    CByteOrder::DeleteInstance();
    CTransformOp::DeleteInstance();
    CTransformlOp::DeleteInstance();
    CSetOp::DeleteInstance();
    CReconOpt::DeleteInstance();
    CSmoothOpt::DeleteInstance();
    CSendMain::DeleteInstance();
    CCmdReply::DeleteInstance();
    CDataReply::DeleteInstance();
    CLogFile::DeleteInstance();
}
