// Raw series aligned without markers, by the program.

#include <algorithm>

#include "Program.h"
#include "talven/AlignGauge.h"
#include "talven/Phantom.h"

namespace talven::test
{
namespace
{

constexpr int g_iX = 90, g_iY = 43, g_iViews = 41, g_iBlank = 12;

class ClientAligning : public CProgramTest
{
protected:
    /// raw.mrc: the phantom's views, moved; one of them is blank.
    ClientAligning()
    {
        mMove("ph.mrc");
        m_vRaw = Split(mRead("moved.mrc"), g_iX * g_iY);
        m_vRaw[g_iBlank].assign(g_iX * g_iY, 3.0f);
        mWrite("raw.mrc", g_iX, g_iY, m_vRaw);
    }
    /// moved.mrc: each view by its own way.
    void mMove(const std::string& strStack)
    {
        std::string strMoves;
        for (int i = 0; i < g_iViews; ++i)
            strMoves += Format("1 0 0 1 %g %g\n", MovedX(i), MovedY(i));
        WriteFile(m_aDir / "m.txt", strMoves);
        mRun("transform --measured " + strStack + " --matrices m.txt -o moved.mrc");
    }
    static double MovedX(int i) { return i * 7 % 9 - 4.25; }
    static double MovedY(int i) { return i * 5 % 7 - 2.75; }
    /// Expects the views that were used where they were, but for the specimen's place.
    static void ExpectShifts(const json& rFound, double dFirst, double dStep, double dMostX,
                             double dMostY)
    {
        std::vector<double> vdX, vdY;
        std::vector<float> vfAngles;
        std::vector<int> viUsed;
        const std::vector<int> viOut = rFound["excluded"];
        for (int i = 0; i < g_iViews; ++i)
        {
            const json& rShift = rFound["shifts"][std::size_t(i)];
            vdX.push_back(rShift[0].get<double>() - MovedX(i));
            vdY.push_back(rShift[1].get<double>() - MovedY(i));
            vfAngles.push_back(float(dFirst + dStep * i));
            if (std::ranges::find(viOut, i + 1) == viOut.end()) viUsed.push_back(i);
        }
        RemoveGauge(vfAngles, viUsed, vdX, vdY);
        for (const int i : viUsed)
        {
            EXPECT_NEAR(vdX[std::size_t(i)], 0, dMostX) << i;
            EXPECT_NEAR(vdY[std::size_t(i)], 0, dMostY) << i;
        }
    }
    static std::vector<Floats> Split(const Floats& rAll, std::size_t tPixels)
    {
        std::vector<Floats> vParts;
        for (auto p = rAll.begin(); p != rAll.end(); p += std::ptrdiff_t(tPixels))
            vParts.emplace_back(p, p + std::ptrdiff_t(tPixels));
        return vParts;
    }

    std::vector<Floats> m_vRaw;
    const std::string m_strSeries = "--tilts raw.mrc --angles ph.tlt --thickness 36 ";
};

TEST_F(ClientAligning, FindsShiftsAndTheAxisAndNamesABlankView)
{
    const std::string strAlign = "align " + m_strSeries;
    const json aFound = mJson(strAlign + "--axis 2 --limit 12 -o ts.xf --report ts.html");
    EXPECT_NEAR(aFound["axis"].get<double>(), 0, 0.4) << aFound["axis_uncertainty"];
    EXPECT_EQ(aFound["excluded"], json({g_iBlank + 1}));
    EXPECT_EQ(aFound["bins"], json({1}));
    ExpectShifts(aFound, -60, 3, 0.5, 0.25);
    EXPECT_NE(ReadFile(m_aDir / "ts.html").find("--exclude 13"), std::string::npos);

    // By any number of devices, and on the way to a volume as beforehand.
    const std::string strFixed = strAlign + "--axis 0 --fixed-axis --limit 80 ";
    mRun(strFixed + "-o ts.xf --stack ts.mrc --devices 1");
    mRun("transform --measured raw.mrc --xf ts.xf -o same.mrc");
    EXPECT_EQ(mRead("ts.mrc"), mRead("same.mrc"));
    const std::string strVolume = "reconstruct " + m_strSeries + "--iterations 3 ";
    mRun(strVolume + "--xf ts.xf --exclude 13 -o one.mrc");
    const json aTwo = mJson(strVolume + "--align --fixed-axis --devices 2 -o two.mrc");
    EXPECT_EQ(aTwo["align"]["excluded"], json({g_iBlank + 1}));
    EXPECT_EQ(mRead("one.mrc"), mRead("two.mrc"));
}

TEST_F(ClientAligning, FindsHowAnIsolatedSpecimenMovedAtAnyAngle)
{
    mRun("phantom dust --size 64,48 --thickness 64 --angles -90,90,4.5 --beads 0 --seed 3");
    mMove("dust.mrc");
    const json aFound = mJson(
        "align --tilts moved.mrc --angles dust.tlt --thickness 64 --isolated --axis 0 "
        "--fixed-axis --limit 12 -o dust.xf");
    EXPECT_EQ(aFound["excluded"], json::array());
    ExpectShifts(aFound, -90, 4.5, 0.06, 0.03);
}

TEST_F(ClientAligning, SaysWhatCannotBeAligned)
{
    CNoise aNoise(9);
    std::vector<Floats> vNoise = m_vRaw;
    for (Floats& rView : vNoise)
        for (float& rfPixel : rView) rfPixel = float(aNoise.GetGaussian());
    mWrite("noise.mrc", g_iX, g_iY, vNoise);
    WriteFile(m_aDir / "steep.tlt", "81\n" + std::string(80, '\n') + "0\n");
    const std::string strRest = "--thickness 36 -o rec.mrc ";
    for (const auto& [pcReason, pcArgs] :
         {std::pair{"do not agree", "--tilts noise.mrc --angles ph.tlt --axis 0 --fixed-axis"},
          {"--bins: views of 90 x 43 in blocks of 4 make 22 x 10",
           "--tilts raw.mrc --angles ph.tlt --axis 0 --bins 4"},
          {"2 angles, but raw.mrc has 41", "--tilts raw.mrc --angles steep.tlt --axis 0"},
          {"--angles is required", "--tilts raw.mrc --axis 0"},
          {"--axis is required", "--tilts raw.mrc --angles ph.tlt"},
          {"--exclude: view 42", "--tilts raw.mrc --angles ph.tlt --axis 0 --exclude 42"},
          {"got 1x", "--tilts raw.mrc --angles ph.tlt --axis 1x"},
          {"no/ts.mrc", "--tilts raw.mrc --angles ph.tlt --axis 0 --stack no/ts.mrc"}})
        mExpectFailure(mStart("align " + strRest + pcArgs), pcReason);
    mExpectFailure(mStart("reconstruct --align --centre 40 " + m_strSeries + "-o rec.mrc"),
                   "--align: ");
}

}  // namespace
}  // namespace talven::test
