#include <gtest/gtest.h>

#include <cmath>

#include "FakeServer.h"
#include "Images.h"
#include "RunProgram.h"
#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"

namespace talven::test
{
namespace
{

using Args = std::vector<std::string>;
constexpr int g_iX = 60, g_iY = 50;

/// A stack of two sections and one that is displaced against it, and the program at work on them.
class ImageCommands : public testing::Test
{
protected:
    void SetUp() override
    {
        mWrite("aligned.mrc", {MakeBlobs(g_iX, g_iY, 0, 0), MakeBlobs(g_iX, g_iY, 1, 1)});
        mWrite("raw.mrc", {MakeBlobs(g_iX, g_iY, 3, -2), MakeBlobs(g_iX, g_iY, -3.5, 5)});
        WriteFile(m_aDir / "out.mrc", "precious");
    }
    void mWrite(const std::string& strName, const std::vector<Image>& rImages) const
    {
        CMrcWriter aWriter;
        ASSERT_TRUE(aWriter.Create(m_aDir / strName, rImages[0].iX, rImages[0].iY,
                                   int(rImages.size()), 2, false, ""));
        for (const Image& rImage : rImages) ASSERT_TRUE(aWriter.WriteSection(rImage.vfPixels));
        ASSERT_TRUE(aWriter.Finish());
    }
    Outcome mRunAt(const CFakeServer& rServer, Args vstrArgs) const
    {
        vstrArgs.insert(vstrArgs.end(),
                        {"--server", "127.0.0.1:" + std::to_string(rServer.GetPort())});
        return RunProgram(m_aDir, vstrArgs);
    }
    Args mTransform(const Args& rMore) const
    {
        Args vstrArgs = {"transform", "--measured", m_aDir / "raw.mrc", "-o", m_aDir / "out.mrc"};
        vstrArgs.insert(vstrArgs.end(), rMore.begin(), rMore.end());
        return vstrArgs;
    }
    Args mCompare(const Args& rMore) const
    {
        Args vstrArgs = {"compare", "--measured", m_aDir / "raw.mrc", "--aligned",
                         m_aDir / "aligned.mrc"};
        vstrArgs.insert(vstrArgs.end(), rMore.begin(), rMore.end());
        return vstrArgs;
    }
    std::vector<float> mReadOutput(int iSection) const
    {
        CMrcReader aReader;
        EXPECT_TRUE(aReader.Open(m_aDir / "out.mrc")) << aReader.GetError();
        std::vector<float> vfSection(aReader.GetHeader().GetSectionPixels());
        EXPECT_TRUE(aReader.ReadSection(iSection, vfSection)) << aReader.GetError();
        return vfSection;
    }

    CTempDir m_aDir;
};

TEST_F(ImageCommands, AShiftIsFoundAndTakenOut)
{
    const CFakeServer aCompares;
    const Outcome aFound =
        mRunAt(aCompares, mCompare({"--search", "8", "--write-matrices", m_aDir / "m.txt"}));
    ASSERT_EQ(aFound.iExit, 0) << aFound.strErr;
    EXPECT_NE(aFound.strOut.find("section 2: correlation 0.99"), std::string::npos)
        << aFound.strOut;
    std::vector<Affine> aMatrices;
    std::string strError;
    ASSERT_TRUE(ReadMatrices(m_aDir / "m.txt", aMatrices, strError)) << strError;
    ASSERT_EQ(aMatrices.size(), 2u);
    EXPECT_NEAR(aMatrices[0][4], 3, 0.1);
    EXPECT_NEAR(aMatrices[0][5], -2, 0.1);
    EXPECT_NEAR(aMatrices[1][4], -4.5, 0.1);
    EXPECT_NEAR(aMatrices[1][5], 4, 0.1);

    const CFakeServer aTransforms;
    const Outcome aDone =
        mRunAt(aTransforms, mTransform({"--matrices", m_aDir / "m.txt", "--json"}));
    ASSERT_EQ(aDone.iExit, 0) << aDone.strErr;
    const std::vector<float> vfOut = mReadOutput(1);
    const Image aTruth = MakeBlobs(g_iX, g_iY, 1, 1);
    int iMissing = 0;
    for (std::size_t i = 0; i < vfOut.size(); ++i)
    {
        iMissing += vfOut[i] < -1e15f;
        if (vfOut[i] > -1e15f)
        {
            EXPECT_NEAR(vfOut[i], aTruth.vfPixels[i], 0.8) << i;
        }
    }
    EXPECT_NEAR(iMissing, 60 * 50 - 55 * 46, 60 + 50) << "rows and columns that were moved out";
    CMrcReader aReader;
    ASSERT_TRUE(aReader.Open(m_aDir / "out.mrc"));
    EXPECT_GT(aReader.GetHeader().fMin, 99) << "missing pixels are no values";
    EXPECT_NEAR(aReader.GetHeader().fMean, 101, 3);
    EXPECT_NEAR(aReader.GetHeader().dPixel, 2, 1e-6);
}

TEST_F(ImageCommands, AnOutputOfAnotherSizeKeepsItsCentre)
{
    const CFakeServer aServer;
    const Outcome aOutcome = mRunAt(
        aServer, mTransform({"--size", "20,10", "--gain", "2", "--offset", "-7", "--most", "205"}));
    ASSERT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
    const std::vector<float> vfOut = mReadOutput(0);
    ASSERT_EQ(vfOut.size(), 200u);
    const Image aRaw = MakeBlobs(g_iX, g_iY, 3, -2);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 20; ++x)
            EXPECT_NEAR(vfOut[std::size_t(y * 20 + x)],
                        std::min(2 * aRaw.At(x + 20, y + 20) - 7, 205.0), 1e-3);
}

TEST_F(ImageCommands, CountsBecomeTheLogarithmOfTheBeamOverThem)
{
    const CFakeServer aServer;
    const Outcome aOutcome =
        mRunAt(aServer, mTransform({"--log", "--beam", "500", "--least", "101", "--factor", "3"}));
    ASSERT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
    const std::vector<float> vfOut = mReadOutput(0);
    const Image aRaw = MakeBlobs(g_iX, g_iY, 3, -2);
    for (std::size_t i = 0; i < vfOut.size(); ++i)
        EXPECT_NEAR(vfOut[i], 3 * std::log(500 / std::max(101.0, double(aRaw.vfPixels[i]))), 1e-4);
}

TEST_F(ImageCommands, ComparesWhatTheScaleMakesOfTheImages)
{
    // A logarithm of the measured image, and the same in the aligned one: nothing is left.
    Image aLog = MakeBlobs(g_iX, g_iY, 3, -2);
    for (float& rPixel : aLog.vfPixels) rPixel = 40 * std::log(800 / rPixel);
    mWrite("raw.mrc", {MakeBlobs(g_iX, g_iY, 3, -2)});
    aLog.vfPixels[5] = -1e30f;
    mWrite("aligned.mrc", {aLog});
    const CFakeServer aServer;
    const Outcome aOutcome =
        mRunAt(aServer, mCompare({"--log", "--beam", "800", "--factor", "40", "--json"}));
    ASSERT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
    EXPECT_NE(aOutcome.strOut.find("\"correlation\": 0.99"), std::string::npos) << aOutcome.strOut;
    EXPECT_NE(aOutcome.strOut.find("\"count\": 3000.0"), std::string::npos);
    const std::size_t tAt = aOutcome.strOut.find("\"mean_difference\": ");
    ASSERT_NE(tAt, std::string::npos);
    EXPECT_LT(std::atof(&aOutcome.strOut[tAt + 19]), 0.01) << aOutcome.strOut;
}

TEST_F(ImageCommands, ViewDrawsSlicesAlongEveryAxis)
{
    for (const Args& rMore : {Args{},
                              {"--axis", "x", "--slices", "1,60"},
                              {"--axis", "y"},
                              {"--slices", "1-2", "--contrast", "0,100", "--width", "100"}})
    {
        Args vstrArgs = {"view", m_aDir / "raw.mrc", "-o", m_aDir / "v.png", "--json"};
        vstrArgs.insert(vstrArgs.end(), rMore.begin(), rMore.end());
        const Outcome aOutcome = RunProgram(m_aDir, vstrArgs);
        ASSERT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
        EXPECT_NE(aOutcome.strOut.find("\"white\": 1"), std::string::npos) << aOutcome.strOut;
        EXPECT_EQ(ReadFile(m_aDir / "v.png").substr(1, 3), "PNG");
        std::filesystem::remove(m_aDir / "v.png");
    }
}

TEST_F(ImageCommands, RefuseWhatCannotWork)
{
    WriteFile(m_aDir / "one.txt", "1 0 0 1 0 0\n");
    Image aHole = MakeBlobs(g_iX, g_iY, 0, 0);
    aHole.vfPixels[7] = -1e30f;
    mWrite("hole.mrc", {aHole});
    const std::string strHole = m_aDir / "hole.mrc", strOut = m_aDir / "out.mrc";
    const struct
    {
        Args vstrArgs;
        std::string strReason;
        int iExit;
    } aCases[] = {
        {mTransform({"--matrices", m_aDir / "one.txt"}), "1 matrix, but the stack has 2", 1},
        {mTransform({"--matrices", m_aDir / "TS.Xf"}), "TS.Xf: an .xf file tells where measured",
         1},
        {mTransform({"--matrix", "1,0,0,1,0,1e60"}), "too large", 1},
        {mTransform({"--size", "20"}), "expected X,Y", 1},
        {mTransform({"--log", "--beam", "-1"}), "above 0", 1},
        {mTransform({"--log"}), "--beam", 2},
        {mTransform({"--matrix", "1,0,0,1"}), "6 numbers", 2},
        {mTransform({"--gain", "nan"}), "too large or not a number", 1},
        {{"transform", "--measured", strHole, "-o", strOut, "--gain", "-1"}, "missing pixels", 1},
        {{"compare", "--measured", strHole, "--aligned", m_aDir / "raw.mrc"}, "1 section, but", 1},
        {mCompare({"--search", "0"}), "--search", 2},
        {mCompare({"--write-matrices", strOut}), "--search", 2},
        {mCompare({"--search", "2", "--matrix", "1,0,0,1,1000,0"}), "no shift leaves a quarter", 1},
        {{"view", strHole, "-o", strOut, "--slices", "2"}, "slice 2, but there are 1", 1},
        {{"view", strHole, "-o", strOut, "--contrast", "9,5"}, "the lower one first", 1},
        {{"view", strHole, "-o", m_aDir / "no/v.png"}, "No such file", 1},
    };
    for (const auto& [vstrArgs, strReason, iExit] : aCases)
    {
        SCOPED_TRACE(strReason);
        const CFakeServer aServer;
        ExpectFailure(
            vstrArgs[0] == "view" ? RunProgram(m_aDir, vstrArgs) : mRunAt(aServer, vstrArgs),
            strReason, iExit);
        EXPECT_EQ(ReadFile(strOut), "precious");
    }
    for (const EMsg eMsg : {EMsg::MPROJSET, EMsg::TRANSFORM, EMsg::PROJGET})
    {
        SCOPED_TRACE(GetMsgName(eMsg));
        const CFakeServer aRefuses(Faults{{eMsg}});
        ExpectFailure(mRunAt(aRefuses, mTransform({})), "refused by the server");
        const CFakeServer aLeaves(Faults{{}, eMsg});
        ExpectFailure(mRunAt(aLeaves, mTransform({})), "connection lost");
    }
    const CFakeServer aRefuses(Faults{{EMsg::COMPARE}});
    ExpectFailure(mRunAt(aRefuses, mCompare({"--search", "3"})), "COMPARE was refused");
    EXPECT_EQ(ReadFile(strOut), "precious");
    EXPECT_EQ(m_aDir.CountFiles(), 7u) << "something was left behind";
}

}  // namespace
}  // namespace talven::test
