#pragma once

#include <string>

#include "Report.h"
#include "ServerLink.h"

namespace talven
{

/// The options of `talven reconstruct` as the user wrote them.
struct ReconstructArgs
{
    std::string m_strTilts, m_strAngles, m_strOutput;
    int m_iThickness = 0;
    int m_iWidth = 0;  ///< 0: the detector's
    std::string m_strMethod = "sart";
    int m_iIterations = 10;
    int m_iSubsets = 0;            ///< 0: about one per six projections
    std::string m_strSubsetSizes;  ///< empty: as equal as can be
    std::string m_strRelaxation = "1";
    std::string m_strOrder = "interleaved";
    std::string m_strExclude, m_strInclude;
    std::string m_strWeightBox;
    std::string m_strSmooth;  ///< SIGMA[,INTERVAL]; empty: none
    std::string m_strInitial;
    std::string m_strPreview, m_strPlot, m_strRfactors, m_strReference;
    ServerOptions m_aServer;
    ReportOptions m_aReport;
};

/// Runs the command; false: rError says why, in one line. No output is ever left half written.
[[nodiscard]] bool RunReconstruct(const ReconstructArgs& rArgs, std::string& rError);

}  // namespace talven
