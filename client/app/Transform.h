#pragma once

#include <string>

#include "Alignment.h"
#include "Report.h"
#include "ServerLink.h"

namespace talven
{

/// The options of `talven transform` as the user wrote them.
struct TransformArgs
{
    std::string strMeasured, strOutput;
    std::string strSize;  ///< X,Y of the output; empty: the measured stack's
    AlignmentArgs aAlignment;
    ServerOptions aServer;
    ReportOptions aReport;
};

/// Runs the command; false: rError says why, in one line. No output is ever left half written.
[[nodiscard]] bool RunTransform(const TransformArgs& rArgs, std::string& rError);

}  // namespace talven
