#pragma once

#include <string>

#include "Report.h"
#include "ServerLink.h"

namespace talven
{

/// The options of `talven reproject` as the user wrote them.
struct ReprojectArgs
{
    std::string strVolume, strAngles, strOutput;
    int iWidth = 0;  ///< of the detector; 0: the volume's
    ServerOptions aServer;
    ReportOptions aReport;
};

/// Runs the command; false: rError says why, in one line. No output is ever left half written.
[[nodiscard]] bool RunReproject(const ReprojectArgs& rArgs, std::string& rError);

struct InfoArgs
{
    ServerOptions aServer;
    ReportOptions aReport;
};

/// `talven info`: what the server has.
[[nodiscard]] bool RunInfo(const InfoArgs& rArgs, std::string& rError);

}  // namespace talven
