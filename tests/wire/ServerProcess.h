#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>

/// The real server as a child process, in a temporary directory of its own that is also its home.
class CServerProcess
{
public:
    using Environment = std::map<std::string, std::string>;

    CServerProcess() = default;  ///< not started
    ~CServerProcess();           ///< ends the server
    CServerProcess(const CServerProcess&) = delete;
    CServerProcess& operator=(const CServerProcess&) = delete;

    /// Starts the server on a free port of the loopback, on the host backend, with two devices at
    /// most, unless rExtra says otherwise (an empty value unsets a variable). strConfig becomes
    /// config.gpu when it is not empty. fInChild is called in the child before the server takes
    /// over.
    void Start(const Environment& rExtra = {}, const std::string& strConfig = {},
               const std::function<void()>& fInChild = {});
    /// The server started next gets this listening socket as systemd hands one over.
    void HandOver(int iSocket) { m_iHandedOver = iSocket; }
    /// Waits for the end. \return exit code, 128 + signal when a signal ended it, -1 when it still
    /// runs after so long
    int WaitForEnd(double dSeconds = 20);

    int GetPort() const { return m_iPort; }
    pid_t GetPid() const { return m_iPid; }
    bool IsRunning() { return WaitForEnd(0) == -1; }
    std::string GetOutput() const;                ///< standard output and errors so far
    int Count(const std::string& strText) const;  ///< how often it stands in the output
    /// Waits until the output holds strText iTimes times; false after 10 s.
    bool WaitFor(const std::string& strText, int iTimes = 1) const;
    const std::filesystem::path& GetHome() const { return m_aHome; }
    std::string GetLog() const;  ///< all that is in the log files

    static int FindFreePort();

private:
    std::filesystem::path m_aHome;
    pid_t m_iPid = -1;
    int m_iPort = 0, m_iCode = -2, m_iHandedOver = -1;
};

std::string ReadText(const std::filesystem::path& rPath);
