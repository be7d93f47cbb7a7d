#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <numeric>
#include <vector>

#include "Mrcfile/SaveMrc.h"
#include "Util/Util_FileName.h"

namespace
{
const std::string g_strPath = testing::TempDir() + std::to_string(getpid()) + "vol";

template <class T>
T At(const std::vector<char>& rFile, std::size_t tOffset)
{
    T tValue{};
    if (tOffset + sizeof(T) <= rFile.size())
        std::memcpy(&tValue, rFile.data() + tOffset, sizeof(T));
    return tValue;
}

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
    const std::vector<char> vcFile{std::istreambuf_iterator<char>(aFile), {}};
    std::remove((g_strPath + "0007.mrc").c_str());
    constexpr int iWidth = iX - 2 * iTrimX, iHeight = iY - 2 * iTrimY;
    ASSERT_EQ(vcFile.size(), 132096u + 3 * iWidth * iHeight * 4);
    const std::pair<std::size_t, int> aInts[] = {
        {0, iWidth}, {4, iHeight}, {8, 3},    {12, 2}, {28, 1},      {32, 1},
        {36, 1},     {64, 1},      {68, 2},   {72, 3}, {92, 131072}, {96, -16224},
        {220, 2},    {160, 5},     {130, 32}, {132, 1}};
    for (const auto& [tOffset, iValue] : aInts)
        EXPECT_TRUE(At<int>(vcFile, tOffset) == iValue || At<short>(vcFile, tOffset) == iValue)
            << tOffset;
    const std::size_t tRecord = 1024 + 128, tSection = 132096 + iWidth * iHeight * 4;
    const std::pair<std::size_t, float> aFloats[] = {
        {52, 90},
        {76, 1},
        {80, 280},
        {84, (40.5f + 140.5f + 240.5f + 240.5f) / 4},
        {192, 90},
        {tRecord, -30.5f},
        {tRecord + 36, 140.5f},  // mean of the section
        {tRecord + 128 + 80, 2},
        {tRecord + 128, 0},  // records are cleared
        {tSection, 101 + iTrimY * iX + iTrimX},
        {tSection + iWidth * 4, 101 + (iTrimY + 1) * iX + iTrimX}};
    for (const auto& [tOffset, fValue] : aFloats)
        EXPECT_FLOAT_EQ(At<float>(vcFile, tOffset), fValue) << tOffset;
    EXPECT_EQ(vcFile[224 + 79], 'x');  // cut at 80 without a terminator
    EXPECT_EQ(vcFile[224 + 80], '\0');
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

TEST(SaveMainHeader, StatisticsFollowTheirRules)
{
    CSaveMainHeader aHeader;
    for (const float fMin : {5.0f, 0.0f, 3.0f}) aHeader.SetMin(fMin);
    EXPECT_EQ(aHeader.GetHeader().amin, 3.0f);  // the 0 gave way
    for (const int iSections : {9, 4}) aHeader.SetSizeZ(iSections);
    CMainHeader aSwapped = aHeader.GetHeader();
    aSwapped.SwapByte();
    EXPECT_EQ(aSwapped.nz, 9 << 24);
    aSwapped.SwapByte();
    EXPECT_EQ(std::memcmp(&aSwapped, &aHeader.GetHeader(), sizeof aSwapped), 0);
}

TEST(FileName, MakesVariants)
{
    const Util_FileName aName("recon.mrc.bak");
    EXPECT_EQ(aName.InsertSerial(99), "recon0099.mrc");
    EXPECT_EQ(aName.AppendText("_b"), "recon_b.mrc");
    EXPECT_EQ(Util_FileName("./vol").GetMainName(), "/vol");  // leading dots are lost
    EXPECT_EQ(Util_FileName(std::string(128, 'a').c_str()).GetMainName(), "");
}
}  // namespace
