#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// The real server as a child process, in a temporary directory of its own that is also its home.
class CServerProcess
{
public:
    using Environment = std::map<std::string, std::string>;

    CServerProcess() = default;  ///< not started
    ~CServerProcess();           ///< ends the server
    CServerProcess(const CServerProcess&) = delete;
    CServerProcess& operator=(const CServerProcess&) = delete;

    void SetProgram(const std::string& strPath) { m_strProgram = strPath; }  ///< another server

    /// Starts the server on a free port of the loopback, on the host backend, unless rExtra says
    /// otherwise (an empty value unsets a variable). strConfig becomes config.gpu when it is not
    /// empty. fInChild is called in the child before the server takes over.
    void Start(const Environment& rExtra = {}, const std::string& strConfig = {},
               const std::function<void()>& fInChild = {});

    /// Waits for the end. \return exit code, 128 + signal when a signal ended it, -1 when it still
    /// runs after 20 s
    int WaitForEnd();
    /// Runs the server until it ends by itself. \return as WaitForEnd; a server that still runs is
    /// killed
    static int RunToEnd(const Environment& rExtra, const std::string& strConfig,
                        std::string& rOutput);

    int GetPort() const { return m_iPort; }
    bool IsRunning();
    std::string GetOutput() const;  ///< standard output so far
    /// Waits until the output holds strText iTimes times; false after 10 s.
    bool WaitForOutput(const std::string& strText, int iTimes = 1) const;
    int CountInOutput(const std::string& strText) const;
    const std::filesystem::path& GetHome() const { return m_aHome; }
    pid_t GetPid() const { return m_iPid; }

    static int FindFreePort();

private:
    std::string m_strProgram;  // empty: the one that was built with the tests
    std::filesystem::path m_aHome;
    pid_t m_iPid = -1;
    int m_iPort = 0;
};

/// How often a text stands in another one.
int CountIn(const std::string& strText, const std::string& strWanted);
