#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SshPipe.h"
#include "talven/ServerLink.h"

namespace talven
{

enum class EAnswer
{
    eServer,   ///< a server, which is free
    eLater,    ///< nothing yet
    eNoServer  ///< GetError()
};

/// A server that was called and has not answered yet: it may be serving somebody else.
class CServerCall
{
public:
    explicit CServerCall(const ServerName& rName) : m_aName(rName) {}
    /// Connects and asks something that every server answers.
    [[nodiscard]] bool Begin(const SessionLimits& rLimits, int iStopFd);
    int GetSocket() const { return m_pSession->GetSocket(); }
    /// Takes what there is; the socket is readable.
    EAnswer Take();
    const ServerName& GetName() const { return m_aName; }
    std::unique_ptr<CSession> ReleaseSession() { return std::move(m_pSession); }
    std::unique_ptr<CSshPipe> ReleaseSsh() { return std::move(m_pSsh); }
    const std::string& GetError() const { return m_strError; }
    /// Seconds that even a free server may need.
    double GetLeastWait() const;
    void PassOn()
    {
        if (m_pSsh) m_pSsh->PassOn();
    }
    /// Whether it may succeed another time.
    bool MayRetry() const { return m_bMayRetry; }

private:
    bool mBeginSsh(bool bServe);
    EAnswer mLeaveSsh();

    ServerName m_aName;
    std::unique_ptr<CSshPipe> m_pSsh;  // outlives the session
    std::unique_ptr<CSession> m_pSession = std::make_unique<CSession>();
    bool m_bMayRetry = true;
    bool m_bServe = false;  // the server is one that ssh started
    std::string m_strError;
};

/// Finds the server of a list that serves us first.
///
/// Calls one after the other, each with a moment to answer: one that is free does. When none is,
/// waits in the queues of all of them. A server that failed is out; one that was busy, or was not
/// needed, stays in the list for the next run.
class CServerSearch
{
public:
    CServerSearch(const std::vector<ServerName>& rServers, std::optional<double> dWait,
                  const SessionLimits& rLimits);
    /// \return the server, taken from the list; null: GetError()
    std::unique_ptr<CServerCall> Run(CMonitor& rMonitor);
    /// A server that Run() gave is gone.
    void NoteFault(const std::string& strFault) { m_vstrFaults.push_back(strFault); }

    /// What is wrong with each, in one line.
    std::string GetError() const;
    bool WasBusy() const { return m_bBusy; }
    bool MayRetry() const { return m_bMayRetry; }

private:
    using Clock = std::chrono::steady_clock;
    using Calls = std::vector<std::unique_ptr<CServerCall>>;

    std::unique_ptr<CServerCall> mCallEach(Calls& rCalls, CMonitor& rMonitor);
    std::unique_ptr<CServerCall> mAwait(Calls& rCalls, std::optional<double> dSeconds,
                                        CMonitor& rMonitor);
    void mNoteFault(const CServerCall& rCall);
    void mRemove(const ServerName& rName);

    std::vector<ServerName> m_vaServers;  // left
    std::optional<double> m_dWait;
    SessionLimits m_aLimits;
    std::vector<std::string> m_vstrFaults;
    bool m_bBusy = false, m_bMayRetry = false;
};

}  // namespace talven
