#include "Mrcfile/SaveMrc.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <numeric>
#include <vector>

#include "Util/Util_FileName.h"
#include "Util/Util_Statistics.h"

namespace
{
const std::string g_strPath = testing::TempDir() + std::to_string(getpid()) + "vol";

TEST(SaveMrc, WritesHeaderRecordsAndTrimmedSections)
{
    constexpr int iX = 10, iY = 8, iTrimX = 2, iTrimY = 3;
    CSaveMrc aSave;
    aSave.SetMode(2);
    aSave.SetImageSize(iX, iY);
    aSave.TrimEdge(iTrimX, iTrimY);
    ASSERT_TRUE(aSave.OpenFile((g_strPath + ".mrc").c_str(), 7));
    std::vector<float> vfImage(iX * iY);
    for (int n = 0; n < 3; ++n)
    {
        std::iota(vfImage.begin(), vfImage.end(), 100.0f * static_cast<float>(n) + 1);
        aSave.SetImage(vfImage.data());
        if (n == 1) aSave.SetTiltA(-30.5f);
        aSave.SetNthExtField(20, static_cast<float>(n));
        EXPECT_TRUE(aSave.DoIt());
    }
    aSave.SetNthLabel(0, "first");
    aSave.SetNthLabel(0, std::string(90, 'x').c_str());
    EXPECT_TRUE(aSave.DoIt(0));  // rewrites a section; the mean counts it again
    aSave.CloseFile();

    std::ifstream aFile(g_strPath + "0007.mrc", std::ios::binary);
    const std::string strFile{std::istreambuf_iterator<char>(aFile), {}};
    std::remove((g_strPath + "0007.mrc").c_str());
    constexpr int iWidth = iX - 2 * iTrimX, iHeight = iY - 2 * iTrimY;
    ASSERT_EQ(strFile.size(), 132096u + 3 * iWidth * iHeight * 4);
    CMainHeader h;
    std::memcpy(&h, strFile.data(), sizeof h);
    EXPECT_EQ((std::array{h.nx, h.ny, h.nz, h.mode, h.mx, h.my, h.mz, h.mapc, h.mapr, h.maps,
                          h.nsymbt, h.nlabl}),
              (std::array{iWidth, iHeight, 3, 2, 1, 1, 1, 1, 2, 3, 131072, 2}));
    EXPECT_EQ((std::array{h.dvid, h.numfloats, h.sub, h.type}),
              (std::array<short, 4>{-16224, 32, 1, 5}));
    EXPECT_EQ((std::array{h.alpha, h.amin, h.amax, h.amean, h.ztilt}),
              (std::array{90.0f, 1.0f, 280.0f, 165.5f, 90.0f}));
    EXPECT_EQ(strFile.substr(224, 81), std::string(80, 'x') + '\0');  // cut without a terminator
    const auto At = [&](int iOffset)
    {
        float fValue = 0;
        std::memcpy(&fValue, &strFile[std::size_t(iOffset)], 4);
        return fValue;
    };
    const int iRecord = 1024 + 128, iSection = 132096 + iWidth * iHeight * 4;
    EXPECT_EQ(At(iRecord), -30.5f);
    EXPECT_EQ(At(iRecord + 36), 140.5f);  // mean of the section
    EXPECT_EQ(At(iRecord + 128 + 80), 2);
    EXPECT_EQ(At(iRecord + 128), 0);  // records are cleared
    EXPECT_EQ(At(iSection), 101 + iTrimY * iX + iTrimX);
    EXPECT_EQ(At(iSection + iWidth * 4), 101 + (iTrimY + 1) * iX + iTrimX);
}

TEST(SaveMrc, RefusesWhatItCannotWrite)
{
    CSaveMrc aSave;
    EXPECT_FALSE(aSave.OpenFile(""));
    EXPECT_STREQ(aSave.GetError(), "Error: Invalid file name. ");
    EXPECT_FALSE(aSave.OpenFile((g_strPath + "/none").c_str()));
    EXPECT_FALSE(aSave.DoIt());  // nothing is open
    const std::vector<float> vfImage(4);
    aSave.SetImage(vfImage.data());
    aSave.SetImageSize(2, 2);
    for (const auto& [iMode, iBytes] :
         {std::pair{-1, 0}, {0, 1}, {1, 2}, {2, 4}, {6, 2}, {7, 4}, {8, 0}})
    {
        aSave.SetMode(iMode);
        ASSERT_TRUE(aSave.OpenFile(g_strPath.c_str()));
        EXPECT_EQ(aSave.DoIt(), iBytes > 0) << iMode;
        EXPECT_TRUE(iBytes == 0 ||
                    std::filesystem::file_size(g_strPath) == std::size_t(132096 + 4 * iBytes));
    }
    aSave.SetMode(2);
    for (const int iSection : {-1, std::numeric_limits<int>::max()})
        EXPECT_FALSE(aSave.DoIt(iSection));
    aSave.SetImageSize(1 << 16, 1 << 16);  // more pixels than any image has
    aSave.TrimEdge(1 << 15, 1 << 15);      // and nothing is left of them
    EXPECT_FALSE(aSave.DoIt());
    std::remove(g_strPath.c_str());
}

TEST(FileName, MakesVariants)
{
    const Util_FileName aName("recon.mrc.bak");
    EXPECT_EQ(aName.InsertSerial(99), "recon0099.mrc");
    EXPECT_EQ(aName.AppendText("_b"), "recon_b.mrc");
    EXPECT_EQ(Util_FileName("./vol").GetMainName(), "/vol");  // leading dots are lost
    EXPECT_EQ(Util_FileName(std::string(128, 'a').c_str()).GetMainName(), "");
}

TEST(Statistics, FollowTheModes)
{
    const unsigned char aucValues[] = {2, 4, 1, 255};
    const short asValues[] = {2, 4, -1, 3};
    const float afValues[] = {0.5f, -2, 0.5f, -2};
    const unsigned short ausValues[] = {2, 65535, 1, 3};
    EXPECT_EQ(Util_Statistics::Max(aucValues, 4, 0), 255);
    EXPECT_EQ(Util_Statistics::Min(asValues, 4, 1), -1);
    EXPECT_EQ(Util_Statistics::Mean(afValues, 4, 2), -0.75);
    EXPECT_EQ(Util_Statistics::Std(afValues, 4, 2), 1.25);
    EXPECT_EQ(Util_Statistics::Max(ausValues, 4, 6), 65535);
    EXPECT_EQ(Util_Statistics::Max(nullptr, 2, 3), 0);
}
}  // namespace
