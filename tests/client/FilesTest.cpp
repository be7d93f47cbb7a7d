// Files: written whole or not at all; MRC, angles and matrices.

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "Support.h"
#include "talven/Alignment.h"
#include "talven/Angles.h"

namespace talven::test
{
namespace
{

TEST(ClientFiles, AFileIsReplacedOnlyByACompleteOne)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "out";
    WriteFile(strPath, "old");
    chmod(strPath.c_str(), 0640);
    std::filesystem::create_symlink(strPath, aDir / "link");
    CAtomicFile aFile;
    for (const bool bCommit : {false, true})
    {
        ASSERT_TRUE(aFile.Create(aDir / "link")) << aFile.GetError();
        ASSERT_TRUE(aFile.WriteAt(1, std::as_bytes(std::span("ew", 2))));
        ASSERT_TRUE(aFile.WriteAt(0, std::as_bytes(std::span("n", 1))));
        EXPECT_EQ(ReadFile(strPath), "old");
        EXPECT_TRUE(!bCommit || aFile.Commit());
        aFile.Discard();
        EXPECT_EQ(ReadFile(strPath), bCommit ? "new" : "old");
        EXPECT_EQ(aDir.CountFiles(), 2u);
    }
    EXPECT_TRUE(std::filesystem::is_symlink(aDir / "link"));
    struct stat aOld, aFresh;
    const mode_t uiMask = umask(0027);
    ASSERT_TRUE(aFile.Create(aDir / "fresh") && aFile.Commit());
    umask(uiMask);
    ASSERT_TRUE(stat(strPath.c_str(), &aOld) == 0 && stat((aDir / "fresh").c_str(), &aFresh) == 0);
    EXPECT_TRUE((aOld.st_mode & 0777) == 0640 && (aFresh.st_mode & 0777) == 0640);
    EXPECT_FALSE(aFile.WriteAt(0, {}) || aFile.Commit()) << "closed";

    EXPECT_FALSE(aFile.Create(aDir / "no/such"));
    EXPECT_EQ(aFile.GetError(), aDir / "no/such" + ": cannot write: No such file or directory");
    EXPECT_FALSE(aFile.Create(aDir / ""));
    EXPECT_FALSE(aFile.Create(aDir / "big", std::uint64_t(1) << 60));
    EXPECT_NE(aFile.GetError().find("needs 1099511627776 MiB, the disk has "), std::string::npos);
    ASSERT_TRUE(aFile.Create("/dev/full")) << "a device is written in place";
    EXPECT_FALSE(aFile.WriteAt(0, std::as_bytes(std::span("x", 1))));
    EXPECT_NE(aFile.GetError().find("No space left"), std::string::npos) << aFile.GetError();
    const pid_t iChild = fork();  // a disk that is full in the middle
    if (iChild == 0)
    {
        const rlimit aLimit = {1000, 1000};
        setrlimit(RLIMIT_FSIZE, &aLimit);
        signal(SIGXFSZ, SIG_IGN);
        const std::vector<std::byte> vcData(4000);
        _exit(aFile.Create(strPath) && !aFile.WriteAt(0, vcData) && !aFile.Commit() ? 0 : 1);
    }
    int iStatus = -1;
    EXPECT_TRUE(waitpid(iChild, &iStatus, 0) == iChild && iStatus == 0);
    EXPECT_EQ(ReadFile(strPath), "new");
    EXPECT_EQ(aDir.CountFiles(), 3u);
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
             {"Anan\n", "line 1"},
             {"A1\n361\n", "line 2"},
             {"A1,5\n", "line 1"},
             {"A\x01\x02\xff", "found \"???\""},
             {"A# nothing\n\n", "no angles in this file"},
             {"M", "no matrices in this file"},
             {"M\n1 0 0 1 0\n", "line 2: expected six numbers"},
             {"M1 0 0 1 0 0 0\n", "line 1"},
             {"M1 0 0 1 0 1e99\n", "line 1"},
             {"M1-0 0 1 0 0\n", "line 1"}})
    {
        WriteFile(strPath, strText.substr(1));
        EXPECT_FALSE(strText[0] == 'A' ? ReadAngles(strPath, vfBack, strError)
                                       : ReadMatrices(strPath, aBack, strError));
        EXPECT_NE(strError.find(strPath), std::string::npos) << strError;
        EXPECT_NE(strError.find(strReason), std::string::npos) << strError << "; " << strReason;
    }
    EXPECT_FALSE(ReadAngles(aDir / "no", vfBack, strError));
    EXPECT_TRUE(vfBack == vfAngles && aBack == aMatrices) << "must stay as they were";
    for (const char* pcName : {"ts.xf", ".XF", "a.Xf"})
        EXPECT_FALSE(ReadMatrices(pcName, aBack, strError) ||
                     strError.find("an .xf file tells where measured") == std::string::npos);
    EXPECT_TRUE(CheckMatrixFile("xf", strError) && CheckMatrixFile("a.xf.txt", strError));
}

/// A file built from the published format, word by word, in either byte order.
class CMrcBytes
{
public:
    CMrcBytes(int iX, int iY, int iZ, int iMode, bool bSwap = false) : m_bSwap(bSwap)
    {
        Set(0, iX).Set(1, iY).Set(2, iZ).Set(3, iMode).Set(7, iX).Set(8, iY).Set(9, iZ);
        Set(10, std::bit_cast<int>(2.5f * float(iX))).Set(16, 1).Set(17, 2).Set(18, 3);
        std::memcpy(m_strBytes.data() + 208, bSwap ? "MAP \x11\x11" : "MAP DD", 6);
    }
    CMrcBytes& Set(int iWord, int iValue)
    {
        if (m_bSwap) iValue = static_cast<int>(__builtin_bswap32(static_cast<unsigned>(iValue)));
        std::memcpy(m_strBytes.data() + 4 * iWord, &iValue, 4);
        return *this;
    }
    template <class T>
    std::string With(std::initializer_list<T> aValues, int iExtended = 0)
    {
        std::string strAll = Set(23, iExtended).m_strBytes + std::string(iExtended, 'Z');
        for (const T tValue : aValues)
        {
            char acBytes[sizeof(T)];
            std::memcpy(acBytes, &tValue, sizeof(T));
            if (m_bSwap) std::reverse(std::begin(acBytes), std::end(acBytes));
            strAll.append(acBytes, sizeof(T));
        }
        return strAll;
    }

private:
    bool m_bSwap;
    std::string m_strBytes = std::string(1024, '\0');
};

TEST(ClientFiles, EveryModeIsReadInBothByteOrders)
{
    const CTempDir aDir;
    for (const bool bSwap : {false, true})
    {
        const auto Expect = [&](const std::string& strBytes, const Floats& rExpected)
        {
            WriteFile(aDir / "in", strBytes);
            EXPECT_EQ(ReadPixels(aDir / "in"), rExpected) << "swapped " << bSwap;
            CMrcReader aReader;
            EXPECT_TRUE(aReader.Open(aDir / "in") && aReader.GetHeader().dPixel == 2.5);
        };
        const auto Make = [bSwap](int iX, int iY, int iZ, int iMode)
        { return CMrcBytes(iX, iY, iZ, iMode, bSwap); };
        Expect(Make(2, 1, 2, 0).With<std::int8_t>({-128, 127, 0, -1}), {-128, 127, 0, -1});
        Expect(Make(2, 1, 2, 0).Set(38, 1146047817).With<std::uint8_t>({128, 127, 0, 255}),
               {128, 127, 0, 255});
        Expect(Make(1, 2, 2, 1).With<std::int16_t>({-32768, 32767, 258, -2}, 48),
               {-32768, 32767, 258, -2});
        Expect(Make(3, 1, 1, 2).With<float>({-1e30f, 0.1f, 7}, 4096), {-1e30f, 0.1f, 7});
        Expect(Make(1, 1, 3, 6).With<std::uint16_t>({65535, 258, 32768}), {65535, 258, 32768});
        // Halves: 1, -2, the largest number, the smallest normal and denormal one, -0.
        Expect(
            Make(3, 2, 1, 12).With<std::uint16_t>({0x3C00, 0xC000, 0x7BFF, 0x0400, 0x0001, 0x8000}),
            {1, -2, 65504, 0x1p-14f, 0x1p-24f, -0.0f});
        // A missing machine stamp: the numbers tell the byte order.
        Expect(Make(2, 1, 1, 1).Set(53, 0).With<std::int16_t>({5, 6}), {5, 6});
    }
}

TEST(ClientFiles, WhatIsWrongWithAnMrcFileIsSaid)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "bad.mrc", strData(2 * 3 * 2 * 2, 'x');
    const auto Make = [&](int iZ, int iMode, int iExtended = 0)
    { return CMrcBytes(3, 2, iZ, iMode).Set(23, iExtended).With<char>({}, iExtended) + strData; };
    for (const auto& [strBytes, strReason] : std::vector<std::pair<std::string, std::string>>{
             {"", "not an MRC file (shorter than its header)"},
             {std::string(5000, 'A'), "not an MRC file"},
             {std::string(5000, '\0'), "not an MRC file"},
             {Make(-1, 1), "not an MRC file"},
             {Make(2, 4), "mode 4 is not supported"},
             {Make(2, 1, 16).substr(0, 1024 + 16 + 23), "the file ends in section 2"},
             {CMrcBytes(1 << 24, 1 << 24, 1 << 24, 2).With<char>({}), "truncated"},
             {CMrcBytes(2, 2, 2, 2).With<float>({1, 2, 3, 4, 5, 6, std::nanf(""), 8}),
              "section 2, column 1, row 2 is not a finite number"},
             {CMrcBytes(2, 1, 1, 2).With<float>({1, -HUGE_VALF}), "section 1, column 2, row 1"},
             {CMrcBytes(1, 2, 1, 12).With<std::uint16_t>({0, 0x7C00}),
              "section 1, column 1, row 2"},
             {Make(2, 1, 16), ""}})
    {
        WriteFile(strPath, strBytes);
        CMrcReader aReader;
        bool bDone = aReader.Open(strPath);
        Floats vfSection(bDone ? aReader.GetHeader().GetSectionPixels() : 0);
        for (int z = 0; bDone && z < aReader.GetHeader().iZ; ++z)
            bDone = aReader.ReadSection(z, vfSection);
        EXPECT_EQ(bDone, strReason.empty()) << aReader.GetError();
        EXPECT_TRUE(bDone || aReader.GetError().starts_with(strPath + ": ")) << aReader.GetError();
        EXPECT_NE(aReader.GetError().find(strReason), std::string::npos) << aReader.GetError();
        EXPECT_FALSE(aReader.ReadSection(2, vfSection) || aReader.ReadSection(-1, vfSection) ||
                     aReader.Open(aDir / "absent.mrc") || aReader.Open(aDir / ""));
    }
}

TEST(ClientFiles, AWrittenStackHasItsStatistics)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "out.mrc";
    Floats vfAll(37 * 5 * 3), vfValues;
    for (std::size_t i = 0; i < vfAll.size(); ++i)
    {
        vfAll[i] = i % 50 == 7 ? -1e30f : 1e4f + float(i * 7919 % 1001) * float(i / 100);
        if (i % 50 != 7) vfValues.push_back(vfAll[i]);
    }
    WriteFile(strPath, "precious");
    const auto Section = [&vfAll](int z) { return std::span(vfAll).subspan(185ul * z, 185); };
    for (const int iWritten : {1, 2, 3})
    {
        CMrcWriter aWriter;
        ASSERT_TRUE(aWriter.Create(strPath, 37, 5, 3, 3.25, true, "a label"));
        for (int z = 0; z < iWritten; ++z) ASSERT_TRUE(aWriter.WriteSection(Section(z)));
        EXPECT_FALSE(aWriter.WriteSection(Section(0).first(5)));
        EXPECT_EQ(ReadFile(strPath), "precious");
        EXPECT_EQ(iWritten == 1 || aWriter.Finish(), iWritten != 2) << aWriter.GetError();
    }
    EXPECT_EQ(aDir.CountFiles(), 1u);
    EXPECT_FALSE(CMrcWriter().Create(strPath, 1 << 20, 1 << 20, 1 << 20, 0, true, ""));

    double dMean = 0, dSquares = 0;
    for (const float fPixel : vfValues) dMean += fPixel / double(vfValues.size());
    for (const float fPixel : vfValues) dSquares += (fPixel - dMean) * (fPixel - dMean);
    CMrcReader aReader;
    ASSERT_TRUE(aReader.Open(strPath)) << aReader.GetError();
    const MrcHeader& rHeader = aReader.GetHeader();
    EXPECT_EQ(rHeader.fMin, *std::min_element(vfValues.begin(), vfValues.end()));
    EXPECT_EQ(rHeader.fMax, *std::max_element(vfValues.begin(), vfValues.end()));
    EXPECT_NEAR(rHeader.fMean, dMean, 1e-6 * dMean);
    EXPECT_NEAR(rHeader.fRms, std::sqrt(dSquares / double(vfValues.size())), 1e-3);
    EXPECT_TRUE(rHeader.dPixel == 3.25 && rHeader.bVolume);
    EXPECT_EQ(ReadPixels(strPath), vfAll);
    const std::string strBytes = ReadFile(strPath);  // by the published format
    EXPECT_EQ(strBytes.size(), 1024 + 4 * vfAll.size());
    EXPECT_EQ(strBytes.substr(208, 6), "MAP DD");
    EXPECT_EQ(strBytes.substr(224, 80), "a label" + std::string(73, ' '));
    const int aiExpected[] = {37, 5, 3, 2, 0, 0, 0, 37, 5, 3};
    EXPECT_EQ(std::memcmp(strBytes.data(), aiExpected, sizeof(aiExpected)), 0);
    const float afCell[] = {37 * 3.25f, 5 * 3.25f, 3 * 3.25f, 90, 90, 90};
    EXPECT_EQ(std::memcmp(strBytes.data() + 40, afCell, sizeof(afCell)), 0);
    const int aiAxes[] = {1, 2, 3}, aiVersion[] = {20140}, aiLabels[] = {1};
    EXPECT_EQ(std::memcmp(strBytes.data() + 64, aiAxes, sizeof(aiAxes)), 0);
    EXPECT_EQ(std::memcmp(strBytes.data() + 108, aiVersion, 4), 0);
    EXPECT_EQ(std::memcmp(strBytes.data() + 220, aiLabels, 4), 0);
}

}  // namespace
}  // namespace talven::test
