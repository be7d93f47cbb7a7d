#include "RunFacts.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <string_view>

#include "talven/Text.h"

namespace talven
{
namespace
{

std::string FormatSize(const ImageSize& rSize)
{
    return Format("%d × %d pixels", rSize.iX, rSize.iY);
}

std::string FormatPixel(double dPixel)
{
    if (dPixel <= 0) return "not stated";
    return dPixel < 100 ? Format("%.4g Å", dPixel) : Format("%.4g nm", dPixel / 10);
}

std::string DescribeViews(const ReconPlan& rPlan, int iViews)
{
    const std::string strAll = Format("%d", iViews);
    if (rPlan.viViews.size() == std::size_t(iViews)) return strAll;
    std::vector<int> viLeftOut;
    for (int i = 0; i < iViews; ++i)
        if (!std::ranges::binary_search(rPlan.viViews, i)) viLeftOut.push_back(i);
    return Format("%zu of ", rPlan.viViews.size()) + strAll +
           "; left out: " + FormatViews(viLeftOut);
}

void AddAlignmentFacts(const AlignRequest& rRequest, const ReconPlan& rPlan, Facts& rFacts)
{
    if (!rRequest.aMaps.empty())
        rFacts.emplace_back("Maps", "one of each view; resampled once, on the server");
    if (rRequest.dTiltAxis != 0)
        rFacts.emplace_back("Tilt axis", Format("%g° from +Y", rRequest.dTiltAxis));
    if (rRequest.iBin > 1)
        rFacts.emplace_back("Binning", Format("%d × %d pixels", rRequest.iBin, rRequest.iBin));
    if (!rPlan.aAlignment.IsNone())
        rFacts.emplace_back("Aligned views", FormatSize(rPlan.aAlignment.aAligned));
    if (rRequest.dTiltX != 0)
        rFacts.emplace_back("Tilt about X", Format("%g°, taken out", rRequest.dTiltX));
    if (rRequest.dShiftZ != 0)
        rFacts.emplace_back("Shift along Z", Format("%g voxels", rRequest.dShiftZ));
}

std::string DescribeSubsets(const ReconPlan& rPlan, bool bInterleave)
{
    const auto [pLeast, pMost] = std::ranges::minmax_element(rPlan.aOptions.vuiSetSizes);
    std::string strText = Format("%zu of %u", rPlan.aOptions.vuiSetSizes.size(), *pLeast);
    if (*pLeast != *pMost) strText += Format(" to %u", *pMost);
    return strText + (bInterleave ? " views, spread over the angles" : " views, as in the file");
}

/// Of the iterations that were run.
std::string DescribeRelaxation(const ReconOptions& rOptions, int iIterations)
{
    const std::size_t tSets = rOptions.vuiSetSizes.size();
    const std::size_t tLast = tSets * std::size_t(std::max(1, iIterations)) - 1;
    const float fFirst = rOptions.vfRelax.front();
    const float fLast = rOptions.vfRelax[std::min(tLast, rOptions.vfRelax.size() - 1)];
    if (fFirst == fLast) return Format("%g", double(fFirst));
    return Format("%g in the first, %g in the last iteration", double(fFirst), double(fLast));
}

bool IsPlain(std::string_view strArg)
{
    constexpr std::string_view strPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./,:=+-@%";
    return !strArg.empty() && strArg.find_first_not_of(strPlain) == std::string_view::npos;
}

}  // namespace

Facts DescribeGeometry(const ReconRequest& rRequest, const ReconPlan& rPlan, int iViews,
                       double dPixel)
{
    const JobSize aSize = rPlan.GetResultSize();
    const auto [fLow, fHigh] = std::ranges::minmax(rPlan.vfAngles);
    Facts aFacts = {{"Views", DescribeViews(rPlan, iViews)},
                    {"Size of the views", FormatSize(rPlan.aAlignment.aRaw)},
                    {"Pixel", FormatPixel(dPixel)},
                    {"Angles", Format("%g° to %g°", double(fLow), double(fHigh))}};
    if (rRequest.dAngleOffset != 0)
        aFacts.emplace_back("Angle offset", Format("%g°, included above", rRequest.dAngleOffset));
    AddAlignmentFacts(rRequest.aAlign, rPlan, aFacts);
    aFacts.emplace_back("Volume, X × Y × Z",
                        Format("%d × %d × %d voxels", aSize.iVolX, aSize.iProjY, aSize.iVolZ));
    aFacts.emplace_back("Voxel", FormatPixel(dPixel * rPlan.aAlignment.iBin));
    if (rPlan.aBox)
        aFacts.emplace_back("Weight box",
                            Format("centre %g, %g; half sizes %g, %g voxels",
                                   double(rPlan.aBox->fCentreX), double(rPlan.aBox->fCentreZ),
                                   double(rPlan.aBox->fHalfX), double(rPlan.aBox->fHalfZ)));
    return aFacts;
}

Facts DescribeMethod(const ReconRequest& rRequest, const ReconPlan& rPlan, int iIterations)
{
    Facts aFacts = {{"Method", rPlan.DescribeMethod(iIterations)}};
    if (rPlan.aOptions.eMethod != EMethod::eBackProj)
    {
        if (iIterations < rPlan.aOptions.iIterations)
            aFacts.emplace_back("Asked for", Format("%d iterations", rPlan.aOptions.iIterations));
        aFacts.emplace_back("Subsets", DescribeSubsets(rPlan, rRequest.bInterleave));
        aFacts.emplace_back("Relaxation", DescribeRelaxation(rPlan.aOptions, iIterations));
    }
    if (rPlan.iSmoothInterval > 0)
        aFacts.emplace_back("Smoothing", Format("Gaussian of %g voxels every %d iteration(s)",
                                                rRequest.dSmoothSigma, rPlan.iSmoothInterval));
    return aFacts;
}

Facts DescribeVolume(const MrcHeader& rHeader)
{
    return {{"X, Y, Z of the file", Format("%d, %d, %d", rHeader.iX, rHeader.iY, rHeader.iZ)},
            {"Mode", Format("%d", static_cast<int>(rHeader.eMode))},
            {"Least, most", Format("%.4g, %.4g", double(rHeader.fMin), double(rHeader.fMax))},
            {"Mean, SD", Format("%.4g, %.4g", double(rHeader.fMean), double(rHeader.fRms))}};
}

Facts DescribeServer(const ServerOptions& rOptions, CServerLink& rLink)
{
    const bool bHere = rOptions.IsHere();
    Facts aFacts = {{"Server", bHere ? "private, on this machine" : rLink.GetName()}};
    if (bHere) aFacts.emplace_back("Devices", rLink.GetServerInfo());
    std::uint64_t ulMemory = 0;
    if (rLink.GetSession().GetServerMemory(ulMemory))
        aFacts.emplace_back("Memory for jobs", FormatBytes(ulMemory));
    return aFacts;
}

Facts DescribeProgram()
{
    const std::time_t tNow = std::time(nullptr);
    std::tm aNow{};
    gmtime_r(&tNow, &aNow);
    char acTime[32] = "", acHost[256] = "";
    std::strftime(acTime, sizeof(acTime), "%Y-%m-%d %H:%M:%S UTC", &aNow);
    if (gethostname(acHost, sizeof(acHost) - 1) != 0) acHost[0] = 0;
    return {{"Talven", TALVEN_VERSION}, {"Finished", acTime}, {"On", acHost}};
}

Facts ListOptions(const CLI::App& rApp, bool bFiles)
{
    Facts aFacts;
    for (const CLI::Option* pOption : rApp.get_options())
    {
        if (pOption->count() == 0 || (pOption->get_type_name() == "FILE") != bFiles) continue;
        std::string strValues;
        for (const std::string& rValue : pOption->results())
            strValues += (strValues.empty() ? "" : " ") + rValue;
        if (pOption->get_items_expected_max() == 0) strValues = "yes";  // a flag
        aFacts.emplace_back(pOption->get_name(false, false), strValues);
    }
    return aFacts;
}

std::string SuggestViews(const ReconRequest& rRequest, const ReconPlan& rPlan,
                         std::span<const ViewQuality> aQuality)
{
    const bool bInclude = !rRequest.viInclude.empty();
    std::vector<int> viViews = rRequest.viExclude;
    for (std::size_t i = 0; i < aQuality.size(); ++i)
        if (aQuality[i].IsSuspect() != bInclude) viViews.push_back(rPlan.viViews[i]);
    std::ranges::sort(viViews);
    return (bInclude ? "--include " : "--exclude ") + FormatViews(viViews);
}

std::string QuoteForShell(std::span<char* const> pcArgs)
{
    std::string strCommand;
    for (const std::string_view strArg : pcArgs)
    {
        if (!strCommand.empty()) strCommand += ' ';
        if (IsPlain(strArg))
            strCommand += strArg;
        else
        {
            strCommand += '\'';
            for (const char cNext : strArg)
                strCommand += cNext == '\'' ? "'\\''" : std::string(1, cNext);
            strCommand += '\'';
        }
    }
    return strCommand;
}

}  // namespace talven
