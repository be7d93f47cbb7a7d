#include "Command.h"

#include <cstdio>

#include "Options.h"
#include "talven/AtomicFile.h"

namespace talven
{

void CCommand::mAddServerOptions(CLI::App& rApp)
{
    const auto CheckServer = [](const std::string& strText)
    {
        std::vector<ServerName> vaServers;
        std::string strError;
        return ParseServers(strText, vaServers, strError) ? std::string() : strError;
    };
    rApp.option_defaults()->group("Server");
    CLI::Option* pServer =
        rApp.add_option("--server", m_aServerOptions.strServer,
                        "Use the server at HOST:PORT or ssh://[USER@]HOST instead of a private one "
                        "on this machine; of several, A,B,..., the first that is free")
            ->type_name("HOST:PORT,...")
            ->check(CheckServer);
    rApp.add_option("--wait", m_aServerOptions.dWait,
                    "Wait only so many seconds for a server that is busy with others [any time]")
        ->check(CLI::Range(0.0, 1e6))
        ->type_name("SECONDS");
    rApp.add_option("--devices", m_aServerOptions.iDevices, "Devices the private server uses [all]")
        ->check(CLI::Range(1, g_iMaxDevices))
        ->excludes(pServer);
    rApp.add_option("--cores", m_aServerOptions.iCores,
                    "Cores the private server's host backend uses, on all its devices together "
                    "[those that this process may use]")
        ->check(CLI::Range(1, g_iMaxCores))
        ->excludes(pServer);
    AddBackend(rApp, m_aServerOptions.strBackend)->excludes(pServer);
    rApp.option_defaults()->group("Options");
}

std::vector<std::string> ListServerOptions(const ServerOptions& rOptions)
{
    std::vector<std::string> vstrArgs;
    if (!rOptions.IsHere()) vstrArgs.push_back("--server=" + rOptions.strServer);
    if (rOptions.dWait) vstrArgs.push_back(Format("--wait=%.17g", *rOptions.dWait));
    if (rOptions.iDevices > 0) vstrArgs.push_back(Format("--devices=%d", rOptions.iDevices));
    if (rOptions.iCores > 0) vstrArgs.push_back(Format("--cores=%d", rOptions.iCores));
    if (!rOptions.strBackend.empty()) vstrArgs.push_back("--backend=" + rOptions.strBackend);
    return vstrArgs;
}

void CCommand::mAddReportOptions(CLI::App& rApp)
{
    rApp.add_flag("-q,--quiet", m_aReportOptions.bQuiet, "Say nothing but errors");
    rApp.add_flag("--json", m_aReportOptions.bJson, "Print one JSON object about the result");
}

bool CCommand::mProbe(const std::string& strPath)
{
    CAtomicFile aProbe;
    return strPath.empty() || mCheck(aProbe.Create(strPath), aProbe);
}

bool CCommand::mConnect()
{
    if (!mCheck(m_aLink.Connect(m_aServerOptions, m_aReport), m_aLink)) return false;
    if (const std::string strFaults = m_aLink.GetFaults(); !strFaults.empty())
        m_aReport.PrintLine(strFaults + "; " + m_aLink.GetName() + " takes the job");
    return true;
}

bool CCommand::mTakeNextServer()
{
    if (!m_aLink.WasLost() || !m_aLink.HasNext() || m_aReport.IsStopped()) return false;
    if (!mCheck(m_aLink.ConnectNext(m_aReport), m_aLink)) return false;
    m_aReport.PrintLine(m_aLink.GetFaults() + "; the job starts again on " + m_aLink.GetName());
    return true;
}

bool CCommand::mCheckSize(const JobSize& rSize)
{
    std::string strOfAnyServer;
    const bool bFits = CheckJobSize(rSize, m_aServerOptions.IsHere(), m_strError);
    m_bNoMemory = !bFits && CheckJobSize(rSize, false, strOfAnyServer);
    return bFits;
}

void CCommand::mReport(const Json& rJson, const std::string& strLine) const
{
    if (m_aReportOptions.bJson) std::puts(rJson.dump(2).c_str());
    m_aReport.PrintLine(strLine);
}

}  // namespace talven
