#include "CommonOptions.h"

namespace talven
{
namespace
{

std::string CheckServer(const std::string& strText)
{
    std::string strHost;
    std::uint16_t usPort = 0;
    return ParseServer(strText, strHost, usPort) ? std::string() : "expected HOST:PORT";
}

}  // namespace

void AddReportOptions(CLI::App& rApp, ReportOptions& rReport)
{
    rApp.add_flag("-q,--quiet", rReport.bQuiet, "Say nothing but errors");
    rApp.add_flag("--json", rReport.bJson, "Print one JSON object about the result");
}

void AddBackendOption(CLI::App& rApp, std::string& rBackend)
{
    rApp.add_option("--backend", rBackend, "auto, cuda, cuda-exact or host")
        ->check(CLI::IsMember({"auto", "cuda", "cuda-exact", "host"}));
}

void AddServerOptions(CLI::App& rApp, ServerOptions& rServer)
{
    CLI::Option* pServer =
        rApp.add_option("--server", rServer.strServer,
                        "Use the server at HOST:PORT instead of a private one on this machine")
            ->type_name("HOST:PORT")
            ->check(CheckServer);
    rApp.add_option("--devices", rServer.iDevices, "Devices the private server uses [all]")
        ->check(CLI::Range(1, 16))
        ->excludes(pServer);
    AddBackendOption(rApp, rServer.strBackend);
    rApp.get_option("--backend")->excludes(pServer);
}

}  // namespace talven
