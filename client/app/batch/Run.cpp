#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "Options.h"
#include "batch/Crew.h"
#include "batch/TaskRun.h"

namespace talven
{
namespace
{

/// `talven batch run`.
class CBatchRun : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;
    bool MayRetry() const override { return CCommand::MayRetry() || m_bRetry; }

private:
    bool mRunTask();
    bool mRunAll();

    std::string m_strManifest;
    int m_iTask = -1;
    bool m_bAll = false, m_bWithParent = false;
    std::vector<std::string> m_vstrServers;
    CBatchManifest m_aManifest;
    bool m_bRetry = false;
};

void CBatchRun::AddOptions(CLI::App& rApp)
{
    AddFile(rApp, "manifest", m_strManifest, "The plan")->required();
    CLI::Option* pTask = rApp.add_option("task", m_iTask, "The task to run, from 0")
                             ->check(CLI::NonNegativeNumber)
                             ->type_name("N");
    rApp.add_flag("--all", m_bAll, "Run all tasks that are not done, one at a time on each server")
        ->excludes(pTask);
    rApp.add_flag("--with-parent", m_bWithParent,
                  "End when the program that started this one ends");
    mAddServerOptions(rApp);
    rApp.option_defaults()->group("Server");
    rApp.add_option("--servers", m_vstrServers, "For --all: use these servers at once")
        ->delimiter(',')
        ->type_name("A,B,...")
        ->needs("--all")
        ->excludes("--server");
    rApp.option_defaults()->group("Options");
    mAddReportOptions(rApp);
}

bool CBatchRun::Run()
{
    if (m_bWithParent)
    {
        const pid_t iParent = getppid();
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != iParent) return mFail("interrupted");
    }
    m_aReportOptions.bKeep = false;  // a volume of fewer iterations is no result of a task
    if (!mCheck(m_aManifest.Read(m_strManifest), m_aManifest)) return false;
    if (m_bAll) return mRunAll();
    if (m_iTask < 0) return mFail("a task or --all is required");
    const int iTasks = static_cast<int>(m_aManifest.aTasks.size());
    return m_iTask < iTasks
               ? mRunTask()
               : mFail(Format("%s has tasks 0 to %d", m_strManifest.c_str(), iTasks - 1));
}

bool CBatchRun::mRunTask()
{
    ReportOptions aInner = m_aReportOptions;
    aInner.bQuiet = aInner.bQuiet || aInner.bJson;
    aInner.bJson = false;
    CTaskRun aRun(m_aManifest, m_iTask, m_aServerOptions, aInner);
    const bool bDone = mCheck(aRun.Run(), aRun);
    m_bRetry = aRun.MayRetry();
    const BatchTask& rTask = m_aManifest.aTasks[static_cast<std::size_t>(m_iTask)];
    if (bDone)
        mReport(aRun.GetResult(),
                Format("task %d: %s%s", m_iTask, m_aManifest.Describe(rTask).c_str(),
                       aRun.WasDone() ? " was done before" : " done"));
    return bDone;
}

bool CBatchRun::mRunAll()
{
    CCrew aCrew(m_aManifest, m_aReport);
    if (m_vstrServers.empty())
        aCrew.AddPlace(ListServerOptions(m_aServerOptions));
    else
        for (const std::string& rServer : m_vstrServers)
        {
            ServerOptions aOptions = m_aServerOptions;
            aOptions.strServer = rServer;
            aCrew.AddPlace(ListServerOptions(aOptions));
        }
    const bool bDone = mCheck(aCrew.Run(), aCrew);
    m_bRetry = aCrew.MayRetry();
    if (bDone)
        mReport({{"command", "batch run"},
                 {"manifest", m_strManifest},
                 {"tasks", m_aManifest.aTasks.size()},
                 {"run", aCrew.GetRunCount()},
                 {"seconds", m_aTotal.GetSeconds()}},
                Format("%s: all %zu task(s) done, %d now, %s", m_strManifest.c_str(),
                       m_aManifest.aTasks.size(), aCrew.GetRunCount(),
                       FormatSeconds(m_aTotal.GetSeconds()).c_str()));
    return bDone;
}

}  // namespace

std::unique_ptr<CCommand> MakeBatchRun()
{
    return std::make_unique<CBatchRun>();
}

}  // namespace talven
