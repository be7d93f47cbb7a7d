#pragma once

#include <string>

#include "Report.h"

namespace talven
{

/// The options of `talven view` as the user wrote them.
struct ViewArgs
{
    std::string strInput, strOutput;
    std::string strAxis = "z";
    std::string strSlices;  ///< counted from 1; empty: the middle one
    std::string strContrast = "0.5,99.5";
    int iWidth = 1500;  ///< of the picture at most, pixels
    ReportOptions aReport;
};

/// Runs the command; false: rError says why, in one line.
[[nodiscard]] bool RunView(const ViewArgs& rArgs, std::string& rError);

}  // namespace talven
