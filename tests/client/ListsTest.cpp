#include <gtest/gtest.h>

#include "Lists.h"
#include "talven/Memory.h"
#include "talven/ServerLink.h"

namespace talven::test
{
namespace
{

TEST(Lists, Views)
{
    std::vector<int> viViews;
    std::string strError;
    EXPECT_TRUE(ParseViews("7-9,3,8,1", viViews, strError));
    EXPECT_EQ(viViews, (std::vector<int>{0, 2, 6, 7, 8}));
    for (const char* pcBad :
         {"", "0", "3-", "-3", "5-4", "1,,2", "a", "1-2-3", "1-2000000000", "1 "})
        EXPECT_FALSE(ParseViews(pcBad, viViews, strError)) << pcBad;
}

TEST(Lists, RelaxationTable)
{
    const struct
    {
        const char* pcText;
        std::vector<float> vfExpected;  // of 3 iterations and 2 subsets; empty: refused
    } aCases[] = {{"0.5", {0.5, 0.5, 0.5, 0.5, 0.5, 0.5}},
                  {"1,0.5,0.25", {1, 1, 0.5, 0.5, 0.25, 0.25}},
                  {"0.8:0.5", {0.8f, 0.8f, 0.4f, 0.4f, 0.2f, 0.2f}},
                  {"1,0.5", {}},
                  {"1,0.5:2", {}},
                  {"", {}},
                  {"-1", {}},
                  {"1:nan", {}},
                  {"1:2:3", {}}};
    for (const auto& [pcText, vfExpected] : aCases)
    {
        Relaxation aRelaxation;
        std::vector<float> vfTable;
        std::string strError;
        const bool bGood = ParseRelaxation(pcText, aRelaxation, strError) &&
                           MakeRelaxTable(aRelaxation, 3, 2, vfTable, strError);
        EXPECT_EQ(bGood, !vfExpected.empty()) << pcText;
        EXPECT_EQ(bGood ? vfTable : vfExpected, vfExpected) << pcText;
        EXPECT_EQ(strError.empty(), bGood) << pcText;
    }
}

TEST(Lists, Smoothing)
{
    double dSigma = 0;
    int iInterval = 0;
    std::string strError;
    EXPECT_TRUE(ParseSmoothing("0.8", dSigma, iInterval, strError));
    EXPECT_EQ(dSigma, 0.8);
    EXPECT_EQ(iInterval, 1);
    EXPECT_TRUE(ParseSmoothing("2,10", dSigma, iInterval, strError));
    EXPECT_EQ(iInterval, 10);
    for (const char* pcBad : {"", "0", "-1", "nan", "21", "1,0", "1,", "1,2.5", "1,2,3"})
        EXPECT_FALSE(ParseSmoothing(pcBad, dSigma, iInterval, strError)) << pcBad;
}

TEST(Lists, Server)
{
    const struct
    {
        const char* pcText;
        const char* pcHost;  // null: refused
        int iPort;
    } aCases[] = {{"box:7000", "box", 7000},
                  {"box", "box", 20248},
                  {"[::1]:80", "::1", 80},
                  {"[::1]", "::1", 20248},
                  {"10.0.0.1:65535", "10.0.0.1", 65535},
                  {":80", nullptr, 0},
                  {"box:", nullptr, 0},
                  {"box:0", nullptr, 0},
                  {"box:70000", nullptr, 0},
                  {"box:8x", nullptr, 0},
                  {"", nullptr, 0}};
    for (const auto& [pcText, pcHost, iPort] : aCases)
    {
        std::string strHost;
        std::uint16_t usPort = 0;
        ASSERT_EQ(ParseServer(pcText, strHost, usPort), pcHost != nullptr) << pcText;
        if (pcHost == nullptr) continue;
        EXPECT_EQ(strHost, pcHost);
        EXPECT_EQ(usPort, iPort);
    }
}

TEST(Lists, JobsBeyondTheLimitsAreRefused)
{
    std::string strError;
    EXPECT_TRUE(CheckJobSize({1024, 1024, 61, 1024, 256}, false, strError)) << strError;
    EXPECT_TRUE(CheckJobSize({1024, 1024, 61, 1024, 2047}, false, strError)) << strError;
    EXPECT_FALSE(CheckJobSize({1024, 1024, 61, 1024, 2048}, false, strError));
    EXPECT_FALSE(CheckJobSize({4096, 4096, 128, 64, 64}, false, strError));
    EXPECT_FALSE(CheckJobSize({1 << 24, 1 << 24, 1, 2147483647, 2147483647}, false, strError));
    if (GetFreeMemory() == 0 || GetFreeMemory() > (std::uint64_t(15) << 30))
        GTEST_SKIP() << "memory of this machine is unknown or holds any job";
    EXPECT_FALSE(CheckJobSize({1024, 1023, 2047, 1024, 2047}, true, strError));
    EXPECT_NE(strError.find("free"), std::string::npos) << strError;
}

}  // namespace
}  // namespace talven::test
