// The balls of the check of the geometry: a chain that mirrors, turns or shifts does not pass.

#include <cmath>

#include "Balls.h"
#include "Support.h"
#include "talven/MrcWriter.h"

namespace talven::test
{
namespace
{

const Place g_aSize = {96, 80, 48};
const auto g_aBalls = PlaceBalls({40, 34, 18});

std::vector<Place> GetPlaces(const VolumeForm& rForm = {})
{
    std::vector<Place> aPlaces;
    for (const Ball& rBall : g_aBalls)
        aPlaces.push_back(GetPlaceInFile(rBall.aPlace, rForm, {96, 80, 1, 96, 48}));
    return aPlaces;
}

std::string Compare(const std::vector<Place>& rFound)
{
    double dWorst = 0;
    std::string strError;
    const bool bRight = ComparePlaces(GetPlaces(), rFound, g_aSize, 0.1, dWorst, strError);
    EXPECT_EQ(bRight, strError.empty());
    return strError;
}

TEST(ClientGeometry, SaysHowAChainIsWrong)
{
    const std::vector<Place> aRight = GetPlaces();
    EXPECT_EQ(Compare(aRight), "");
    const char* const apcMirrored[] = {"",
                                       "columns",
                                       "rows",
                                       "columns and rows",
                                       "sections",
                                       "columns and sections",
                                       "rows and sections",
                                       "columns and rows and sections"};
    for (unsigned i = 1; i < 8; ++i)
    {
        std::vector<Place> aMirrored = aRight;
        for (Place& rPlace : aMirrored)
            for (std::size_t k = 0; k < 3; ++k)
                if ((i >> k & 1) != 0) rPlace[k] = g_aSize[k] - 1 - rPlace[k];
        EXPECT_EQ(Compare(aMirrored),
                  std::string("the balls lie as if ") + apcMirrored[i] + " ran the other way");
    }
    std::vector<Place> aShifted = aRight, aOne = aRight, aNone = aRight;
    for (Place& rPlace : aShifted) rPlace[0] += 0.5;
    EXPECT_EQ(Compare(aShifted),
              "all balls lie +0.50 columns, +0.00 rows, +0.00 sections away from where they must "
              "be");
    aOne[2][1] -= 0.2;
    EXPECT_EQ(Compare(aOne).rfind("ball 3 lies at column, row and section ", 0), 0u);
    EXPECT_NE(Compare(aOne).find(": 0.20 voxels away"), std::string::npos);
    aNone[1][2] = NAN;
    EXPECT_NE(Compare(aNone), "");
}

TEST(ClientGeometry, MeasuresTheFrameOfAFile)
{
    // One voxel at x 3, y 4, z 5 of 96 x 80 x 48, by hand; 61 of 96 and 33 of 48 begin at 17 and 7.
    VolumeForm aForm;
    const Place aVoxel = {3 - 47.5, 4 - 39.5, 5 - 23.5};
    EXPECT_EQ(GetPlaceInFile(aVoxel, aForm, {96, 80, 1, 96, 48}), (Place{3, 4, 5}));
    aForm.bXzy = aForm.bFlipZ = true;
    aForm.aiSize = {61, 0, 33};
    EXPECT_EQ(GetPlaceInFile(aVoxel, aForm, {96, 80, 1, 96, 48}), (Place{-14, 34, 4}));
    const FileFrame aFrame = FileFrame::Measure(g_aBalls, GetPlaces(aForm));
    EXPECT_EQ(aFrame.GetDirection(0) + aFrame.GetDirection(1) + aFrame.GetDirection(2), "+X-Z+Y");
    EXPECT_FALSE(aFrame.IsMirrored());
    EXPECT_NEAR(aFrame.aOrigin[0], 30.5, 1e-9);
    EXPECT_NEAR(aFrame.aOrigin[1], 15.5, 1e-9);
    EXPECT_NEAR(aFrame.aOrigin[2], 39.5, 1e-9);
    aForm.bXzy = false;
    EXPECT_TRUE(FileFrame::Measure(g_aBalls, GetPlaces(aForm)).IsMirrored());
}

TEST(ClientGeometry, FindsBallsBrightestFirst)
{
    const CTempDir aDir;
    CMrcWriter aWriter;
    ASSERT_TRUE(aWriter.Create(aDir / "v.mrc", 96, 80, 48, 0, true, ""));
    std::vector<Place> aExpected = GetPlaces(), aFound;
    for (int z = 0; z < 48; ++z)
    {
        Floats vfSlice(std::size_t(96 * 80), -3);
        for (std::size_t i = 0; i < vfSlice.size(); ++i)
            for (std::size_t n = 0; n < 4; ++n)
                vfSlice[i] += float((4 - double(n)) *
                                    std::exp(-(std::pow(double(i % 96) - aExpected[n][0], 2) +
                                               std::pow(double(i / 96) - aExpected[n][1], 2) +
                                               std::pow(double(z) - aExpected[n][2], 2)) /
                                             6));
        ASSERT_TRUE(aWriter.WriteSection(vfSlice));
    }
    ASSERT_TRUE(aWriter.Finish());
    CMrcReader aReader;
    std::string strError;
    ASSERT_TRUE(aReader.Open(aDir / "v.mrc") && FindBalls(aReader, 4, aFound, strError));
    double dWorst = 0;
    EXPECT_TRUE(ComparePlaces(aExpected, aFound, g_aSize, 0.05, dWorst, strError)) << strError;
}

}  // namespace
}  // namespace talven::test
