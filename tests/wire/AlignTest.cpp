// Alignment over the wire: transforms, comparisons and their refusals.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "tests/wire/Messages.h"
#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Words = CRawClient::Words;
constexpr std::uint32_t g_uiX = 60, g_uiY = 41;
constexpr std::uint32_t g_uiMax = 0xffffffffu;

Words Join(Words vuiFirst, const Words& vuiSecond)
{
    vuiFirst.insert(vuiFirst.end(), vuiSecond.begin(), vuiSecond.end());
    return vuiFirst;
}

/// A few blobs, moved to the right and down.
std::vector<float> Picture(float fRight, float fDown)
{
    std::vector<float> vf;
    for (std::uint32_t y = 0; y < g_uiY; ++y)
        for (std::uint32_t x = 0; x < g_uiX; ++x)
        {
            double dValue = 1;
            for (const auto& [dX, dY, dHeight] :
                 {std::array{20.0, 15.0, 3.0}, {41, 24, 2}, {30, 30, -0.5}})
                dValue +=
                    dHeight *
                    std::exp(-(std::pow(x - fRight - dX, 2) + std::pow(y - fDown - dY, 2)) / 18);
            vf.push_back(static_cast<float>(dValue));
        }
    return vf;
}

/// Fields 4 to 11 of a request to transform with a shift, for a stack of one kind each.
Words Shift(float fU, float fV, std::uint32_t uiMProj = 1, std::uint32_t uiAProj = 2)
{
    return {uiMProj, uiAProj, Bits(1), 0, 0, Bits(1), Bits(fU), Bits(fV)};
}
/// The same for a comparison, which names rows and two scale values.
Words CompareShift(float fU, float fV)
{
    return {1, 2, 10, 20, Bits(1), 0, 0, Bits(1), Bits(fU), Bits(fV), Bits(1), Bits(0)};
}

/// Projection 2 of the stack is the picture, measured projection 1 the picture moved.
void Load(CRawClient& rClient, float fRight, float fDown)
{
    ASSERT_TRUE(rClient.Ask(Msg::eProjSize, {g_uiX, g_uiY, 3}));
    Words vuiRanges;
    for (std::uint32_t y = 0; y < g_uiY; ++y) vuiRanges.insert(vuiRanges.end(), {0, g_uiX});
    const auto aSet =
        rClient.Ask(Msg::eProjSet, {2}, Join(vuiRanges, CRawClient::ToWords(Picture(0, 0))));
    ASSERT_TRUE(aSet && aSet->Field(5) == 0);
    ASSERT_TRUE(rClient.Ask(Msg::eMProjSize, {g_uiX, g_uiY, 2}));
    const auto aMSet =
        rClient.Ask(Msg::eMProjSet, {1}, CRawClient::ToWords(Picture(fRight, fDown)));
    ASSERT_TRUE(aMSet && aMSet->Field(5) == 0);
}

float Sum(const Packet& rReply, int iField)
{
    return std::bit_cast<float>(rReply.Field(iField));
}

/// Normalised cross-correlation from a COMPREPLY.
double Correlation(const Packet& rReply)
{
    const double dCount = double(Sum(rReply, 15)), dA = double(Sum(rReply, 7)) / dCount,
                 dB = double(Sum(rReply, 8)) / dCount;
    const double dAA = double(Sum(rReply, 9)) / dCount - dA * dA,
                 dBB = double(Sum(rReply, 10)) / dCount - dB * dB;
    return (double(Sum(rReply, 11)) / dCount - dA * dB) / std::sqrt(dAA * dBB);
}

class Align : public testing::TestWithParam<bool>
{
};
INSTANTIATE_TEST_SUITE_P(ByteOrders, Align, testing::Bool());

TEST_P(Align, ShiftIsFoundByCompareAndUndoneByTransform)
{
    CServerProcess aServer;
    aServer.Start();
    CRawClient aClient(aServer.GetPort(), GetParam());
    ASSERT_TRUE(aClient.Send(Msg::eByteOrder, {0x1234ABCDu}));
    Load(aClient, 3, -2);
    double dBest = -2;
    int iBestU = 0, iBestV = 0;
    for (int v = -4; v <= 4; ++v)
        for (int u = -4; u <= 4; ++u)
        {
            const auto aReply =
                aClient.Ask(Msg::eCompare, CompareShift(float(u), float(v)), {Bits(1e6f)});
            ASSERT_TRUE(aReply);
            ASSERT_EQ(aReply->Type(), Msg::eCompReply);
            ASSERT_EQ(aReply->Field(5), 0u);
            // The rows that the request names do not count.
            ASSERT_EQ(Sum(*aReply, 15),
                      float((int(g_uiX) - std::abs(u)) * (int(g_uiY) - std::abs(v))));
            const double dCorrelation = Correlation(*aReply);
            if (dCorrelation <= dBest) continue;
            dBest = dCorrelation;
            iBestU = u;
            iBestV = v;
        }
    EXPECT_EQ(iBestU, 3);
    EXPECT_EQ(iBestV, -2);
    EXPECT_GT(dBest, 0.9999);

    const auto aDone = aClient.Ask(Msg::eTransform, Join(Shift(3, -2), {Bits(1), 0, Bits(1e6f)}));
    ASSERT_TRUE(aDone);
    EXPECT_EQ(aDone->Type(), Msg::eCmdReply);
    EXPECT_EQ(aDone->Field(5), 0u);
    const auto aGot = aClient.Ask(Msg::eProjGet, {2});
    ASSERT_TRUE(aGot);
    const std::vector<float> vfGot = aGot->Floats(), vfExpected = Picture(0, 0);
    ASSERT_EQ(vfGot.size(), vfExpected.size());
    for (std::uint32_t y = 0; y < g_uiY; ++y)
        for (std::uint32_t x = 0; x < g_uiX; ++x)
        {
            const bool bMissing = x + 3 >= g_uiX || y < 2;
            ASSERT_NEAR(vfGot[y * g_uiX + x], bMissing ? -1e30f : vfExpected[y * g_uiX + x],
                        bMissing ? 1e24f : 1e-5f)
                << x << " " << y;
        }
    // The aligned stack can be reconstructed; missing pixels do not count.
    ASSERT_TRUE(aClient.Ask(Msg::eSetOp, {1, 1}, {2}));
    ASSERT_TRUE(aClient.Ask(Msg::eVolSize, {g_uiX, g_uiY, 4}));
    ASSERT_TRUE(aClient.Ask(Msg::eReconOpt, {1, 3, 1, 0, 1}, {1, Bits(1), Bits(1), Bits(1)}));
    const auto aRecon = aClient.Ask(Msg::eReconstruct);
    ASSERT_TRUE(aRecon);
    EXPECT_EQ(aRecon->Field(5), 0u);
    const auto aSlice = aClient.Ask(Msg::eVolGet, {1});
    ASSERT_TRUE(aSlice);
    const std::vector<float> vfSlice = aSlice->Floats();
    for (const auto& [x, y] : {std::pair{20u, 15u}, {41u, 24u}, {10u, 35u}})
        EXPECT_NEAR(4 * vfSlice[y * g_uiX + x], vfExpected[y * g_uiX + x],
                    0.05f * vfExpected[y * g_uiX + x]);

    EXPECT_EQ(aServer.CountInOutput("Compare Time (s): "), 81);
    EXPECT_EQ(aServer.CountInOutput("Transform Time (s): "), 1);
    EXPECT_EQ(aServer.CountInOutput("Compare: 1  2  10  20\n   1.00    0.00    0.00    1.00    "
                                    "3.00   -2.00    1.00    0.00 \n"),
              1);
    EXPECT_EQ(aServer.CountInOutput("Transform: proj = 1  2\n   1.00    0.00    0.00    1.00    "
                                    "3.00   -2.00    1.00    0.00 1000000.00 \n"),
              1);
    EXPECT_EQ(aServer.CountInOutput("Error: "), 0);
}

TEST_P(Align, LogarithmsTakeTheirScaleFromTheData)
{
    CServerProcess aServer;
    aServer.Start();
    CRawClient aClient(aServer.GetPort(), GetParam());
    ASSERT_TRUE(aClient.Send(Msg::eByteOrder, {0x1234ABCDu}));
    Load(aClient, 0, 0);
    // min(s2, s4 ln(s5 / max(s3, s0 p + s1)))
    const std::vector<float> vfScale = {2, 0.5f, 1.9f, 3, 1.5f, 9};
    const Words vuiScale = CRawClient::ToWords(vfScale);
    const auto aSums =
        aClient.Ask(Msg::eComparel,
                    Join({1, 2, 0, 0, Bits(1), 0, 0, Bits(1), 0, 0}, {vuiScale[0], vuiScale[1]}),
                    {vuiScale.begin() + 2, vuiScale.end()});
    ASSERT_TRUE(aSums);
    EXPECT_EQ(aSums->Type(), Msg::eCompReply);
    EXPECT_EQ(aSums->Field(5), 0u);
    ASSERT_TRUE(aClient.Ask(Msg::eTransforml,
                            Join(Shift(0, 0), {vuiScale.begin(), vuiScale.begin() + 4}),
                            {vuiScale[4], vuiScale[5], 99}));
    const auto aGot = aClient.Ask(Msg::eProjGet, {2});
    ASSERT_TRUE(aGot);
    const std::vector<float> vfGot = aGot->Floats(), vfPicture = Picture(0, 0);
    double dDiff = 0, dTransed = 0;
    for (std::size_t i = 0; i < vfPicture.size(); ++i)
    {
        const double dFloored = std::max(3.0, 2.0 * double(vfPicture[i]) + 0.5);
        const double dExpected = std::min(1.9, 1.5 * std::log(9 / dFloored));
        ASSERT_NEAR(vfGot[i], dExpected, 1e-6);
        dDiff += std::abs(double(vfPicture[i]) - dExpected);
        dTransed += dExpected;
    }
    EXPECT_NEAR(Sum(*aSums, 14), dDiff, 1e-5 * dDiff);
    EXPECT_NEAR(Sum(*aSums, 8), dTransed, 1e-5 * dTransed);

    // The sums can be asked for again, without the count, which leaves its field alone.
    const auto aAgain = aClient.Ask(Msg::eCompReply);
    ASSERT_TRUE(aAgain);
    EXPECT_EQ(aAgain->Type(), Msg::eDataReply);
    EXPECT_EQ(aAgain->OptSize(), 0u);
    EXPECT_EQ(aAgain->Field(5), 0u);
    EXPECT_LT(aAgain->Field(6), 20000u);
    for (int i = 7; i <= 14; ++i) EXPECT_EQ(aAgain->Field(i), aSums->Field(i)) << i;
    EXPECT_EQ(aServer.CountInOutput("CClientMain: Responding COMPAREL\n"), 1);
    EXPECT_EQ(aServer.CountInOutput("Compare: "), 0);
    EXPECT_EQ(aServer.CountInOutput("Transform: "), 0);
}

TEST(AlignSession, SumsDoNotDependOnTheWorkers)
{
    Words vuiOne;
    for (const char* pcBusy : {"1,2,3,4,5,6,7,8,9,10,11,12,13,14,15", "2,3,4,5,6,7", ""})
    {
        SCOPED_TRACE(pcBusy);
        CServerProcess aServer;
        aServer.Start({{"TALVEN_BUSY_GPUS", pcBusy}});
        CRawClient aClient(aServer.GetPort());
        Load(aClient, 1.5f, 0);
        Words vuiFirst;
        for (int i = 0; i < 5; ++i)
        {
            const auto aReply = aClient.Ask(Msg::eCompare, CompareShift(1.25f, 0.5f), {Bits(1e6f)});
            ASSERT_TRUE(aReply);
            const Words vuiSums(aReply->auiFields.begin() + 7, aReply->auiFields.end());
            if (i == 0) vuiFirst = vuiSums;
            EXPECT_EQ(vuiSums, vuiFirst);  // whichever worker is first
        }
        if (vuiOne.empty()) vuiOne = vuiFirst;
        for (std::size_t i = 0; i < vuiOne.size(); ++i)
        {
            const float fOne = std::bit_cast<float>(vuiOne[i]);
            EXPECT_NEAR(std::bit_cast<float>(vuiFirst[i]), fOne, 1e-5f * fOne) << i;
        }
    }
}

TEST(AlignSession, BadRequestsAreRefusedOnceAndChangeNothing)
{
    const std::uint32_t uiNaN = Bits(std::numeric_limits<float>::quiet_NaN());
    const std::uint32_t uiInfinity = Bits(std::numeric_limits<float>::infinity());
    const struct
    {
        std::uint32_t uiType;
        const char* pcName;
        Words vuiFields, vuiData;
        int iMatrix;  ///< index of the matrix in the fields
    } aGood[] = {
        {Msg::eTransform, "TRANSFORM", Join(Shift(0, 0), {Bits(1), 0, Bits(9)}), {}, 2},
        {Msg::eTransforml,
         "TRANSFORML",
         Join(Shift(0, 0), {Bits(1), 0, Bits(9), Bits(1)}),
         {Bits(1), Bits(1)},
         2},
        {Msg::eCompare, "COMPARE", CompareShift(0, 0), {Bits(9)}, 4},
        {Msg::eComparel, "COMPAREL", CompareShift(0, 0), {Bits(9), Bits(1), Bits(1), Bits(1)}, 4},
    };
    CServerProcess aServer;
    aServer.Start();
    CRawClient aClient(aServer.GetPort());
    const auto Refused = [&](const auto& rGood, const Words& rFields, const Words& rData)
    {
        const bool bCompare = rGood.uiType == Msg::eCompare || rGood.uiType == Msg::eComparel;
        const int iErrors = aServer.CountInOutput("Error: ");
        const std::string strName = "Error: " + std::string(rGood.pcName) + ": ";
        const int iNamed = aServer.CountInOutput(strName);
        const auto aReply = aClient.Ask(rGood.uiType, rFields, rData);
        ASSERT_TRUE(aReply);
        EXPECT_EQ(aReply->Type(), bCompare ? Msg::eCompReply : Msg::eCmdReply);
        EXPECT_EQ(aReply->Field(5), 1u);
        for (int i = 6; bCompare && i <= 15; ++i) EXPECT_EQ(aReply->Field(i), 0u) << i;
        EXPECT_EQ(aServer.CountInOutput("Error: "), iErrors + 1);
        EXPECT_EQ(aServer.CountInOutput(strName), iNamed + 1);
    };
    for (const auto& rGood : aGood)
    {
        SCOPED_TRACE(rGood.pcName);
        Refused(rGood, rGood.vuiFields, rGood.vuiData);  // no stack yet
    }
    Load(aClient, 0, 0);
    for (const auto& rGood : aGood)
    {
        const auto tMatrix = static_cast<std::size_t>(rGood.iMatrix);
        const std::vector<std::pair<std::size_t, std::uint32_t>> aChanges = {
            {0, 2},
            {0, g_uiMax},
            {1, 3},
            {1, g_uiMax},
            {tMatrix, uiNaN},
            {tMatrix + 5, uiInfinity},
            {tMatrix + 6, uiNaN},
            {tMatrix + 7, uiInfinity}};
        for (const auto& [tField, uiValue] : aChanges)
        {
            SCOPED_TRACE(testing::Message()
                         << rGood.pcName << " word " << tField + 4 << " = " << uiValue);
            Words vuiFields = rGood.vuiFields;
            vuiFields[tField] = uiValue;
            Refused(rGood, vuiFields, rGood.vuiData);
        }
        if (!rGood.vuiData.empty())
        {
            SCOPED_TRACE(testing::Message() << rGood.pcName << " data");
            Refused(rGood, rGood.vuiFields, Words(rGood.vuiData.begin() + 1, rGood.vuiData.end()));
            Refused(rGood, rGood.vuiFields, Words(rGood.vuiData.size(), uiNaN));
        }
    }
    const auto aKept = aClient.Ask(Msg::eProjGet, {2});
    ASSERT_TRUE(aKept);
    EXPECT_EQ(aKept->Floats(), Picture(0, 0));
    for (const auto& rGood : aGood)  // and the good ones are served
    {
        const auto aReply = aClient.Ask(rGood.uiType, rGood.vuiFields, rGood.vuiData);
        ASSERT_TRUE(aReply);
        EXPECT_EQ(aReply->Field(5), 0u) << rGood.pcName;
    }
}

TEST(AlignSession, CompareStateOutlivesTheClientAndTheTimerNeedsAStart)
{
    CServerProcess aServer;
    aServer.Start();
    Words vuiSums;
    {
        CRawClient aClient(aServer.GetPort());
        const auto aNone = aClient.Ask(Msg::eCompReply);
        ASSERT_TRUE(aNone);
        for (int i = 5; i <= 14; ++i) EXPECT_EQ(aNone->Field(i), 0u) << i;
        Load(aClient, 0, 0);
        const auto aReply = aClient.Ask(Msg::eCompare, CompareShift(0, 0), {Bits(9)});
        ASSERT_TRUE(aReply);
        vuiSums.assign(aReply->auiFields.begin() + 7, aReply->auiFields.begin() + 15);
        // A transform leaves the sums alone.
        ASSERT_TRUE(aClient.Ask(Msg::eTransform, Join(Shift(9, 9), {Bits(1), 0, Bits(9)})));
    }
    CRawClient aNext(aServer.GetPort());
    const auto aAgain = aNext.Ask(Msg::eCompReply);
    ASSERT_TRUE(aAgain);
    EXPECT_EQ(Words(aAgain->auiFields.begin() + 7, aAgain->auiFields.begin() + 15), vuiSums);
    EXPECT_NE(vuiSums[0], 0u);
}
}  // namespace
