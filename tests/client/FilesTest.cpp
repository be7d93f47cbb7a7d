// Files: written whole or not at all; MRC, angles and matrices.

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <map>

#include "Support.h"
#include "talven/Alignment.h"
#include "talven/Angles.h"
#include "talven/MrcWriter.h"

namespace talven::test
{
namespace
{

TEST(ClientFiles, AFileIsReplacedWhole)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "out";
    const auto Bytes = [](const std::string& strText) { return std::as_bytes(std::span(strText)); };
    WriteFile(strPath, "old");
    chmod(strPath.c_str(), 0640);
    std::filesystem::create_symlink(strPath, aDir / "link");
    CAtomicFile aFile;
    ASSERT_TRUE(aFile.Create(aDir / "link")) << aFile.GetError();
    ASSERT_TRUE(aFile.WriteAt(1, Bytes("ew")) && aFile.WriteAt(0, Bytes("n")));
    EXPECT_EQ(ReadFile(strPath), "old");
    EXPECT_TRUE(aFile.Commit() && ReadFile(strPath) == "new");
    EXPECT_TRUE(std::filesystem::is_symlink(aDir / "link"));
    const mode_t uiMask = umask(0027);
    ASSERT_TRUE(aFile.Create(aDir / "fresh") && aFile.Commit());
    umask(uiMask);
    for (const std::string& rPath : {strPath, aDir / "fresh"})
        EXPECT_EQ(int(std::filesystem::status(rPath).permissions()), 0640) << rPath;
    EXPECT_FALSE(aFile.WriteAt(0, {}) || aFile.Commit()) << "closed";

    EXPECT_FALSE(aFile.Create(aDir / "no/such"));
    EXPECT_EQ(aFile.GetError(), aDir / "no/such" + ": cannot write: No such file or directory");
    EXPECT_FALSE(aFile.Create(aDir / "") || aFile.Create(aDir / "big", 1ul << 60));
    EXPECT_NE(aFile.GetError().find("needs 1099511627776 MiB, the disk has "), std::string::npos);
    ASSERT_TRUE(aFile.Create("/dev/full")) << "a device is written in place";
    EXPECT_FALSE(aFile.WriteAt(0, Bytes("x")));
    EXPECT_EQ(aFile.GetError(), "/dev/full: cannot write: No space left on device");
    EXPECT_EQ(aDir.CountFiles(), 3);
}

TEST(ClientFiles, AnglesAndMatricesAreNumbersOnLines)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "a.txt";
    Floats vfAngles, vfBack;
    std::vector<Affine> aMatrices, aBack;
    std::string strError;
    WriteFile(strPath, "# made by hand\n -60.00\r\n\n+1e1\t# ten\n  360\n59.5");
    ASSERT_TRUE(ReadAngles(strPath, vfAngles, strError)) << strError;
    EXPECT_EQ(vfAngles, (Floats{-60, 10, 360, 59.5f}));
    WriteFile(strPath, "# drift\n\n 1,0, 0 ,1,\t+2.5 -3 # first\r\n1 0 0 1 0 0");
    ASSERT_TRUE(ReadMatrices(strPath, aMatrices, strError)) << strError;
    EXPECT_EQ(aMatrices, (std::vector<Affine>{{1, 0, 0, 1, 2.5, -3}, g_aIdentity}));
    vfAngles = {-60, 0.1f, 33.333333f, 1.25f, -1e-7f};
    aMatrices.push_back({0.1f, -1e-7f, 1e20f, 3, -2.5f, 1 / 3.0f});
    ASSERT_TRUE(WriteAngles(strPath, vfAngles, strError) && ReadAngles(strPath, vfBack, strError));
    EXPECT_EQ(ReadFile(strPath).substr(0, 12), "-60.00\n0.10\n");
    ASSERT_TRUE(WriteMatrices(strPath, aMatrices, strError) &&
                ReadMatrices(strPath, aBack, strError));
    for (const auto& [strText, strReason] : std::vector<std::pair<std::string, std::string>>{
             {"A1\n2\n3 4\n", "line 3: expected one angle in degrees, found \"3 4\""},
             {"A1\nnan\n", "line 2"},
             {"A361\n", "line 1"},
             {"A\x01\x02\xff", "found \"???\""},
             {"A# nothing\n\n", ": no angles in this file"},
             {"M\n1 0 0 1 0\n", "line 2: expected six numbers"},
             {"M1 0 0 1 0 0 0\n", "line 1"},
             {"M1 0 0 1 0 1e99\n", "line 1"},
             {"M1-0 0 1 0 0\n", "line 1"}})
    {
        WriteFile(strPath, strText.substr(1));
        EXPECT_FALSE(strText[0] == 'A' ? ReadAngles(strPath, vfBack, strError)
                                       : ReadMatrices(strPath, aBack, strError));
        EXPECT_TRUE(strError.starts_with(strPath)) << strError;
        EXPECT_NE(strError.find(strReason), std::string::npos) << strError << "; " << strReason;
    }
    EXPECT_TRUE(vfBack == vfAngles && aBack == aMatrices) << "must stay as they were";
    EXPECT_TRUE(!ReadMatrices(".XF", aBack, strError) && CheckMatrixFile("xf", strError) &&
                CheckMatrixFile("a.xf.txt", strError));
}

/// A file built from the published format, in either byte order.
/// \param rWords  of the header by their numbers, in place of the usual ones; number 23 tells the
///                bytes between header and pixels
template <class T>
std::string MakeMrc(bool bSwap, const std::array<int, 4>& rSizeMode, const std::vector<T>& rPixels,
                    const std::map<int, int>& rWords = {})
{
    const auto [iX, iY, iZ, iMode] = rSizeMode;
    std::map<int, int> aWords = rWords;
    aWords.insert({{0, iX}, {1, iY}, {2, iZ}, {3, iMode}, {7, iX}, {8, iY}, {9, iZ}});
    aWords.insert({{10, std::bit_cast<int>(2.5f * float(iX))}, {16, 1}, {17, 2}, {18, 3}});
    aWords.insert({53, bSwap ? 0x11110000 : 0x4444});
    std::string strBytes;
    const auto Append = [&](auto tValue)
    {
        auto acBytes = std::bit_cast<std::array<char, sizeof(tValue)>>(tValue);
        if (bSwap) std::reverse(acBytes.begin(), acBytes.end());
        strBytes.append(acBytes.data(), acBytes.size());
    };
    for (int i = 0; i < 256; ++i) Append(aWords[i]);
    strBytes.append(std::size_t(std::max(0, aWords[23])), 'Z');
    for (const T tPixel : rPixels) Append(tPixel);
    return strBytes;
}

TEST(ClientFiles, EveryModeIsReadAndEveryFaultSaid)
{
    using Half = std::uint16_t;
    const CTempDir aDir;
    const auto Expect = [&](const std::string& strBytes, const Floats& rExpected,
                            const char* pcReason = "in.mrc: no section")
    {
        WriteFile(aDir / "in.mrc", strBytes);
        CMrcReader aReader;
        EXPECT_EQ(ReadPixels(aReader, aDir / "in.mrc"), rExpected) << aReader.GetError();
        Floats vfSection = rExpected;
        EXPECT_FALSE(!rExpected.empty() &&
                     (aReader.ReadSection(4, vfSection) || aReader.ReadSection(-1, vfSection)));
        EXPECT_TRUE(rExpected.empty() || aReader.GetHeader().dPixel == 2.5);
        EXPECT_NE(aReader.GetError().find(pcReason), std::string::npos) << aReader.GetError();
    };
    for (const bool b : {false, true})  // bytes swapped
    {
        SCOPED_TRACE(b);
        Expect(MakeMrc<std::int8_t>(b, {2, 1, 2, 0}, {-128, 127, 0, -1}), {-128, 127, 0, -1});
        Expect(MakeMrc<std::int8_t>(b, {1, 1, 1, 0}, {-128}, {{38, 1146047817}}), {128});
        Expect(MakeMrc<Half>(b, {1, 2, 2, 1}, {0x8000, 9, 258, 0xFFFE}, {{23, 48}}),
               {-32768, 9, 258, -2});
        Expect(MakeMrc<float>(b, {2, 1, 1, 2}, {-1e30f, 0.1f}, {{23, 4096}}), {-1e30f, 0.1f});
        Expect(MakeMrc<Half>(b, {1, 1, 3, 6}, {65535, 258, 3}), {65535, 258, 3});
        // Halves: -2, the largest number, the smallest normal and denormal one.
        Expect(MakeMrc<Half>(b, {4, 1, 1, 12}, {0xC000, 0x7BFF, 0x0400, 1}),
               {-2, 65504, 0x1p-14f, 0x1p-24f});
        // A missing machine stamp: the numbers tell the byte order.
        Expect(MakeMrc<Half>(b, {2, 1, 1, 1}, {5, 6}, {{53, 0}}), {5, 6});
        Expect(MakeMrc<Half>(b, {1, 1, -1, 1}, {1}), {}, "in.mrc: not an MRC file");
        Expect(MakeMrc<Half>(b, {1, 1, 1, 1}, {1}, {{23, -1}}), {}, "not an MRC file");
        Expect(MakeMrc<Half>(b, {1, 1, 1, 4}, {1, 2}), {}, "MRC mode 4 is not supported");
        Expect(MakeMrc<Half>(b, {2, 1, 2, 1}, {1, 2, 3}, {{23, 16}}), {}, "ends in section 2");
        Expect(MakeMrc<float>(b, {1 << 24, 1 << 24, 1 << 24, 2}, {}), {}, "truncated");
        Expect(MakeMrc<float>(b, {1, 2, 2, 2}, {1, 2, 3, NAN}), {}, "section 2, column 1, row 2");
        Expect(MakeMrc<float>(b, {2, 1, 1, 2}, {1, -HUGE_VALF}), {}, "column 2, row 1 is not");
        Expect(MakeMrc<Half>(b, {1, 1, 1, 12}, {0x7C00}), {}, "is not a finite number");
    }
    Expect("", {}, "not an MRC file (shorter than its header)");
    Expect(std::string(5000, '\0'), {}, "not an MRC file");
    EXPECT_FALSE(CMrcReader().Open(aDir / "absent.mrc") || CMrcReader().Open(aDir / ""));
}

TEST(ClientFiles, AWrittenStackHasItsStatistics)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "out.mrc";
    Floats vfAll(37 * 5 * 3);
    for (int i = 0; i < 555; ++i)
    {
        const int iValue = i / 185 * 185 + i * 7919 % 185;  // each once, the sections apart
        vfAll[i] = iValue < 2 || iValue > 552 ? -1e30f : 1e4f + float(iValue);
    }
    WriteFile(strPath, "precious");
    for (const int iWritten : {1, 2, 3})
    {
        CMrcWriter aWriter;
        ASSERT_TRUE(aWriter.Create(strPath, 37, 5, 3, 3.25, true, "a label"));
        for (std::size_t z = 0; z < std::size_t(iWritten); ++z)
            ASSERT_TRUE(aWriter.WriteSection(std::span(vfAll).subspan(185 * z, 185)));
        EXPECT_FALSE(aWriter.WriteSection(std::span(vfAll).first(5)));
        EXPECT_EQ(ReadFile(strPath), "precious");
        EXPECT_EQ(iWritten == 1 || aWriter.Finish(), iWritten != 2) << aWriter.GetError();
    }
    EXPECT_EQ(aDir.CountFiles(), 1);
    EXPECT_FALSE(CMrcWriter().Create(strPath, 1 << 20, 1 << 20, 1 << 20, 0, true, ""));

    CMrcReader aReader;
    EXPECT_EQ(ReadPixels(aReader, strPath), vfAll) << aReader.GetError();
    const MrcHeader& rHeader = aReader.GetHeader();
    EXPECT_NEAR(rHeader.fRms, std::sqrt((551 * 551 - 1) / 12.0), 1e-3);
    EXPECT_TRUE(rHeader.dPixel == 3.25 && rHeader.bVolume);
    const float afCell[] = {37 * 3.25f, 5 * 3.25f, 3 * 3.25f, 90, 90, 90};
    const float afFigures[] = {10002, 10552, 10277};
    std::string strExpected =
        MakeMrc(false, {37, 5, 3, 2}, vfAll, {{22, 1}, {27, 20140}, {52, 0x2050414D}, {55, 1}});
    std::memcpy(&strExpected[40], afCell, sizeof(afCell));
    std::memcpy(&strExpected[76], afFigures, sizeof(afFigures));
    std::memcpy(&strExpected[216], &rHeader.fRms, 4);
    std::memcpy(&strExpected[224], std::string("a label").append(73, ' ').c_str(), 80);
    EXPECT_TRUE(ReadFile(strPath) == strExpected);
}

}  // namespace
}  // namespace talven::test
