#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

#include "Files.h"
#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"

namespace talven::test
{
namespace
{

/// A file built from the published format, word by word, in either byte order.
class CMrcBytes
{
public:
    CMrcBytes(int iX, int iY, int iZ, int iMode, bool bSwap) : m_bSwap(bSwap)
    {
        Set(0, iX).Set(1, iY).Set(2, iZ).Set(3, iMode);
        Set(7, iX).Set(8, iY).Set(9, iZ);
        for (int i = 0; i < 3; ++i) Set(16 + i, i + 1);
        Set(10, std::bit_cast<int>(2.5f * static_cast<float>(iX)));
        const bool bLittle = (std::endian::native == std::endian::little) != bSwap;
        std::memcpy(m_strBytes.data() + 208, "MAP ", 4);
        std::memset(m_strBytes.data() + 212, bLittle ? 0x44 : 0x11, 2);
    }
    CMrcBytes& Set(int iWord, int iValue)
    {
        if (m_bSwap) iValue = static_cast<int>(__builtin_bswap32(static_cast<unsigned>(iValue)));
        std::memcpy(m_strBytes.data() + 4 * iWord, &iValue, 4);
        return *this;
    }
    CMrcBytes& Extend(int iBytes)
    {
        Set(23, iBytes);
        m_strBytes.append(static_cast<std::size_t>(iBytes), '\x5A');
        return *this;
    }
    CMrcBytes& Drop(int iOffset, int iBytes)
    {
        std::memset(m_strBytes.data() + iOffset, 0, static_cast<std::size_t>(iBytes));
        return *this;
    }
    template <class T>
    CMrcBytes& Append(std::initializer_list<T> aValues)
    {
        for (const T tValue : aValues)
        {
            char acBytes[sizeof(T)];
            std::memcpy(acBytes, &tValue, sizeof(T));
            if (m_bSwap) std::reverse(std::begin(acBytes), std::end(acBytes));
            m_strBytes.append(acBytes, sizeof(T));
        }
        return *this;
    }
    const std::string& Get() const { return m_strBytes; }

private:
    bool m_bSwap;
    std::string m_strBytes = std::string(1024, '\0');
};

std::vector<float> ReadAll(CMrcReader& rReader)
{
    const std::size_t tSection = rReader.GetHeader().GetSectionPixels();
    std::vector<float> vfAll(tSection * std::size_t(rReader.GetHeader().iZ));
    for (int z = 0; z < rReader.GetHeader().iZ; ++z)
        EXPECT_TRUE(
            rReader.ReadSection(z, std::span(vfAll).subspan(std::size_t(z) * tSection, tSection)))
            << rReader.GetError();
    return vfAll;
}

TEST(Mrc, ReadsEveryModeInBothByteOrders)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "in.mrc";
    for (const bool bSwap : {false, true})
    {
        const auto Expect = [&](const CMrcBytes& rBytes, const std::vector<float>& vfExpected)
        {
            SCOPED_TRACE(testing::Message() << "swapped " << bSwap << ", first " << vfExpected[0]);
            WriteFile(strPath, rBytes.Get());
            CMrcReader aReader;
            ASSERT_TRUE(aReader.Open(strPath)) << aReader.GetError();
            EXPECT_NEAR(aReader.GetHeader().dPixel, 2.5, 1e-6);
            EXPECT_EQ(ReadAll(aReader), vfExpected);
        };
        using Bytes = CMrcBytes;
        Expect(Bytes(2, 1, 2, 0, bSwap).Append<std::int8_t>({-128, 127, 0, -1}),
               {-128, 127, 0, -1});
        Expect(
            Bytes(2, 1, 2, 0, bSwap).Set(38, 1146047817).Append<std::uint8_t>({128, 127, 0, 255}),
            {128, 127, 0, 255});
        Expect(Bytes(1, 2, 2, 1, bSwap).Extend(48).Append<std::int16_t>({-32768, 32767, 258, -2}),
               {-32768, 32767, 258, -2});
        Expect(Bytes(4, 1, 1, 2, bSwap).Extend(4096).Append<float>({-1e30f, 0.1f, 3.5e-5f, 7}),
               {-1e30f, 0.1f, 3.5e-5f, 7});
        Expect(Bytes(1, 1, 4, 6, bSwap).Append<std::uint16_t>({65535, 0, 258, 32768}),
               {65535, 0, 258, 32768});
        // Halves: 1, -2, the largest number, the smallest normal and denormal one, -0.
        Expect(Bytes(3, 2, 1, 12, bSwap)
                   .Append<std::uint16_t>({0x3C00, 0xC000, 0x7BFF, 0x0400, 0x0001, 0x8000}),
               {1, -2, 65504, 0x1p-14f, 0x1p-24f, -0.0f});
        // A missing machine stamp: the numbers tell the byte order.
        Expect(Bytes(2, 1, 1, 1, bSwap).Drop(208, 8).Append<std::int16_t>({5, 6}), {5, 6});
    }
}

TEST(Mrc, SaysWhatIsWrongWithAFile)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "bad.mrc";
    const CMrcBytes aGood = CMrcBytes(3, 2, 2, 1, false).Extend(16);
    const std::string strData(2 * 3 * 2 * 2, 'x');
    const struct
    {
        std::string strBytes, strReason;
    } aCases[] = {
        {"", "not an MRC file"},
        {std::string(5000, 'A'), "not an MRC file"},
        {std::string(5000, '\0'), "not an MRC file"},
        {CMrcBytes(3, 2, -1, 1, false).Get() + strData, "not an MRC file"},
        {CMrcBytes(3, 2, 2, 1, false).Set(23, -16).Get() + strData, "not an MRC file"},
        {CMrcBytes(3, 2, 2, 4, false).Get() + strData, "mode 4 is not supported"},
        {aGood.Get() + strData.substr(1), "truncated"},
        {CMrcBytes(3, 2, 2, 1, false).Set(23, 1 << 30).Get() + strData, "truncated"},
        {CMrcBytes(1 << 24, 1 << 24, 1 << 24, 2, false).Get() + strData, "truncated"},
    };
    for (const auto& [strBytes, strReason] : aCases)
    {
        WriteFile(strPath, strBytes);
        CMrcReader aReader;
        EXPECT_FALSE(aReader.Open(strPath));
        EXPECT_NE(aReader.GetError().find(strPath + ": "), std::string::npos) << aReader.GetError();
        EXPECT_NE(aReader.GetError().find(strReason), std::string::npos)
            << aReader.GetError() << ", expected " << strReason;
    }
    WriteFile(strPath, aGood.Get() + strData);
    CMrcReader aReader;
    EXPECT_TRUE(aReader.Open(strPath)) << aReader.GetError();
    EXPECT_FALSE(aReader.Open(aDir / "absent.mrc"));
    EXPECT_FALSE(aReader.Open(aDir / ""));
}

TEST(Mrc, RefusesPixelsThatAreNoNumbers)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "nan.mrc";
    for (const float fBad : {std::nanf(""), -std::numeric_limits<float>::infinity()})
    {
        WriteFile(
            strPath,
            CMrcBytes(2, 2, 2, 2, false).Append({1.f, 2.f, 3.f, 4.f, 5.f, 6.f, fBad, 8.f}).Get());
        CMrcReader aReader;
        ASSERT_TRUE(aReader.Open(strPath));
        std::vector<float> vfPixels(4);
        EXPECT_TRUE(aReader.ReadSection(0, vfPixels));
        EXPECT_FALSE(aReader.ReadSection(1, vfPixels));
        EXPECT_NE(aReader.GetError().find("section 2, column 1, row 2"), std::string::npos)
            << aReader.GetError();
    }
}

TEST(Mrc, WritesWhatItReadsWithStatistics)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "out.mrc";
    constexpr int iX = 37, iY = 5, iZ = 3;
    std::vector<float> vfAll(iX * iY * iZ);
    for (std::size_t i = 0; i < vfAll.size(); ++i)
        vfAll[i] = 1e4f + static_cast<float>(i * 7919 % 1001);  // a mean far from zero

    CMrcWriter aWriter;
    ASSERT_TRUE(aWriter.Create(strPath, iX, iY, iZ, 3.25, true, "a label")) << aWriter.GetError();
    for (int z = 0; z < iZ; ++z)
    {
        EXPECT_FALSE(std::filesystem::exists(strPath));
        ASSERT_TRUE(
            aWriter.WriteSection(std::span(vfAll).subspan(std::size_t(z * iX * iY), iX * iY)));
    }
    ASSERT_TRUE(aWriter.Finish()) << aWriter.GetError();

    double dMean = 0, dSquares = 0;
    for (const float fPixel : vfAll) dMean += fPixel / double(vfAll.size());
    for (const float fPixel : vfAll) dSquares += (fPixel - dMean) * (fPixel - dMean);
    CMrcReader aReader;
    ASSERT_TRUE(aReader.Open(strPath)) << aReader.GetError();
    const MrcHeader& rHeader = aReader.GetHeader();
    EXPECT_EQ(rHeader.fMin, *std::min_element(vfAll.begin(), vfAll.end()));
    EXPECT_EQ(rHeader.fMax, *std::max_element(vfAll.begin(), vfAll.end()));
    EXPECT_NEAR(rHeader.fMean, dMean, 1e-6 * dMean);
    EXPECT_NEAR(rHeader.fRms, std::sqrt(dSquares / double(vfAll.size())), 1e-4);
    EXPECT_NEAR(rHeader.dPixel, 3.25, 1e-6);
    EXPECT_TRUE(rHeader.bVolume);
    EXPECT_EQ(ReadAll(aReader), vfAll);

    const std::string strBytes = ReadFile(strPath);
    EXPECT_EQ(strBytes.size(), 1024 + 4 * vfAll.size());
    EXPECT_EQ(strBytes.substr(208, 4), "MAP ");
    EXPECT_EQ(strBytes.substr(224, 7), "a label");
}

TEST(Mrc, AnUnfinishedVolumeLeavesTheOldOne)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "rec.mrc";
    WriteFile(strPath, "precious");
    const std::vector<float> vfSection(6, 1.0f);
    {
        CMrcWriter aWriter;
        ASSERT_TRUE(aWriter.Create(strPath, 3, 2, 2, 0, true, ""));
        EXPECT_TRUE(aWriter.WriteSection(vfSection));
        EXPECT_FALSE(aWriter.WriteSection(std::span(vfSection).first(5)));
        EXPECT_FALSE(aWriter.Finish()) << "one section of two";
    }
    {
        CMrcWriter aWriter;
        ASSERT_TRUE(aWriter.Create(strPath, 3, 2, 2, 0, true, ""));
        EXPECT_TRUE(aWriter.WriteSection(vfSection));
    }
    EXPECT_EQ(ReadFile(strPath), "precious");
    EXPECT_EQ(aDir.CountFiles(), 1u);
    CMrcWriter aHuge;
    EXPECT_FALSE(aHuge.Create(strPath, 1 << 20, 1 << 20, 1 << 20, 0, true, "")) << "exabytes";
}

}  // namespace
}  // namespace talven::test
