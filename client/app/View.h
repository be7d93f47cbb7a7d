#pragma once

#include <string>

#include "Report.h"

namespace talven
{

/// The options of `talven view` as the user wrote them.
struct ViewArgs
{
    std::string m_strInput, m_strOutput;
    std::string m_strAxis = "z";
    std::string m_strSlices;  ///< counted from 1; empty: the middle one
    std::string m_strContrast = "0.5,99.5";
    int m_iWidth = 1500;  ///< of the picture at most, pixels
    ReportOptions m_aReport;
};

/// Runs the command; false: rError says why, in one line.
[[nodiscard]] bool RunView(const ViewArgs& rArgs, std::string& rError);

}  // namespace talven
