#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "RunFacts.h"

namespace talven
{

// Parts of the pages that tell about a run. Texts are plain; they are escaped here.

/// A picture inside a page.
struct PagePicture
{
    std::vector<std::byte> vcPng;
    std::string strAlt;      ///< in place of the picture
    std::string strCaption;  ///< below it
};
/// Facts with their headings.
using PageTables = std::vector<std::pair<std::string, Facts>>;

/// \param pcClass  plot: on white, inverted where pages are dark
std::string MakeFigure(const PagePicture& rPicture, const char* pcClass);
/// A row of a table; its first tNumbers cells are numbers.
/// \param bBad  it stands out
std::string MakeRow(const std::vector<std::string>& rCells, std::size_t tNumbers, bool bHeadings,
                    bool bBad = false);
/// Side by side; empty ones are left out.
std::string MakeTables(const PageTables& rTables);

/// One HTML file with everything in it: no scripts, nothing from a network.
/// \param strMain  HTML, what stands below title and summary
std::string MakePage(const std::string& strTitle, const std::string& strSummary,
                     const std::string& strMain);

}  // namespace talven
