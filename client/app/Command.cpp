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
        std::string strHost;
        std::uint16_t usPort = 0;
        return ParseServer(strText, strHost, usPort) ? std::string() : "expected HOST:PORT";
    };
    rApp.option_defaults()->group("Server");
    CLI::Option* pServer =
        rApp.add_option("--server", m_aServerOptions.strServer,
                        "Use the server at HOST:PORT instead of a private one on this machine")
            ->type_name("HOST:PORT")
            ->check(CheckServer);
    rApp.add_option("--devices", m_aServerOptions.iDevices, "Devices the private server uses [all]")
        ->check(CLI::Range(1, g_iMaxDevices))
        ->excludes(pServer);
    AddBackend(rApp, m_aServerOptions.strBackend)->excludes(pServer);
    rApp.option_defaults()->group("Options");
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
