#include <algorithm>
#include <cmath>
#include <optional>

#include "Command.h"
#include "Lists.h"
#include "Options.h"
#include "talven/ImageJob.h"
#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"
#include "talven/SectionMaps.h"
#include "talven/ViewAlignment.h"

namespace talven
{
namespace
{

ImageSize GetSize(const CMrcReader& rReader)
{
    return {rReader.GetHeader().iX, rReader.GetHeader().iY};
}

/// What `talven transform` and `talven compare` share: measured images, maps and a scale.
class CImageCommand : public CCommand
{
protected:
    /// \return the options that give matrices
    std::vector<CLI::Option*> mAddMap(CLI::App& rApp);
    void mAddIntensity(CLI::App& rApp);
    bool mOpenMeasured() { return mCheck(m_aMeasured.Open(m_strMeasured), m_aMeasured); }
    /// The maps and the scale, checked; and whether the server can take the images.
    bool mMakeMaps(const ImageSize& rAligned);
    bool mMakeScale();

    std::string m_strMeasured;
    CMrcReader m_aMeasured;
    CSectionMaps m_aMaps;
    IntensityScale m_aScale;
    CImageJob m_aJob{m_aLink, m_aReport};

private:
    bool mReadMatrices(std::vector<Affine>& rMatrices);

    std::vector<double> m_vdMatrix;  // six numbers for all sections; empty: none given
    std::string m_strMatrices;       // file, one matrix per section; empty: none given
    std::string m_strOrigin = "centre";
    double m_dGain = 1, m_dOffset = 0;
    std::optional<double> m_dMost;
    double m_dBeam = 0, m_dLeast = 1, m_dFactor = 1;
};

std::vector<CLI::Option*> CImageCommand::mAddMap(CLI::App& rApp)
{
    rApp.option_defaults()->group("Map");
    CLI::Option* pMatrix = AddParsed(
        rApp, "--matrix", "MATRIX",
        [this](const std::string& strText, std::string& rError)
        { return ParseNumbers(strText, 6, m_vdMatrix, rError); },
        "A,B,C,D,E,F for all sections: pixel (x, y) of the output is read at "
        "(Ax + By + E, Cx + Dy + F) of the measured image [1,0,0,1,0,0]");
    CLI::Option* pMatrices = AddFile(rApp, "--matrices", m_strMatrices,
                                     "One such matrix per section, six numbers a line")
                                 ->excludes(pMatrix);
    CLI::Option* pOrigin =
        rApp.add_option(
                "--origin", m_strOrigin,
                "Where x and y are 0: the centre of each image, or its first pixel (corner)")
            ->check(CLI::IsMember({"centre", "corner"}))
            ->capture_default_str();
    mAddIntensity(rApp);
    rApp.option_defaults()->group("Options");
    return {pMatrix, pMatrices, pOrigin};
}

void CImageCommand::mAddIntensity(CLI::App& rApp)
{
    rApp.option_defaults()->group("Intensity");
    const auto Add = [&](const char* pcName, double& rValue, const char* pcText)
    { return rApp.add_option(pcName, rValue, pcText); };
    Add("--gain", m_dGain, "A measured value p becomes gain * p + offset")->capture_default_str();
    Add("--offset", m_dOffset, "See --gain")->capture_default_str();
    rApp.add_option("--most", m_dMost, "Cut results above this [none]");
    CLI::Option* pLog = rApp.add_flag("--log", m_aScale.bLog,
                                      "Then factor * ln(beam / that), for counts of electrons");
    CLI::Option* pBeam = Add("--beam", m_dBeam, "Value without a specimen, for --log")->needs(pLog);
    pLog->needs(pBeam);
    Add("--least", m_dLeast, "Raise smaller values to this before the logarithm")
        ->needs(pLog)
        ->capture_default_str();
    Add("--factor", m_dFactor, "See --log")->needs(pLog)->capture_default_str();
}

bool CImageCommand::mMakeMaps(const ImageSize& rAligned)
{
    const ImageSize aMeasured = GetSize(m_aMeasured);
    std::vector<Affine> aMatrices = {g_aIdentity};
    if (!mReadMatrices(aMatrices) || !mMakeScale()) return false;
    m_aMaps = CSectionMaps(std::move(aMatrices), m_strOrigin == "centre", rAligned, aMeasured);
    return mCheckSize({aMeasured.iX, aMeasured.iY}) && mCheckSize({rAligned.iX, rAligned.iY});
}

bool CImageCommand::mReadMatrices(std::vector<Affine>& rMatrices)
{
    for (std::size_t i = 0; i < m_vdMatrix.size(); ++i)
    {
        rMatrices[0][i] = static_cast<float>(m_vdMatrix[i]);
        if (!std::isfinite(rMatrices[0][i]))
            return mFail(Format("--matrix: %g is too large", m_vdMatrix[i]));
    }
    if (m_strMatrices.empty()) return true;
    if (!ReadMatrices(m_strMatrices, rMatrices, m_strError)) return false;
    const int iSections = m_aMeasured.GetHeader().iZ;
    if (rMatrices.size() == static_cast<std::size_t>(iSections)) return true;
    return mFail(Format("%s has %zu matri%s, but the stack has %d sections", m_strMatrices.c_str(),
                        rMatrices.size(), rMatrices.size() == 1 ? "x" : "ces", iSections));
}

bool CImageCommand::mMakeScale()
{
    m_aScale.fGain = static_cast<float>(m_dGain);
    m_aScale.fOffset = static_cast<float>(m_dOffset);
    if (m_dMost) m_aScale.fMost = static_cast<float>(*m_dMost);
    if (m_aScale.bLog)
    {
        m_aScale.fBeam = static_cast<float>(m_dBeam);
        m_aScale.fLeast = static_cast<float>(m_dLeast);
        m_aScale.fFactor = static_cast<float>(m_dFactor);
    }
    for (const float fValue : m_aScale.GetValues())
        if (!std::isfinite(fValue))
            return mFail("a number of the intensity scale is too large or not a number");
    if (m_aScale.fBeam > 0 && m_aScale.fLeast > 0) return true;
    return mFail(
        Format("--log needs a --beam and a --least above 0, not %g and %g", m_dBeam, m_dLeast));
}

/// `talven transform`.
class CTransformCommand : public CImageCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mOpenFiles();
    bool mAlign();
    bool mTransformAll();
    bool mReadMeasured(int iSection, std::span<float> fPixels);

    std::string m_strOutput;
    std::string m_strXf;
    AlignRequest m_aRequest;
    ViewAlignment m_aAlignment;
    CMrcWriter m_aOutput;
    std::uint64_t m_ulMissing = 0;
};

void CTransformCommand::AddOptions(CLI::App& rApp)
{
    AddFile(rApp, "--measured", m_strMeasured, "Measured projections, MRC")->required();
    AddFile(rApp, "-o,--output", m_strOutput, "The aligned stack, MRC")->required();
    AddAlignment(rApp, m_aRequest, m_strXf);
    for (CLI::Option* pMap : mAddMap(rApp))
        for (const char* pcAlignment : {"--xf", "--tilt-axis", "--bin"})
            pMap->excludes(rApp.get_option(pcAlignment));
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

bool CTransformCommand::Run()
{
    if (!mOpenFiles() || !mConnect() || !mTransformAll()) return false;
    m_aLink.Close();
    if (!mCheck(m_aOutput.Finish(), m_aOutput)) return false;
    const MrcHeader& rHeader = m_aOutput.GetHeader();
    const double dPixels = double(rHeader.GetSectionPixels()) * rHeader.iZ;
    mReport(
        {{"command", "transform"},
         {"stack",
          {{"file", m_strOutput},
           {"size", {rHeader.iX, rHeader.iY, rHeader.iZ}},
           {"min", rHeader.fMin},
           {"max", rHeader.fMax},
           {"mean", rHeader.fMean},
           {"rms", rHeader.fRms}}},
         {"missing_pixels", m_ulMissing},
         {"seconds", {{"total", m_aTotal.GetSeconds()}}}},
        Format("%s: %.2f %% of the pixels missing, %s", m_strOutput.c_str(),
               100 * double(m_ulMissing) / dPixels, FormatSeconds(m_aTotal.GetSeconds()).c_str()));
    return true;
}

bool CTransformCommand::mOpenFiles()
{
    if (!mOpenMeasured() || !mAlign()) return false;
    const MrcHeader& rHeader = m_aMeasured.GetHeader();
    const ImageSize& rAligned = m_aAlignment.aAligned;
    if (!mCheck(m_aOutput.Create(m_strOutput, rAligned.iX, rAligned.iY, rHeader.iZ,
                                 m_aAlignment.iBin * rHeader.dPixel, false,
                                 m_aScale.bLog ? "Talven: aligned, logarithm" : "Talven: aligned"),
                m_aOutput))
        return false;
    m_aReport.PrintLine(Format("%s: %d sections of %d x %d -> %d x %d", m_strMeasured.c_str(),
                               rHeader.iZ, rHeader.iX, rHeader.iY, rAligned.iX, rAligned.iY));
    return true;
}

/// The maps of the views, or the matrices that were given.
bool CTransformCommand::mAlign()
{
    const std::vector<float> vfNoTilts(std::size_t(m_aMeasured.GetHeader().iZ));
    const bool bMatrices = m_strXf.empty() && m_aRequest.dTiltAxis == 0 && m_aRequest.iBin == 1;
    if (!m_strXf.empty() && !ReadXf(m_strXf, m_aRequest.aMaps, m_strError)) return false;
    std::string strError;
    if (!MakeViewAlignment(m_aRequest, GetSize(m_aMeasured), vfNoTilts, m_aAlignment, strError))
        return mFail("--" + strError);
    const ImageSize& rAligned = m_aAlignment.aAligned;
    if (bMatrices) return mMakeMaps(rAligned);
    m_aMaps = CSectionMaps(m_aAlignment.aMaps, false, rAligned, m_aAlignment.aBinned);
    return mMakeScale() && mCheckSize({rAligned.iX, rAligned.iY});
}

bool CTransformCommand::mTransformAll()
{
    const int iSections = m_aMeasured.GetHeader().iZ;
    const auto& [aRaw, iBin, aBinned, aAligned, aMaps] = m_aAlignment;
    std::vector<float> vfMeasured(aRaw.GetPixels()), vfBinned(aBinned.GetPixels()), vfAligned;
    if (!mCheck(m_aJob.Open(aBinned, aAligned), m_aJob)) return false;
    CPhase aPhase(m_aReport, "transform", iSections,
                  sizeof(float) * (vfBinned.size() + aAligned.GetPixels()));
    for (int i = 0; i < iSections; ++i)
    {
        if (!mGoOn() || !mReadMeasured(i, vfMeasured)) return false;
        BinImage(vfMeasured, aRaw, iBin, vfBinned);
        if (!mCheck(m_aJob.Transform(vfBinned, m_aMaps.GetMap(i), m_aScale, vfAligned), m_aJob))
            return false;
        m_ulMissing += static_cast<std::uint64_t>(
            std::count_if(vfAligned.begin(), vfAligned.end(), IsMissing));
        if (!mCheck(m_aOutput.WriteSection(vfAligned), m_aOutput)) return false;
        aPhase.Step(i + 1);
    }
    return true;
}

bool CTransformCommand::mReadMeasured(int iSection, std::span<float> fPixels)
{
    if (!mCheck(m_aMeasured.ReadSection(iSection, fPixels), m_aMeasured)) return false;
    if (KeepsMissing(m_aScale) || std::none_of(fPixels.begin(), fPixels.end(), IsMissing))
        return true;
    return mFail(
        Format("%s: section %d has missing pixels, which stay missing only with a linear "
               "scale and a --gain above 0",
               m_strMeasured.c_str(), iSection + 1));
}

/// How one section agrees.
struct SectionResult
{
    ShiftMatch aMatch;
    Affine aMatrix;  // as the user counts pixels, with the shift
    double dOffset;  // taken off both images before they were summed
};

/// `talven compare`.
class CCompareCommand : public CImageCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mOpenFiles();
    bool mCompareAll();
    bool mCompareSection(int iSection);
    void mPrintSection(std::size_t tSection) const;
    std::string mSummarise() const;
    Json mMakeJson() const;

    std::string m_strAligned, m_strWriteMatrices;
    int m_iSearch = 0;  // range of the shifts, pixels; 0: none
    CMrcReader m_aAligned;
    std::vector<float> m_vfMeasured, m_vfAligned;  // the section at hand
    std::vector<SectionResult> m_aResults;
};

void CCompareCommand::AddOptions(CLI::App& rApp)
{
    AddFile(rApp, "--measured", m_strMeasured, "Measured projections, MRC")->required();
    AddFile(rApp, "--aligned", m_strAligned, "Aligned projections, one for each, MRC")->required();
    CLI::Option* pSearch =
        rApp.add_option("--search", m_iSearch,
                        "Find the shift of every section, within so many pixels in x and y")
            ->check(CLI::Range(1, 10000));
    AddFile(rApp, "--write-matrices", m_strWriteMatrices,
            "The matrices with the shifts found, for talven transform")
        ->needs(pSearch);
    mAddMap(rApp);
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

bool CCompareCommand::Run()
{
    if (!mOpenFiles() || !mConnect() || !mCompareAll()) return false;
    m_aLink.Close();
    if (!m_strWriteMatrices.empty())
    {
        std::vector<Affine> aMatrices;
        for (const SectionResult& rResult : m_aResults) aMatrices.push_back(rResult.aMatrix);
        if (!WriteMatrices(m_strWriteMatrices, aMatrices, m_strError)) return false;
    }
    mReport(mMakeJson(), mSummarise());
    return true;
}

bool CCompareCommand::mOpenFiles()
{
    if (!mOpenMeasured() || !mCheck(m_aAligned.Open(m_strAligned), m_aAligned)) return false;
    const int iMeasured = m_aMeasured.GetHeader().iZ;
    const int iAligned = m_aAligned.GetHeader().iZ;
    if (iMeasured != iAligned)
        return mFail(Format("%s has %d section%s, but %s has %d", m_strMeasured.c_str(), iMeasured,
                            iMeasured == 1 ? "" : "s", m_strAligned.c_str(), iAligned));
    return CheckMatrixFile(m_strWriteMatrices, m_strError) && mProbe(m_strWriteMatrices) &&
           mMakeMaps(GetSize(m_aAligned));
}

bool CCompareCommand::mCompareAll()
{
    if (!mCheck(m_aJob.Open(GetSize(m_aMeasured), GetSize(m_aAligned)), m_aJob)) return false;
    m_vfMeasured.resize(m_aMeasured.GetHeader().GetSectionPixels());
    m_vfAligned.resize(m_aAligned.GetHeader().GetSectionPixels());
    for (int i = 0; i < m_aMeasured.GetHeader().iZ; ++i)
    {
        if (!mGoOn() || !mCompareSection(i)) return false;
        mPrintSection(std::size_t(i));
    }
    return true;
}

bool CCompareCommand::mCompareSection(int iSection)
{
    SectionResult aResult{};
    if (!mCheck(m_aMeasured.ReadSection(iSection, m_vfMeasured), m_aMeasured) ||
        !mCheck(m_aAligned.ReadSection(iSection, m_vfAligned), m_aAligned) ||
        !mCheck(m_aJob.Load(m_vfMeasured, m_vfAligned, m_aScale), m_aJob))
        return false;
    aResult.dOffset = m_aJob.GetOffset();
    const auto Map = [&](double dX, double dY) { return m_aMaps.GetMap(iSection, dX, dY); };
    ShiftMatch& rMatch = aResult.aMatch;
    if (!mCheck(m_aJob.Compare(Format("section %d", iSection + 1), Map, m_iSearch, rMatch), m_aJob))
        return false;
    aResult.aMatrix = m_aMaps.GetOwnMap(iSection, rMatch.dX, rMatch.dY);
    m_aResults.push_back(aResult);
    return true;
}

void CCompareCommand::mPrintSection(std::size_t tSection) const
{
    const ShiftMatch& rMatch = m_aResults[tSection].aMatch;
    std::string strLine =
        Format("section %zu: correlation %.4f, mean difference %.5g over %.0f pixels", tSection + 1,
               rMatch.dCorrelation, CalcMeanDifference(rMatch.aSums), double(rMatch.aSums.fCount));
    if (m_iSearch > 0)
        strLine += Format(", shift %.2f %.2f%s", rMatch.dX, rMatch.dY,
                          rMatch.bAtEdge ? " (at the edge of the search)" : "");
    m_aReport.PrintLine(strLine);
}

std::string CCompareCommand::mSummarise() const
{
    double dSum = 0;
    std::size_t tWorst = 0;
    for (std::size_t i = 0; i < m_aResults.size(); ++i)
    {
        const double dThis = m_aResults[i].aMatch.dCorrelation;
        dSum += dThis;
        if (!(dThis >= m_aResults[tWorst].aMatch.dCorrelation)) tWorst = i;
    }
    return Format("%s: mean correlation %.4f, lowest %.4f in section %zu, %s",
                  m_strMeasured.c_str(), dSum / double(m_aResults.size()),
                  m_aResults[tWorst].aMatch.dCorrelation, tWorst + 1,
                  FormatSeconds(m_aTotal.GetSeconds()).c_str());
}

Json CCompareCommand::mMakeJson() const
{
    Json aSections = Json::array();
    for (std::size_t i = 0; i < m_aResults.size(); ++i)
    {
        const auto& [rMatch, rMatrix, dOffset] = m_aResults[i];
        const CompareSums& rSums = rMatch.aSums;
        Json aSection = {{"section", i + 1},
                         {"correlation", rMatch.dCorrelation},  // not a number: null
                         {"mean_difference", CalcMeanDifference(rSums)},
                         {"matrix", rMatrix}};
        if (m_iSearch > 0)
        {
            aSection["shift"] = {rMatch.dX, rMatch.dY};
            aSection["at_edge"] = rMatch.bAtEdge;
        }
        aSection["offset"] = dOffset;
        aSection["sums"] = {{"count", rSums.fCount},
                            {"difference", rSums.fDiff},
                            {"cross", rSums.fCross},
                            {"aligned", rSums.fAligned},
                            {"aligned_abs", rSums.fAlignedAbs},
                            {"aligned_square", rSums.fAlignedSqr},
                            {"transformed", rSums.fTransed},
                            {"transformed_abs", rSums.fTransedAbs},
                            {"transformed_square", rSums.fTransedSqr}};
        aSections.push_back(std::move(aSection));
    }
    return {{"command", "compare"},
            {"measured", m_strMeasured},
            {"aligned", m_strAligned},
            {"sections", std::move(aSections)},
            {"seconds", {{"total", m_aTotal.GetSeconds()}}}};
}

}  // namespace

std::unique_ptr<CCommand> MakeTransform()
{
    return std::make_unique<CTransformCommand>();
}
std::unique_ptr<CCommand> MakeCompare()
{
    return std::make_unique<CCompareCommand>();
}

}  // namespace talven
