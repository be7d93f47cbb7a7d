// The program with the real server: what it writes, says and leaves behind, and its pictures.

#include <cairo.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "RfactorPlot.h"
#include "Support.h"
#include "talven/MrcWriter.h"
#include "talven/Slices.h"

namespace talven::test
{
namespace
{

using nlohmann::json;

/// Retries until the condition holds, for ten seconds.
template <class F>
bool Eventually(F Condition)
{
    bool bDone = Condition();
    for (int i = 0; i < 1000 && !bDone; ++i, bDone = Condition())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return bDone;
}

/// The pixels of a PNG.
class CPng
{
public:
    explicit CPng(const std::string& strPath)
        : m_pImage(cairo_image_surface_create_from_png(strPath.c_str()), &cairo_surface_destroy)
    {
        EXPECT_EQ(cairo_surface_status(m_pImage.get()), CAIRO_STATUS_SUCCESS) << strPath;
    }
    json GetSize() const
    {
        return {cairo_image_surface_get_width(m_pImage.get()),
                cairo_image_surface_get_height(m_pImage.get())};
    }
    unsigned Get(int x, int y) const  // 0xRRGGBB
    {
        const auto* pucRow = cairo_image_surface_get_data(m_pImage.get()) +
                             std::ptrdiff_t(y) * cairo_image_surface_get_stride(m_pImage.get());
        return reinterpret_cast<const unsigned*>(pucRow)[x] & 0xFFFFFF;
    }
    /// Pixels of a rectangle that are dark, or blue.
    int Count(int iX, int iY, int iWidth, int iHeight, bool bBlue = false) const
    {
        int iCount = 0;
        for (int i = 0; i < iWidth * iHeight; ++i)
        {
            const unsigned ui = Get(iX + i % iWidth, iY + i / iWidth);
            iCount += bBlue ? (ui & 0xFF) > (ui >> 16) + 60 : (ui & 0xFF) < 100;
        }
        return iCount;
    }

private:
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> m_pImage;
};

/// Runs the program with the real server in a directory of its own.
class ClientProgram : public testing::Test
{
protected:
    ClientProgram()
    {
        std::filesystem::create_directory(m_aDir / "tmp");
        WriteFile(m_aDir / "err.txt", "");
        mRun(
            "phantom ph --size 90,43 --thickness 36 --angles -60,60,3 --beads 4 --seed 3 "
            "--pixel 7");
        WriteFile(m_aDir / "rec.mrc", "precious");
    }
    ~ClientProgram() override
    {
        EXPECT_TRUE(std::filesystem::is_empty(m_aDir / "tmp")) << "a private server left something";
    }
    void mWrite(const std::string& strName, int iX, int iY, const std::vector<Floats>& rSections)
    {
        CMrcWriter aWriter;
        EXPECT_TRUE(aWriter.Create(m_aDir / strName, iX, iY, int(rSections.size()), 2, false, ""));
        for (const Floats& rSection : rSections) EXPECT_TRUE(aWriter.WriteSection(rSection));
        EXPECT_TRUE(aWriter.Finish()) << aWriter.GetError();
    }
    Floats mRead(const std::string& strName)
    {
        const Floats vfAll = ReadPixels(m_aReader, m_aDir / strName);
        EXPECT_FALSE(vfAll.empty()) << m_aReader.GetError();
        return vfAll;
    }
    /// \param strSetup  what a shell does before; strErrors: where standard error goes
    pid_t mStart(const std::string& strArgs, const std::string& strSetup = ":",
                 const std::string& strErrors = "err.txt")
    {
        const std::string strScript =
            "cd " + m_aDir / "" + "; export LSAN_OPTIONS=print_suppressions=0 TMPDIR=$PWD/tmp " +
            "TALVEN_SERVER=" TALVEN_SERVER_PROGRAM "; exec >out.txt 2>" + strErrors + "; " +
            strSetup + "; exec " TALVEN_PROGRAM " " + strArgs;
        WriteFile(m_aDir / "out.txt", "");
        m_iFiles = m_aDir.CountFiles();
        const pid_t iChild = fork();
        if (iChild == 0) execl("/bin/sh", "sh", "-c", strScript.c_str(), nullptr);
        return iChild;
    }
    /// Exit code, or 128 + signal.
    int mWait(pid_t iChild)
    {
        int iStatus = -1;
        EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
        m_strOut = ReadFile(m_aDir / "out.txt");
        m_strErr = ReadFile(m_aDir / "err.txt");
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
    }
    std::string mRun(const std::string& strArgs)
    {
        EXPECT_EQ(mWait(mStart(strArgs)), 0) << strArgs;
        EXPECT_EQ(m_strErr, "");
        return m_strOut;
    }
    json mJson(const std::string& strArgs)
    {
        return json::parse(mRun(strArgs + " --json"), nullptr, false);
    }
    /// One clear line on standard error, the exit code of a failure; nothing changed.
    void mExpectFailure(pid_t iChild, const std::string& strReason, int iExit = 1)
    {
        EXPECT_EQ(mWait(iChild), iExit) << m_strErr;
        EXPECT_EQ(m_strErr.rfind("talven: ", 0), 0u) << m_strErr;
        EXPECT_EQ(m_strErr.find('\n'), m_strErr.size() - 1) << m_strErr;
        EXPECT_NE(m_strErr.find(strReason), std::string::npos) << m_strErr << strReason;
        EXPECT_EQ(ReadFile(m_aDir / "rec.mrc"), "precious");
        EXPECT_EQ(m_aDir.CountFiles(), m_iFiles) << "something was left behind";
    }

    CTempDir m_aDir;
    CMrcReader m_aReader;
    std::string m_strOut, m_strErr;
    int m_iFiles = 0;  // before the last start
    const std::string m_strRecon =
        "reconstruct --tilts ph.mrc --angles ph.tlt --thickness 36 -o rec.mrc ";
};

TEST_F(ClientProgram, APhantomComesBackWithAllFurtherResults)
{
    const json aJson =
        mJson(m_strRecon +
              "--reference ph_truth.mrc --subsets 40 --exclude 2 --iterations 5 --preview p.png "
              "--rfactor-plot r.png --rfactors r.csv");
    EXPECT_EQ(aJson["stack"]["size"], (json{90, 43, 40}));
    EXPECT_EQ(aJson["stack"]["angles"][1], -54);
    EXPECT_EQ(aJson["volume"]["size"], (json{90, 43, 36}));
    EXPECT_EQ(aJson["subset_sizes"], json(std::vector<int>(40, 1)));
    EXPECT_GT(aJson["reference"]["correlation"], 0.88) << aJson;
    EXPECT_LT(aJson["reference"]["relative_rms_error"], 0.4);
    EXPECT_GT(aJson["seconds"]["total"], aJson["seconds"]["reconstruct"]);
    const std::vector<double> vdRfactors = aJson["rfactors"];
    EXPECT_TRUE(std::is_sorted(vdRfactors.rbegin(), vdRfactors.rend())) << aJson;
    const std::string strCsv = ReadFile(m_aDir / "r.csv");
    EXPECT_TRUE(strCsv.starts_with("iteration,rfactor\n1,")) << strCsv;
    EXPECT_NEAR(std::stod(strCsv.substr(strCsv.find("\n5,") + 3)), vdRfactors.at(4), 1e-6);

    mRead("rec.mrc");
    EXPECT_NEAR(m_aReader.GetHeader().dPixel, 7, 1e-6);
    EXPECT_EQ(m_aReader.GetHeader().fRms, aJson["volume"]["rms"].get<float>());
    const CPng aPreview(m_aDir / "p.png"), aPlot(m_aDir / "r.png");
    EXPECT_EQ(aPreview.GetSize(), (json{14 * 4 + 4 * (90 + 36 + 90), 24 + 28 + 4 * 43}));
    EXPECT_EQ(aPlot.GetSize(), (json{800, 520}));
    for (const int x : {14, 28 + 4 * 90, 42 + 4 * 126})
    {
        EXPECT_GT(aPreview.Count(x, 14, 90, 24), 40) << "no title";
        EXPECT_LT(aPreview.Get(x + 4, 38 + 4), 0x202020u) << "empty space is black";
        EXPECT_EQ(aPreview.Get(x - 1, 38 + 4), 0xFFFFFFu) << "between them";
    }
    mRun(m_strRecon + "--reference ph_truth.mrc --iterations 2 --devices 1");
    for (const char* pcPart :
         {"41 of 41 angles from -60 to 60 degrees -> volume 90 x 43 x 36, SART, 2 iterations, 7 ",
          "the server needs 2 MiB of memory", "; R-factor 0.", "ph_truth.mrc: correlation 0."})
        EXPECT_NE(m_strOut.find(pcPart), std::string::npos) << m_strOut << pcPart;

    // Reprojected, the truth is the tilt series but for voxels that blur its beads.
    mRun("reproject --volume ph_truth.mrc --angles ph.tlt -o again.mrc --width 88 -q");
    EXPECT_EQ(m_strOut, "");
    const json aAgain = mJson("compare --measured again.mrc --aligned ph.mrc");
    for (const json& rSection : aAgain["sections"])
        EXPECT_GT(rSection["correlation"], 0.99) << rSection;
}

TEST_F(ClientProgram, EveryOptionReachesTheServer)
{
    mWrite("s.mrc", 4, 3, {Floats(12, 4), Floats(12, 20), Floats(12, 60)});
    mWrite("i.mrc", 4, 3, {Floats(12, 8)});
    WriteFile(m_aDir / "a.tlt", "0\n0\n0\n");
    const std::string strStart = "reconstruct --tilts s.mrc --angles a.tlt -o v.mrc --thickness ";
    // From 8: to 6 by a half, to 13, to 10.75 by a quarter, to 13.0625; and so on.
    for (const auto& [strArgs, dValue] : std::vector<std::pair<std::string, double>>{
             {"--include 1-2 --subset-sizes 1,1 --relaxation 0.5,0.25 --iterations 2", 13.0625},
             {"--exclude 3 --subsets 2 --relaxation 0.5:0.5 --iterations 2", 13.0625},
             {"--subset-sizes 1,2 --relaxation 0.5 --iterations 1 --order given", 23},
             {"--subsets 3 --relaxation 0.5 --iterations 1", 26.5},
             {"--exclude 1 --method em --subsets 1 --iterations 1", 40},
             {"--exclude 3 --method bp", 20}})
    {
        const json aJson = mJson(strStart + "1 --initial-volume i.mrc " + strArgs);
        EXPECT_NEAR(mRead("v.mrc").at(5), dValue, 1e-3) << strArgs;
        EXPECT_TRUE(dValue > 14 || std::fabs(aJson["rfactors"][1].get<double>() - 2 / 3.) < 1e-5);
    }
    Floats vfPoint(12);
    vfPoint[5] = 100;  // column 1, row 1
    mWrite("i.mrc", 4, 3, {vfPoint});
    EXPECT_EQ(mJson(strStart + "1 --initial-volume i.mrc --relaxation 0 --iterations 2 --smooth "
                               "0.3,2")["smoothing"],
              json({{"interval", 2}, {"kernel_size", 3}}));
    const Floats vfSmooth = mRead("v.mrc");
    EXPECT_NEAR(vfSmooth[4] / vfSmooth[5], std::exp(-0.5 / 0.09), 1e-6) << "once";
    mRun(strStart + "8 --iterations 1 --subsets 1");
    const Floats vfPlain = mRead("v.mrc");
    mRun(strStart + "8 --iterations 1 --subsets 1 --weight-box 1,0,0.7,2");
    EXPECT_NEAR(mRead("v.mrc")[2] / vfPlain[2], 2, 0.01) << "column 2 alone, half of the thickness";
    EXPECT_GT(std::fabs(mRead("v.mrc")[1] / vfPlain[1] - 2), 0.5);

    mWrite("m.mrc", 3, 3, {{1, 2, 3, 4, 5, 6, 7, 8, 9}});
    Floats vfLog;
    for (int i = 1; i <= 9; ++i) vfLog.push_back(3 * std::log(200 / std::max(8.f, 4.f * i + 1)));
    for (const auto& [strArgs, vfExpected] : std::vector<std::pair<std::string, Floats>>{
             {"--matrix 0,1,-1,0,0,0", {7, 4, 1, 8, 5, 2, 9, 6, 3}},  // a quarter turn
             {"--origin corner --matrix 1,0,0,1,1,0 --gain 2 --offset 1 --most 12",
              {5, 7, -1, 11, 12, -1, 12, 12, -1}},
             {"--log --beam 200 --least 8 --factor 3 --gain 4 --offset 1", vfLog}})
    {
        // Compared with what it becomes, an image does not differ.
        const json aDone = mJson("transform --measured m.mrc -o t.mrc " + strArgs);
        const Floats vfOut = mRead("t.mrc");
        for (std::size_t i = 0; i < 9; ++i)
            EXPECT_NEAR(IsMissing(vfOut[i]) ? -1 : vfOut[i], vfExpected[i], 1e-3) << strArgs;
        EXPECT_EQ(aDone["missing_pixels"], std::count_if(vfOut.begin(), vfOut.end(), IsMissing));
        const json aSame = mJson("compare --measured m.mrc --aligned t.mrc " + strArgs);
        EXPECT_NEAR(aSame["sections"][0]["mean_difference"], 0, 1e-4) << aSame;
        EXPECT_NEAR(aSame["sections"][0]["correlation"], 1, 1e-5) << aSame;
    }
    mWrite("m.mrc", 2, 1, {{-3, 6}});
    mWrite("t.mrc", 3, 1, {{1, -4, 3}});
    const json aSums = mJson("compare --measured m.mrc --aligned t.mrc --origin corner");
    EXPECT_EQ(aSums["sections"][0]["sums"], json::parse(R"({"count": 2.0, "difference": 14.0,
        "cross": -27.0, "aligned": -3.0, "aligned_abs": 5.0, "aligned_square": 17.0,
        "transformed": 3.0, "transformed_abs": 9.0, "transformed_square": 45.0})"));
}

TEST_F(ClientProgram, ADriftIsFoundAndTakenOut)
{
    mRun("transform --measured ph.mrc --matrix 1,0,0,1,-3,2 -o raw.mrc");
    EXPECT_NE(m_strOut.find(": 7.83 % of the pixels missing, "), std::string::npos) << m_strOut;
    const std::string strCompare = "compare --measured raw.mrc --aligned ph.mrc --search ";
    const json aFound = mJson(strCompare + "6 --write-matrices m.txt");
    ASSERT_EQ(aFound["sections"].size(), 41u);
    for (const json& rSection : aFound["sections"])
    {
        EXPECT_NEAR(rSection["shift"][0], 3, 0.2) << rSection;
        EXPECT_NEAR(rSection["shift"][1], -2, 0.2) << rSection;
        EXPECT_TRUE(rSection["correlation"] > 0.98 && !rSection["at_edge"]) << rSection;
    }
    mRun(strCompare + "2");
    EXPECT_TRUE(m_strOut.starts_with("section 1: correlation 0.")) << m_strOut;
    EXPECT_NE(m_strOut.find(" (at the edge of the search)\n"), std::string::npos) << m_strOut;
    const json aMapped = mJson("compare --measured raw.mrc --aligned ph.mrc --matrices m.txt");
    for (const json& rSection : aMapped["sections"])
        EXPECT_GT(rSection["correlation"], 0.98) << rSection;
}

/// Exit code and reason; then the command, its usual inputs when it begins with a capital letter.
constexpr std::pair<const char*, const char*> g_aRefused[] = {
    {"2", ""},
    {"2--angles", "reconstruct --tilts ph.mrc"},
    {"2--relaxation: expected R, R1,R2", "Reconstruct --relaxation fast"},
    {"2--devices", "Reconstruct --server h:1 --devices 1"},
    {"2expected HOST:PORT", "Reconstruct --server h:0"},
    {"1cannot reach a server at 127.0.0.1:1", "Reconstruct --server 127.0.0.1:1"},
    {"1--include: view 42, but the stack has 41", "Reconstruct --include 42"},
    {"1--exclude: no view is left", "Reconstruct --exclude 1-41"},
    {"1--subsets: 42 subsets of 41", "Reconstruct --subsets 42"},
    {"1--subset-sizes: they add up to 4, but 41", "Reconstruct --subset-sizes 2,2"},
    {"1--relaxation: 2 relaxation factors for 10", "Reconstruct --relaxation 1,0.5"},
    {"1--smooth: 10 iterations are no whole number", "Reconstruct --smooth 1,4"},
    {"1--smooth: back projection has no", "Reconstruct --smooth 1 --method bp"},
    {"1--weight-box: the half sizes", "Reconstruct --weight-box 0,0,1,0"},
    {"12^31", "Reconstruct --width 2000000000"},
    {"1is 90 x 43 x 41, the volume is 90 x 43 x 36", "Reconstruct --reference ph.mrc"},
    {"1No such file", "Reconstruct --preview /no/such/p.png"},
    {"1has 41 angles, but", "reconstruct --tilts hole.mrc --angles ph.tlt --thickness 3 -o x"},
    {"11 matrix, but the stack has 41", "Transform --matrices one.txt"},
    {"1--matrix: 1e+60 is too large", "Transform --matrix 1,0,0,1,0,1e60"},
    {"2--beam", "Transform --log"},
    {"1above 0, not 1 and 0", "Transform --log --beam 1 --least 0"},
    {"1too large or not a number", "Transform --gain nan"},
    {"1section 1 has missing", "transform --measured hole.mrc --gain -1 -o rec.mrc"},
    {"1has 1 section, but", "compare --measured hole.mrc --aligned ph.mrc"},
    {"2--search", "Compare --write-matrices rec.mrc"},
    {"1a.xf: an .xf file", "Compare --search 2 --write-matrices a.xf"},
    {"1section 1: no shift leaves a quarter", "Compare --search 1 --matrix 1,0,0,1,1000,0"},
    {"1slice 42, but there are 41 along z", "View --slices 42"},
    {"1the lower one first", "View --contrast 9,5"},
    {"160 slices do not fit", "View --axis x --width 100 --slices 1-60"},
    {"1--size: expected X,Y", "phantom q --size 20"},
    {"1--angles: expected FROM,TO,STEP", "phantom q --angles 2,1,1"}};

TEST_F(ClientProgram, WhatCannotWorkIsRefusedInOneLine)
{
    WriteFile(m_aDir / "one.txt", "1 0 0 1 0 0\n");
    mWrite("hole.mrc", 90, 43, {Floats(90 * 43, -1e30f)});
    const auto Usual = [&](std::string strArgs)
    {
        for (const auto& [strShort, strLong] : std::map<std::string, std::string>{
                 {"Reconstruct", m_strRecon},
                 {"Transform", "transform --measured ph.mrc -o rec.mrc"},
                 {"Compare", "compare --measured ph.mrc --aligned ph.mrc"},
                 {"View", "view ph.mrc -o rec.mrc"}})
            if (strArgs.starts_with(strShort)) return strLong + strArgs.substr(strShort.size());
        return strArgs;
    };
    for (const auto& [pcExpected, pcArgs] : g_aRefused)
    {
        SCOPED_TRACE(pcArgs);
        mExpectFailure(mStart(Usual(pcArgs)), pcExpected + 1, *pcExpected - '0');
    }
    mExpectFailure(mStart(m_strRecon, "ulimit -f 400"), "File too large");
    mExpectFailure(mStart(m_strRecon, "TALVEN_SERVER=/no/such"), "/no/such: cannot run: No such");
    WriteFile(m_aDir / "one.txt", "#!/bin/sh\necho 'Error: GPU devices are not found.'\n");
    mExpectFailure(mStart(m_strRecon, "chmod +x one.txt; TALVEN_SERVER=one.txt"),
                   "talven-server did not start: GPU devices are not found.");
}

TEST_F(ClientProgram, AnInterruptOrADeadServerLeavesNothing)
{
    // The client interrupted, its server dead, the client dead.
    for (const int iCase : {0, 1, 2})
    {
        const pid_t iClient = mStart(m_strRecon + "--iterations 100000");
        const std::string strTask = std::to_string(iClient);
        std::string strServer;
        EXPECT_TRUE(Eventually(
            [&]
            {
                strServer = ReadFile("/proc/" + strTask + "/task/" + strTask + "/children");
                return !strServer.empty();
            }));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        kill(iCase == 1 ? std::stoi(strServer) : iClient, iCase == 0 ? SIGINT : SIGKILL);
        if (iCase == 2)
            EXPECT_EQ(mWait(iClient), 128 + SIGKILL);
        else
            mExpectFailure(iClient, iCase == 0 ? "interrupted" : "server ended with signal 9");
        const auto IsGone = [&]
        {
            // Adopted by a process that may not collect it: a zombie is dead, too.
            const std::string strStat =
                ReadFile("/proc/" + std::to_string(std::stoi(strServer)) + "/stat");
            return strStat.empty() || strStat.find(") Z ") != std::string::npos;
        };
        EXPECT_TRUE(Eventually(IsGone)) << "the server lives";
        EXPECT_EQ(std::filesystem::is_empty(m_aDir / "tmp"), iCase != 2);
    }
    std::filesystem::remove_all(m_aDir / "tmp");  // nobody was left to do it
    std::filesystem::create_directory(m_aDir / "tmp");
}

TEST_F(ClientProgram, AServerOfOneselfServesManyClients)
{
    const std::string strPort = std::to_string(20000 + getpid() % 20000);
    const pid_t iServer =
        mStart("serve --port " + strPort + " --bind 127.0.0.1 --devices 1", "exec >serve.txt");
    const std::string strServer = " --server 127.0.0.1:" + strPort;
    ASSERT_TRUE(Eventually([&] { return mWait(mStart("info" + strServer)) == 0; })) << m_strErr;
    EXPECT_NE(m_strOut.find(" of device memory for jobs"), std::string::npos) << m_strOut;
    EXPECT_GT(mJson("info" + strServer)["memory_bytes"], 1 << 20);
    const std::string strConsole = ReadFile(m_aDir / "serve.txt");
    EXPECT_TRUE(strConsole.find("GPU 0 is used") < strConsole.size() &&
                strConsole.find("GPU 1 is used") > strConsole.size());
    // A box changes the result, and does not stay for the next client.
    std::vector<Floats> avfVolumes;
    for (const char* pcBox : {"", " --weight-box 0,0,30,9", ""})
    {
        mRun(m_strRecon + "--iterations 2" + strServer + pcBox);
        avfVolumes.push_back(mRead("rec.mrc"));
    }
    EXPECT_TRUE(avfVolumes[0] != avfVolumes[1] && avfVolumes[0] == avfVolumes[2]);
    kill(iServer, SIGTERM);
    EXPECT_EQ(mWait(iServer), 0);
}

TEST_F(ClientProgram, ProgressIsShownOnATerminal)
{
    int iMaster = -1, iTerminal = -1;
    char acName[99];
    ASSERT_EQ(openpty(&iMaster, &iTerminal, acName, nullptr, nullptr), 0);
    EXPECT_EQ(mWait(mStart(m_strRecon + "--iterations 1", ":", acName)), 0);
    std::string strShown(1 << 16, '\0');
    strShown.resize(std::size_t(std::max<ssize_t>(0, read(iMaster, strShown.data(), 1 << 16))));
    for (const char* pcPart : {"\rupload     [", "##############################] 100 %  ",
                               "\rdownload   [", " MB/s\x1b[K", "\r\x1b[K"})
        EXPECT_NE(strShown.find(pcPart), std::string::npos) << pcPart;
    close(iMaster);
    close(iTerminal);
}

TEST_F(ClientProgram, ViewDrawsChosenSlices)
{
    std::vector<Floats> avfSections(4, Floats(60 * 40, -1e30f));
    for (int z = 0; z < 3; ++z)
        for (int i = 0; i < 60 * 40; ++i)  // bright in the upper right corner, more so with z
            avfSections[z][i] = float((i % 60 >= 30) * (i / 60 >= 20) * (z + 1));
    mWrite("v.mrc", 60, 40, avfSections);
    const std::string strView = "view v.mrc -o v.png --contrast 0,100 ";
    json aJson = mJson(strView + "--slices 1,3-4 --width 300");
    EXPECT_TRUE(aJson["black"] == 0 && aJson["white"] == 3) << aJson;
    EXPECT_EQ(aJson["slices"], (json{1, 3, 4}));
    const CPng aZ(m_aDir / "v.png");  // four times as large, one below the other
    EXPECT_EQ(aJson["picture"]["size"], aZ.GetSize());
    EXPECT_EQ(aZ.Count(14, 38, 240, 160), 240 * 160) << "a third of white at most";
    EXPECT_TRUE(aZ.Get(14 + 120, 38) == 85 * 0x010101 &&
                aZ.Get(14 + 239, 38 + 79) == 85 * 0x010101);
    EXPECT_TRUE(aZ.Get(14 + 119, 38) == 0 && aZ.Get(14 + 120, 38 + 80) == 0);

    aJson = mJson(strView + "--axis x --slices 31");
    EXPECT_EQ(aJson["picture"]["size"], (json{14 + 60 + 14, 14 + 24 + 160 + 14}));
    const CPng aX(m_aDir / "v.png");  // 4 x 40, four times as large: z to the right, y upwards
    for (int z = 0; z < 4; ++z)
    {
        EXPECT_EQ(aX.Get(14 + 4 * z + 2, 40), (z == 3 ? 0 : 85 * (z + 1u)) * 0x010101) << z;
        EXPECT_EQ(aX.Get(14 + 4 * z + 2, 38 + 120), 0u) << z;
    }
    aJson = mJson("view v.mrc -o v.png --axis y --contrast 60,80");
    EXPECT_TRUE(aJson["slices"] == json{21} && aJson["black"] == 1 && aJson["white"] == 2) << aJson;
    const CPng aY(m_aDir / "v.png");  // 60 x 4, four times as large
    EXPECT_TRUE(aY.Get(14 + 236, 38 + 6) == 0xFFFFFF && aY.Get(14 + 236, 38 + 14) == 0);
    EXPECT_GT(aY.Count(14, 14, 60, 24), 20) << "its title";
}

TEST_F(ClientProgram, PlotsShowTheirNumbers)
{
    std::string strError;
    ASSERT_TRUE(WriteRfactorPlot(m_aDir / "r.png", std::vector{1.0, 0.5, 0.25}, "title", strError));
    const CPng aPlot(m_aDir / "r.png");
    // Dots where the axes put them: 0 to 1 between rows 458 and 46, 1 to 3 over columns 80 to 776.
    for (const auto& [x, y] : {std::pair{100, 46}, {428, 252}, {756, 355}})
    {
        EXPECT_GT(aPlot.Count(x - 3, y - 3, 7, 7, true), 30) << x;
        EXPECT_EQ(aPlot.Count(x - 3, y + 8, 7, 60, true), 0) << "below the curve";
    }
    EXPECT_GT(aPlot.Count(101, 46, 650, 310, true), 1300) << "the lines between them";
    // 1.0, the title, iteration, R-factor
    for (const auto& [x, y, iWidth, iHeight] :
         {std::array{40, 36, 34, 20}, {350, 10, 160, 26}, {380, 490, 100, 24}, {5, 200, 26, 100}})
        EXPECT_GT(aPlot.Count(x, y, iWidth, iHeight), 20) << x;
    EXPECT_EQ(aPlot.Count(90, 458, 680, 1), 680) << "the frame";
}

TEST_F(ClientProgram, DocumentsShowTheHelp)
{
    const std::string strDocument = ReadFile(TALVEN_CLI_DOCUMENT);
    for (const std::string strCommand :
         {"reconstruct", "reproject", "transform", "compare", "view", "info", "phantom", "serve"})
        EXPECT_NE(strDocument.find("```text\n" + mRun(strCommand + " --help") + "```\n"),
                  std::string::npos)
            << "scripts/update-cli-docs puts the help of " << strCommand << " into docs/cli.md";
    EXPECT_TRUE(mRun("--version").starts_with("talven ")) << m_strOut;
}

}  // namespace
}  // namespace talven::test
