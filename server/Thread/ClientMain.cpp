#include "server/Thread/ClientMain.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "Util/Util_TcpServer.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/ByteOrder.h"
#include "server/Data/CmdReply.h"
#include "server/Data/DataReply.h"
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
#include "server/Util/LogFile.h"

namespace
{
constexpr std::uint32_t g_uiDefaultCeiling = 65536;  // data of messages that use none
}

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
    mRecvPacket();
    mProcessCmd();
    return !m_bQuit;
}

bool CClientMain::mHasClientPacket()
{
    return mAccept() == 1 && Util_TcpServer::GetInstance()->CanRecvNow(0.01f);
}

void CClientMain::mRecvPacket()
{
    bool bReceived = false;
    try
    {
        bReceived = m_aRemotePacket.RecvHeader() && mRecvData();
    }
    catch (const std::bad_alloc&)  // nobody knows where the next packet begins
    {
    }
    if (bReceived)
        CLogFile::GetInstance()->LogClientPacket(&m_aRemotePacket);
    else
    {
        CLogFile::GetInstance()->LogInfo("Error: Failed to receive client packet.");
        m_aRemotePacket.SetMsgType(CMsgConst::QUIT);  // a lost connection is a client that quits
    }
}

bool CClientMain::mRecvData()
{
    m_bStored = false;
    const Command* pCommand = mFindCommand(m_aRemotePacket.GetMsgType());
    if (pCommand != nullptr && pCommand->m_pTarget != nullptr)
    {
        const auto aTarget = pCommand->m_pTarget(m_aRemotePacket, m_strRefusal);
        m_bStored = aTarget.has_value();
        return aTarget ? m_aRemotePacket.RecvData(*aTarget) : m_aRemotePacket.RecvData(0);
    }
    const bool bUsesData = pCommand != nullptr && pCommand->m_pCeiling != nullptr;
    return m_aRemotePacket.RecvData(bUsesData ? pCommand->m_pCeiling(m_aRemotePacket)
                                              : g_uiDefaultCeiling);
}

void CClientMain::mProcessCmd()
{
    const std::uint32_t uiMsgType = m_aRemotePacket.GetMsgType();
    if (const Command* pCommand = mFindCommand(uiMsgType)) mServe(*pCommand);
    // A QUIT has ended the client already and does it a second time here.
    if (m_bQuit) mHandleClientQuit();
    if (uiMsgType == CMsgConst::INVALID) mHandleClientQuit();
}

void CClientMain::mServe(const Command& rCommand)
{
    const bool bDone = mHandle(rCommand);
    if (rCommand.m_bAnnounce) std::printf("CClientMain: Responding %s\n", rCommand.m_pcName);
    mReply(rCommand, bDone);
}

/// Runs the handler; says in one line why a request was refused or failed.
bool CClientMain::mHandle(const Command& rCommand)
{
    std::string strReason;
    bool bDone = false;
    try
    {
        if (rCommand.m_pCeiling != nullptr && m_aRemotePacket.HasLostData())
            Refuse(strReason, "no memory for %u bytes of data", m_aRemotePacket.GetOptSize());
        else
            bDone = (this->*rCommand.m_pHandler)(strReason);
    }
    catch (const std::bad_alloc&)
    {
        Refuse(strReason, "out of memory");
        if (rCommand.m_eReply == EReply::eData)
            CDataReply::GetInstance()->GiveNothing(m_aRemotePacket);
    }
    if (!bDone && rCommand.m_eReply == EReply::eCompare) CCompareSum::GetInstance()->SetZero();
    if (!bDone)
        CLogFile::GetInstance()->LogInfo(
            (std::string("Error: ") + rCommand.m_pcName + ": " + strReason).c_str());
    return bDone;
}

void CClientMain::mReply(const Command& rCommand, bool bDone)
{
    switch (rCommand.m_eReply)
    {
    case EReply::eNone:
        return;
    case EReply::eCommand:
    case EReply::eJob:
        CCmdReply::GetInstance()->Create(m_aRemotePacket, bDone);
        if (!CSendMain::GetInstance()->CmdReply() && rCommand.m_eReply != EReply::eJob)
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
