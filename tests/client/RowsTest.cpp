// Parts of a volume: their rows are those of the whole, bit for bit.

#include <algorithm>

#include "Program.h"
#include "talven/RowRange.h"

namespace talven::test
{
namespace
{

constexpr int g_iX = 90, g_iY = 43;

class ClientRows : public CProgramTest
{
protected:
    /// The rows of the whole volume that a part has.
    Floats mCut(const Floats& rWhole, const RowRange& rRows)
    {
        Floats vfPart;
        constexpr std::size_t tSlice = std::size_t(g_iX) * g_iY;
        for (std::size_t t = 0; t < rWhole.size(); t += tSlice)
        {
            const auto fRows = rRows.Of(std::span(rWhole).subspan(t, tSlice), g_iX);
            vfPart.insert(vfPart.end(), fRows.begin(), fRows.end());
        }
        return vfPart;
    }
    const std::string m_strSeries = "reconstruct --tilts ph.mrc --angles ph.tlt --thickness 36 ";
};

TEST_F(ClientRows, PartsAreTheRowsOfTheWhole)
{
    WriteFile(m_aDir / "ts.xf",
              []
              {
                  std::string strMaps;
                  for (int i = 0; i < 41; ++i)
                      strMaps += Format("0.9986 0.0523 -0.0523 0.9986 %g %g\n", i * 7 % 9 - 4.25,
                                        i * 5 % 7 - 2.75);
                  return strMaps;
              }());
    const std::vector<RowRange> aParts = {{0, 5}, {5, 6}, {6, 40}, {40, 43}};
    for (const char* pcOptions :
         {"--iterations 3", "--method em --iterations 2", "--method bp",
          "--iterations 4 --smooth 0.6,2 --devices 2", "--iterations 2 --xf ts.xf --bin 1",
          "--iterations 2 --initial-volume whole.mrc", "--method bp --xf ts.xf --tilt-axis 4"})
    {
        const std::string strOptions = m_strSeries + pcOptions;
        const json aWhole = mJson(strOptions + " -o volume.mrc");
        EXPECT_EQ(aWhole["rows"], json({0, g_iY}));
        const Floats vfWhole = mRead("volume.mrc");
        double dDifference = 0, dMeasured = 0;
        for (const RowRange& rRows : aParts)
        {
            const json aPart =
                mJson(strOptions + Format(" --rows %d:%d -o part.mrc", rRows.iFirst, rRows.iEnd));
            EXPECT_EQ(mRead("part.mrc"), mCut(vfWhole, rRows)) << pcOptions << rRows.iFirst;
            const json aLast =
                aPart.contains("rfactor_sums") ? aPart["rfactor_sums"].back() : json();
            for (const json& rSums : aLast)
            {
                dDifference += rSums[0].get<double>();
                dMeasured += rSums[1].get<double>();
            }
        }
        // With a halo the sums count its rows, too.
        if (aWhole.contains("rfactors") && strOptions.find("smooth") == std::string::npos)
        {
            EXPECT_NEAR(dDifference / dMeasured, aWhole["rfactors"].back().get<double>(), 1e-5)
                << pcOptions;
        }
        if (!std::filesystem::exists(m_aDir / "whole.mrc"))
            std::filesystem::copy(m_aDir / "volume.mrc", m_aDir / "whole.mrc");
    }
}

TEST_F(ClientRows, AHaloIsNeitherTooSmallNorTooLarge)
{
    const std::string strOptions = m_strSeries + "--iterations 2 --smooth 0.6 ";
    mRun(strOptions + "-o volume.mrc");
    const Floats vfExpected = mCut(mRead("volume.mrc"), {18, 25});
    EXPECT_EQ(mJson(strOptions + "--rows 18:25 -o part.mrc")["halo"], 4);
    EXPECT_EQ(mRead("part.mrc"), vfExpected);
    mRun(strOptions + "--rows 18:25 --halo 4 -o part.mrc");
    EXPECT_EQ(mRead("part.mrc"), vfExpected);
    mRun(strOptions + "--rows 18:25 --halo 3 -o part.mrc");
    EXPECT_NE(mRead("part.mrc"), vfExpected);
}

TEST_F(ClientRows, WhatIsNoPartIsRefused)
{
    for (const auto& [pcReason, pcArgs] :
         {std::pair{"--rows: 40:44, but the views have rows 0:43", "--rows 40:44"},
          {"--rows: not with x-tilt", "--rows 0:4 --x-tilt 3"},
          {"--halo: is for some rows", "--halo 3"},
          {"talven batch plan makes it in parts: --rows 0:22 and so on", "--width 2000000"}})
        mExpectFailure(mStart(g_strReconstruct + pcArgs), pcReason);
    for (const char* pcArgs : {"--rows 4", "--rows 4:4", "--rows -1:4", "--rows 1:2x",
                               "--rows 0:4 --halo -1", "--rows 0:4 --halo some"})
        mExpectFailure(mStart(g_strReconstruct + pcArgs), "expected", 2);
}

}  // namespace
}  // namespace talven::test
