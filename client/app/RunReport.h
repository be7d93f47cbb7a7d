#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Page.h"
#include "talven/Slices.h"
#include "talven/ViewQuality.h"

namespace talven
{

/// All that the page about a reconstruction shows; plain text, nothing is escaped yet.
struct RunReport
{
    struct View
    {
        int iNumber;   ///< counted from 1
        float fAngle;  ///< degrees
        ViewQuality aQuality;
    };

    std::string strTitle;    ///< name of the volume
    std::string strSummary;  ///< a sentence or two
    std::vector<View> aViews;
    std::string strWithoutSuspects;  ///< the option that leaves out suspect views, too
    std::vector<PagePicture> aSlices;
    std::vector<double> vdRfactors;                          ///< after every iteration
    std::optional<PagePicture> aRfactorPlot, aResidualPlot;  ///< none for a back projection
    PageTables aTables;
    std::string strCommand;
};

/// Why a view is suspect, "blank; residual stands out"; empty when it is not.
std::string DescribeSuspicion(const ViewQuality& rQuality);

/// Draws the pictures for a page that has everything else.
[[nodiscard]] bool DrawPictures(const CSlices& rSlices, RunReport& rReport, std::string& rError);
/// The page: one HTML file with everything in it, no scripts, nothing from a network.
std::string MakePage(const RunReport& rReport);

}  // namespace talven
