#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "tests/wire/Messages.h"
#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Words = RawClient::Words;
constexpr std::uint32_t g_uiMax = 0xffffffffu;
const std::uint32_t g_uiNaN = Bits(std::numeric_limits<float>::quiet_NaN());

/// A healthy little session: it must still be possible.
void ExpectHealthy(RawClient& rClient)
{
    const auto aSize = rClient.Ask(Msg::eVolSize, {3, 2, 2});
    ASSERT_TRUE(aSize);
    EXPECT_EQ(aSize->Field(5), 0u);
    const auto aSet = rClient.Ask(Msg::eVolSet, {1}, {1, 2, 3, 4, 5, 6});
    ASSERT_TRUE(aSet);
    EXPECT_EQ(aSet->Field(5), 0u);
    const auto aGet = rClient.Ask(Msg::eVolGet, {1});
    ASSERT_TRUE(aGet);
    EXPECT_EQ(aGet->vuiData, Words({1, 2, 3, 4, 5, 6}));
}

/// What a client may say before the request under test.
struct Setup
{
    bool bStack = false, bVolume = false;
};

struct BadRequest
{
    const char* pcWhat;
    Setup aSetup;
    std::uint32_t uiType;
    Words vuiFields;
    Words vuiData;
    const char* pcName;  ///< message named by the error line
};

const BadRequest g_aBadRequests[] = {
    {"stack without columns", {}, Msg::eProjSize, {0, 4, 4}, {}, "PROJSIZE"},
    {"stack of 2^31 pixels", {}, Msg::eProjSize, {1u << 11, 1u << 10, 1u << 10}, {}, "PROJSIZE"},
    {"product that wraps to 4", {}, Msg::eProjSize, {1u << 31, 2, 1u << 31}, {}, "PROJSIZE"},
    {"negative extent", {}, Msg::eProjSize, {g_uiMax, 1, 1}, {}, "PROJSIZE"},
    {"more angles than projections", {}, Msg::eProjSize, {4, 4, 2}, Words(5), "PROJSIZE"},
    {"projection before the stack", {}, Msg::eProjSet, {0}, Words(4), "PROJSET"},
    {"projection too far", {true}, Msg::eProjSet, {5}, Words(20), "PROJSET"},
    {"projection far too far", {true}, Msg::eProjSet, {g_uiMax}, Words(20), "PROJSET"},
    {"projection too long", {true}, Msg::eProjSet, {0}, Words(1000), "PROJSET"},
    {"measured stack of nothing", {}, Msg::eMProjSize, {4, 0, 4}, {}, "MPROJSIZE"},
    {"measured projection before", {}, Msg::eMProjSet, {0}, Words(4), "MPROJSET"},
    {"volume of 2^31 voxels", {}, Msg::eVolSize, {1290, 1291, 1290}, {}, "VOLSIZE"},
    {"volume without depth", {}, Msg::eVolSize, {8, 8, 0}, {}, "VOLSIZE"},
    {"slice before the volume", {}, Msg::eVolSet, {0}, Words(4), "VOLSET"},
    {"slice too far", {true, true}, Msg::eVolSet, {6}, Words(4), "VOLSET"},
    {"slice that wraps", {true, true}, Msg::eVolSet, {65536}, Words(4), "VOLSET"},
    {"slice of 40000", {true, true}, Msg::eVolSet, {40000}, Words(4), "VOLSET"},
    {"slice too long", {true, true}, Msg::eVolSet, {0}, Words(1000), "VOLSET"},
    {"indices missing", {true}, Msg::eSetOp, {1, 5}, Words(2), "SETOP"},
    {"four billion indices", {true}, Msg::eSetOp, {1, g_uiMax}, Words(2), "SETOP"},
    {"options too short", {true}, Msg::eReconOpt, {1, 3, 2, 0, 0}, Words(5), "RECONOPT"},
    {"options that wrap", {true}, Msg::eReconOpt, {1, 1u << 31, 2, 0, 0}, Words(2), "RECONOPT"},
    {"four billion subsets", {true}, Msg::eReconOpt, {2, 1, g_uiMax, 0, 0}, Words(2), "RECONOPT"},
    {"kernel of nothing with data", {}, Msg::eSmoothOpt, {1, 0, 3, 3}, Words(1), "SMOOTHOPT"},
    {"kernel too long", {}, Msg::eSmoothOpt, {1, 3, 3, 3}, Words(28), "SMOOTHOPT"},
    {"kernel of 2^93", {}, Msg::eSmoothOpt, {1, g_uiMax, g_uiMax, g_uiMax}, Words(4), "SMOOTHOPT"},
    {"nothing to reconstruct", {}, Msg::eReconstruct, {}, {}, "RECONSTRUCT"},
    {"no volume", {true}, Msg::eReconstruct, {}, {}, "RECONSTRUCT"},
    {"no stack", {false, true}, Msg::eReconstruct, {}, {}, "RECONSTRUCT"},
    {"nothing to reproject", {}, Msg::eReproject, {}, {}, "REPROJECT"},
    {"no volume to reproject", {true}, Msg::eReproject, {}, {}, "REPROJECT"},
    {"projection too far to get", {true}, Msg::eProjGet, {5}, {}, "PROJGET"},
    {"no projection to get", {}, Msg::eProjGet, {0}, {}, "PROJGET"},
    {"slice too far to get", {true, true}, Msg::eVolGet, {g_uiMax}, {}, "VOLGET"},
    {"no slice to get", {}, Msg::eVolGet, {0}, {}, "VOLGET"},
    {"no R-factors", {true, true}, Msg::eReconStatGet, {0}, {}, "RECONSTATGET"},
    {"R-factors of -1", {true, true}, Msg::eReconStatGet, {g_uiMax}, {}, "RECONSTATGET"},
};

TEST(Hostile, BadRequestsAreRefusedOnceAndChangeNothing)
{
    ServerProcess aServer;
    aServer.Start();
    for (const BadRequest& rBad : g_aBadRequests)
    {
        SCOPED_TRACE(rBad.pcWhat);
        RawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aClient.Send(Msg::eByteOrder, {0x1234ABCDu}));
        if (rBad.aSetup.bStack) aClient.Ask(Msg::eProjSize, {4, 3, 5});
        if (rBad.aSetup.bVolume) aClient.Ask(Msg::eVolSize, {4, 3, 6});
        const int iErrors = aServer.CountInOutput("Error: " + std::string(rBad.pcName) + ": ");
        const int iAllErrors = aServer.CountInOutput("Error: ");

        const auto aReply = aClient.Ask(rBad.uiType, rBad.vuiFields, rBad.vuiData);
        ASSERT_TRUE(aReply);
        EXPECT_EQ(aReply->Field(5), 1u);
        EXPECT_EQ(aReply->OptSize(), 0u);
        EXPECT_EQ(aServer.CountInOutput("Error: " + std::string(rBad.pcName) + ": "), iErrors + 1);
        EXPECT_EQ(aServer.CountInOutput("Error: "), iAllErrors + 1) << aServer.GetOutput();

        if (rBad.aSetup.bStack)  // still there
        {
            const auto aProj = aClient.Ask(Msg::eProjGet, {4});
            ASSERT_TRUE(aProj);
            EXPECT_EQ(aProj->vuiData, Words(12));
        }
        ExpectHealthy(aClient);
        aClient.Send(Msg::eQuit);
        EXPECT_TRUE(aClient.IsClosedByPeer());
    }
}

/// Inputs that are stored as they come and that the job must refuse.
TEST(Hostile, JobsRefuseWhatTheyCannotUse)
{
    const struct
    {
        const char* pcWhat;
        std::uint32_t uiType;
        Words vuiFields;
        Words vuiData;
    } aCases[] = {
        {"index outside the stack", Msg::eSetOp, {1, 2}, {0, 5}},
        {"empty list", Msg::eSetOp, {1, 0}, {}},
        {"no iterations", Msg::eReconOpt, {1, 0, 1}, {5}},
        {"no subsets", Msg::eReconOpt, {1, 3, 0}, {}},
        {"relaxation NaN", Msg::eReconOpt, {2, 1, 1}, {5, g_uiNaN}},
        {"angle NaN", Msg::eProjSize, {4, 3, 5}, {0, 0, g_uiNaN, 0}},
        {"angle infinite", Msg::eProjSize, {4, 3, 5}, {Bits(INFINITY), 0}},
        {"volume of other height", Msg::eVolSize, {4, 2, 6}, {}},
        {"box NaN", Msg::eWeightOpt, {1, 1, g_uiNaN, 0, 0, 0}, {}},
        {"kernel NaN", Msg::eSmoothOpt, {1, 2, 1, 1}, {Bits(1), g_uiNaN}},
        {"subsets that wrap", Msg::eReconOpt, {1, 1, 2}, {g_uiMax, 1, Bits(1), Bits(1)}},
    };
    ServerProcess aServer;
    aServer.Start();
    for (const auto& rCase : aCases)
    {
        SCOPED_TRACE(rCase.pcWhat);
        RawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aClient.Ask(Msg::eWeightOpt, {0, 0}));  // survives from client to client
        ASSERT_TRUE(aClient.Ask(Msg::eProjSize, {4, 3, 5}));
        ASSERT_TRUE(aClient.Ask(Msg::eVolSize, {4, 3, 6}));
        ASSERT_TRUE(aClient.Ask(Msg::eReconOpt, {1, 2, 1}, {5, Bits(1), Bits(1)}));
        ASSERT_TRUE(aClient.Ask(rCase.uiType, rCase.vuiFields, rCase.vuiData));
        const int iErrors = aServer.CountInOutput("Error: RECONSTRUCT: ");
        const auto aReply = aClient.Ask(Msg::eReconstruct);
        ASSERT_TRUE(aReply);
        EXPECT_EQ(aReply->Field(5), 1u);
        EXPECT_EQ(aServer.CountInOutput("Error: RECONSTRUCT: "), iErrors + 1);

        ASSERT_TRUE(aClient.Ask(Msg::eWeightOpt, {0, 0}));
        ASSERT_TRUE(aClient.Ask(Msg::eProjSize, {4, 3, 5}));
        ASSERT_TRUE(aClient.Ask(Msg::eVolSize, {4, 3, 6}));
        ASSERT_TRUE(aClient.Ask(Msg::eReconOpt, {0}));
        const auto aDone = aClient.Ask(Msg::eReconstruct);
        ASSERT_TRUE(aDone);
        EXPECT_EQ(aDone->Field(5), 0u);
        aClient.Send(Msg::eQuit);
        EXPECT_TRUE(aClient.IsClosedByPeer());
    }
}

TEST(Hostile, RandomBytesAndRandomPacketsDoNoHarm)
{
    ServerProcess aServer;
    aServer.Start();
    std::mt19937 aRandom(4711);  // NOLINT: the same bytes every time
    for (int iRound = 0; iRound < 20; ++iRound)
    {
        RawClient aClient(aServer.GetPort());
        Words vuiGarbage(64);
        for (std::uint32_t& rWord : vuiGarbage) rWord = aRandom();
        aClient.SendBytes(vuiGarbage.data(), 4 * vuiGarbage.size());
    }
    for (int iRound = 0; iRound < 20; ++iRound)
    {
        RawClient aClient(aServer.GetPort());
        for (int i = 0; i < 40; ++i)
        {
            Words vuiFields(12), vuiData(aRandom() % 64);
            for (std::uint32_t& rField : vuiFields)
                rField = aRandom() % 3 == 0 ? aRandom() : aRandom() % 9;
            for (std::uint32_t& rWord : vuiData) rWord = aRandom() % 5;
            std::uint32_t uiType = aRandom() % 29;
            if (uiType == Msg::eQuit) uiType = Msg::eServerProp;
            ASSERT_TRUE(aClient.Send(uiType, vuiFields, vuiData));
        }
    }
    RawClient aHealthy(aServer.GetPort());
    ExpectHealthy(aHealthy);
    EXPECT_TRUE(aServer.IsRunning());
}
}  // namespace
