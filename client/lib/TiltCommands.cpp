#include "talven/TiltCommands.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <span>

#include "talven/Angles.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dMostPixels = 1 << 24;  // as in the files that we read

/// What stands after a keyword, and where it goes.
struct Values
{
    std::string_view strText;
    std::filesystem::path aFolder;  // of the file
    SeriesCommands& rCommands;
    std::string& rReason;

    bool Reject(const char* pcExpected) const
    {
        return Fail(rReason,
                    std::string("expected ") + pcExpected + ", found \"" + Show(strText) + "\"");
    }
    /// From iLeast to as many numbers as rNumbers has, none beyond +-dMost; the others stay.
    bool Take(int iLeast, std::span<double> rNumbers, double dMost, const char* pcExpected) const
    {
        std::vector<double> vdAll;
        if (!TakeAll(vdAll) || vdAll.size() < std::size_t(iLeast) || vdAll.size() > rNumbers.size())
            return Reject(pcExpected);
        for (const double dNumber : vdAll)
            if (std::fabs(dNumber) > dMost) return Reject(pcExpected);
        std::ranges::copy(vdAll, rNumbers.begin());
        return true;
    }
    bool TakeAll(std::vector<double>& rNumbers) const
    {
        constexpr std::string_view strBetween = " \t,";
        for (std::string_view strRest = strText; !strRest.empty();)
        {
            const std::size_t tEnd = std::min(strRest.find_first_of(strBetween), strRest.size());
            if (tEnd > 0 && !ParseFinite(strRest.substr(0, tEnd), rNumbers.emplace_back()))
                return false;
            strRest.remove_prefix(std::min(tEnd + 1, strRest.size()));
        }
        return true;
    }
    bool TakeWhole(int iLeast, int iMost, int& rNumber, const char* pcExpected) const
    {
        double dNumber = 0;
        if (!Take(1, std::span(&dNumber, 1), iMost, pcExpected) || dNumber < iLeast ||
            dNumber != std::floor(dNumber))
            return Reject(pcExpected);
        rNumber = static_cast<int>(dNumber);
        return true;
    }
    bool TakeLength(double& rLength) const
    {
        int iLength = 0;
        if (!TakeWhole(1, int(g_dMostPixels), iLength, "a whole number of pixels above 0"))
            return false;
        rLength = iLength;
        return true;
    }
    bool TakeFile(std::string& rPath) const
    {
        if (strText.empty()) return Reject("the name of a file");
        rPath = (aFolder / std::string(strText)).string();
        return true;
    }
    /// Adds to the views that are there.
    bool TakeViews(std::vector<int>& rViews) const
    {
        std::string strList;
        for (const char c : strText)
            if (c != ' ' && c != '\t')
                strList += c;
            else if (!strList.empty() && strList.back() != ',' && strList.back() != '-')
                strList += ',';  // "1 3-5" and "1, 3 - 5" are the same
        for (std::size_t i; (i = strList.find(",-")) != std::string::npos;) strList.erase(i, 1);
        for (std::size_t i; (i = strList.find(",,")) != std::string::npos;) strList.erase(i, 1);
        std::vector<int> viViews;
        if (!ParseViews(strList, viViews, rReason)) return false;
        viViews.insert(viViews.end(), rViews.begin(), rViews.end());
        const std::set<int> aSorted(viViews.begin(), viViews.end());
        rViews.assign(aSorted.begin(), aSorted.end());
        return true;
    }
};

bool TakeRadial(const Values& r)
{
    std::array<double, 2> adRadial = {};
    if (!r.Take(1, adRadial, 10, "a cutoff and a fall, cycles per pixel")) return false;
    if (adRadial[0] <= 0 || adRadial[1] < 0)
        return r.Reject("a cutoff above 0 and a fall of 0 or more");
    r.rCommands.aTilt.adRadial = adRadial;
    return true;
}

bool TakeHamming(const Values& r)
{
    double dFrom = 0;
    if (!r.Take(1, std::span(&dFrom, 1), 1, "a frequency, cycles per pixel")) return false;
    if (dFrom != 0)
        return Fail(r.rReason, Format("the window begins at %g; only one from 0 on is there "
                                      "(--filter hamming)",
                                      dFrom));
    r.rCommands.aTilt.bHamming = true;
    return true;
}

bool TakeAngles(const Values& r)
{
    std::vector<double> vdAngles;
    if (!r.TakeAll(vdAngles) || vdAngles.empty()) return r.Reject("angles in degrees");
    for (const double dAngle : vdAngles)
    {
        if (std::fabs(dAngle) > 360) return r.Reject("angles within +-360 degrees");
        r.rCommands.aTilt.vfAngles.push_back(float(dAngle));
    }
    return true;
}

bool TakeFull(const Values& r)
{
    std::array<double, 2> adFull = {};
    if (!r.Take(2, adFull, g_dMostPixels, "two extents in pixels")) return false;
    if (adFull[0] > 0) r.rCommands.aTilt.adFull = adFull;
    return true;
}

bool TakeSize(const Values& r)
{
    std::array<double, 2> adSize = {};
    if (!r.Take(2, adSize, g_dMostPixels, "two extents in pixels")) return false;
    for (const double dExtent : adSize)
        if (dExtent < 1 || dExtent != std::floor(dExtent))
            return r.Reject("two whole numbers of pixels above 0");
    r.rCommands.aStack.aSize = {static_cast<int>(adSize[0]), static_cast<int>(adSize[1])};
    return true;
}

/// Nothing but zeros.
bool TakeZeros(const Values& r)
{
    std::vector<double> vdNumbers;
    if (!r.TakeAll(vdNumbers)) return r.Reject("numbers");
    const bool bZeros = std::ranges::all_of(vdNumbers, [](double d) { return d == 0; });
    return bZeros || Fail(r.rReason, "only 0 can be done here, not " + Show(r.strText));
}

/// What becomes of a keyword.
struct Keyword
{
    const char* pcName;
    bool (*Take)(const Values&) = nullptr;
    const char* pcRefused = nullptr;  ///< why; with neither, the keyword is skipped
    bool bRepeats = false;
};

constexpr const char* g_pcPart = "only whole volumes are made; --trim cuts them";
constexpr const char* g_pcRays = "views of a volume are made by talven reproject";
constexpr const char* g_pcFilter = "there is no such filter";
constexpr const char* g_pcStretch = "the volume cannot be stretched";

const Keyword g_aTiltKeywords[] = {
    {"THICKNESS", [](const Values& r) { return r.TakeLength(r.rCommands.aTilt.dThickness); }},
    {"WIDTH", [](const Values& r) { return r.TakeLength(r.rCommands.aTilt.dWidth); }},
    {"IMAGEBINNED", [](const Values& r)
     { return r.TakeWhole(1, 64, r.rCommands.aTilt.iBinned, "a whole number from 1 to 64"); }},
    {"SHIFT", [](const Values& r)
     { return r.Take(1, r.rCommands.aTilt.adShift, 1e5, "one or two shifts in pixels"); }},
    {"OFFSET", [](const Values& r)
     { return r.Take(1, r.rCommands.aTilt.adOffset, 1e5, "an angle, and a shift in pixels"); }},
    {"XAXISTILT",
     [](const Values& r) {
         return r.Take(1, std::span(&r.rCommands.aTilt.dTiltX, 1), 60, "an angle up to 60 degrees");
     }},
    {"RADIAL", TakeRadial},
    {"FalloffIsTrueSigma",
     [](const Values& r)
     {
         int iTrue = 0;
         if (!r.TakeWhole(0, 1, iTrue, "0 or 1")) return false;
         r.rCommands.aTilt.bTrueSigma = iTrue == 1;
         return true;
     }},
    {"HammingLikeFilter", TakeHamming},
    {"FakeSIRTiterations", [](const Values& r)
     { return r.TakeWhole(0, 100000, r.rCommands.aTilt.iSirtLike, "a whole number"); }},
    {"EXCLUDELIST", [](const Values& r) { return r.TakeViews(r.rCommands.aTilt.viExclude); },
     nullptr, true},
    {"EXCLUDELIST2", [](const Values& r) { return r.TakeViews(r.rCommands.aTilt.viExclude); },
     nullptr, true},
    {"INCLUDE", [](const Values& r) { return r.TakeViews(r.rCommands.aTilt.viInclude); }, nullptr,
     true},
    {"FULLIMAGE", TakeFull},
    {"SUBSETSTART", [](const Values& r)
     { return r.Take(2, r.rCommands.aTilt.adStart, g_dMostPixels, "two places in pixels"); }},
    {"ANGLES", TakeAngles, nullptr, true},
    {"TILTFILE", [](const Values& r) { return r.TakeFile(r.rCommands.aTilt.strAngles); }},
    {"XTILTFILE", [](const Values& r) { return r.TakeFile(r.rCommands.aTilt.strXTilts); }},
    {"ActionIfGPUFails"},
    {"UseGPU"},
    {"AdjustOrigin"},
    {"COSINTERP"},
    {"DENSWEIGHT"},
    {"DENSITY"},
    {"FBPINTERP"},
    {"XTILTINTERP"},
    {"LOCALSCALE"},
    {"InputProjections"},
    {"INPUTFILE"},
    {"OutputFile"},
    {"MODE"},
    {"SCALE"},
    {"PERPENDICULAR"},
    {"PARALLEL"},
    {"TITLE"},
    {"DONE"},
    {"LOCALFILE", nullptr,
     "maps that differ from place to place within a view cannot be done; without this line the "
     "maps of whole views count"},
    {"ZFACTORFILE", nullptr, "shifts of views that grow with z cannot be done"},
    {"LOG", nullptr,
     "views are taken as they are; talven transform --log makes logarithms of them beforehand"},
    {"WeightFile", nullptr, "weights of views cannot be given"},
    {"WeightAngleFile", nullptr, "weights of views cannot be given"},
    {"FlatFilterFraction", nullptr, g_pcFilter},
    {"ExactFilterSize", nullptr, g_pcFilter},
    {"SIRTIterations", nullptr, "give --method sart and --iterations instead"},
    {"COMPRESS", nullptr, g_pcStretch},
    {"COMPFRACTION", nullptr, g_pcStretch},
    {"SLICE", nullptr, g_pcPart},
    {"MASK", nullptr, g_pcPart},
    {"REPROJECT", nullptr, g_pcRays},
    {"RecFileToReproject", nullptr, g_pcRays},
    {"PROJMODEL", nullptr, g_pcRays}};

const Keyword g_aStackKeywords[] = {
    {"TransformFile", [](const Values& r) { return r.TakeFile(r.rCommands.aStack.strMaps); }},
    {"BinByFactor", [](const Values& r)
     { return r.TakeWhole(1, 64, r.rCommands.aStack.iBin, "a whole number from 1 to 64"); }},
    {"SizeToOutputInXandY", TakeSize},
    {"OffsetsInXandY", TakeZeros},
    {"RotateByAngle", TakeZeros},
    {"InputFile"},
    {"OutputFile"},
    {"TaperAtFill"},
    {"AdjustOrigin"},
    {"AntialiasFilter"},
    {"FloatDensities"},
    {"FillValue"},
    {"ModeToOutput"},
    {"ImagesAreBinned"},
    {"LinearInterpolation"},
    {"NearestNeighbor"},
    {"BytesSignedInOutput"},
    {"FormatOfOutputFile"},
    {"TestLimits"},
    {"MemoryLimit"},
    {"DistortionField", nullptr, "distortions within a view cannot be taken out"},
    {"GradientFile", nullptr, "distortions within a view cannot be taken out"},
    {"SectionsToRead", nullptr, "all views are taken; --include and --exclude choose among them"},
    {"ExcludeSections", nullptr, "all views are taken; --include and --exclude choose among them"},
    {"UseTransformLines", nullptr, "each view has its own line of the maps"},
    {"ExpandByFactor", nullptr, "views cannot be made larger"},
    {"ShrinkByFactor", nullptr, "only BinByFactor makes views smaller"}};

/// Takes the lines of one file.
class CCommandLines
{
public:
    CCommandLines(const std::string& strPath, SeriesCommands& rCommands)
        : m_aPath(strPath), m_rCommands(rCommands)
    {
    }

    bool Take(std::string_view strLine, std::string& rReason)
    {
        const bool bGoesOn = strLine.ends_with('\\') || strLine.ends_with('&');
        if (bGoesOn) strLine.remove_suffix(1);
        m_strLine += std::string(strLine) + (bGoesOn ? " " : "");
        if (m_strLine.size() > 1 << 20) return Fail(rReason, "a line without an end");
        if (bGoesOn) return true;
        const std::string strWhole = std::move(m_strLine);
        m_strLine.clear();
        const std::string_view strText = Trim(strWhole);
        if (strText.empty()) return true;
        return strText.starts_with('$') ? mTakeProgram(strText.substr(1), rReason)
                                        : mTakeKeyword(strText, rReason);
    }
    /// After the last line.
    bool Finish(std::string& rError) const
    {
        if (!m_strLine.empty())
            return Fail(rError, m_aPath.string() + ": the last line goes on, but there is none");
        return m_bAny || Fail(rError, m_aPath.string() + ": neither a tilt.com nor a newst.com");
    }

private:
    enum class EKind
    {
        eUnknown,  // before any program
        eTilt,
        eStack,
        eOther
    };

    bool mTakeProgram(std::string_view strText, std::string& rReason)
    {
        const std::string_view strProgram = strText.substr(0, strText.find_first_of(" \t"));
        if (strProgram == "tilt") return mBegin(EKind::eTilt, rReason);
        if (strProgram.starts_with("newst")) return mBegin(EKind::eStack, rReason);
        m_eKind = EKind::eOther;
        return true;
    }
    bool mBegin(EKind eKind, std::string& rReason)
    {
        std::string& rPath =
            eKind == EKind::eTilt ? m_rCommands.aTilt.strPath : m_rCommands.aStack.strPath;
        if (!rPath.empty()) return Fail(rReason, rPath + " has commands of the same kind");
        rPath = m_aPath.string();
        m_eKind = eKind;
        m_bAny = true;
        return true;
    }
    /// A file without a line that begins with '$' is what its name says.
    bool mGuess(std::string& rReason)
    {
        const std::string strName = m_aPath.filename().string();
        if (strName.starts_with("tilt")) return mBegin(EKind::eTilt, rReason);
        if (strName.starts_with("newst")) return mBegin(EKind::eStack, rReason);
        return Fail(rReason, "expected a line \"$tilt\" or \"$newst...\" before the keywords");
    }
    bool mTakeKeyword(std::string_view strText, std::string& rReason)
    {
        if (m_eKind == EKind::eUnknown && !mGuess(rReason)) return false;
        if (m_eKind == EKind::eOther) return true;
        const std::string_view strKey = strText.substr(0, strText.find_first_of(" \t="));
        std::string_view strValue = Trim(strText.substr(strKey.size()));
        if (strValue.starts_with('=')) strValue = Trim(strValue.substr(1));
        const std::span<const Keyword> aKeywords =
            m_eKind == EKind::eTilt ? std::span<const Keyword>(g_aTiltKeywords) : g_aStackKeywords;
        const auto pKeyword = std::ranges::find_if(
            aKeywords, [&](const Keyword& r) { return IsSameWord(r.pcName, strKey); });
        if (pKeyword == aKeywords.end())
            return Fail(rReason, "unknown keyword \"" + Show(strKey) + "\"");
        std::string strReason = pKeyword->pcRefused ? pKeyword->pcRefused : "";
        bool bTaken = !pKeyword->pcRefused;
        if (pKeyword->Take && !pKeyword->bRepeats && !m_aSeen.insert(&*pKeyword).second)
        {
            strReason = "for the second time";
            bTaken = false;
        }
        else if (pKeyword->Take)
            bTaken = pKeyword->Take({strValue, m_aPath.parent_path(), m_rCommands, strReason});
        return bTaken || Fail(rReason, pKeyword->pcName + (": " + strReason));
    }

    std::filesystem::path m_aPath;
    SeriesCommands& m_rCommands;
    EKind m_eKind = EKind::eUnknown;
    bool m_bAny = false;
    std::string m_strLine;  // what goes on
    std::set<const Keyword*> m_aSeen;
};

}  // namespace

bool ReadCommands(std::istream& rText, const std::string& strPath, SeriesCommands& rCommands,
                  std::string& rError)
{
    CCommandLines aLines(strPath, rCommands);
    const auto Take = [&aLines](std::string_view strLine, std::string& rReason)
    { return aLines.Take(strLine, rReason); };
    return ReadLines(rText, strPath, "commands", Take, rError) && aLines.Finish(rError);
}

bool ReadCommands(const std::string& strPath, SeriesCommands& rCommands, std::string& rError)
{
    std::ifstream aFile;
    return OpenText(strPath, aFile, rError) && ReadCommands(aFile, strPath, rCommands, rError);
}

bool ReadXTilt(const std::string& strPath, double& rTiltX, std::string& rError)
{
    std::vector<float> vfAngles;
    if (!ReadAngles(strPath, vfAngles, rError)) return false;
    const auto [pLow, pHigh] = std::ranges::minmax_element(vfAngles);
    if (*pLow != *pHigh)
        return Fail(rError, Format("%s: views turned about X by %g to %g degrees; only one angle "
                                   "for all views can be done",
                                   strPath.c_str(), double(*pLow), double(*pHigh)));
    rTiltX = double(*pLow);
    return true;
}

}  // namespace talven
