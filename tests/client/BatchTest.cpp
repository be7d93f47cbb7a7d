// Batches: many tomograms, and one in parts, over processes and servers that come and go.

#include "Program.h"
#include "batch/Slabs.h"

namespace talven::test
{
namespace
{

const std::string g_strOptions = "--tilts ph.mrc --angles ph.tlt --thickness 36 ";
const std::string g_strPlan = "batch plan -o job.json " + g_strOptions + "--output vol.mrc ";

class ClientBatch : public CProgramTest
{
protected:
    /// Runs all tasks, one after the other, and joins.
    void mRunTasks(int iTasks)
    {
        for (int i = 0; i < iTasks; ++i) mRun("batch run job.json " + std::to_string(i));
        mRun("batch join job.json");
    }
    std::vector<std::string> mGetStates()
    {
        std::vector<std::string> vstrStates;
        const json aStatus = mJson("batch status job.json");
        for (const json& rTask : aStatus["tasks"]) vstrStates.push_back(rTask["state"]);
        return vstrStates;
    }
    std::filesystem::file_time_type mGetTime(const char* pcName)
    {
        return std::filesystem::last_write_time(m_aDir / pcName);
    }
    using States = std::vector<std::string>;
};

TEST_F(ClientBatch, APartedVolumeIsTheWholeFileByteForByte)
{
    std::string strMaps;
    for (int i = 0; i < 41; ++i)
        strMaps += Format("0.9986 0.0523 -0.0523 0.9986 %d.25 -1\n", i % 5);
    WriteFile(m_aDir / "ts.xf", strMaps);
    for (const char* pcOptions :
         {"--iterations 3 --smooth 0.6 --mode 1 --orientation xzy --flip-z",
          "--method em --iterations 2 --xf ts.xf --mode 0 --trim 50,30,20 --rfactors r.txt",
          "--method bp --preview p.png"})
    {
        mRun("reconstruct " + g_strOptions + "-o whole.mrc --json " + pcOptions);
        const double dRfactor = json::parse(m_strOut).value("rfactors", std::vector{0.0}).back();
        const bool bPreview = std::filesystem::exists(m_aDir / "p.png");
        const std::string strPicture = ReadFile(m_aDir / "p.png");
        std::filesystem::remove(m_aDir / "job.json");
        EXPECT_EQ(mJson(g_strPlan + pcOptions + " --rows-per-slab 17")["tasks"], 3);
        for (const char* pcTask : {"2", "0", "1"})
            mRun(std::string("batch run job.json ") + pcTask);
        const json aJoined = mJson("batch join job.json --remove-parts")["joined"][0];
        EXPECT_TRUE(ReadFile(m_aDir / "vol.mrc") == ReadFile(m_aDir / "whole.mrc")) << pcOptions;
        EXPECT_EQ(ReadFile(m_aDir / "p.png"), strPicture) << bPreview;
        EXPECT_FALSE(std::filesystem::exists(m_aDir / "vol.mrc.parts"));
        // Where parts have rows in common, those count twice.
        if (!aJoined["rfactors"].empty())
        {
            EXPECT_NEAR(aJoined["rfactors"].back(), dRfactor,
                        aJoined["rfactors"].size() == 3 ? 0.01 : 1e-5);
        }
        const auto tJoined = mGetTime("vol.mrc");
        mRunTasks(3);  // all of it is done
        EXPECT_EQ(mGetTime("vol.mrc"), tJoined);
    }
}

TEST_F(ClientBatch, ATableMakesATaskOfEachTomogram)
{
    WriteFile(m_aDir / "series.csv",
              "tilts,angles,output,iterations,flip-z,exclude\n"
              "ph.mrc,ph.tlt,a.mrc,2,,\"3,7-9\"\n\nph.mrc,ph.tlt,\"b.mrc\",,yes,\n");
    EXPECT_EQ(
        mJson("batch plan -o job.json --table series.csv --thickness 36 --iterations 1")["tasks"],
        2);
    EXPECT_NE(mRun("batch run job.json --all").find("all 2 task(s) done, 2 now"),
              std::string::npos);
    mRun("reconstruct " + g_strOptions + "-o whole.mrc --iterations 2 --exclude 3,7-9");
    EXPECT_EQ(mRead("a.mrc"), mRead("whole.mrc"));
    mRun("reconstruct " + g_strOptions + "-o whole.mrc --iterations 1 --flip-z");
    EXPECT_EQ(mRead("b.mrc"), mRead("whole.mrc"));
    mRun("batch join job.json");

    for (const auto& [pcTable, pcReason] :
         {std::pair{"tilts,angle\n", "line 1: \"angle\" is no option"},
          {"tilts,tilts\n", "line 1: two columns"},
          {"tilts,angles\na,b,c\n", "line 2: 3 fields, the first line has 2"},
          {"tilts,angles\n\"a\"x,b\n", "line 2: a field in quotes"},
          {"tilts,angles,output\nph.mrc,ph.tlt,c.mrc\nno.mrc,ph.tlt,d.mrc\n", "line 3: "},
          {"tilts,angles,output\nph.mrc,ph.tlt,c.mrc\nph.mrc,ph.tlt,./c.mrc\n", "two results"},
          {"tilts,angles,output,preview\nph.mrc,ph.tlt,c.mrc,a.png\nph.mrc,ph.tlt,d.mrc,a.png\n",
           "two results"},
          {"tilts,angles,output,mode\nph.mrc,ph.tlt,c.mrc,3\n", "line 2: --mode"},
          {"tilts\n\n", "has no tomograms"}})
    {
        WriteFile(m_aDir / "bad.csv", pcTable);
        mExpectFailure(mStart("batch plan -o other.json --table bad.csv --thickness 36"), pcReason);
    }
}

TEST_F(ClientBatch, WhatCannotBePlannedIsRefused)
{
    for (const auto& [pcOptions, pcReason] :
         {std::pair{"--slabs 3 --halves even-odd", "--halves: not for a volume that is made in"},
          {"--slabs 2 --stop-when 0.01", "--stop-when: not for"},
          {"--slabs 44", "--slabs: the volume has 43 rows"},
          {"--memory 1k", "a task would need"},
          {"--memory 2M --report r.html", "--report: not for a volume that is made in parts; a "},
          {"--slabs 2 --trim 99,99,99", "--trim"}})
        mExpectFailure(mStart(g_strPlan + pcOptions), pcReason);
    mExpectFailure(mStart(g_strPlan + "--slabs 2 --rows-per-slab 3"), "excludes", 2);
    mExpectFailure(mStart("batch plan -o job.json " + g_strOptions), "--output is required");
    // As few parts as fit the memory.
    const json aPlan = mJson(g_strPlan + "--memory 2M --cores 1");
    EXPECT_GE(aPlan["tasks"], 2);
    EXPECT_LE(aPlan["memory"], 2 << 20);
    mExpectFailure(mStart(g_strPlan), "job.json is there already");
}

TEST_F(ClientBatch, WhatIsMissingChangedOrForeignIsTold)
{
    mRun(g_strPlan + "--slabs 3 --iterations 1");
    mRun("batch run job.json 0");
    mRun("batch run job.json 2");
    mExpectFailure(mStart("batch join job.json"), "missing: task 1 (rows 14:28 of ");
    EXPECT_EQ(mGetStates(), (States{"done", "missing", "done"}));
    mExpectFailure(mStart("batch run job.json 3"), "has tasks 0 to 2");
    mExpectFailure(mStart("batch run job.json"), "a task or --all");

    // The parts of another plan are none of this one's.
    std::filesystem::rename(m_aDir / "job.json", m_aDir / "old.json");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // plans tell the second
    mRun(g_strPlan + "--slabs 3 --iterations 1");
    EXPECT_EQ(mGetStates(), (States{"missing", "missing", "missing"}));
    mRun("batch run job.json 1");
    WriteFile(m_aDir / "vol.mrc.parts/00014-00028.mrc", "cut short");
    EXPECT_EQ(mGetStates()[1], "missing");

    // An input that is another one.
    const std::string strAngles = ReadFile(m_aDir / "ph.tlt");
    WriteFile(m_aDir / "ph.tlt", "0.5\n" + strAngles.substr(strAngles.find('\n') + 1));
    EXPECT_EQ(mWait(mStart("batch run job.json 1")), 1);
    EXPECT_NE(m_strErr.find("ph.tlt has changed since the batch was planned: its "),
              std::string::npos);
    EXPECT_EQ(mGetStates()[1], "failed");

    for (const char* pcText : {"", "{}", "{\"format\": \"talven batch 1\"}", "[1,2", "\x01\xff"})
    {
        WriteFile(m_aDir / "job.json", pcText);
        mExpectFailure(mStart("batch status job.json"), "job.json");
    }
    for (const auto& [pcFrom, pcTo] :
         {std::pair{"\"rows\"", "\"row\""}, {" 43\n", " 99\n"}, {" 28,\n", " -28,\n"}})
    {
        std::string strText = ReadFile(m_aDir / "old.json");
        const std::size_t tAt = strText.rfind(pcFrom);
        WriteFile(m_aDir / "job.json", strText.replace(tAt, std::string(pcFrom).size(), pcTo));
        mExpectFailure(mStart("batch join job.json"), "job.json: ");
    }
}

TEST_F(ClientBatch, AnAttemptThatFailsLeavesALineAndNoResult)
{
    mRun(g_strPlan + "--slabs 2 --iterations 100000");
    const pid_t iTask = mStart("batch run job.json 0");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    for (int i = 0; i < 3; ++i)
    {
        kill(iTask, SIGTERM);  // the kernel sends as many when a parent with threads is killed
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    EXPECT_EQ(mWait(iTask), 75) << m_strErr;
    EXPECT_EQ(m_strErr, "talven: interrupted\n");
    // A disk that is full; the second attempt is no better.
    std::filesystem::remove(m_aDir / "job.json");
    mRun("batch plan -o job.json " + g_strOptions + "--output vol.mrc --slabs 2 --iterations 1");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(mWait(mStart("batch run job.json 0", "ulimit -f 40")), 1) << m_strErr;
    const json aTask = mJson("batch status job.json")["tasks"][0];
    EXPECT_EQ(aTask["state"], "failed");
    EXPECT_EQ(aTask["failures"], 2);
    EXPECT_NE(aTask["error"].get<std::string>().find("cannot write"), std::string::npos);
    EXPECT_TRUE(std::filesystem::is_empty(m_aDir / "vol.mrc.parts"));
    // Attempts at once, and one that is killed.
    std::vector<pid_t> viTasks;
    for (int i = 0; i < 4; ++i) viTasks.push_back(mStart("batch run job.json 0"));
    kill(viTasks.back(), SIGKILL);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(mWait(viTasks[std::size_t(i)]), i < 3 ? 0 : 128 + 9);
    mRun("batch run job.json 1");
    WriteFile(m_aDir / "vol.mrc.parts/00000-00021.mrc.aB3xYz", "of an attempt that was killed");
    mRun("batch join job.json");
    EXPECT_FALSE(std::filesystem::exists(m_aDir / "vol.mrc.parts/00000-00021.mrc.aB3xYz"));
    mRun("reconstruct " + g_strOptions + "--iterations 1 -o whole.mrc");
    EXPECT_TRUE(ReadFile(m_aDir / "vol.mrc") == ReadFile(m_aDir / "whole.mrc"));
    for (const auto& rLeft : std::filesystem::directory_iterator(m_aDir / "tmp"))
        std::filesystem::remove_all(rLeft);  // of the client that was killed
}

TEST_F(ClientBatch, ServersMayGoInTheMiddle)
{
    mRun(g_strPlan + "--rows-per-slab 6 --iterations 200");
    std::vector<pid_t> viServers;
    std::string strServers;
    for (int i = 0; i < 2; ++i)
    {
        const std::string strPort = std::to_string(20000 + (getpid() * 2 + i) % 20000);
        viServers.push_back(mStart("serve --bind 127.0.0.1 --devices 1 --port " + strPort));
        strServers += (i == 0 ? "127.0.0.1:" : ",127.0.0.1:") + strPort;
        ASSERT_TRUE(
            Eventually([&] { return mWait(mStart("info --server 127.0.0.1:" + strPort)) == 0; }));
    }
    const pid_t iAll = mStart("batch run job.json --all --servers " + strServers);
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(m_aDir / "vol.mrc.parts"); }));
    kill(viServers[0], SIGKILL);
    EXPECT_EQ(mWait(iAll), 0) << m_strErr;
    EXPECT_NE(m_strOut.find("all 8 task(s) done, 8 now"), std::string::npos) << m_strOut;
    EXPECT_NE(m_strOut.find("task "), std::string::npos) << "no attempt failed";

    // One that is not there does not use up the attempts of a task.
    for (const char* pcPart : {"00000-00006", "00006-00012"})
        std::filesystem::remove(m_aDir / (std::string("vol.mrc.parts/") + pcPart + ".mrc"));
    mRun("batch run job.json --all --servers " + strServers);

    // Without any server.
    kill(viServers[1], SIGKILL);
    std::filesystem::remove(m_aDir / "vol.mrc.parts/00000-00006.mrc");
    EXPECT_EQ(mWait(mStart("batch run job.json --all --servers " + strServers)), 75);
    EXPECT_NE(m_strErr.find("1 of 1 tasks not done, the last: "), std::string::npos) << m_strErr;
    for (const pid_t iServer : viServers) EXPECT_EQ(mWait(iServer), 128 + 9);
    mRunTasks(1);
    mRun("reconstruct " + g_strOptions + "--iterations 200 -o whole.mrc");
    EXPECT_TRUE(ReadFile(m_aDir / "vol.mrc") == ReadFile(m_aDir / "whole.mrc"));
}

TEST(Slabs, CoverAllRowsOnce)
{
    for (const int iRows : {1, 31, 64, 100, 1024})
        for (const int iParts : {1, 2, 3, 7, 31})
        {
            if (iParts > iRows) continue;
            int iNext = 0;
            for (const RowRange& rRows : CutIntoParts(iRows, iParts))
            {
                EXPECT_EQ(rRows.iFirst, iNext);
                EXPECT_GT(rRows.iEnd, rRows.iFirst);
                iNext = rRows.iEnd;
                EXPECT_TRUE(iRows < 32 * iParts || iNext == iRows || iNext % 32 == 0) << iNext;
            }
            EXPECT_EQ(iNext, iRows);
        }
    const auto UpTo = [](int iMost)
    { return [iMost](const RowRange& rRows) { return rRows.GetCount() <= iMost; }; };
    EXPECT_EQ(CutToFit(1024, UpTo(1024)).size(), 1u);
    EXPECT_EQ(CutToFit(1024, UpTo(511)).size(), 3u);
    EXPECT_EQ(CutToFit(1024, UpTo(511))[0], (RowRange{0, 320}));
    EXPECT_EQ(CutToFit(10, UpTo(1)).size(), 10u);
    EXPECT_TRUE(CutToFit(10, UpTo(0)).empty());
}

}  // namespace
}  // namespace talven::test
