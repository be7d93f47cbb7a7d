// The readers of the files that come with a tilt series. What they take must be within its limits,
// what they refuse is told in one short line.
//
// Input: the bytes of one file. TALVEN_FUZZ_KIND says which reader gets them.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <string_view>

#include "fuzz/Target.h"
#include "talven/Angles.h"
#include "talven/HeaderAngles.h"
#include "talven/Mdoc.h"
#include "talven/TiltCommands.h"
#include "talven/ViewAlignment.h"

namespace
{

using namespace talven;

void CheckAngles(const std::vector<float>& rAngles)
{
    Expect(!rAngles.empty(), "angles");
    for (const float fAngle : rAngles) Expect(std::fabs(fAngle) <= 360, "an angle in its limits");
}

bool TryAngles(const std::string& strText, std::string& rError)
{
    std::istringstream aText(strText);
    std::vector<float> vfAngles;
    if (!ReadAngles(aText, "input", vfAngles, rError)) return false;
    CheckAngles(vfAngles);
    return true;
}

bool TryXf(const std::string& strText, std::string& rError)
{
    std::istringstream aText(strText);
    std::vector<ViewMap> aMaps;
    if (!ReadXf(aText, "input", aMaps, rError)) return false;
    for (const ViewMap& rMap : aMaps)
    {
        ViewMap aInverse;
        Expect(rMap.Invert(aInverse) && std::isfinite(aInverse.dX + aInverse.dY), "a map");
    }
    return true;
}

bool TryMdoc(const std::string& strText, std::string& rError)
{
    std::istringstream aText(strText);
    Mdoc aMdoc;
    if (!ReadMdoc(aText, "input", aMdoc, rError)) return false;
    const auto iSections = static_cast<int>(aMdoc.aSections.size());
    for (const int iViews : {1, iSections, iSections + 3})
    {
        MdocViews aViews;
        if (!FitToStack(aMdoc, iViews, aViews, rError))
        {
            Expect(iViews != iSections, "as many sections as views fit");
            continue;
        }
        Expect(aViews.vfAngles.size() == std::size_t(iViews), "one angle for each view");
        Expect(int(aViews.viMissing.size()) == iViews - iSections, "views without a section");
        for (const ViewDose& rDose : aViews.aDoses)
            Expect(rDose.dPrior >= 0 && rDose.dExposure >= 0, "doses");
    }
    return true;
}

bool TryCommands(const std::string& strText, std::string& rError)
{
    std::istringstream aText(strText);
    SeriesCommands aCommands;
    if (!ReadCommands(aText, "dir/input", aCommands, rError)) return false;
    const TiltCommands& rTilt = aCommands.aTilt;
    Expect(rTilt.dThickness >= 0 && rTilt.dThickness <= 1 << 24, "a thickness");
    Expect(rTilt.iBinned >= 0 && rTilt.iBinned <= 64 && aCommands.aStack.iBin >= 1, "binning");
    if (!rTilt.vfAngles.empty()) CheckAngles(rTilt.vfAngles);
    for (const std::vector<int>* pviViews : {&rTilt.viExclude, &rTilt.viInclude})
        for (std::size_t i = 1; i < pviViews->size(); ++i)
            Expect((*pviViews)[i - 1] < (*pviViews)[i], "each view once");
    return true;
}

bool TryHeader(const std::string& strText, std::string& rError)
{
    std::vector<float> vfAngles;
    if (!ParseHeaderAngles(std::as_bytes(std::span(strText)), vfAngles, rError)) return false;
    CheckAngles(vfAngles);
    return true;
}

constexpr struct
{
    std::string_view strKind;
    bool (*Try)(const std::string&, std::string&);
} g_aReaders[] = {{"angles", TryAngles},
                  {"xf", TryXf},
                  {"mdoc", TryMdoc},
                  {"commands", TryCommands},
                  {"header", TryHeader}};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pucData, std::size_t tBytes)
{
    const std::string strText(reinterpret_cast<const char*>(pucData), tBytes);
    for (const auto& rReader : g_aReaders)
    {
        std::string strError;
        if (rReader.strKind != TALVEN_FUZZ_KIND || rReader.Try(strText, strError)) continue;
        Expect(!strError.empty() && strError.size() < 300, "a short reason");
        Expect(std::ranges::all_of(strError, [](char c) { return c >= ' ' && c <= '~'; }),
               "a line that a terminal can show");
    }
    return 0;
}
