// Views that are bad, and the page that names them.

#include <algorithm>
#include <cmath>
#include <numbers>
#include <regex>

#include "AlignReport.h"
#include "Program.h"
#include "RunReport.h"
#include "talven/ViewQuality.h"

namespace talven::test
{
namespace
{

class ClientReport : public CProgramTest
{
};

TEST(ClientQuality, ImagesAreMeasuredOnTheirWay)
{
    const std::vector<Floats> avfImages = {{1, 2, -1e30f, 6}, {-1e30f, -1e30f}, {1e6f, 1e6f + 1}};
    std::vector<ImageStatistics> aPixels;
    std::string strError;
    const ImageSource Views = Measure(
        [&](int i, std::span<float> fPixels, std::string& rError)
        {
            if (i == 3) return Fail(rError, "no more");
            std::ranges::copy(avfImages[std::size_t(i)], fPixels.begin());
            return true;
        },
        aPixels);
    for (const int i : {2, 0, 1})
    {
        Floats vfPixels(avfImages[std::size_t(i)].size());
        ASSERT_TRUE(Views(i, vfPixels, strError));
        EXPECT_EQ(vfPixels, avfImages[std::size_t(i)]);
    }
    EXPECT_FALSE(Views(3, {}, strError));
    EXPECT_EQ(strError, "no more");
    ASSERT_EQ(aPixels.size(), 3u);
    EXPECT_TRUE(aPixels[0].tValues == 3 && aPixels[0].tMissing == 1 && aPixels[0].dMean == 3);
    EXPECT_NEAR(aPixels[0].GetSd(), std::sqrt(14 / 3.0), 1e-12);
    EXPECT_TRUE(aPixels[0].fMin == 1 && aPixels[0].fMax == 6);
    EXPECT_TRUE(aPixels[1].tValues == 0 && aPixels[1].tMissing == 2 && aPixels[1].GetSd() == 0);
    EXPECT_EQ(aPixels[2].GetSd(), 0.5);
}

TEST(ClientQuality, TheCourseOfThicknessIsNoFault)
{
    const std::vector<double (*)(double)> aMeans = {
        [](double dThickness) { return 50 + 100 * dThickness; },              // dark field
        [](double dThickness) { return 900 * std::exp(-0.7 * dThickness); },  // transmission
        [](double) { return 700.0; }};
    for (const auto GetMean : aMeans)
    {
        Floats vfAngles;
        std::vector<double> vdResiduals;
        std::vector<ImageStatistics> aPixels;
        for (int i = 0; i < 41; ++i)
        {
            vfAngles.push_back(float(3 * i - 60));
            const double dThickness = 1 / std::cos((3 * i - 60) * std::numbers::pi / 180);
            const double dNoise = 1 + 0.01 * (i * 7 % 5 - 2);
            vdResiduals.push_back(0.1 * dThickness * dNoise);
            aPixels.push_back({99, 1, 0, 0, GetMean(dThickness) * dNoise, 99.0 * 60 * 60});
        }
        const auto Judge = [&](std::size_t tViews)
        {
            std::string strFound;
            const std::vector<ViewQuality> aViews =
                JudgeViews(std::span(aPixels).first(tViews), std::span(vdResiduals).first(tViews),
                           std::span(vfAngles).first(tViews));
            for (std::size_t i = 0; i < tViews; ++i)
                if (aViews[i].IsSuspect())
                    strFound += Format("%zu %s; ", i, DescribeSuspicion(aViews[i]).c_str());
            return strFound;
        };
        EXPECT_EQ(Judge(41), "");
        aPixels[3].dMean *= 0.5;
        aPixels[10].dSquares = 0;
        aPixels[20] = {0, 100};
        vdResiduals[20] = std::nan("");
        aPixels[30].dMean *= 2;
        vdResiduals[35] = HUGE_VAL;
        vdResiduals[40] *= 1.5;
        EXPECT_EQ(Judge(41), "3 dark; 10 blank; 20 blank; 30 bright; 40 residual; ");
        EXPECT_EQ(Judge(5), "") << "too few to tell";
    }
    // Means of nothing but rounding errors, of views that were normalised.
    const std::vector<double> vdTiny = {1e-7, -1e-7, 2e-7, 0, 0, 1e-7, 0, 1e-3};
    std::vector<ImageStatistics> aNormal;
    for (const double dMean : vdTiny) aNormal.push_back({99, 0, -3, 3, dMean, 99});
    const std::vector<ViewQuality> aJudged = JudgeViews(aNormal, {}, Floats(8, 1));
    EXPECT_TRUE(std::ranges::none_of(aJudged, &ViewQuality::IsSuspect));
    EXPECT_TRUE(std::isnan(aJudged[7].dResidual));
}

/// Text of a page as a browser shows it.
std::string Unescape(std::string strHtml)
{
    for (const auto& [pcFrom, pcTo] :
         {std::pair{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}})
        strHtml = std::regex_replace(strHtml, std::regex(pcFrom), pcTo);
    return strHtml;
}

/// Takes the pictures out of a page; returns how many there were.
int TakeOutPictures(std::string& rHtml)
{
    const std::string strStart = "src=\"data:image/png;base64,", strPng = "iVBORw0KGgo";
    int iPictures = 0;
    for (std::size_t t = 0; (t = rHtml.find(strStart, t)) != std::string::npos; ++iPictures)
    {
        t += strStart.size();
        EXPECT_EQ(rHtml.compare(t, strPng.size(), strPng), 0);
        rHtml.erase(t, rHtml.find('"', t) - t);
    }
    return iPictures;
}

/// The first tag that is not closed as it was opened; empty: all are.
std::string FindOpenTag(const std::string& strHtml)
{
    std::vector<std::string> vstrOpen;
    static const std::regex aTag("<(/?)([a-z0-9]+)[^>]*>");
    for (std::sregex_iterator pTag(strHtml.begin(), strHtml.end(), aTag), pEnd; pTag != pEnd;
         ++pTag)
    {
        const std::string strName = (*pTag)[2];
        if (strName == "meta" || strName == "img") continue;
        if ((*pTag)[1] == "")
            vstrOpen.push_back(strName);
        else if (vstrOpen.empty() || vstrOpen.back() != strName)
            return "/" + strName;
        else
            vstrOpen.pop_back();
    }
    return vstrOpen.empty() ? "" : vstrOpen.back();
}

TEST(ClientAlignReport, ThePageNamesWarningsAndViewsLeftOut)
{
    AlignReport aReport;
    aReport.strTitle = "a<b>.st";
    aReport.aRequest.viBins = {4, 2};
    aReport.iViews = 11;  // of which two did not take part
    aReport.aTables = {{"Files", {{"--tilts", "a<b>.st"}}}};
    aReport.strCommand = "talven align 'a<b>.st'";
    SeriesAlignment aAlignment;
    aAlignment.aPlaces.dTiltAxis = 3.5;
    for (int i = 0; i < 9; ++i)
    {
        aReport.viNumbers.push_back(i + 3);
        aReport.vfAngles.push_back(float(10 * i - 40));
        aAlignment.aPlaces.aViews.push_back({3.0, i == 2 ? 500.0 : -4.0});
        aAlignment.aViews.push_back({i == 2, {.dCorrelation = i == 2 ? -0.125 : 0.9}});
    }
    aAlignment.aViews[7] = {true, {}};
    aAlignment.aRounds = {{4, 2.5, 0.8}, {4, 0.5, 0.8, true}, {2, 0, 0.9}};
    aAlignment.dCorrelation = 0.9;
    aAlignment.astrWarnings = {"much < enough"};
    std::string strPage, strError;
    ASSERT_TRUE(MakeAlignPage(aReport, aAlignment, strPage, strError)) << strError;
    EXPECT_EQ(TakeOutPictures(strPage), 3) << "no axis was searched";
    EXPECT_NE(strPage.find("cannot tell"), std::string::npos);
    for (const double dAngle : {2, 3, 4, 5, 6})
        aAlignment.aAxis.Add(dAngle, -7 - 0.1 * (dAngle - 3.5) * (dAngle - 3.5));
    aAlignment.aAxis.Fit(2);
    ASSERT_TRUE(MakeAlignPage(aReport, aAlignment, strPage, strError)) << strError;
    EXPECT_EQ(TakeOutPictures(strPage), 4);
    EXPECT_EQ(FindOpenTag(strPage), "");
    for (const char* pcPart :
         {"<li>much &lt; enough</li>", ">--exclude 1,2,5,10<",
          "<th scope=\"row\" class=\"n\">5</th><td class=\"n\">-20°</td><td>does not look like",
          "<td class=\"n\">30°</td><td>nothing in it", "9 views, 2 left out; tilt axis at 3.500° ±",
          "lay 5.0 pixels (RMS), at most 5.0", ">4, then 2<", ">2, and 1 to try tilt axes<",
          ">--tilts</th>", ">talven align &#39;a&lt;b&gt;.st&#39;<"})
        EXPECT_NE(strPage.find(pcPart), std::string::npos) << pcPart;
    for (const char* pcPart : {"a<b", "<script", "://", "url(", "[["})
        EXPECT_EQ(strPage.find(pcPart), std::string::npos) << pcPart;
}

TEST_F(ClientReport, ThePageNamesBadViewsAndHoldsAllItShows)
{
    const std::string strName = "a<b>&'c\".mrc", strQuoted = "'a<b>&'\\''c\".mrc'";
    constexpr std::size_t tPixels = 90 * 43;
    const Floats vfAll = mRead("ph.mrc");
    std::vector<Floats> avfViews;
    for (std::size_t i = 0; i < 41; ++i)
        avfViews.emplace_back(vfAll.begin() + std::ptrdiff_t(i * tPixels),
                              vfAll.begin() + std::ptrdiff_t((i + 1) * tPixels));
    std::ranges::fill(avfViews[8], 0.5f);
    for (float& rfPixel : avfViews[21]) rfPixel *= 0.4f;
    mWrite(strName, 90, 43, avfViews);
    std::string strAngles;
    for (int i = 0; i < 41; ++i) strAngles += Format("%d\n", 3 * i - 60 + (i == 30 ? 20 : 0));
    WriteFile(m_aDir / "bad.tlt", strAngles);
    const std::string strBad =
        "reconstruct --angles bad.tlt --thickness 36 -o rec.mrc --report r.html --tilts " +
        strQuoted;
    // What is blank or dark hides a wrong angle; without those it shows.
    const auto Find = [&](const std::string& strOptions)
    {
        std::string strFound;
        const json aJson = mJson(strBad + strOptions);
        for (const json& rView : aJson["suspect_views"])
            strFound += rView["view"].dump() + " " + rView["angle"].dump() + " " +
                        rView["why"].get<std::string>() + "; ";
        return strFound;
    };
    EXPECT_EQ(Find(" --exclude 9,22"), "31 50.0 residual; ");
    EXPECT_EQ(Find(" --include 5-35 --method wbp --halves even-odd"),
              "9 -36.0 blank; 22 3.0 dark; ");
    std::string strPage = ReadFile(m_aDir / "r.html");
    for (const char* pcPart : {">--include 5-8,10-21,23-35<", "A back projection has none"})
        EXPECT_NE(strPage.find(pcPart), std::string::npos) << pcPart;
    EXPECT_EQ(Find(" --exclude 2-3 --iterations 5"),
              "9 -36.0 blank, residual; 22 3.0 dark, residual; ");
    strPage = ReadFile(m_aDir / "r.html");
    EXPECT_EQ(TakeOutPictures(strPage), 5);
    EXPECT_EQ(FindOpenTag(strPage), "");
    for (const char* pcPart :
         {">--exclude 2,3,9,22<", "a&lt;b&gt;&amp;&#39;c&quot;.mrc", "39 of 41; left out: 2,3",
          "Backend host", " UTC<", "<th scope=\"row\">--tilts</th>", ">blank, residual<"})
        EXPECT_NE(strPage.find(pcPart), std::string::npos) << pcPart;
    for (const char* pcPart : {"a<b", "<script", "://", "url(", "<link", "@import", "[["})
        EXPECT_EQ(strPage.find(pcPart), std::string::npos) << pcPart;
    // The command does the same again.
    const Floats vfVolume = mRead("rec.mrc");
    WriteFile(m_aDir / "rec.mrc", "precious");
    const std::string strCommand = "<pre><code>" TALVEN_PROGRAM " ";
    const std::size_t tStart = strPage.find(strCommand) + strCommand.size();
    mRun(Unescape(strPage.substr(tStart, strPage.find("</code>", tStart) - tStart)));
    EXPECT_EQ(mRead("rec.mrc"), vfVolume);

    const json aGood = mJson(g_strReconstruct);
    EXPECT_EQ(aGood["suspect_views"], json::array()) << aGood;
    EXPECT_EQ(aGood["view_residuals"].size(), 41u);
    WriteFile(m_aDir / "rec.mrc", "precious");
    mExpectFailure(mStart(g_strReconstruct + "--report /no/such/r.html"), "No such file");
}

}  // namespace
}  // namespace talven::test
