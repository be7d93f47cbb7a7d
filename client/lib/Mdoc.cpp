#include "talven/Mdoc.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "talven/Text.h"

namespace talven
{
namespace
{

/// "05-Nov-20  15:21:38", also with four digits of the year, or with the year first. Something that
/// grows with the time, if that is what the text holds.
std::optional<std::int64_t> ParseTime(const std::string& strText)
{
    char acA[5] = {}, acMonth[4] = {}, acB[5] = {};
    int aiTime[3] = {};
    if (std::sscanf(strText.c_str(), "%4[0-9]-%3[A-Za-z]-%4[0-9] %2d:%2d:%2d", acA, acMonth, acB,
                    &aiTime[0], &aiTime[1], &aiTime[2]) != 6)
        return std::nullopt;
    constexpr std::array<std::string_view, 12> astrMonths = {
        "jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};
    const auto pMonth = std::ranges::find_if(
        astrMonths, [&](std::string_view strMonth) { return IsSameWord(strMonth, acMonth); });
    if (pMonth == astrMonths.end()) return std::nullopt;
    const bool bYearFirst = std::string_view(acA).size() == 4;
    const std::int64_t lYear = std::atoi(bYearFirst ? acA : acB) % 100;
    const std::int64_t lDay = std::atoi(bYearFirst ? acB : acA);
    const std::int64_t lDays = (lYear * 12 + (pMonth - astrMonths.begin())) * 31 + lDay;
    return ((lDays * 24 + aiTime[0]) * 60 + aiTime[1]) * 60 + aiTime[2];
}

/// A key with a number, and the values that it may have.
struct Key
{
    const char* pcName;
    std::optional<double> MdocSection::*pValue;
    double dLeast, dMost;
    const char* pcExpected;
};
constexpr Key g_aKeys[] = {
    {"TiltAngle", &MdocSection::dAngle, -360, 360, "an angle in degrees"},
    {"RotationAngle", &MdocSection::dRotation, -1e6, 1e6, "an angle in degrees"},
    {"ExposureDose", &MdocSection::dExposure, 0, 1e6, "a dose of 0 or more"},
    {"PriorRecordDose", &MdocSection::dPrior, 0, 1e6, "a dose of 0 or more"},
    {"PixelSpacing", &MdocSection::dPixel, 1e-3, 1e6, "a pixel size in Angstrom"},
    {"Voltage", &MdocSection::dVoltage, 0, 1e4, "a voltage in kV"}};

/// Takes the lines one after the other.
class CMdocLines
{
public:
    explicit CMdocLines(Mdoc& rMdoc) : m_rMdoc(rMdoc) {}

    bool Take(std::string_view strLine, std::string& rReason)
    {
        const bool bHead = strLine.front() == '[';
        if (bHead && strLine.back() != ']')
            return Fail(rReason, "no ] at the end of \"" + Show(strLine) + "\"");
        if (bHead) strLine = strLine.substr(1, strLine.size() - 2);
        const std::size_t tEqual = strLine.find('=');
        if (tEqual == std::string_view::npos)
            return Fail(rReason, "expected KEY = VALUE, found \"" + Show(strLine) + "\"");
        const std::string_view strKey = Trim(strLine.substr(0, tEqual));
        const std::string_view strValue = Trim(strLine.substr(tEqual + 1));
        if (IsSameWord(strKey, "T")) return mTakeTitle(strValue, rReason);
        if (!bHead) return mTakeValue(strKey, strValue, rReason);
        m_bSkip = !IsSameWord(strKey, "ZValue") && !IsSameWord(strKey, "FrameSet");
        return m_bSkip || mTakeSection(strKey, strValue, rReason);
    }
    /// After the last line.
    void Finish()
    {
        m_rMdoc.dPixel = m_aGlobal.dPixel;
        m_rMdoc.dVoltage = m_aGlobal.dVoltage;
        for (const MdocSection& rSection : m_rMdoc.aSections)
        {
            if (!m_rMdoc.dPixel) m_rMdoc.dPixel = rSection.dPixel;
            if (!m_rMdoc.dVoltage) m_rMdoc.dVoltage = rSection.dVoltage;
            m_rMdoc.bRotation = m_rMdoc.bRotation || rSection.dRotation;
        }
        m_rMdoc.bRotation = m_rMdoc.bRotation || m_aGlobal.dRotation;
    }

private:
    bool mTakeSection(std::string_view strKey, std::string_view strValue, std::string& rReason)
    {
        constexpr double dMost = 999'999;
        double dZ = 0;
        if (!ParseFinite(strValue, dZ) || dZ != std::floor(dZ) || dZ < 0 || dZ > dMost)
            return Fail(rReason,
                        "expected a number of a section, found \"" + Show(strValue) + "\"");
        if (!m_aSeen.insert(int(dZ)).second)
            return Fail(rReason,
                        std::string(strKey) + Format(" = %d for the second time", int(dZ)));
        m_rMdoc.aSections.emplace_back().iZ = int(dZ);
        return true;
    }
    bool mTakeTitle(std::string_view strTitle, std::string& rReason)
    {
        constexpr std::string_view strMark = "tilt axis angle";
        for (std::size_t i = 0; i + strMark.size() <= strTitle.size(); ++i)
        {
            if (!IsSameWord(strTitle.substr(i, strMark.size()), strMark)) continue;
            std::string_view strRest = Trim(strTitle.substr(i + strMark.size()));
            if (strRest.starts_with('=')) strRest = Trim(strRest.substr(1));
            strRest = strRest.substr(0, strRest.find_first_of(", \t"));
            double dAxis = 0;
            if (!ParseFinite(strRest, dAxis) || std::fabs(dAxis) > 360)
                return Fail(rReason, "expected the angle of the tilt axis in degrees, found \"" +
                                         Show(strRest) + "\"");
            if (m_rMdoc.dTiltAxis && *m_rMdoc.dTiltAxis != dAxis)
                return Fail(rReason, Format("the tilt axis is at %g degrees here, but at %g before",
                                            dAxis, *m_rMdoc.dTiltAxis));
            m_rMdoc.dTiltAxis = dAxis;
        }
        return true;
    }
    bool mTakeValue(std::string_view strKey, std::string_view strValue, std::string& rReason)
    {
        if (m_bSkip) return true;
        MdocSection& rSection = m_rMdoc.aSections.empty() ? m_aGlobal : m_rMdoc.aSections.back();
        if (IsSameWord(strKey, "DateTime")) rSection.lTaken = ParseTime(std::string(strValue));
        for (const Key& rKey : g_aKeys)
        {
            if (!IsSameWord(strKey, rKey.pcName)) continue;
            std::optional<double>& rValue = rSection.*rKey.pValue;
            double dValue = 0;
            if (rValue) return Fail(rReason, std::string(rKey.pcName) + " for the second time");
            if (!ParseFinite(strValue, dValue) || dValue < rKey.dLeast || dValue > rKey.dMost)
                return Fail(rReason, std::string(rKey.pcName) + ": expected " + rKey.pcExpected +
                                         ", found \"" + Show(strValue) + "\"");
            rValue = dValue;
        }
        return true;
    }

    Mdoc& m_rMdoc;
    MdocSection m_aGlobal;
    std::set<int> m_aSeen;  // numbers of sections
    bool m_bSkip = false;   // in a section of another kind
};

/// Places in the file by the time when the views were taken.
std::vector<std::size_t> SortByTime(const std::vector<MdocSection>& rSections)
{
    std::vector<std::size_t> vtOrder;
    for (std::size_t i = 0; i < rSections.size(); ++i) vtOrder.push_back(i);
    if (std::ranges::all_of(rSections, [](const MdocSection& r) { return r.lTaken.has_value(); }))
        std::ranges::stable_sort(vtOrder, {}, [&](std::size_t i) { return *rSections[i].lTaken; });
    return vtOrder;
}

/// Doses of the sections in the order of the file; empty: not known.
std::vector<ViewDose> CalcDoses(const std::vector<MdocSection>& rSections)
{
    bool bPrior = true, bAnyPrior = false, bAnyExposure = false;
    for (const MdocSection& rSection : rSections)
    {
        if (!rSection.dExposure) return {};
        bPrior = bPrior && rSection.dPrior;
        bAnyPrior = bAnyPrior || rSection.dPrior.value_or(0) > 0;
        bAnyExposure = bAnyExposure || *rSection.dExposure > 0;
    }
    if (!bAnyExposure) return {};  // 0 stands for a dose that was not measured
    std::vector<ViewDose> aDoses(rSections.size());
    double dSum = 0;
    for (const std::size_t i : SortByTime(rSections))
    {
        aDoses[i] = {bPrior && bAnyPrior ? *rSections[i].dPrior : dSum, *rSections[i].dExposure};
        dSum += *rSections[i].dExposure;
    }
    return aDoses;
}

}  // namespace

bool ReadMdoc(std::istream& rText, const std::string& strName, Mdoc& rMdoc, std::string& rError)
{
    rMdoc = {};
    rMdoc.strName = strName;
    CMdocLines aLines(rMdoc);
    const auto Take = [&aLines](std::string_view strLine, std::string& rReason)
    { return aLines.Take(strLine, rReason); };
    if (!ReadLines(rText, strName, "sections", Take, rError, "")) return false;
    aLines.Finish();
    return !rMdoc.aSections.empty() ||
           Fail(rError, strName + ": no sections ([ZValue = ...]) in this file");
}

bool ReadMdoc(const std::string& strPath, Mdoc& rMdoc, std::string& rError)
{
    std::ifstream aFile;
    return OpenText(strPath, aFile, rError) && ReadMdoc(aFile, strPath, rMdoc, rError);
}

bool FitToStack(const Mdoc& rMdoc, int iViews, MdocViews& rViews, std::string& rError)
{
    const std::vector<MdocSection>& rSections = rMdoc.aSections;
    std::vector<int> viNumbers;
    for (const MdocSection& rSection : rSections) viNumbers.push_back(rSection.iZ);
    std::ranges::sort(viNumbers);
    const bool bCloseUp = viNumbers.size() == std::size_t(iViews);
    if (!bCloseUp && !viNumbers.empty() && viNumbers.back() >= iViews)
        return Fail(rError, Format("%s has %zu sections up to number %d, but the stack has %d, up "
                                   "to number %d",
                                   rMdoc.strName.c_str(), viNumbers.size(), viNumbers.back(),
                                   iViews, iViews - 1));
    rViews = {};
    rViews.vfAngles.resize(std::size_t(iViews));
    const std::vector<ViewDose> aDoses = CalcDoses(rSections);
    if (bCloseUp && !aDoses.empty()) rViews.aDoses.resize(std::size_t(iViews));
    std::vector<bool> vbFound(std::size_t(iViews), false);
    for (std::size_t i = 0; i < rSections.size(); ++i)
    {
        const auto tView = std::size_t(
            bCloseUp ? std::ranges::lower_bound(viNumbers, rSections[i].iZ) - viNumbers.begin()
                     : rSections[i].iZ);
        vbFound[tView] = true;
        if (rSections[i].dAngle) rViews.vfAngles[tView] = float(*rSections[i].dAngle);
        if (!rViews.aDoses.empty()) rViews.aDoses[tView] = aDoses[i];
    }
    for (int i = 0; i < iViews; ++i)
        if (!vbFound[std::size_t(i)]) rViews.viMissing.push_back(i);
    return true;
}

}  // namespace talven
