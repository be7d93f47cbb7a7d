// Sessions with the real server, and with one that breaks the protocol.

#include <chrono>
#include <cmath>

#include "CannedServer.h"
#include "Support.h"
#include "talven/ImageJob.h"
#include "talven/Reconstruction.h"

namespace talven::test
{
namespace
{

using namespace std::chrono_literals;
using Words = std::vector<std::uint32_t>;

/// A private server, and the session with it. Images are of 4 x 3 pixels.
class ClientSession : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TALVEN_SERVER", TALVEN_SERVER_PROGRAM, 1);
        ServerOptions aOptions;
        aOptions.iDevices = 2;
        ASSERT_TRUE(m_aLink.Connect(aOptions, m_aMonitor)) << m_aLink.GetError();
    }
    /// Views straight from above with these values, their order and the volume's values at first;
    /// the volume's value afterwards. A correction moves it by relaxation times its distance.
    float mReconstruct(const Floats& rViews, const Words& rOrder, float fFirst,
                       const ReconOptions& rOptions)
    {
        EXPECT_TRUE(m_rSession.SetStackSize(4, 3, Floats(rViews.size()))) << mWhy();
        for (std::size_t i = 0; i < rViews.size(); ++i)
            EXPECT_TRUE(m_rSession.SetProjection(int(i), Floats(12, rViews[i]))) << mWhy();
        EXPECT_TRUE(m_rSession.SelectProjections(rOrder) && m_rSession.SetVolumeSize(4, 3, 1) &&
                    m_rSession.SetSlice(0, Floats(12, fFirst)) &&
                    m_rSession.SetReconOptions(rOptions) && m_rSession.Reconstruct())
            << mWhy();
        return mGetSlices(1).at(5);
    }
    Floats mGetSlices(int iCount)
    {
        Floats vfAll;
        const auto Take = [&vfAll](int i, std::span<const float> fPixels)
        {
            EXPECT_EQ(vfAll.size(), std::size_t(i) * fPixels.size()) << "in order";
            vfAll.insert(vfAll.end(), fPixels.begin(), fPixels.end());
            return true;
        };
        EXPECT_TRUE(m_rSession.GetSlices(iCount, 12, Take)) << mWhy();
        return vfAll;
    }
    std::string mWhy() const { return m_aLink.Explain(); }

    CMonitor m_aMonitor;
    CServerLink m_aLink;
    CSession& m_rSession = m_aLink.GetSession();
};

TEST_F(ClientSession, IterationsSubsetsAndFactorsArriveAsTheyAre)
{
    ReconOptions aOptions = {EMethod::eSart, 2, {1, 1}, {0.5, 0.25, 0.125, 1}};
    // From 8: to 20 by a half, to 4 by a quarter, to 20 by an eighth, to 4.
    EXPECT_NEAR(mReconstruct({4, 20, 99}, {1, 0}, 8, aOptions), 4, 1e-4);
    std::vector<RfactorSums> aSums;
    ASSERT_TRUE(m_rSession.GetRfactors(0, aSums)) << mWhy();
    ASSERT_EQ(aSums.size(), 2u);
    EXPECT_NEAR(aSums[0].fDifference / aSums[0].fRaw, (20 - 11.5) / 20, 1e-5) << "8, 14, 11.5";
    EXPECT_NEAR(aSums[1].fDifference / aSums[1].fRaw, (11.5 - 4) / 4, 1e-5);
    EXPECT_NEAR(aSums[0].fRaw, 5 * aSums[1].fRaw, 0.1);
    ASSERT_TRUE(m_rSession.GetRfactors(1, aSums));
    EXPECT_NEAR(CalcRfactor(aSums), 16.0 / 24, 1e-5);
    aOptions = {EMethod::eSart, 1, {1, 2}, {0.5, 1}};
    EXPECT_NEAR(mReconstruct({4, 20, 60}, {1, 0, 2}, 8, aOptions), 14 + 18, 1e-4) << "of two";
    EXPECT_NEAR(mReconstruct({4, 20}, {0, 1}, 0, {EMethod::eBackProj, 1, {}, {}}), 12, 1e-4);
    const ReconOptions aTwo = {EMethod::eSart, 2, {2}, {1, 1}};
    ReconOptions aEm = aTwo;
    aEm.eMethod = EMethod::eEm;
    EXPECT_GT(
        std::fabs(mReconstruct({4, 36}, {0, 1}, 8, aTwo) - mReconstruct({4, 36}, {0, 1}, 8, aEm)),
        1e-6f);
}

TEST_F(ClientSession, BoxesAndSmoothingReachTheirAxes)
{
    const auto Run = [&](const WeightBox* pBox)
    {
        EXPECT_TRUE(
            m_rSession.SetStackSize(4, 3, Floats(1)) &&
            m_rSession.SetProjection(0, Floats(12, 8)) && m_rSession.SetVolumeSize(1, 1, 1) &&
            m_rSession.SetVolumeSize(4, 3, 8) && m_rSession.SetWeightBox(pBox) &&
            m_rSession.SetReconOptions({EMethod::eSart, 1, {1}, {1}}) && m_rSession.Reconstruct())
            << mWhy();
        return mGetSlices(8);
    };
    const Floats vfPlain = Run(nullptr);
    const WeightBox aBox = {1, 0, 0.7f, 2};  // column 2 alone, half of the thickness
    const Floats vfBox = Run(&aBox);
    EXPECT_NEAR(vfBox[2] / vfPlain[2], 2, 0.01);
    EXPECT_GT(std::fabs(vfBox[1] / vfPlain[1] - 2), 0.5);
    EXPECT_EQ(Run(nullptr), vfPlain) << "sent anew";

    Floats vfPoint(12);
    vfPoint[5] = 100;  // column 1, row 1
    EXPECT_TRUE(m_rSession.SetProjection(0, vfPoint) && m_rSession.SetVolumeSize(4, 3, 1) &&
                m_rSession.SetSlice(0, vfPoint) &&
                m_rSession.SetReconOptions({EMethod::eSart, 2, {1}, {0, 0}}) &&
                m_rSession.SetSmoothing(2, {3, 1, 1}, Floats{0.25, 0.5, 0.25}) &&
                m_rSession.Reconstruct())
        << mWhy();
    EXPECT_EQ(mGetSlices(1), (Floats{0, 0, 0, 0, 25, 50, 25, 0, 0, 0, 0, 0})) << "once, along X";
}

TEST_F(ClientSession, ImagesAreMappedAndCompared)
{
    CImageJob aJob(m_aLink, m_aMonitor);
    ASSERT_TRUE(aJob.Open({2, 1}, {3, 1})) << aJob.GetError();
    Floats vfAligned;
    ASSERT_TRUE(aJob.Transform(Floats{-3, 6}, g_aIdentity, {2, 1, 12}, vfAligned));
    EXPECT_TRUE(vfAligned[0] == -5 && vfAligned[1] == 12 && IsMissing(vfAligned[2]));
    ASSERT_TRUE(aJob.Transform(Floats{50, 5}, Affine{-1, 0, 0, 1, 1, 0},
                               {2, 0, 9, true, 20, 3, 200}, vfAligned));
    EXPECT_NEAR(vfAligned[0], 3 * std::log(200 / 20.0), 1e-5) << "the least";
    EXPECT_NEAR(vfAligned[1], 3 * std::log(200 / 100.0), 1e-5);

    // The nine sums. a: 1, -3, and 100 beyond the measured image; t: -3, 6.
    CompareSums aSums;
    ASSERT_TRUE(m_rSession.SetProjection(0, Floats{1, -3, 100}) &&
                m_rSession.SetMeasured(0, Floats{-3, 6}) &&
                m_rSession.Compare(0, 0, g_aIdentity, {}, aSums));
    EXPECT_TRUE(aSums.fCount == 2 && aSums.fDiff == 13 && aSums.fCross == -21);
    EXPECT_TRUE(aSums.fAligned == -2 && aSums.fAlignedAbs == 4 && aSums.fAlignedSqr == 10);
    EXPECT_TRUE(aSums.fTransed == 3 && aSums.fTransedAbs == 9 && aSums.fTransedSqr == 45);
    EXPECT_LT(aSums.uiMilliseconds, 60000u);
    ASSERT_TRUE(m_rSession.Compare(0, 0, g_aIdentity, {1, 9, 50, true, 8, 2, 80}, aSums));
    EXPECT_NEAR(aSums.fTransed, 2 * (std::log(80 / 8.0) + std::log(80 / 15.0)), 1e-4);

    // Of two images to compare the mean is taken off; what is missing does not matter.
    ShiftMatch aMatch;
    ASSERT_TRUE(aJob.Load(Floats{1001, 1003}, Floats{1005, 1011, -1e30f}, {1, 0}));
    EXPECT_EQ(aJob.GetOffset(), 1008);
    const auto Map = [](double dX, double dY) { return Shift(g_aIdentity, dX, dY); };
    ASSERT_TRUE(aJob.Compare("pair", Map, 0, aMatch)) << aJob.GetError();
    EXPECT_NEAR(aMatch.dCorrelation, 1, 1e-5);
    EXPECT_NEAR(CalcMeanDifference(aMatch.aSums), 6, 1e-5);
    EXPECT_EQ(aMatch.aSums.fAligned, 0);
    ASSERT_TRUE(aJob.Load(Floats{1, 1}, Floats{5, 6, 7}, {}));
    EXPECT_FALSE(aJob.Compare("pair", Map, 1, aMatch));
    EXPECT_EQ(aJob.GetError().rfind("pair: no shift leaves a quarter", 0), 0u) << aJob.GetError();
}

TEST_F(ClientSession, ARefusalIsNamedAndTheSessionGoesOn)
{
    const Floats vfImage(12);
    std::vector<RfactorSums> aSums;
    CompareSums aCompared;
    aCompared.fCount = -1;
    const auto Ignore = [](int, std::span<const float>) { return true; };
    ASSERT_TRUE(m_rSession.SetStackSize(4, 3, Floats(2)) && m_rSession.SetVolumeSize(4, 3, 2) &&
                m_rSession.SetMeasuredSize(4, 3, 1));
    const std::pair<const char*, std::function<bool()>> aCases[] = {
        {"PROJSIZE", [&] { return m_rSession.SetStackSize(70000, 70000, Floats(1000)); }},
        {"PROJSET 7", [&] { return m_rSession.SetProjection(7, vfImage) && m_rSession.Flush(); }},
        {"PROJSET 8",
         [&]
         {
             return m_rSession.SetProjection(8, vfImage) && m_rSession.SetProjection(9, vfImage) &&
                    m_rSession.Flush();
         }},
        {"RECONSTRUCT",
         [&] { return m_rSession.SelectProjections(Words{5}) && m_rSession.Reconstruct(); }},
        {"VOLSIZE", [&] { return m_rSession.SetVolumeSize(70000, 70000, 1000); }},
        {"VOLSET 9", [&] { return m_rSession.SetSlice(9, vfImage) && m_rSession.Reproject(); }},
        {"MPROJSET 1", [&] { return m_rSession.SetMeasured(1, vfImage) && m_rSession.Flush(); }},
        {"TRANSFORM", [&] { return m_rSession.Transform(1, 0, g_aIdentity, {}); }},
        {"COMPAREL",
         [&] {
             return m_rSession.Compare(1, 0, g_aIdentity, {1, 0, 1, true}, aCompared);
         }},
        {"RECONSTATGET", [&] { return m_rSession.GetRfactors(9, aSums); }},
        {"VOLGET 2", [&] { return m_rSession.GetSlices(4, 12, Ignore); }},
        {"PROJGET 2", [&] { return m_rSession.GetProjections(3, 12, Ignore); }}};
    std::uint64_t ulMemory = 0;
    for (const auto& [pcName, Request] : aCases)
    {
        SCOPED_TRACE(pcName);
        EXPECT_FALSE(Request());
        EXPECT_TRUE(m_rSession.WasRefused());
        EXPECT_EQ(m_rSession.GetError(), std::string(pcName) + " was refused by the server");
        EXPECT_EQ(mWhy().rfind(m_rSession.GetError() + ": ", 0), 0u) << mWhy();
        EXPECT_TRUE(m_rSession.GetServerMemory(ulMemory)) << mWhy();
        EXPECT_FALSE(m_rSession.WasRefused());
    }
    EXPECT_TRUE(ulMemory > 1 << 20 && ulMemory < std::uint64_t(1) << 50) << ulMemory;
    EXPECT_EQ(aCompared.fCount, -1) << "sums of a refused comparison";
    EXPECT_FALSE(m_rSession.GetSlices(2, 12, [](int z, auto) { return z < 1; }));
    EXPECT_EQ(m_rSession.GetError(), "VOLGET: ended by the receiver");
    EXPECT_FALSE(m_rSession.IsOpen());
    EXPECT_FALSE(m_rSession.Reconstruct()) << "closed for good";
}

/// A header of an answer, and data.
std::string Reply(EMsg eType, std::uint32_t uiSerial, std::uint32_t uiParent, const Floats& rData,
                  std::uint32_t uiBytes, std::uint32_t uiStatus = 0)
{
    PacketHeader aHeader;
    aHeader.auiFields = {std::uint32_t(eType), uiSerial, 0, uiBytes, uiParent, uiStatus, 5, 6};
    std::string strBytes(reinterpret_cast<const char*>(&aHeader), sizeof(aHeader));
    return strBytes.append(reinterpret_cast<const char*>(rData.data()), 4 * rData.size());
}

TEST(ClientProtocol, BrokenAnswersEndTheSession)
{
    const std::string strDone = Reply(EMsg::CMDREPLY, 41, 2, {}, 0);  // of the first request
    const auto Data = [](std::uint32_t uiBytes, const Floats& rData = {})
    { return Reply(EMsg::DATAREPLY, 42, 3, rData, uiBytes); };
    const auto Done = [&](const std::string& strNext) { return Args{"", strDone, strNext}; };
    // To VOLSIZE; then to 0 memory, 1 slices of two floats, 2 R-factors, 3 compare.
    for (const auto& [vstrReplies, iRequest, strReason] :
         std::vector<std::tuple<Args, int, std::string>>{
             {{"", Reply(EMsg::CMDREPLY, 41, 3, {}, 0)}, 0, "VOLSIZE 2 was answered by message "},
             {{"", Reply(EMsg::DATAREPLY, 41, 2, {}, 0)}, 0, "VOLSIZE 2 was answered by message "},
             {{"", Reply(EMsg::CMDREPLY, 41, 2, {1}, 4)}, 0, "a command reply with a data block"},
             {{"", Reply(EMsg::QUIT, 41, 2, {}, 0)}, 0, "the server ended the session"},
             {{"", strDone.substr(0, 40)}, 0, "VOLSIZE: connection lost: the server closed it"},
             {Done(Reply(EMsg::DATAREPLY, 43, 3, {}, 0)), 0, "reply 43 follows reply 41"},
             {Done(Data(4, {1})), 0, "server properties with a data block"},
             {Done(Data(12, {1, 2, 3})), 1, "VOLGET gave 12 bytes, expected 8"},
             {Done(Data(8, {1})), 1, "VOLGET: connection lost"},
             {Done(Data(12, {1, 2, 3})), 2, "R-factors of 12 bytes"},
             {Done(Data(1u << 24)), 2, "R-factors of 16777216 bytes"},
             {Done(Data(16, {1})), 2, "RECONSTATGET: connection lost"},
             {Done(Reply(EMsg::COMPREPLY, 42, 3, {1}, 4)), 3, "a compare reply with a data block"},
             {Done(Data(0)), 3, "COMPARE 3 was answered by message type 3"},
             {Done(Data(8, {1, 2})), 1, ""},
             {Done(Data(16, {1, 2, 3, 4})), 2, ""},
             {Done(Data(0)), 0, ""}})
    {
        SCOPED_TRACE(strReason);
        const CCannedServer aServer(vstrReplies, true);
        CSession aSession;
        std::uint64_t ulMemory = 0;
        std::vector<RfactorSums> aSums;
        CompareSums aCompared;
        const bool bDone =
            aSession.Open("127.0.0.1", aServer.GetPort(), 5s) && aSession.SetVolumeSize(2, 1, 1) &&
            (iRequest == 0   ? aSession.GetServerMemory(ulMemory)
             : iRequest == 1 ? aSession.GetSlices(1, 2, [](int, auto) { return true; })
             : iRequest == 2 ? aSession.GetRfactors(0, aSums)
                             : aSession.Compare(0, 0, g_aIdentity, {}, aCompared));
        EXPECT_EQ(bDone, strReason.empty()) << aSession.GetError();
        EXPECT_EQ(aSession.GetError().rfind(strReason, 0), 0u) << aSession.GetError();
        EXPECT_EQ(aSession.IsOpen(), bDone);
        EXPECT_FALSE(aSession.WasRefused());
        EXPECT_TRUE(ulMemory == 0 || ulMemory == (std::uint64_t(6) << 32 | 5)) << ulMemory;
    }
}

TEST(ClientProtocol, WaitsEnd)
{
    int aiPipe[2];
    ASSERT_EQ(pipe(aiPipe), 0);
    const CCannedServer aSilent({}, false);  // as one that serves somebody else
    CSession aSession;
    std::uint64_t ulMemory = 0;
    aSession.SetInterruptFd(aiPipe[0]);
    ASSERT_TRUE(aSession.Open("127.0.0.1", aSilent.GetPort(), 5s));
    std::thread aUser(
        [&]
        {
            std::this_thread::sleep_for(50ms);
            EXPECT_EQ(write(aiPipe[1], "x", 1), 1);
        });
    EXPECT_FALSE(aSession.GetServerMemory(ulMemory));
    EXPECT_TRUE(aSession.WasInterrupted()) << aSession.GetError();
    aUser.join();
    EXPECT_FALSE(aSession.Open("127.0.0.1", aSilent.GetPort(), 5s));
    EXPECT_EQ(aSession.GetError(), "interrupted") << "before it began";
    close(aiPipe[0]);
    close(aiPipe[1]);
    aSession.SetInterruptFd(-1);
    EXPECT_FALSE(aSession.Open("127.0.0.1", 1, 5s));
    EXPECT_EQ(aSession.GetError(), "cannot reach a server at 127.0.0.1:1: Connection refused");
    EXPECT_FALSE(aSession.Open("no-such-host.invalid", 1, 5s));
    EXPECT_EQ(aSession.GetError().rfind("cannot find host no-such-host.invalid: ", 0), 0u);
}

}  // namespace
}  // namespace talven::test
