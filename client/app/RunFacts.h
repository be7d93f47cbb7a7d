#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "talven/MrcHeader.h"
#include "talven/ReconPlan.h"
#include "talven/ServerLink.h"
#include "talven/ViewQuality.h"

namespace talven
{

/// What is worth knowing about a run: names and values.
using Facts = std::vector<std::pair<std::string, std::string>>;

/// Sizes, angles, alignment.
/// \param iViews  of the stack
/// \param dPixel  Angstrom per pixel of the raw views; 0: not known
Facts DescribeGeometry(const ReconRequest& rRequest, const ReconPlan& rPlan, int iViews,
                       double dPixel);
/// \param iIterations  that were run
Facts DescribeMethod(const ReconRequest& rRequest, const ReconPlan& rPlan, int iIterations);
/// The volume as its file tells.
Facts DescribeVolume(const MrcHeader& rHeader);
/// \param rLink  is connected
Facts DescribeServer(const ServerOptions& rOptions, CServerLink& rLink);
/// Version, time, machine.
Facts DescribeProgram();
/// Options that were given, with their values: those that name files, or the others.
Facts ListOptions(const CLI::App& rApp, bool bFiles);

/// The option that leaves out the suspect views beside those that are left out already.
/// \param aQuality  of the plan's views
std::string SuggestViews(const ReconRequest& rRequest, const ReconPlan& rPlan,
                         std::span<const ViewQuality> aQuality);

/// Arguments as a shell takes them.
std::string QuoteForShell(std::span<char* const> pcArgs);

}  // namespace talven
