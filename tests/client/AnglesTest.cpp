#include <gtest/gtest.h>

#include "Files.h"
#include "talven/Angles.h"

namespace talven::test
{
namespace
{

TEST(Angles, ReadsOneNumberPerLine)
{
    const CTempDir aDir;
    WriteFile(aDir / "a.tlt", "# made by hand\n -60.00\r\n\n+1e1\t# ten\n  0\n59.5");
    std::vector<float> vfAngles;
    std::string strError;
    ASSERT_TRUE(ReadAngles(aDir / "a.tlt", vfAngles, strError)) << strError;
    EXPECT_EQ(vfAngles, (std::vector<float>{-60, 10, 0, 59.5f}));
}

TEST(Angles, NamesTheLineThatIsWrong)
{
    const CTempDir aDir;
    for (const auto& [strText, strReason] :
         std::vector<std::pair<std::string, std::string>>{{"1\n2\n3 4\n", "line 3"},
                                                          {"1\nabc\n", "line 2"},
                                                          {"nan\n", "line 1"},
                                                          {"1\ninf\n", "line 2"},
                                                          {"1e9\n", "line 1"},
                                                          {"1,5\n", "line 1"},
                                                          {"\x01\x02\xff", "line 1"},
                                                          {"# nothing\n\n", "no angles"},
                                                          {"", "no angles"}})
    {
        WriteFile(aDir / "a.tlt", strText);
        std::vector<float> vfAngles = {5};
        std::string strError;
        EXPECT_FALSE(ReadAngles(aDir / "a.tlt", vfAngles, strError)) << strText;
        EXPECT_NE(strError.find(strReason), std::string::npos) << strError;
        EXPECT_EQ(strError.find('\n'), std::string::npos);
        EXPECT_EQ(vfAngles, std::vector<float>{5}) << "must stay as it was";
    }
}

TEST(Angles, WritesWhatItReads)
{
    const CTempDir aDir;
    const std::vector<float> vfAngles = {-60, 0.1f, 33.333333f, 1.25f, -1e-7f};
    std::string strError;
    std::vector<float> vfBack;
    ASSERT_TRUE(WriteAngles(aDir / "a.tlt", vfAngles, strError)) << strError;
    ASSERT_TRUE(ReadAngles(aDir / "a.tlt", vfBack, strError)) << strError;
    EXPECT_EQ(vfBack, vfAngles);
    EXPECT_EQ(ReadFile(aDir / "a.tlt").substr(0, 7), "-60.00\n");
}

}  // namespace
}  // namespace talven::test
