#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <numeric>

#include "FakeServer.h"
#include "talven/Session.h"

namespace talven::test
{
namespace
{

using namespace std::chrono_literals;

constexpr int g_iX = 5, g_iY = 3, g_iZ = 4;

/// What a reconstruction sends, in order; false as soon as a step fails.
bool RunJob(CSession& rSession, std::uint16_t usPort)
{
    const std::vector<float> vfPixels(g_iX * g_iY, 2.5f);
    const ReconOptions aOptions = {EMethod::eEm, 3, {1, 1}, {1, 1, 0.5, 0.5, 0.25, 0.25}};
    const WeightBox aBox = {1, -2, 10, 20};
    const auto IgnoreImage = [](int, std::span<const float>) { return true; };
    std::vector<RfactorSums> aSums;
    return rSession.Open("127.0.0.1", usPort, 5s) &&
           rSession.SetStackSize(g_iX, g_iY, std::vector<float>{-10, 20}) &&
           rSession.SetProjection(0, vfPixels) && rSession.SetProjection(1, vfPixels) &&
           rSession.SelectProjections(std::vector<std::uint32_t>{1, 0}) &&
           rSession.SetVolumeSize(g_iX, g_iY, g_iZ) && rSession.SetSlice(3, vfPixels) &&
           rSession.SetReconOptions(aOptions) && rSession.SetWeightBox(&aBox) &&
           rSession.Reconstruct() && rSession.GetRfactors(2, aSums) &&
           rSession.GetSlices(g_iZ, g_iX * g_iY, IgnoreImage);
}

TEST(Session, SendsWhatTheProtocolAsksFor)
{
    CFakeServer aServer;
    {
        CSession aSession;
        ASSERT_TRUE(RunJob(aSession, aServer.GetPort())) << aSession.GetError();
        aSession.Close();
    }
    const std::vector<Message> aMessages = aServer.WaitForMessages();
    std::vector<EMsg> aeTypes;
    for (std::size_t i = 0; i < aMessages.size(); ++i)
    {
        aeTypes.push_back(aMessages[i].aHeader.GetType());
        EXPECT_EQ(aMessages[i].aHeader.GetSerial(), i + 1);
        EXPECT_EQ(aMessages[i].aHeader.auiFields[2], 0u) << "no parts";
    }
    ASSERT_EQ(aeTypes, (std::vector<EMsg>{EMsg::BYTEORDER, EMsg::PROJSIZE, EMsg::PROJSET,
                                          EMsg::PROJSET, EMsg::SETOP, EMsg::VOLSIZE, EMsg::VOLSET,
                                          EMsg::RECONOPT, EMsg::WEIGHTOPT, EMsg::RECONSTRUCT,
                                          EMsg::RECONSTATGET, EMsg::VOLGET, EMsg::VOLGET,
                                          EMsg::VOLGET, EMsg::VOLGET, EMsg::QUIT}));
    const auto Fields = [&](int iMessage, int iFirst, int iCount)
    {
        const auto pFirst = aMessages[std::size_t(iMessage)].aHeader.auiFields.begin() + iFirst;
        return std::vector<std::uint32_t>(pFirst, pFirst + iCount);
    };
    using Words = std::vector<std::uint32_t>;
    EXPECT_EQ(Fields(0, 4, 1), Words{0x1234ABCD});
    EXPECT_EQ(Fields(1, 4, 3), (Words{5, 3, 2}));
    EXPECT_EQ(aMessages[1].GetFloats(), (std::vector<float>{-10, 0, 20, 0}));
    EXPECT_EQ(Fields(3, 4, 1), Words{1});
    EXPECT_EQ(aMessages[3].vcData.size(), std::size_t(8 * g_iY + 4 * g_iX * g_iY));
    const Words vuiProjection = aMessages[3].GetWords();
    EXPECT_EQ(Words(vuiProjection.begin(), vuiProjection.begin() + 6), (Words{0, 5, 0, 5, 0, 5}));
    EXPECT_EQ(aMessages[3].GetFloats()[6], 2.5f);
    EXPECT_EQ(Fields(4, 4, 2), (Words{1, 2}));
    EXPECT_EQ(aMessages[4].GetWords(), (Words{1, 0}));
    EXPECT_EQ(Fields(5, 4, 3), (Words{5, 3, 4}));
    EXPECT_EQ(Fields(6, 4, 1), Words{3});
    EXPECT_EQ(Fields(7, 4, 3), (Words{2, 3, 2}));
    const Words vuiSets = aMessages[7].GetWords();
    const std::vector<float> vfRelax = aMessages[7].GetFloats();
    EXPECT_EQ(Words(vuiSets.begin(), vuiSets.begin() + 2), (Words{1, 1}));
    EXPECT_EQ(std::vector<float>(vfRelax.begin() + 2, vfRelax.end()),
              (std::vector<float>{1, 1, 0.5, 0.5, 0.25, 0.25}));
    EXPECT_EQ(Fields(8, 4, 6),
              (Words{1, 1, std::bit_cast<std::uint32_t>(1.0f), std::bit_cast<std::uint32_t>(-2.0f),
                     std::bit_cast<std::uint32_t>(10.0f), std::bit_cast<std::uint32_t>(20.0f)}));
    EXPECT_EQ(Fields(10, 4, 1), Words{2});
    EXPECT_EQ(Fields(14, 4, 1), Words{3});
}

TEST(Session, BringsBackImagesSumsAndMemory)
{
    CFakeServer aServer;
    CSession aSession;
    ASSERT_TRUE(aSession.Open("127.0.0.1", aServer.GetPort(), 5s)) << aSession.GetError();
    std::uint64_t ulMemory = 0;
    ASSERT_TRUE(aSession.GetServerMemory(ulMemory)) << aSession.GetError();
    EXPECT_EQ(ulMemory, std::uint64_t(6000) << 20);

    ASSERT_TRUE(aSession.SetStackSize(g_iX, g_iY, std::vector<float>(40, 0.0f)));
    for (int i = 0; i < 40; ++i)
        ASSERT_TRUE(aSession.SetProjection(i, std::vector<float>(g_iX * g_iY, float(i))));
    int iNext = 0;
    ASSERT_TRUE(aSession.GetProjections(40, g_iX * g_iY,
                                        [&](int i, std::span<const float> fPixels)
                                        {
                                            EXPECT_EQ(i, iNext++);
                                            EXPECT_EQ(fPixels.front(), float(i));
                                            return fPixels.back() == float(i);
                                        }))
        << aSession.GetError();
    EXPECT_EQ(iNext, 40);

    ASSERT_TRUE(aSession.SetVolumeSize(g_iX, g_iY, g_iZ));
    ASSERT_TRUE(aSession.GetSlices(g_iZ, g_iX * g_iY,
                                   [](int z, std::span<const float> fPixels)
                                   { return fPixels[7] == 1000.0f * float(z) + 7; }));
    std::vector<RfactorSums> aSums;
    ASSERT_TRUE(aSession.GetRfactors(3, aSums));
    EXPECT_EQ(aSums.size(), 40u);
    EXPECT_DOUBLE_EQ(CalcRfactor(aSums), 0.25);
    EXPECT_TRUE(std::isnan(CalcRfactor({})));
}

TEST(Session, TransformsAndComparesAsTheProtocolAsks)
{
    CFakeServer aServer;
    const IntensityScale aLinear = {0.5f, 1, 90};
    const IntensityScale aLog = {1, 0, 80, true, 2, 3, 64};
    const Affine aMatrix = {1, 2, 3, 4, 5, 6};
    {
        CSession aSession;
        CompareSums aSums;
        ASSERT_TRUE(aSession.Open("127.0.0.1", aServer.GetPort(), 5s) &&
                    aSession.SetStackSize(2, 1, std::vector<float>(4)) &&
                    aSession.SetMeasuredSize(6, 8, 2) &&
                    aSession.SetMeasured(1, std::vector<float>(48, 7)) &&
                    aSession.SetProjection(3, std::vector<float>(2)) &&
                    aSession.Transform(1, 3, aMatrix, aLinear) &&
                    aSession.Transform(1, 3, aMatrix, aLog) &&
                    aSession.Compare(1, 3, aMatrix, aLinear, aSums) &&
                    aSession.Compare(1, 3, aMatrix, aLog, aSums))
            << aSession.GetError();
        aSession.Close();
    }
    const std::vector<Message> aMessages = aServer.WaitForMessages();
    ASSERT_EQ(aMessages.size(), 10u);
    EXPECT_EQ(aMessages[2].aHeader.GetType(), EMsg::MPROJSIZE);
    EXPECT_EQ(aMessages[3].aHeader.GetType(), EMsg::MPROJSET);
    EXPECT_EQ(aMessages[3].vcData.size(), 4u * 48);
    const struct
    {
        EMsg eType;
        std::vector<float> vfFields, vfData;  // from field 6 on
    } aCases[] = {{EMsg::TRANSFORM, {1, 2, 3, 4, 5, 6, 0.5, 1, 90}, {}},
                  {EMsg::TRANSFORML, {1, 2, 3, 4, 5, 6, 1, 0, 80, 2}, {3, 64}},
                  {EMsg::COMPARE, {0, 0, 1, 2, 3, 4, 5, 6, 0.5, 1}, {90}},
                  {EMsg::COMPAREL, {0, 0, 1, 2, 3, 4, 5, 6, 1, 0}, {80, 2, 3, 64}}};
    for (std::size_t i = 0; i < 4; ++i)
    {
        SCOPED_TRACE(GetMsgName(aCases[i].eType));
        const Message& rMessage = aMessages[5 + i];
        const auto& aF = rMessage.aHeader.auiFields;
        EXPECT_EQ(rMessage.aHeader.GetType(), aCases[i].eType);
        EXPECT_EQ(aF[4], 1u);
        EXPECT_EQ(aF[5], 3u);
        std::vector<float> vfFields;
        for (std::size_t f = 0; f < aCases[i].vfFields.size(); ++f)
            vfFields.push_back(std::bit_cast<float>(aF[6 + f]));
        EXPECT_EQ(vfFields, aCases[i].vfFields);
        EXPECT_EQ(rMessage.GetFloats(), aCases[i].vfData);
    }
}

TEST(Session, BringsBackTheNineSumsAndAlignedProjections)
{
    const CFakeServer aServer;
    CSession aSession;
    ASSERT_TRUE(aSession.Open("127.0.0.1", aServer.GetPort(), 5s) &&
                aSession.SetStackSize(3, 1, std::vector<float>(1)) &&
                aSession.SetMeasuredSize(2, 1, 1) &&
                aSession.SetProjection(0, std::vector<float>{1, -3, 100}) &&
                aSession.SetMeasured(0, std::vector<float>{-3, 6}))
        << aSession.GetError();
    CompareSums aSums;
    ASSERT_TRUE(aSession.Compare(0, 0, g_aIdentity, {}, aSums)) << aSession.GetError();
    EXPECT_EQ(aSums.fCount, 2) << "column 2 is beyond the measured image";
    EXPECT_EQ(aSums.fDiff, 13);
    EXPECT_EQ(aSums.fCross, -21);
    EXPECT_EQ(aSums.fAligned, -2);
    EXPECT_EQ(aSums.fAlignedAbs, 4);
    EXPECT_EQ(aSums.fAlignedSqr, 10);
    EXPECT_EQ(aSums.fTransed, 3);
    EXPECT_EQ(aSums.fTransedAbs, 9);
    EXPECT_EQ(aSums.fTransedSqr, 45);
    EXPECT_EQ(aSums.uiMilliseconds, 7u);

    ASSERT_TRUE(aSession.Transform(0, 0, g_aIdentity, {2, 1, 12}));
    ASSERT_TRUE(aSession.GetProjections(1, 3,
                                        [](int, std::span<const float> fPixels)
                                        {
                                            EXPECT_EQ(fPixels[0], -5);
                                            EXPECT_EQ(fPixels[1], 12) << "cut";
                                            EXPECT_LT(fPixels[2], -1e15f) << "missing";
                                            return true;
                                        }));
}

TEST(Session, ARefusedTransformOrCompareLeavesTheSession)
{
    for (const EMsg eMsg : {EMsg::MPROJSIZE, EMsg::MPROJSET, EMsg::TRANSFORM, EMsg::COMPAREL})
    {
        SCOPED_TRACE(GetMsgName(eMsg));
        const CFakeServer aServer(Faults{{eMsg}});
        CSession aSession;
        const IntensityScale aLog = {1, 0, 1, true};
        CompareSums aSums;
        aSums.fCount = -1;
        EXPECT_FALSE(aSession.Open("127.0.0.1", aServer.GetPort(), 5s) &&
                     aSession.SetStackSize(1, 1, std::vector<float>(1)) &&
                     aSession.SetProjection(0, std::vector<float>(1)) &&
                     aSession.SetMeasuredSize(1, 1, 1) &&
                     aSession.SetMeasured(0, std::vector<float>(1)) &&
                     aSession.Transform(0, 0, g_aIdentity, {}) &&
                     aSession.Compare(0, 0, g_aIdentity, aLog, aSums));
        EXPECT_TRUE(aSession.WasRefused());
        EXPECT_EQ(aSession.GetError().rfind(GetMsgName(eMsg), 0), 0u) << aSession.GetError();
        EXPECT_EQ(aSums.fCount, -1) << "sums of a refused comparison";
        std::uint64_t ulMemory = 0;
        EXPECT_TRUE(aSession.GetServerMemory(ulMemory)) << aSession.GetError();
    }
}

TEST(Session, GoesOnAfterARefusal)
{
    for (const EMsg eMsg : {EMsg::PROJSIZE, EMsg::PROJSET, EMsg::SETOP, EMsg::VOLSET,
                            EMsg::RECONOPT, EMsg::RECONSTRUCT, EMsg::RECONSTATGET, EMsg::VOLGET})
    {
        SCOPED_TRACE(GetMsgName(eMsg));
        CFakeServer aServer(Faults{{eMsg}});
        CSession aSession;
        EXPECT_FALSE(RunJob(aSession, aServer.GetPort()));
        EXPECT_TRUE(aSession.WasRefused());
        EXPECT_EQ(aSession.GetError().rfind(GetMsgName(eMsg), 0), 0u) << aSession.GetError();
        std::uint64_t ulMemory = 0;
        EXPECT_TRUE(aSession.GetServerMemory(ulMemory)) << aSession.GetError();
        EXPECT_FALSE(aSession.WasRefused());
    }
}

TEST(Session, EndsWhenTheServerDoes)
{
    for (const EMsg eMsg : {EMsg::PROJSIZE, EMsg::PROJSET, EMsg::VOLSET, EMsg::RECONSTRUCT,
                            EMsg::RECONSTATGET, EMsg::VOLGET})
    {
        SCOPED_TRACE(GetMsgName(eMsg));
        CFakeServer aServer(Faults{{}, eMsg});
        CSession aSession;
        EXPECT_FALSE(RunJob(aSession, aServer.GetPort()));
        EXPECT_FALSE(aSession.WasRefused());
        EXPECT_FALSE(aSession.IsOpen());
        EXPECT_FALSE(aSession.GetError().empty());
        EXPECT_FALSE(aSession.Reconstruct()) << "closed for good";
    }
}

TEST(Session, DoesNotTakeTheReplyOfAnotherRequest)
{
    for (const Faults& rFaults :
         {Faults{{}, EMsg::LOG, EMsg::PROJSIZE}, Faults{{}, EMsg::LOG, EMsg::VOLGET},
          Faults{{}, EMsg::LOG, EMsg::LOG, EMsg::RECONOPT}})
    {
        CFakeServer aServer(rFaults);
        CSession aSession;
        EXPECT_FALSE(RunJob(aSession, aServer.GetPort()));
        EXPECT_FALSE(aSession.IsOpen());
        EXPECT_FALSE(aSession.WasRefused());
    }
}

TEST(Session, ASinkThatFailsEndsTheTransfer)
{
    CFakeServer aServer;
    CSession aSession;
    ASSERT_TRUE(aSession.Open("127.0.0.1", aServer.GetPort(), 5s));
    ASSERT_TRUE(aSession.SetVolumeSize(g_iX, g_iY, g_iZ));
    EXPECT_FALSE(
        aSession.GetSlices(g_iZ, g_iX * g_iY, [](int z, std::span<const float>) { return z < 1; }));
    EXPECT_FALSE(aSession.IsOpen());
}

TEST(Session, AnInterruptEndsTheWait)
{
    int aiPipe[2];
    ASSERT_EQ(pipe(aiPipe), 0);
    // Nobody answers on this connection: the listening socket of a server that serves another.
    CFakeServer aServer(Faults{});
    CSession aFirst, aSecond;
    ASSERT_TRUE(aFirst.Open("127.0.0.1", aServer.GetPort(), 5s));
    aSecond.SetInterruptFd(aiPipe[0]);
    ASSERT_TRUE(aSecond.Open("127.0.0.1", aServer.GetPort(), 5s));
    std::thread aUser(
        [&]
        {
            std::this_thread::sleep_for(50ms);
            EXPECT_EQ(write(aiPipe[1], "x", 1), 1);
        });
    std::uint64_t ulMemory = 0;
    EXPECT_FALSE(aSecond.GetServerMemory(ulMemory));
    EXPECT_TRUE(aSecond.WasInterrupted()) << aSecond.GetError();
    aUser.join();
    close(aiPipe[0]);
    close(aiPipe[1]);
}

TEST(Session, SaysThatNobodyListens)
{
    CSession aSession;
    EXPECT_FALSE(aSession.Open("127.0.0.1", 1, 5s));
    EXPECT_EQ(aSession.GetError(), "cannot reach a server at 127.0.0.1:1: Connection refused");
    EXPECT_FALSE(aSession.Open("no-such-host.invalid", 1, 5s));
    EXPECT_NE(aSession.GetError().find("no-such-host.invalid"), std::string::npos);
}

}  // namespace
}  // namespace talven::test
