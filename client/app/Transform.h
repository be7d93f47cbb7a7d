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
    std::string m_strMeasured, m_strOutput;
    std::string m_strSize;  ///< X,Y of the output; empty: the measured stack's
    AlignmentArgs m_aAlignment;
    ServerOptions m_aServer;
    ReportOptions m_aReport;
};

/// Runs the command; false: rError says why, in one line. No output is ever left half written.
[[nodiscard]] bool RunTransform(const TransformArgs& rArgs, std::string& rError);

}  // namespace talven
