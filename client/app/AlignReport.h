#pragma once

#include <string>
#include <vector>

#include "Page.h"
#include "talven/SeriesAlign.h"

namespace talven
{

/// What the page about an alignment shows besides the alignment; plain text, nothing is escaped
/// yet.
struct AlignReport
{
    std::string strTitle;         ///< name of the series
    SeriesAlignRequest aRequest;  ///< as it ran
    ImageSize aRaw = {};          ///< of the views
    int iViews = 0;               ///< of the stack
    std::vector<int> viNumbers;   ///< of the views that took part, counted from 1, ascending
    std::vector<float> vfAngles;  ///< of these, degrees
    PageTables aTables;           ///< files, options, server and so on
    std::string strCommand;
};

/// The page about a series that was aligned: warnings, views that are left out, drawings, places of
/// all views, how it was made.
/// \return false: a drawing could not be made, rError says why
[[nodiscard]] bool MakeAlignPage(const AlignReport& rReport, const SeriesAlignment& rAlignment,
                                 std::string& rPage, std::string& rError);

}  // namespace talven
