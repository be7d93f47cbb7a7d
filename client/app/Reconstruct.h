#pragma once

#include <string>

#include "Report.h"
#include "ServerLink.h"

namespace talven
{

/// The options of `talven reconstruct` as the user wrote them.
struct ReconstructArgs
{
    std::string strTilts, strAngles, strOutput;
    int iThickness = 0;
    int iWidth = 0;  ///< 0: the detector's
    std::string strMethod = "sart";
    int iIterations = 10;
    int iSubsets = 0;            ///< 0: about one per six projections
    std::string strSubsetSizes;  ///< empty: as equal as can be
    std::string strRelaxation = "1";
    std::string strOrder = "interleaved";
    std::string strExclude, strInclude;
    std::string strWeightBox;
    std::string strSmooth;  ///< SIGMA[,INTERVAL]; empty: none
    std::string strInitial;
    std::string strPreview, strPlot, strRfactors, strReference;
    ServerOptions aServer;
    ReportOptions aReport;
};

/// Runs the command; false: rError says why, in one line. No output is ever left half written.
[[nodiscard]] bool RunReconstruct(const ReconstructArgs& rArgs, std::string& rError);

}  // namespace talven
