#pragma once

#include <string>

#include "Alignment.h"
#include "Report.h"
#include "ServerLink.h"

namespace talven
{

/// The options of `talven compare` as the user wrote them.
struct CompareArgs
{
    std::string strMeasured, strAligned;
    int iSearch = 0;               ///< range of the shifts, pixels; 0: none
    std::string strWriteMatrices;  ///< file for the matrices with the shifts found
    AlignmentArgs aAlignment;
    ServerOptions aServer;
    ReportOptions aReport;
};

/// Runs the command; false: rError says why, in one line. No output is ever left half written.
[[nodiscard]] bool RunCompare(const CompareArgs& rArgs, std::string& rError);

}  // namespace talven
