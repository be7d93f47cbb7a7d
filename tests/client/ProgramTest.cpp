// The program with the real server: what it writes, says and leaves behind, and its pictures.

#include <cairo.h>
#include <array>

#include <algorithm>
#include <cmath>

#include "Program.h"
#include "RfactorPlot.h"
#include "talven/Slices.h"

namespace talven::test
{
namespace
{

/// A picture; pixels are 0xRRGGBB.
struct Picture
{
    explicit Picture(const std::string& strPath)
    {
        cairo_surface_t* const pImage = cairo_image_surface_create_from_png(strPath.c_str());
        iX = cairo_image_surface_get_width(pImage);
        iY = cairo_image_surface_get_height(pImage);
        const auto* puiPixels =
            reinterpret_cast<const unsigned*>(cairo_image_surface_get_data(pImage));
        vuiPixels.assign(puiPixels, puiPixels + std::ptrdiff_t(iX) * iY);
        cairo_surface_destroy(pImage);
    }
    json GetSize() const { return {iX, iY}; }
    unsigned Get(int x, int y) const { return vuiPixels.at(std::size_t(y * iX + x)) & 0xFFFFFF; }
    /// Pixels of a rectangle that have little red: text and curves.
    int Count(int iAtX, int iAtY, int iWidth, int iHeight) const
    {
        int iCount = 0;
        for (int i = 0; i < iWidth * iHeight; ++i)
            iCount += Get(iAtX + i % iWidth, iAtY + i / iWidth) >> 16 < 100;
        return iCount;
    }
    int iX, iY;
    Words vuiPixels;
};

class ClientProgram : public CProgramTest
{
};

TEST_F(ClientProgram, APhantomComesBackWithAllFurtherResults)
{
    const json aJson =
        mJson(g_strReconstruct +
              "--reference ph_truth.mrc --subsets 40 --exclude 2 --iterations 5 --preview p.png "
              "--rfactor-plot r.png --rfactors r.csv");
    EXPECT_EQ(aJson["stack"]["size"], (json{90, 43, 40}));
    EXPECT_EQ(aJson["stack"]["angles"][1], -54);
    EXPECT_EQ(aJson["volume"]["size"], (json{90, 43, 36}));
    EXPECT_EQ(aJson["subset_sizes"], json(std::vector<int>(40, 1)));
    EXPECT_GT(aJson["reference"]["correlation"], 0.88) << aJson;
    EXPECT_LT(aJson["reference"]["relative_rms_error"], 0.4);
    EXPECT_GT(aJson["seconds"]["total"], aJson["seconds"]["reconstruct"]);
    const std::vector<double> vdRfactors = aJson["rfactors"];
    EXPECT_TRUE(std::is_sorted(vdRfactors.rbegin(), vdRfactors.rend())) << aJson;
    const std::string strCsv = ReadFile(m_aDir / "r.csv");
    EXPECT_TRUE(strCsv.starts_with("iteration,rfactor\n1,")) << strCsv;
    EXPECT_NEAR(std::stod(strCsv.substr(strCsv.find("\n5,") + 3)), vdRfactors.at(4), 1e-6);
    mRead("rec.mrc");
    EXPECT_NEAR(m_aReader.GetHeader().dPixel, 7, 1e-6);
    EXPECT_EQ(m_aReader.GetHeader().fRms, aJson["volume"]["rms"].get<float>());
    EXPECT_GT(Picture(m_aDir / "r.png").Count(90, 46, 680, 400), 600) << "no curve";
    const Picture aPreview(m_aDir / "p.png");
    EXPECT_EQ(aPreview.GetSize(), (json{14 * 4 + 4 * (90 + 36 + 90), 24 + 28 + 4 * 43}));
    for (const int x : {14, 28 + 4 * 90, 42 + 4 * 126})
    {
        EXPECT_GT(aPreview.Count(x, 14, 90, 24), 40) << "no title";
        EXPECT_LT(aPreview.Get(x + 4, 38 + 4), 0x202020u) << "empty space is black";
        EXPECT_EQ(aPreview.Get(x - 1, 38 + 4), 0xFFFFFFu) << "between them";
    }
    mRun(g_strReconstruct + "--reference ph_truth.mrc --iterations 2 --devices 1");
    for (const char* pcPart :
         {"41 of 41 angles from -60 to 60 degrees -> volume 90 x 43 x 36, SART, 2 iterations, 7 ",
          "the server needs 2 MiB of memory", "; R-factor 0.", "ph_truth.mrc: correlation 0."})
        EXPECT_NE(m_strOut.find(pcPart), std::string::npos) << m_strOut << pcPart;

    // Reprojected, the truth is the tilt series but for voxels that blur its beads.
    mRun("reproject --volume ph_truth.mrc --angles ph.tlt -o again.mrc --width 88 -q");
    EXPECT_EQ(m_strOut, "");
    const json aAgain = mJson("compare --measured again.mrc --aligned ph.mrc");
    for (const json& rSection : aAgain["sections"])
        EXPECT_GT(rSection["correlation"], 0.99) << rSection;
}

TEST_F(ClientProgram, EveryOptionReachesTheServer)
{
    mWrite("s.mrc", 4, 3, {Floats(12, 4), Floats(12, 20), Floats(12, 60)});
    mWrite("i.mrc", 4, 3, {Floats(12, 8)});
    WriteFile(m_aDir / "a.tlt", "0\n0\n0\n");
    const std::string strStart = "reconstruct --tilts s.mrc --angles a.tlt -o v.mrc --thickness ";
    // From 8: to 6 by a half, to 13, to 10.75 by a quarter, to 13.0625; and so on.
    for (const auto& [strArgs, dValue] : std::vector<std::pair<std::string, double>>{
             {"--include 1-2 --subset-sizes 1,1 --relaxation 0.5,0.25 --iterations 2", 13.0625},
             {"--exclude 3 --subsets 2 --relaxation 0.5:0.5 --iterations 2", 13.0625},
             {"--subset-sizes 1,2 --relaxation 0.5 --iterations 1 --order given", 23},
             {"--subsets 3 --relaxation 0.5 --iterations 1", 26.5},
             {"--exclude 1 --method em --subsets 1 --iterations 1", 40},
             {"--exclude 3 --method bp", 20}})
    {
        const json aJson = mJson(strStart + "1 --initial-volume i.mrc " + strArgs);
        EXPECT_NEAR(mRead("v.mrc").at(5), dValue, 1e-3) << strArgs;
        EXPECT_TRUE(dValue > 14 || std::fabs(aJson["rfactors"][1].get<double>() - 2 / 3.) < 1e-5);
    }
    Floats vfPoint(12);
    vfPoint[5] = 100;  // column 1, row 1
    mWrite("i.mrc", 4, 3, {vfPoint});
    EXPECT_EQ(mJson(strStart + "1 --initial-volume i.mrc --relaxation 0 --iterations 2 --smooth "
                               "0.4,2")["smoothing"],
              json({{"interval", 2}, {"kernel_size", 5}}));
    const Floats vfSmooth = mRead("v.mrc");
    const double dNext = std::exp(-0.5 / 0.16), dSum = 1 + 2 * dNext + 2 * std::pow(dNext, 4);
    for (const auto& [i, dWeight] :
         {std::pair(5, 1.0), {6, dNext}, {9, dNext}, {7, std::pow(dNext, 4)}})
        EXPECT_NEAR(vfSmooth[i], 100 * dWeight / dSum / dSum, 1e-4) << "once";
    mRun(strStart + "8 --iterations 1 --subsets 1");
    const Floats vfPlain = mRead("v.mrc");
    mRun(strStart + "8 --iterations 1 --subsets 1 --weight-box 1,0,0.7,2");
    EXPECT_NEAR(mRead("v.mrc")[2] / vfPlain[2], 2, 0.01) << "column 2 alone, half of the thickness";
    EXPECT_GT(std::fabs(mRead("v.mrc")[1] / vfPlain[1] - 2), 0.5);

    mWrite("m.mrc", 3, 3, {{1, 2, 3, 4, 5, 6, 7, 8, 9}});
    Floats vfLog;
    for (int i = 1; i <= 9; ++i) vfLog.push_back(3 * std::log(200 / std::max(8.f, 4.f * i + 1)));
    for (const auto& [strArgs, vfExpected] : std::vector<std::pair<std::string, Floats>>{
             {"--matrix 0,1,-1,0,0,0", {7, 4, 1, 8, 5, 2, 9, 6, 3}},  // a quarter turn
             {"--origin corner --matrix 1,0,0,1,1,0 --gain 2 --offset 1 --most 12",
              {5, 7, -1, 11, 12, -1, 12, 12, -1}},
             {"--log --beam 200 --least 8 --factor 3 --gain 4 --offset 1", vfLog}})
    {
        // Compared with what it becomes, an image does not differ.
        const json aDone = mJson("transform --measured m.mrc -o t.mrc " + strArgs);
        const Floats vfOut = mRead("t.mrc");
        for (std::size_t i = 0; i < 9; ++i)
            EXPECT_NEAR(IsMissing(vfOut[i]) ? -1 : vfOut[i], vfExpected[i], 1e-3) << strArgs;
        EXPECT_EQ(aDone["missing_pixels"], std::count_if(vfOut.begin(), vfOut.end(), IsMissing));
        const json aSame = mJson("compare --measured m.mrc --aligned t.mrc " + strArgs);
        EXPECT_NEAR(aSame["sections"][0]["mean_difference"], 0, 1e-4) << aSame;
        EXPECT_NEAR(aSame["sections"][0]["correlation"], 1, 1e-5) << aSame;
    }
    mWrite("m.mrc", 2, 1, {{-3, 6}});
    mWrite("t.mrc", 3, 1, {{1, -4, 3}});
    const json aSums = mJson("compare --measured m.mrc --aligned t.mrc --origin corner");
    EXPECT_EQ(aSums["sections"][0]["sums"], json::parse(R"({"count": 2.0, "difference": 14.0,
        "cross": -27.0, "aligned": -3.0, "aligned_abs": 5.0, "aligned_square": 17.0,
        "transformed": 3.0, "transformed_abs": 9.0, "transformed_square": 45.0})"));
}

TEST_F(ClientProgram, ADriftIsFoundAndTakenOut)
{
    mRun("transform --measured ph.mrc --matrix 1,0,0,1,-3,2 -o raw.mrc");
    EXPECT_NE(m_strOut.find(": 7.83 % of the pixels missing, "), std::string::npos) << m_strOut;
    const std::string strCompare = "compare --measured raw.mrc --aligned ph.mrc ";
    mRun(strCompare + "--search 2");
    EXPECT_TRUE(m_strOut.starts_with("section 1: correlation 0.")) << m_strOut;
    EXPECT_NE(m_strOut.find(" (at the edge of the search)\n"), std::string::npos) << m_strOut;
    const json aFound = mJson(strCompare + "--search 6 --write-matrices m.txt")["sections"];
    const json aMapped = mJson(strCompare + "--matrices m.txt")["sections"];
    ASSERT_EQ(aMapped.size(), 41u);
    for (std::size_t i = 0; i < 41; ++i)
    {
        EXPECT_NEAR(aFound[i]["shift"][0], 3, 0.2) << i;
        EXPECT_NEAR(aFound[i]["shift"][1], -2, 0.2) << i;
        EXPECT_TRUE(aFound[i]["correlation"] > 0.98 && !aFound[i]["at_edge"]) << i;
        EXPECT_GT(aMapped[i]["correlation"], 0.98) << i;
    }
}

TEST_F(ClientProgram, AlignsOnTheWayAsBeforehand)
{
    std::string strMaps;
    for (int i = 0; i < 41; ++i) strMaps += "0.98 -0.1 0.1 1.02 " + std::to_string(i % 5) + " -2\n";
    WriteFile(m_aDir / "m.xf", strMaps);
    const std::string strAlign = "--xf m.xf --tilt-axis -4 --bin 2 --size 46,20 ";
    const std::string strRest = "--angles ph.tlt --thickness 18 --iterations 5 -o rec.mrc --tilts ";
    mRun("transform --measured ph.mrc -o ts.mrc " + strAlign);
    mRun("reconstruct " + strRest + "ts.mrc");
    const Floats vfBefore = mRead("rec.mrc");
    mRun("reconstruct " + strRest + "ph.mrc --checkpoint 2 " + strAlign);
    EXPECT_EQ(mRead("rec.mrc"), vfBefore) << "in pieces, too";
    EXPECT_NEAR(m_aReader.GetHeader().dPixel, 14, 1e-6);
    EXPECT_EQ(mJson("reconstruct " + strRest + "ts.mrc --stop-when 1")["iterations"], 2);
}

TEST_F(ClientProgram, OptionsComeFromAFile)
{
    mRun(g_strReconstruct +
         "--subsets 6 --relaxation 0.5:0.9 --exclude 3,7-9 --trim 30,20,10 --flip-z "
         "--iterations 2 --save-config run.toml");
    const Floats vfWhole = mRead("rec.mrc");
    mRun("reconstruct --config run.toml -o again.mrc");
    EXPECT_EQ(mRead("again.mrc"), vfWhole);
    EXPECT_EQ(mJson("reconstruct --config run.toml --iterations 3")["iterations"], 3);
}

TEST_F(ClientProgram, WhatCannotWorkIsRefusedInOneLine)
{
    WriteFile(m_aDir / "bad.toml", "[reconstruct]\nthicknes=3\n");
    WriteFile(m_aDir / "one.txt", "1 0 0 1 0 0\n");
    WriteFile(m_aDir / "bad.xf", "1 0 0 1 0 0\n1 0 0 1 0\n");
    WriteFile(m_aDir / "flat.xf", "1 2 2 4 0 0\n");
    mWrite("hole.mrc", 90, 43, {Floats(90 * 43, -1e30f)});
    const std::string &strR = g_strReconstruct, &strT = g_strTransform, &strC = g_strCompare;
    // Exit code and reason; the command with its usual inputs, and what is wrong.
    const std::tuple<int, const char*, std::string_view, const char*> aRefused[] = {
        {2, "", "", ""},
        {2, "--relaxation: expected R, R1,R2", strR, "--relaxation fast"},
        {2, "--config: cannot take \"reconstruct.thicknes\"", strR, "--config bad.toml"},
        {2, "--config: cannot take \"", strR, "--config ph.mrc"},
        {2, "no.toml", strR, "--config no.toml"},
        {75, "cannot reach a server at 127.0.0.1:1", strR, "--server 127.0.0.1:1"},
        {1, "--include: view 42, but the stack has 41", strR, "--include 42"},
        {1, "--exclude: no view is left", strR, "--exclude 1-41"},
        {1, "--subsets: 42 subsets of 41", strR, "--subsets 42"},
        {1, "--subset-sizes: they add up to 4, but 41", strR, "--subset-sizes 2,2"},
        {1, "--relaxation: 2 relaxation factors for 10", strR, "--relaxation 1,0.5"},
        {1, "--smooth: 10 iterations are no whole number", strR, "--smooth 1,4"},
        {1, "--smooth: back projection has no", strR, "--smooth 1 --method bp"},
        {1, "--weight-box: the half sizes", strR, "--weight-box 0,0,1,0"},
        {1, "2^31", strR, "--width 2000000000"},
        {1, "is 90 x 43 x 41, the volume is 90 x 43 x 36", strR, "--reference ph.mrc"},
        {1, "No such file", strR, "--preview /no/such/p.png"},
        {1, "41 angles", "reconstruct --angles ph.tlt --thickness 3 -o x", " --tilts hole.mrc"},
        {1, "bad.xf, line 2: expected the six numbers", strR, "--xf bad.xf"},
        {1, "flat.xf, line 1: this map would squeeze", strR, "--xf flat.xf"},
        {1, "--xf: 1 maps, but the stack has 41", strR, "--xf one.txt"},
        {1, "--bin: nothing is left of 90 x 43", strR, "--bin 64"},
        {2, "--filter: is for --method wbp", strR, "--filter hann"},
        {2, "--cutoff: expected a frequency", strR, "--method wbp --cutoff 0.6"},
        {1, "--weight-box: a filtered", strR, "--method wbp --weight-box 0,0,1,1"},
        {1, "--trim: 200 voxels of 90 along X", strR, "--trim 200,1,1"},
        {2, "--trim: expected X,Y,Z", strR, "--trim 9,9"},
        {1, "--scale: only modes 0 and 1", strR, "--scale 0,1"},
        {2, "--scale: expected the lower", strR, "--mode 1 --scale 1,0"},
        {1, "--halves: one view", strR, "--halves even-odd --include 3"},
        {2, "--halves: expected even-odd or two", strR, "--halves odd"},
        {1, "hole.mrc is 90 x 43 x 1, but ph.mrc is", strR, "--halves hole.mrc,ph.mrc"},
        {1, "--halves: give --subsets", strR, "--halves even-odd --subset-sizes 20,21"},
        {1, "--unconstrained: only SART", strR, "--unconstrained --method wbp"},
        {1, "--weight-box: not with", strR, "--unconstrained --weight-box 0,0,1,1"},
        {1, "starts from nothing", strR, "--method wbp --initial-volume x"},
        {1, "--stop-when: only SART", strR, "--method em --stop-when 0.1"},
        {1, "--checkpoint: 5 iterations are", strR, "--smooth 1,2 --checkpoint 5"},
        {2, "--xf", strT, "--xf one.txt --matrix 1,0,0,1,0,0"},
        {1, "1 matrix, but the stack has 41", strT, "--matrices one.txt"},
        {1, "--matrix: 1e+60 is too large", strT, "--matrix 1,0,0,1,0,1e60"},
        {2, "--beam", strT, "--log"},
        {1, "above 0, not 1 and 0", strT, "--log --beam 1 --least 0"},
        {1, "too large or not a number", strT, "--gain nan"},
        {1, "section 1 has missing", "transform -o rec.mrc --gain -1", " --measured hole.mrc"},
        {1, "has 1 section, but", "compare --aligned ph.mrc", " --measured hole.mrc"},
        {1, "a.xf: an .xf file", strC, "--search 2 --write-matrices a.xf"},
        {1, "section 1: no shift leaves", strC, "--search 1 --matrix 1,0,0,1,1000,0"},
        {1, "slice 42, but there are 41 along z", g_strView, "--slices 42"},
        {1, "the lower one first", g_strView, "--contrast 9,5"},
        {1, "60 slices do not fit", g_strView, "--axis x --width 100 --slices 1-60"},
        {1, "--size: expected X,Y", "phantom q", " --size 20"},
        {1, "--angles: expected FROM,TO,STEP", "phantom q", " --angles 2,1,1"}};
    for (const auto& [iExit, pcReason, strCommand, pcWrong] : aRefused)
    {
        SCOPED_TRACE(pcWrong);
        mExpectFailure(mStart(std::string(strCommand) + pcWrong), pcReason, iExit);
    }
    mExpectFailure(mStart(strR, "ulimit -f 400"), "File too large");
    mExpectFailure(mStart(strR, "TALVEN_SERVER=/no/such"), "/no/such: cannot run: No such");
    WriteFile(m_aDir / "one.txt", "#!/bin/sh\necho 'Error: GPU devices are not found.'\n");
    mExpectFailure(mStart(strR, "chmod +x one.txt; TALVEN_SERVER=one.txt"),
                   "talven-server did not start: GPU devices are not found.");
}

TEST_F(ClientProgram, ViewDrawsChosenSlices)
{
    std::vector<Floats> avfSections(4, Floats(60 * 40, -1e30f));
    for (int z = 0; z < 3; ++z)
        for (int i = 0; i < 60 * 40; ++i)  // bright in the upper right corner, more so with z
            avfSections[z][i] = float((i % 60 >= 30) * (i / 60 >= 20) * (z + 1));
    mWrite("v.mrc", 60, 40, avfSections);
    const auto View = [&](const std::string& strArgs, const json& rSlices, int iBlack, int iWhite)
    {
        const json aJson = mJson("view v.mrc -o v.png " + strArgs);
        Picture aPicture(m_aDir / "v.png");
        EXPECT_EQ(aJson["slices"], rSlices);
        EXPECT_TRUE(aJson["black"] == iBlack && aJson["white"] == iWhite) << aJson;
        EXPECT_EQ(aJson["picture"]["size"], aPicture.GetSize());
        return aPicture;
    };
    // All are four times as large; those along z one below the other.
    const Picture aZ = View("--contrast 0,100 --slices 1,3-4 --width 300", {1, 3, 4}, 0, 3);
    EXPECT_EQ(aZ.Count(14, 38, 240, 160), 240 * 160) << "a third of white at most";
    for (const auto& [x, y, uiGrey] :
         {std::tuple{120, 0, 85u}, {239, 79, 85u}, {119, 0, 0u}, {120, 80, 0u}})
        EXPECT_EQ(aZ.Get(14 + x, 38 + y), uiGrey * 0x010101) << x << " " << y;

    const Picture aX = View("--contrast 0,100 --axis x --slices 31", {31}, 0, 3);
    EXPECT_EQ(aX.GetSize(), (json{14 + 60 + 14, 14 + 24 + 160 + 14}));
    for (int z = 0; z < 4; ++z)  // to the right, y upwards
    {
        EXPECT_EQ(aX.Get(14 + 4 * z + 2, 40), (z == 3 ? 0 : 85 * (z + 1u)) * 0x010101) << z;
        EXPECT_EQ(aX.Get(14 + 4 * z + 2, 38 + 120), 0u) << z;
    }
    const Picture aY = View("--contrast 60,80 --axis y", {21}, 1, 2);
    EXPECT_TRUE(aY.Get(14 + 236, 38 + 6) == 0xFFFFFF && aY.Get(14 + 236, 38 + 14) == 0);
    EXPECT_GT(aY.Count(14, 14, 60, 24), 20) << "its title";
}

TEST_F(ClientProgram, PlotsShowTheirNumbers)
{
    std::string strError;
    ASSERT_TRUE(WriteRfactorPlot(m_aDir / "r.png", std::vector{1.0, 0.5, 0.25}, "title", strError));
    const Picture aPlot(m_aDir / "r.png");
    // Dots where the axes put them: 0 to 1 between rows 458 and 46, 1 to 3 over columns 80 to 776.
    for (const auto& [x, y] : {std::pair{100, 46}, {428, 252}, {756, 355}})
    {
        EXPECT_GT(aPlot.Count(x - 3, y - 3, 7, 7), 30) << x;
        EXPECT_EQ(aPlot.Count(x - 3, y + 8, 7, 60), 0) << "below the curve";
    }
    EXPECT_GT(aPlot.Count(101, 47, 650, 309), 1200) << "the lines between them";
    // 1.0, the title, iteration, R-factor
    for (const auto& [x, y, iWidth, iHeight] :
         {std::array{40, 36, 34, 20}, {350, 10, 160, 26}, {380, 490, 100, 24}, {5, 200, 26, 100}})
        EXPECT_GT(aPlot.Count(x, y, iWidth, iHeight), 20) << x;
    EXPECT_EQ(aPlot.Count(90, 458, 680, 1), 680) << "the frame";
}

TEST_F(ClientProgram, DocumentsShowTheHelp)
{
    const std::string strDocument = ReadFile(TALVEN_CLI_DOCUMENT);
    for (const std::string strCommand : {"reconstruct", "reproject", "transform", "compare", "view",
                                         "info", "phantom", "check-geometry", "serve", "align",
                                         "batch plan", "batch run", "batch status", "batch join"})
        EXPECT_NE(strDocument.find("```text\n" + mRun(strCommand + " --help") + "```\n"),
                  std::string::npos)
            << "scripts/update-cli-docs puts the help of " << strCommand << " into docs/cli.md";
    EXPECT_TRUE(mRun("--version").starts_with("talven ")) << m_strOut;
}

}  // namespace
}  // namespace talven::test
