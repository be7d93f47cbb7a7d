#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Report.h"
#include "talven/Memory.h"
#include "talven/ServerLink.h"
#include "talven/Text.h"

namespace talven
{

using Json = nlohmann::ordered_json;

// Exit codes of the program.
inline constexpr int g_iExitFailure = 1;
inline constexpr int g_iExitUsage = 2;
inline constexpr int g_iExitRetry = 75;  ///< EX_TEMPFAIL of sysexits.h, which engines know

/// One command of the program. Its options are read into its members, then it runs once.
class CCommand
{
public:
    virtual ~CCommand() = default;
    CCommand(const CCommand&) = delete;
    CCommand& operator=(const CCommand&) = delete;
    virtual void AddOptions(CLI::App& rApp) = 0;
    /// \return false: GetError() says why, in one line. No output is ever left half written.
    [[nodiscard]] virtual bool Run() = 0;
    const std::string& GetError() const { return m_strError; }
    /// Whether the same may succeed another time: it was interrupted, a server was not reached or
    /// lost, or there is not enough memory now.
    virtual bool MayRetry() const
    {
        return m_aReport.IsStopped() || m_aLink.WasLost() || m_bNoMemory;
    }
    /// Where the work is done and what is said of it, for a command that another one runs.
    void SetOptions(const ServerOptions& rServer, const ReportOptions& rReport)
    {
        m_aServerOptions = rServer;
        m_aReportOptions = rReport;
    }
    /// How the program was called, for a shell.
    void SetCommandLine(const std::string& strCommand) { m_strCommand = strCommand; }

protected:
    CCommand() = default;
    /// --server and what a private one is started with.
    void mAddServerOptions(CLI::App& rApp);
    /// --quiet and --json.
    void mAddReportOptions(CLI::App& rApp);

    bool mFail(const std::string& strError) { return Fail(m_strError, strError); }
    /// Passes on whether something was done, and takes the reason from who did not do it.
    template <class T>
    bool mCheck(bool bDone, const T& rDoer)
    {
        return bDone || mFail(rDoer.GetError());
    }
    /// False after Ctrl-C.
    bool mGoOn() { return !m_aReport.IsStopped() || mFail("interrupted"); }
    /// Whether a file can be written, before the work begins; an empty path can.
    bool mProbe(const std::string& strPath);
    bool mCheckSize(const JobSize& rSize);
    /// Starts or reaches the server that the options name.
    bool mConnect();
    /// Does some work that can be done again; does it again, on the next server of the list, for as
    /// long as a server is lost in the middle and there is a next one.
    template <class F>
    bool mWork(F Work)
    {
        bool bDone = Work();
        while (!bDone && mTakeNextServer()) bDone = Work();
        return bDone;
    }
    /// The result: an object for --json, a line for people.
    void mReport(const Json& rJson, const std::string& strLine) const;

private:
    bool mTakeNextServer();

protected:
    ReportOptions m_aReportOptions;
    ServerOptions m_aServerOptions;
    CReport m_aReport{m_aReportOptions};
    CServerLink m_aLink;
    bool m_bNoMemory = false;  // now, for a job that a server would take
    CStopwatch m_aTotal;
    std::string m_strCommand;
    std::string m_strError;
};

/// The options of a command that say the same.
std::vector<std::string> ListServerOptions(const ServerOptions& rOptions);

std::unique_ptr<CCommand> MakeReconstruct();
std::unique_ptr<CCommand> MakeReproject();
std::unique_ptr<CCommand> MakeTransform();
std::unique_ptr<CCommand> MakeCompare();
std::unique_ptr<CCommand> MakeAlign();
std::unique_ptr<CCommand> MakeView();
std::unique_ptr<CCommand> MakeInfo();
std::unique_ptr<CCommand> MakePhantom();
std::unique_ptr<CCommand> MakeCheckGeometry();
std::unique_ptr<CCommand> MakeServe();
std::unique_ptr<CCommand> MakeBatchPlan();
std::unique_ptr<CCommand> MakeBatchRun();
std::unique_ptr<CCommand> MakeBatchStatus();
std::unique_ptr<CCommand> MakeBatchJoin();

}  // namespace talven
