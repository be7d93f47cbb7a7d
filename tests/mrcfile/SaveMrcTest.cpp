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
/// A path that is removed in the end.
struct Path : std::string
{
    explicit Path(const char* pcName)
        : std::string(testing::TempDir() + std::to_string(getpid()) + pcName)
    {
    }
    ~Path() { std::remove(c_str()); }
};

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
    const Path strPath("vol0007.mrc");
    ASSERT_TRUE(aSave.OpenFile(strPath.substr(0, strPath.size() - 8).append(".mrc").c_str(), 7));
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

    std::ifstream aFile(strPath, std::ios::binary);
    const std::vector<char> vcFile{std::istreambuf_iterator<char>(aFile), {}};
    constexpr int iWidth = iX - 2 * iTrimX, iHeight = iY - 2 * iTrimY;
    ASSERT_EQ(vcFile.size(), 132096u + 3 * iWidth * iHeight * 4);
    const std::pair<std::size_t, int> aInts[] = {{0, iWidth}, {4, iHeight}, {8, 3},       {12, 2},
                                                 {28, 1},     {32, 1},      {36, 1},      {64, 1},
                                                 {68, 2},     {72, 3},      {92, 131072}, {220, 2}};
    for (const auto& [tOffset, iValue] : aInts)
        EXPECT_EQ(At<int>(vcFile, tOffset), iValue) << tOffset;
    for (const auto& [tOffset, sValue] : {std::pair(96u, -16224), {130, 32}, {132, 1}, {160, 5}})
        EXPECT_EQ(At<short>(vcFile, tOffset), sValue) << tOffset;
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
    const Path strPath("vol.mrc");
    EXPECT_FALSE(aSave.OpenFile(""));
    EXPECT_STREQ(aSave.GetError(), "Error: Invalid file name. ");
    EXPECT_FALSE(aSave.OpenFile((strPath + "/none").c_str()));
    EXPECT_FALSE(aSave.DoIt());  // nothing is open
    ASSERT_TRUE(aSave.OpenFile(strPath.c_str()));
    const std::vector<float> vfImage(4);
    aSave.SetImage(vfImage.data());
    aSave.SetImageSize(2, 2);
    for (const auto& [iMode, iBytes] :
         {std::pair{0, 1}, {1, 2}, {2, 4}, {6, 2}, {7, 4}, {8, 0}, {-1, 0}})
    {
        aSave.SetMode(iMode);
        ASSERT_TRUE(aSave.OpenFile(strPath.c_str()));
        EXPECT_EQ(aSave.DoIt(), iBytes > 0) << iMode;
        if (iBytes == 0) continue;
        EXPECT_EQ(std::filesystem::file_size(strPath.c_str()), std::size_t(132096 + 4 * iBytes));
    }
    EXPECT_FALSE(aSave.DoIt(std::numeric_limits<int>::max()));
    EXPECT_FALSE(aSave.DoIt(-1));
    aSave.SetMode(2);
    aSave.SetImageSize(1 << 16, 1 << 16);  // more pixels than any image has
    aSave.TrimEdge(1 << 15, 1 << 15);      // and nothing is left of them
    EXPECT_FALSE(aSave.DoIt());
}

TEST(SaveMainHeader, StatisticsFollowTheirRules)
{
    CSaveMainHeader aHeader;
    for (const float fMin : {5.0f, 0.0f, 3.0f}) aHeader.SetMin(fMin);
    EXPECT_EQ(aHeader.GetHeader().amin, 3.0f);  // the 0 gave way
    aHeader.SetSizeZ(9);
    aHeader.SetSizeZ(4);
    EXPECT_EQ(aHeader.GetHeader().nz, 9);
    CMainHeader aSwapped = aHeader.GetHeader();
    aSwapped.SwapByte();
    EXPECT_EQ(aSwapped.nz, 9 << 24);
    EXPECT_NE(aSwapped.dvid, -16224);
    aSwapped.SwapByte();
    EXPECT_EQ(std::memcmp(&aSwapped, &aHeader.GetHeader(), sizeof aSwapped), 0);
}

TEST(FileName, MakesVariants)
{
    const Util_FileName aName("recon.mrc.bak");
    for (const auto& [iSerial, pcName] : {std::pair(9, "recon0009.mrc"),
                                          {99, "recon0099.mrc"},
                                          {999, "recon0999.mrc"},
                                          {1234, "recon1234.mrc"}})
        EXPECT_EQ(aName.InsertSerial(iSerial), pcName);
    EXPECT_EQ(aName.ReplaceExt("png"), "recon.png");
    EXPECT_EQ(aName.AppendText("_b"), "recon_b.mrc");
    EXPECT_EQ(Util_FileName("./vol").GetMainName(), "/vol");  // leading dots are lost
    EXPECT_EQ(Util_FileName(std::string(128, 'a').c_str()).GetMainName(), "");
}
}  // namespace
