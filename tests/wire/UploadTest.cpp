#include <gtest/gtest.h>

#include <memory>
#include <numeric>

#include "tests/wire/Messages.h"
#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Words = CRawClient::Words;

Words Ramp(std::size_t tCount, float fStart)
{
    std::vector<float> vfValues(tCount);
    std::iota(vfValues.begin(), vfValues.end(), fStart);
    return CRawClient::ToWords(vfValues);
}

Words Join(Words vuiFirst, const Words& vuiSecond)
{
    vuiFirst.insert(vuiFirst.end(), vuiSecond.begin(), vuiSecond.end());
    return vuiFirst;
}

/// A session that is at home in either byte order.
class Upload : public testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        m_aServer.Start();
        m_pClient = std::make_unique<CRawClient>(m_aServer.GetPort(), GetParam());
        ASSERT_TRUE(m_pClient->IsConnected());
        ASSERT_TRUE(m_pClient->Send(Msg::eByteOrder, {0x1234ABCDu}));
    }
    /// True when the command was carried out.
    bool Command(std::uint32_t uiType, const Words& vuiFields, const Words& vuiData = {})
    {
        const auto aReply = m_pClient->Ask(uiType, vuiFields, vuiData);
        EXPECT_TRUE(aReply && aReply->Type() == Msg::eCmdReply);
        return aReply && aReply->Field(5) == 0;
    }
    Words Get(std::uint32_t uiType, std::uint32_t uiIndex)
    {
        const auto aReply = m_pClient->Ask(uiType, {uiIndex});
        EXPECT_TRUE(aReply && aReply->Type() == Msg::eDataReply);
        if (!aReply) return {};
        EXPECT_EQ(aReply->Field(5), aReply->vuiData.empty() ? 1u : 0u);
        return aReply->vuiData;
    }
    CServerProcess m_aServer;
    std::unique_ptr<CRawClient> m_pClient;
};
INSTANTIATE_TEST_SUITE_P(ByteOrders, Upload, testing::Bool());

TEST_P(Upload, ProjectionsComeBackAsSent)
{
    constexpr std::uint32_t uiX = 5, uiY = 3, uiN = 4;
    ASSERT_TRUE(Command(Msg::eProjSize, {uiX, uiY, uiN}, Ramp(2 * uiN, -3)));
    const Words vuiRange = {0, 5, 1, 4, 6, 0};
    for (const std::uint32_t p : {2u, 0u})
        ASSERT_TRUE(Command(Msg::eProjSet, {p}, Join(vuiRange, Ramp(uiX * uiY, 100.0f * p))));
    EXPECT_EQ(Get(Msg::eProjGet, 2), Ramp(uiX * uiY, 200));
    EXPECT_EQ(Get(Msg::eProjGet, 0), Ramp(uiX * uiY, 0));
    EXPECT_EQ(Get(Msg::eProjGet, 3), Words(uiX * uiY));

    // Ranges alone leave the pixels; a short block fills the first ones.
    ASSERT_TRUE(Command(Msg::eProjSet, {2}, vuiRange));
    EXPECT_EQ(Get(Msg::eProjGet, 2), Ramp(uiX * uiY, 200));
    ASSERT_TRUE(Command(Msg::eProjSet, {2}, Join(vuiRange, Ramp(2, 7))));
    EXPECT_EQ(Get(Msg::eProjGet, 2), Join(Ramp(2, 7), Ramp(uiX * uiY - 2, 202)));

    // A part of a longer message is not put together.
    ASSERT_TRUE(m_pClient->Send(Msg::eContinuation, {m_pClient->GetLastSerial()}, Ramp(3, 0)));
    EXPECT_EQ(Get(Msg::eProjGet, 2), Join(Ramp(2, 7), Ramp(uiX * uiY - 2, 202)));

    ASSERT_TRUE(Command(Msg::eProjSize, {uiX, uiY, uiN}));
    EXPECT_EQ(Get(Msg::eProjGet, 2), Words(uiX * uiY));  // a new stack
}

TEST_P(Upload, VolumeKeepsItsSamplesWhileTheCountStays)
{
    ASSERT_TRUE(Command(Msg::eVolSize, {4, 8, 2}));
    ASSERT_TRUE(Command(Msg::eVolSet, {1}, Ramp(32, 1)));
    ASSERT_TRUE(Command(Msg::eVolSet, {0}, Ramp(5, 50)));
    EXPECT_EQ(Get(Msg::eVolGet, 1), Ramp(32, 1));
    EXPECT_EQ(Get(Msg::eVolGet, 0), Join(Ramp(5, 50), Words(27)));
    ASSERT_TRUE(Command(Msg::eVolSize, {8, 2, 4}));
    EXPECT_EQ(Get(Msg::eVolGet, 3), Ramp(16, 17));
    ASSERT_TRUE(Command(Msg::eVolSize, {8, 2, 3}));
    EXPECT_EQ(Get(Msg::eVolGet, 2), Words(16));
}

TEST_P(Upload, ReconstructsAndServesRfactors)
{
    // Two blocks of matter, one row each; three rows, so that two workers get unequal bands.
    constexpr std::uint32_t uiX = 24, uiY = 3, uiZ = 16, uiN = 13;
    std::vector<float> vfPairs;
    for (std::uint32_t i = 0; i < uiN; ++i)
    {
        vfPairs.push_back(-60.0f + 10.0f * static_cast<float>(i));
        vfPairs.push_back(0);
    }
    ASSERT_TRUE(Command(Msg::eProjSize, {uiX, uiY, uiN}, CRawClient::ToWords(vfPairs)));
    ASSERT_TRUE(Command(Msg::eVolSize, {uiX, uiY, uiZ}));
    for (std::uint32_t z = 6; z < 10; ++z)
    {
        std::vector<float> vfSlice(uiX * uiY);
        for (std::uint32_t y = 0; y < uiY; ++y)
            for (std::uint32_t x = 8; x < 14; ++x) vfSlice[y * uiX + x] = static_cast<float>(y + 1);
        ASSERT_TRUE(Command(Msg::eVolSet, {z}, CRawClient::ToWords(vfSlice)));
    }
    const Words vuiTruth = Get(Msg::eVolGet, 8);
    ASSERT_TRUE(Command(Msg::eReproject, {}));
    ASSERT_TRUE(Command(Msg::eVolSize, {uiX, uiY, uiZ + 1}));  // other count: zeros
    ASSERT_TRUE(Command(Msg::eVolSize, {uiX, uiY, uiZ}));
    constexpr std::uint32_t uiIterations = 12;
    ASSERT_TRUE(Command(Msg::eReconOpt, {1, uiIterations, 1, 0, 1},
                        Join({uiN}, CRawClient::ToWords(std::vector<float>(uiIterations, 1.0f)))));
    ASSERT_TRUE(Command(Msg::eReconstruct, {}));

    float fFirst = 0, fLast = 1e30f;
    for (std::uint32_t i = 0; i < uiIterations; ++i)
    {
        const auto aReply = m_pClient->Ask(Msg::eReconStatGet, {i});
        ASSERT_TRUE(aReply);
        const std::vector<float> vfSums = aReply->Floats();
        ASSERT_EQ(vfSums.size(), 2 * uiN);
        float fRaw = 0, fDif = 0;
        for (std::size_t p = 0; p < uiN; ++p)
        {
            fRaw += vfSums[2 * p];
            fDif += vfSums[2 * p + 1];
        }
        EXPECT_LT(fDif / fRaw, fLast) << "iteration " << i;
        fLast = fDif / fRaw;
        if (i == 0) fFirst = fLast;
    }
    EXPECT_LT(fLast, 0.5f * fFirst);
    EXPECT_TRUE(Get(Msg::eReconStatGet, uiIterations).empty());

    Packet aTruth, aFound;
    aTruth.vuiData = vuiTruth;
    aFound.vuiData = Get(Msg::eVolGet, 8);
    const std::vector<float> vfTruth = aTruth.Floats(), vfFound = aFound.Floats();
    ASSERT_EQ(vfTruth.size(), vfFound.size());
    for (std::uint32_t y = 0; y < uiY; ++y)
    {
        float fInside = 0;
        for (std::uint32_t x = 9; x < 13; ++x) fInside += vfFound[y * uiX + x] / 4;
        EXPECT_NEAR(fInside, y + 1.0f, 0.35f * (y + 1.0f)) << "row " << y;
        EXPECT_LT(vfFound[y * uiX + 2], 0.1f * (y + 1.0f)) << "row " << y;
    }
    EXPECT_TRUE(m_aServer.WaitForOutput("Info: Start reconstruction."));
    EXPECT_TRUE(m_aServer.WaitForOutput("Recon time (s) "));
    EXPECT_EQ(m_aServer.CountInOutput("Error: "), 1);  // the missing iteration
}
}  // namespace
