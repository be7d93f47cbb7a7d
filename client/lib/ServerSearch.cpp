#include "ServerSearch.h"

#include <poll.h>

#include <algorithm>

#include "talven/Text.h"

namespace talven
{
namespace
{

using namespace std::chrono_literals;

/// Seconds in which a server that is free answers; another one is called after that.
constexpr double g_dGlance = 2;
constexpr double g_dMoment = 1;     // that it has even when nobody wants to wait
constexpr double g_dLogin = 15;     // the same through ssh, which logs in first
constexpr double g_dLook = 200;     // milliseconds, after which what ssh says is shown
constexpr double g_dLongest = 1e6;  // seconds of a wait, eleven days

}  // namespace

bool CServerCall::Begin(const SessionLimits& rLimits, int iStopFd)
{
    m_pSession->SetInterruptFd(iStopFd);
    m_pSession->SetLimits(rLimits);
    if (m_aName.bSsh) return mBeginSsh(false) || mLeaveSsh() == EAnswer::eLater;
    return (m_pSession->Open(m_aName.strHost, m_aName.usPort, 10s) &&
            m_pSession->AskServerMemory()) ||
           Fail(m_strError, m_pSession->GetError());
}

/// \param bServe  see CSshPipe::Start()
bool CServerCall::mBeginSsh(bool bServe)
{
    if (!m_pSsh) m_pSsh = std::make_unique<CSshPipe>();
    m_bServe = bServe;
    int iSocket = -1;
    if (!m_pSsh->Start(m_aName, bServe, iSocket))
        return Fail(m_strError, m_aName.strName + ": " + m_pSsh->GetError());
    return (m_pSession->Take(iSocket) && m_pSession->AskServerMemory()) ||
           Fail(m_strError, m_aName.strName + ": " + m_pSession->GetError());
}

EAnswer CServerCall::Take()
{
    std::uint64_t ulMemory = 0;
    if (m_pSession->TakeServerMemory(ulMemory)) return EAnswer::eServer;
    m_bMayRetry = m_pSession->WasLost();
    m_strError = m_aName.strName + ": " + m_pSession->GetError();
    return m_pSsh && m_bMayRetry ? mLeaveSsh() : EAnswer::eNoServer;
}

/// After ssh has ended: tries the other way, or says what ssh said.
EAnswer CServerCall::mLeaveSsh()
{
    m_pSsh->Finish();
    m_pSsh->PassOn();
    if (!m_bServe && m_pSsh->IsNobodyThere() && mBeginSsh(true)) return EAnswer::eLater;
    if (const std::string strWords = m_pSsh->GetLastWords(); !strWords.empty())
        m_strError = m_aName.strName + ": " +
                     (m_bServe ? Format("nothing listens on port %d there, and no server can be "
                                        "started: ",
                                        m_aName.usPort)
                               : "") +
                     strWords;
    return EAnswer::eNoServer;
}

double CServerCall::GetLeastWait() const
{
    return m_pSsh ? g_dLogin : g_dMoment;
}

CServerSearch::CServerSearch(const std::vector<ServerName>& rServers, std::optional<double> dWait,
                             const SessionLimits& rLimits)
    : m_vaServers(rServers), m_dWait(dWait), m_aLimits(rLimits)
{
}

std::unique_ptr<CServerCall> CServerSearch::Run(CMonitor& rMonitor)
{
    // The first reply comes when the server has finished with the clients before us.
    std::optional<CPhase> aWaiting;
    if (std::ranges::none_of(m_vaServers, &ServerName::bSsh))  // it may ask questions
        aWaiting.emplace(rMonitor, "waiting for the server");
    Calls vpCalls;
    std::unique_ptr<CServerCall> pFound = mCallEach(vpCalls, rMonitor);
    if (!pFound) pFound = mAwait(vpCalls, m_dWait, rMonitor);
    m_bBusy = !pFound && !vpCalls.empty() && !rMonitor.IsStopped();
    for (const auto& pCall : vpCalls)
    {
        pCall->ReleaseSession()->Close();  // it takes leave
        if (m_bBusy)
            NoteFault(Format("%s is busy: no answer for %g s", pCall->GetName().strName.c_str(),
                             std::max(m_dWait.value_or(g_dLongest), pCall->GetLeastWait())));
    }
    m_bMayRetry = m_bMayRetry || m_bBusy;
    return pFound;
}

/// \return one that was free meanwhile; else rCalls has those that are not
std::unique_ptr<CServerCall> CServerSearch::mCallEach(Calls& rCalls, CMonitor& rMonitor)
{
    std::unique_ptr<CServerCall> pFound;
    const std::vector<ServerName> vaServers = m_vaServers;
    for (std::size_t i = 0; i < vaServers.size() && !pFound && !rMonitor.IsStopped(); ++i)
    {
        auto pCall = std::make_unique<CServerCall>(vaServers[i]);
        if (pCall->Begin(m_aLimits, rMonitor.GetStopFd()))
            rCalls.push_back(std::move(pCall));
        else
        {
            mRemove(vaServers[i]);
            mNoteFault(*pCall);
        }
        if (i + 1 < vaServers.size())
            pFound = mAwait(rCalls, std::min(g_dGlance, m_dWait.value_or(g_dGlance)), rMonitor);
    }
    return pFound;
}

/// The first that answers, taken out of rCalls; null: nobody did in time or is left, or the monitor
/// wants the end.
std::unique_ptr<CServerCall> CServerSearch::mAwait(Calls& rCalls, std::optional<double> dSeconds,
                                                   CMonitor& rMonitor)
{
    if (dSeconds)
        for (const auto& pCall : rCalls) dSeconds = std::max(*dSeconds, pCall->GetLeastWait());
    const std::chrono::duration<double> tLimit(std::min(dSeconds.value_or(g_dLongest), g_dLongest));
    const auto tEnd = Clock::now() + std::chrono::duration_cast<Clock::duration>(tLimit);
    while (!rCalls.empty() && !rMonitor.IsStopped())
    {
        std::vector<pollfd> aPolls = {{rMonitor.GetStopFd(), POLLIN, 0}};
        for (const auto& pCall : rCalls) aPolls.push_back({pCall->GetSocket(), POLLIN, 0});
        for (const auto& pCall : rCalls) pCall->PassOn();
        const std::chrono::duration<double, std::milli> tLeft = tEnd - Clock::now();
        if (tLeft.count() <= 0) return nullptr;
        const int iReady = poll(aPolls.data(), aPolls.size(),
                                static_cast<int>(std::min(tLeft.count() + 1, g_dLook)));
        if (iReady <= 0) continue;
        const auto pReady = std::ranges::find_if(aPolls.begin() + 1, aPolls.end(),
                                                 [](const pollfd& r) { return r.revents != 0; });
        if (pReady == aPolls.end()) continue;
        const auto pAt = rCalls.begin() + (pReady - aPolls.begin() - 1);
        std::unique_ptr<CServerCall> pCall = std::move(*pAt);
        rCalls.erase(pAt);
        const EAnswer eAnswer = pCall->Take();
        if (eAnswer == EAnswer::eLater)
        {
            rCalls.push_back(std::move(pCall));
            continue;
        }
        mRemove(pCall->GetName());
        if (eAnswer == EAnswer::eServer) return pCall;
        if (!rMonitor.IsStopped()) mNoteFault(*pCall);
    }
    return nullptr;
}

void CServerSearch::mNoteFault(const CServerCall& rCall)
{
    NoteFault(rCall.GetError());
    m_bMayRetry = m_bMayRetry || rCall.MayRetry();
}

/// The server is not called again, unless the list names it twice.
void CServerSearch::mRemove(const ServerName& rName)
{
    const auto pAt = std::ranges::find(m_vaServers, rName.strName, &ServerName::strName);
    if (pAt != m_vaServers.end()) m_vaServers.erase(pAt);
}

std::string CServerSearch::GetError() const
{
    std::string strAll;
    for (const std::string& rFault : m_vstrFaults)
        strAll.append(strAll.empty() ? "" : "; ").append(rFault);
    return strAll;
}

}  // namespace talven
