// The program with the real server: what it writes, says and leaves behind, and its pictures.

#include <cairo.h>
#include <pty.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "Preview.h"
#include "RfactorPlot.h"
#include "Support.h"
#include "talven/Alignment.h"
#include "talven/PrivateServer.h"

namespace talven::test
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;

/// Retries until the condition holds, for ten seconds.
template <class F>
bool Eventually(F Condition)
{
    for (int i = 0; i < 1000; ++i)
    {
        if (Condition()) return true;
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

/// The first child of a process; 0: none (any more).
pid_t GetChild(pid_t iParent)
{
    const std::string strTask = std::to_string(iParent);
    return std::atoi(ReadFile("/proc/" + strTask + "/task/" + strTask + "/children").c_str());
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
    int GetWidth() const { return cairo_image_surface_get_width(m_pImage.get()); }
    int GetHeight() const { return cairo_image_surface_get_height(m_pImage.get()); }
    unsigned Get(int x, int y) const  // 0xRRGGBB
    {
        const auto* pucRow = cairo_image_surface_get_data(m_pImage.get()) +
                             std::ptrdiff_t(y) * cairo_image_surface_get_stride(m_pImage.get());
        return reinterpret_cast<const unsigned*>(pucRow)[x] & 0xFFFFFF;
    }
    template <class F>
    int Count(int iX, int iY, int iWidth, int iHeight, F Is) const
    {
        int iCount = 0;
        for (int y = iY; y < iY + iHeight; ++y)
            for (int x = iX; x < iX + iWidth; ++x) iCount += Is(Get(x, y));
        return iCount;
    }

private:
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> m_pImage;
};

bool IsDark(unsigned uiPixel)
{
    return (uiPixel & 0xFF) < 100;
}
bool IsBlue(unsigned uiPixel)
{
    return (uiPixel & 0xFF) > (uiPixel >> 16) + 60;
}

/// A phantom and the program with the real server.
class ClientProgram : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(m_strTmp);
        mRun({"phantom", m_aDir / "ph", "--size", "90,43", "--thickness", "36", "--angles",
              "-60,60,3", "--beads", "4", "--seed", "3", "--pixel", "7"});
        WriteFile(m_strOut, "precious");
        WriteFile(m_aDir / "stderr.txt", "");
        m_tFiles = m_aDir.CountFiles();
    }
    void TearDown() override
    {
        EXPECT_TRUE(std::filesystem::is_empty(m_strTmp)) << "a private server left something";
    }
    Args mEnvironment() const
    {
        return {"TALVEN_SERVER=" TALVEN_SERVER_PROGRAM, "TMPDIR=" + m_strTmp};
    }
    Outcome mTry(const Args& rArgs, const Args& rEnvironment = {},
                 rlim_t ulFileLimit = RLIM_INFINITY) const
    {
        return WaitForProgram(
            m_aDir, StartProgram(m_aDir, rArgs, mEnvironment() + rEnvironment, ulFileLimit));
    }
    std::string mRun(const Args& rArgs) const
    {
        const Outcome aOutcome = mTry(rArgs);
        EXPECT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
        EXPECT_EQ(aOutcome.strErr, "");
        return aOutcome.strOut;
    }
    json mRunJson(const Args& rArgs) const
    {
        return json::parse(mRun(rArgs + Args{"--json"}), nullptr, false);
    }
    Args mArgs(const Args& rMore = {}, const std::string& strOut = "rec.mrc") const
    {
        return Args{"reconstruct",   "--tilts",         m_aDir / "ph.mrc",
                    "--angles",      m_aDir / "ph.tlt", "-o",
                    m_aDir / strOut, "--thickness",     "36"} +
               rMore;
    }
    Floats mVolume(const Args& rMore) const
    {
        mRun(mArgs(rMore, "v.mrc"));
        return ReadPixels(m_aDir / "v.mrc");
    }
    void mExpectUntouched(std::size_t tMore = 0) const
    {
        EXPECT_TRUE(ReadFile(m_strOut) == "precious");
        EXPECT_EQ(m_aDir.CountFiles(), m_tFiles + tMore) << "something was left behind";
    }
    /// A job of minutes, and the private server that does it.
    pid_t mStartLongJob(pid_t& rServer) const
    {
        const pid_t iClient =
            StartProgram(m_aDir, mArgs({"--iterations", "100000"}), mEnvironment());
        EXPECT_TRUE(Eventually([&] { return (rServer = GetChild(iClient)) != 0; }));
        std::this_thread::sleep_for(300ms);
        return iClient;
    }

    CTempDir m_aDir;
    std::string m_strTmp = m_aDir / "tmp", m_strOut = m_aDir / "rec.mrc";
    std::size_t m_tFiles = 0;
};

TEST_F(ClientProgram, APhantomComesBackWithAllFurtherResults)
{
    const Args vstrMore = {"--reference", m_aDir / "ph_truth.mrc"};
    const json aJson =
        mRunJson(mArgs(vstrMore + Args{"--subsets", "40", "--exclude", "2", "--iterations", "5",
                                       "--preview", m_aDir / "p.png", "--rfactor-plot",
                                       m_aDir / "r.png", "--rfactors", m_aDir / "r.csv"}));
    EXPECT_EQ(aJson["command"], "reconstruct");
    EXPECT_EQ(aJson["stack"]["size"], (json{90, 43, 40}));
    EXPECT_EQ(aJson["stack"]["angles"][1], -54);
    EXPECT_EQ(aJson["volume"]["size"], (json{90, 43, 36}));
    EXPECT_EQ(aJson["method"], "sart");
    EXPECT_EQ(aJson["subset_sizes"], json(std::vector<int>(40, 1)));
    EXPECT_GT(aJson["reference"]["correlation"], 0.88) << aJson;
    EXPECT_LT(aJson["reference"]["relative_rms_error"], 0.4);
    EXPECT_GT(aJson["seconds"]["total"], aJson["seconds"]["reconstruct"]);
    const std::vector<double> vdRfactors = aJson["rfactors"];
    ASSERT_EQ(vdRfactors.size(), 5u);
    EXPECT_TRUE(std::is_sorted(vdRfactors.rbegin(), vdRfactors.rend())) << aJson;
    char acLine[40];
    std::snprintf(acLine, sizeof(acLine), "\n5,%.6g\n", vdRfactors[4]);
    EXPECT_TRUE(ReadFile(m_aDir / "r.csv").starts_with("iteration,rfactor\n1,"));
    EXPECT_TRUE(ReadFile(m_aDir / "r.csv").ends_with(acLine)) << acLine;

    CMrcReader aReader;
    ASSERT_TRUE(aReader.Open(m_strOut)) << aReader.GetError();
    EXPECT_NEAR(aReader.GetHeader().dPixel, 7, 1e-6);
    EXPECT_EQ(aReader.GetHeader().fMax, aJson["volume"]["max"].get<float>());
    EXPECT_EQ(aReader.GetHeader().fRms, aJson["volume"]["rms"].get<float>());
    const Floats vfVolume = ReadPixels(m_strOut);
    CSlices aSlices(90, 43, 36);
    aSlices.WantCentral();
    for (int z = 0; z < 36; ++z)
        aSlices.Add(z, std::span(vfVolume).subspan(90ul * 43 * z, 90 * 43));
    std::string strError;
    ASSERT_TRUE(WritePreview(m_aDir / "p2.png", aSlices, strError) &&
                WriteRfactorPlot(m_aDir / "r2.png", vdRfactors, "SART, 5 iterations, 40 subsets",
                                 strError));
    EXPECT_EQ(ReadFile(m_aDir / "p.png"), ReadFile(m_aDir / "p2.png"));
    EXPECT_EQ(ReadFile(m_aDir / "r.png"), ReadFile(m_aDir / "r2.png"));

    const std::string strText = mRun(mArgs(vstrMore + Args{"--iterations", "2", "--devices", "1"}));
    for (const char* pcPart :
         {"41 of 41 angles from -60 to 60 degrees -> volume 90 x 43 x 36, SART, 2 iterations, 7 ",
          "the server needs 2 MiB of memory", "; R-factor 0.", "ph_truth.mrc: correlation 0."})
        EXPECT_NE(strText.find(pcPart), std::string::npos) << strText << pcPart;
    EXPECT_EQ(mRun(mArgs({"--method", "em", "--iterations", "2", "-q"})), "");
    const json aBack = mRunJson(mArgs(vstrMore + Args{"--method", "bp"}));
    EXPECT_GT(aBack["reference"]["correlation"], 0.4);
    EXPECT_FALSE(aBack.contains("rfactors"));
}

TEST_F(ClientProgram, TheSameBitsInEveryWayToGetThem)
{
    const Args vstrMethod = {"--subsets", "5", "--include", "1,3-39", "--relaxation", "0.7"};
    const Floats vfAll = mVolume(vstrMethod + Args{"--iterations", "6"});
    EXPECT_EQ(mVolume(vstrMethod + Args{"--iterations", "6", "--devices", "1"}), vfAll);
    mRun(mArgs(vstrMethod + Args{"--iterations", "3"}, "half.mrc"));
    EXPECT_EQ(
        mVolume(vstrMethod + Args{"--iterations", "3", "--initial-volume", m_aDir / "half.mrc"}),
        vfAll);
    EXPECT_NE(mVolume(vstrMethod + Args{"--iterations", "6", "--order", "given"}), vfAll);
    EXPECT_NE(mVolume({"--subset-sizes", "30,8", "--include", "1,3-39", "--iterations", "6"}),
              vfAll);
    const Floats vfSmooth = mVolume(vstrMethod + Args{"--iterations", "6", "--smooth", "0.8,2"});
    EXPECT_NE(vfSmooth, vfAll);
    EXPECT_EQ(mRunJson(mArgs({"--smooth", "0.8,2", "--iterations", "2"}))["smoothing"],
              json({{"interval", 2}, {"kernel_size", 7}}));

    // Reprojected, the truth is the tilt series but for voxels that blur its beads.
    const json aJson = mRunJson({"reproject", "--volume", m_aDir / "ph_truth.mrc", "--angles",
                                 m_aDir / "ph.tlt", "-o", m_aDir / "again.mrc", "--width", "88"});
    EXPECT_EQ(aJson["stack"]["size"], (json{88, 43, 41}));
    const Floats vfExact = ReadPixels(m_aDir / "ph.mrc"),
                 vfAgain = ReadPixels(m_aDir / "again.mrc");
    double dError = 0, dSquares = 0;
    for (std::size_t i = 0; i < vfAgain.size(); ++i)
    {
        const float fExact = vfExact[i / 88 * 90 + i % 88 + 1];
        dError += std::pow(double(vfAgain[i]) - fExact, 2);
        dSquares += std::pow(double(fExact), 2);
    }
    EXPECT_LT(std::sqrt(dError / dSquares), 0.05);
}

TEST_F(ClientProgram, ADriftIsFoundAndTakenOut)
{
    const Floats vfExact = ReadPixels(m_aDir / "ph.mrc");
    const Args vstrTransform = {"transform", "-o", m_strOut, "--measured", m_aDir / "ph.mrc"};
    mRun({"transform", "--measured", m_aDir / "ph.mrc", "--matrix", "1,0,0,1,-3,2", "-o",
          m_aDir / "raw.mrc"});
    const Args vstrCompare = {"compare", "--measured", m_aDir / "raw.mrc", "--aligned",
                              m_aDir / "ph.mrc"};
    const json aFound =
        mRunJson(vstrCompare + Args{"--search", "6", "--write-matrices", m_aDir / "m.txt"});
    ASSERT_EQ(aFound["sections"].size(), 41u);
    for (const json& rSection : aFound["sections"])
    {
        EXPECT_NEAR(rSection["shift"][0], 3, 0.2) << rSection;
        EXPECT_NEAR(rSection["shift"][1], -2, 0.2) << rSection;
        EXPECT_EQ(rSection["matrix"][4].get<float>(), rSection["shift"][0].get<float>());
        EXPECT_GT(rSection["correlation"], 0.98);
        EXPECT_FALSE(rSection["at_edge"]);
        EXPECT_GT(rSection["sums"]["count"], 85 * 40);
    }
    const std::string strEdge = mRun(vstrCompare + Args{"--search", "2"});
    EXPECT_EQ(strEdge.rfind("section 1: correlation 0.", 0), 0u) << strEdge;
    EXPECT_NE(strEdge.find(" (at the edge of the search)\n"), std::string::npos);
    EXPECT_NE(strEdge.find("raw.mrc: mean correlation 0."), std::string::npos) << strEdge;
    const json aSame = mRunJson({"compare", "--measured", m_aDir / "ph.mrc", "--aligned",
                                 m_aDir / "ph.mrc", "--gain", "1", "--offset", "2"});
    EXPECT_NEAR(aSame["sections"][7]["correlation"], 1, 1e-5);
    EXPECT_NEAR(aSame["sections"][7]["mean_difference"], 2, 1e-4);

    const json aDone =
        mRunJson({"transform", "--measured", m_aDir / "raw.mrc", "--matrices", m_aDir / "m.txt",
                  "-o", m_strOut, "--size", "80,33", "--gain", "2", "--most", "40"});
    const Floats vfOut = ReadPixels(m_strOut);
    double dError = 0;
    for (std::size_t i = 0; i < vfOut.size(); ++i)
    {
        const std::size_t tAt = i / 2640 * 3870 + (i % 2640 / 80 + 5) * 90 + i % 80 + 5;
        dError += std::fabs(vfOut[i] - std::min(40.f, 2 * vfExact[tAt])) / double(vfOut.size());
    }
    EXPECT_LT(dError, 0.5) << "the middle stays";
    EXPECT_EQ(aDone["missing_pixels"], 0);
    EXPECT_EQ(aDone["stack"]["size"], (json{80, 33, 41}));
    EXPECT_EQ(aDone["stack"]["max"], 40);
    EXPECT_NE(mRun(vstrTransform + Args{"--log", "--beam", "500", "--least", "5", "--factor", "3",
                                        "--matrix", "1,0,0,1,2,0", "--origin", "corner"})
                  .find(": 2.22 % of the pixels missing, "),
              std::string::npos);
    const Floats vfLog = ReadPixels(m_strOut);
    EXPECT_NEAR(vfLog[1980], 3 * std::log(500 / std::max(5.f, vfExact[1982])), 1e-4);
    EXPECT_TRUE(IsMissing(vfLog[88]) && IsMissing(vfLog[89]) && !IsMissing(vfLog[87]));
}

/// Exit code and reason; then the command, its usual inputs when it begins with a capital letter,
/// and more. @ is the test's directory.
constexpr std::pair<const char*, const char*> g_aRefused[] = {
    {"2", ""},
    {"2", "nonsense"},
    {"2--tilts", "Reconstruct --tilts @ph.mrc"},
    {"2", "Reconstruct --no-such-option"},
    {"2--exclude: expected views counted from 1", "Reconstruct --exclude 3-"},
    {"2--relaxation: expected R, R1,R2", "Reconstruct --relaxation fast"},
    {"2--weight-box: expected 4 numbers", "Reconstruct --weight-box 1,2,3"},
    {"2--smooth: expected SIGMA", "Reconstruct --smooth 0"},
    {"2--method", "Reconstruct --method magic"},
    {"2--iterations", "Reconstruct --iterations 0"},
    {"2--subset", "Reconstruct --subsets 2 --subset-sizes 2,3"},
    {"2clude", "Reconstruct --exclude 2 --include 2"},
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
    {"1--weight-box: the half sizes", "Reconstruct --weight-box 0,0,0,1"},
    {"12^31", "Reconstruct --width 2000000000"},
    {"1is 90 x 43 x 41, the volume is 90 x 43 x 36", "Reconstruct --reference @ph.mrc"},
    {"1is 90 x 43 x 1, the volume is", "Reconstruct --initial-volume @hole.mrc"},
    {"1No such file", "Reconstruct --preview /no/such/p.png"},
    {"1No such file", "Reconstruct --rfactors /no/such/r"},
    {"1has 41 angles, but", "reconstruct --tilts @hole.mrc --angles @ph.tlt --thickness 3 -o @x"},
    {"1no.mrc: cannot read", "reproject --volume no.mrc --angles @ph.tlt -o @rec.mrc"},
    {"11 matrix, but the stack has 41", "Transform --matrices @one.txt"},
    {"1TS.Xf: an .xf file tells", "Transform --matrices @TS.Xf"},
    {"2expected 6 numbers", "Transform --matrix 1,0,0,1"},
    {"1--matrix: 1e+60 is too large", "Transform --matrix 1,0,0,1,0,1e60"},
    {"1expected X,Y, found \"20\"", "Transform --size 20"},
    {"2--beam", "Transform --log"},
    {"1above 0, not -1 and 1", "Transform --log --beam -1"},
    {"1above 0, not 1 and 0", "Transform --log --beam 1 --least 0"},
    {"1too large or not a number", "Transform --gain nan"},
    {"1section 1 has missing", "transform --measured @hole.mrc --gain -1 -o @rec.mrc"},
    {"1has 1 section, but", "compare --measured @hole.mrc --aligned @ph.mrc"},
    {"2--search", "Compare --search 0"},
    {"2--search", "Compare --write-matrices @rec.mrc"},
    {"1a.xf: an .xf file", "Compare --search 2 --write-matrices @a.xf"},
    {"1section 1: no shift leaves a quarter", "Compare --search 1 --matrix 1,0,0,1,1000,0"},
    {"1slice 42, but there are 41 along z", "View --slices 42"},
    {"1the lower one first", "View --contrast 9,5"},
    {"1the lower one first", "View --contrast 0,101"},
    {"160 slices do not fit", "View --axis x --width 100 --slices 1-60"},
    {"1--size: expected X,Y", "phantom @q --size 20"},
    {"1--angles: expected FROM,TO,STEP", "phantom @q --angles 2,1,1"}};

TEST_F(ClientProgram, WhatCannotWorkIsRefusedInOneLine)
{
    WriteFile(m_aDir / "one.txt", "1 0 0 1 0 0\n");
    WriteStack(m_aDir / "hole.mrc", 90, 43, {Floats(90 * 43, -1e30f)});
    const std::map<std::string, Args> aUsual = {
        {"Reconstruct", mArgs()},
        {"Transform", {"transform", "--measured", m_aDir / "ph.mrc", "-o", m_strOut}},
        {"Compare", {"compare", "--measured", m_aDir / "ph.mrc", "--aligned", m_aDir / "ph.mrc"}},
        {"View", {"view", m_aDir / "ph.mrc", "-o", m_strOut}}};
    for (const auto& [pcExpected, pcArgs] : g_aRefused)
    {
        SCOPED_TRACE(pcArgs);
        Args vstrArgs;
        std::istringstream aArgs(pcArgs);
        for (std::string strWord; aArgs >> strWord;)
            vstrArgs = vstrArgs + (aUsual.contains(strWord) ? aUsual.at(strWord)
                                   : strWord[0] == '@'      ? Args{m_aDir / strWord.substr(1)}
                                                            : Args{strWord});
        ExpectFailure(mTry(vstrArgs), pcExpected + 1, *pcExpected - '0');
        mExpectUntouched(2);
    }
    ExpectFailure(mTry(mArgs(), {}, 200000), "File too large");
    const std::string strScript = m_aDir / "server.sh";
    WriteFile(strScript, "#!/bin/sh\necho 'Error: GPU devices are not found.'\nexit 255\n");
    std::filesystem::permissions(strScript, std::filesystem::perms::owner_all);
    ExpectFailure(mTry(mArgs(), {"TALVEN_SERVER=" + strScript}),
                  "talven-server did not start: GPU devices are not found.");
    ExpectFailure(mTry(mArgs(), {"TALVEN_SERVER=/no/such/server"}), "/no/such/server: cannot run");
    mExpectUntouched(3);
}

TEST_F(ClientProgram, AnInterruptOrADeadServerLeavesNothing)
{
    for (const int iSignal : {SIGINT, SIGTERM, SIGKILL})
    {
        pid_t iServer = 0;
        const pid_t iClient = mStartLongJob(iServer);
        kill(iSignal == SIGKILL ? iServer : iClient, iSignal);
        ExpectFailure(WaitForProgram(m_aDir, iClient),
                      iSignal == SIGKILL ? "talven-server ended with signal 9" : "interrupted");
        EXPECT_NE(kill(iServer, 0), 0) << "the server lives";
        EXPECT_TRUE(std::filesystem::is_empty(m_strTmp));
        mExpectUntouched();
    }
    pid_t iServer = 0;
    const pid_t iClient = mStartLongJob(iServer);
    kill(iClient, SIGKILL);
    WaitForProgram(m_aDir, iClient);
    EXPECT_TRUE(Eventually(
        [&]
        {
            // Adopted by a process that may not collect it: a zombie is dead, too.
            const std::string strStat = ReadFile("/proc/" + std::to_string(iServer) + "/stat");
            return strStat.empty() || strStat.find(") Z ") != std::string::npos;
        }))
        << "a server outlives its client";
    std::filesystem::remove_all(m_strTmp);  // nobody was left to do it
    std::filesystem::create_directory(m_strTmp);
}

TEST_F(ClientProgram, AServerOfOneselfServesManyClients)
{
    const std::string strPort = std::to_string(20000 + getpid() % 20000);
    const CTempDir aOutput;
    const pid_t iServer =
        StartProgram(aOutput, {"serve", "--port", strPort, "--bind", "127.0.0.1", "--devices", "1"},
                     mEnvironment());
    const Args vstrServer = {"--server", "127.0.0.1:" + strPort};
    ASSERT_TRUE(Eventually([&] { return mTry(Args{"info"} + vstrServer).iExit == 0; }));
    const json aInfo = mRunJson(Args{"info"} + vstrServer);
    EXPECT_GT(aInfo["memory_bytes"], 1 << 20);
    EXPECT_EQ(aInfo["server"], vstrServer[1]);
    EXPECT_NE(mRun(Args{"info"} + vstrServer).find(" of device memory for jobs"),
              std::string::npos);
    EXPECT_NE(ReadFile(aOutput / "stdout.txt").find("GPU 0 is used"), std::string::npos);
    EXPECT_EQ(ReadFile(aOutput / "stdout.txt").find("GPU 1 is used"), std::string::npos);

    // A box changes the result, and does not stay for the next client.
    const Args vstrTwo = vstrServer + Args{"--iterations", "2"};
    const Floats vfPlain = mVolume(vstrTwo);
    EXPECT_NE(mVolume(vstrTwo + Args{"--weight-box", "0,0,30,9"}), vfPlain);
    EXPECT_EQ(mVolume(vstrTwo), vfPlain);
    ExpectFailure(mTry(mArgs(vstrServer + Args{"--weight-box", "0,0,30,9", "--initial-volume",
                                               m_aDir / "ph.mrc"})),
                  "the volume is");
    kill(iServer, SIGTERM);
    EXPECT_EQ(WaitForProgram(aOutput, iServer).iExit, 0);
}

TEST_F(ClientProgram, ProgressIsShownOnATerminal)
{
    int iMaster = -1, iTerminal = -1;
    ASSERT_EQ(openpty(&iMaster, &iTerminal, nullptr, nullptr, nullptr), 0);
    const pid_t iClient = StartProgram(m_aDir, mArgs({"--iterations", "1"}), mEnvironment(),
                                       RLIM_INFINITY, iTerminal);
    EXPECT_EQ(WaitForProgram(m_aDir, iClient).iExit, 0);
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
    Floats vfSection(60 * 40);
    std::vector<Floats> avfSections;
    for (int z = 0; z < 3; ++z)
    {
        for (int i = 0; i < 60 * 40; ++i)  // bright in the upper right corner, more so with z
            vfSection[std::size_t(i)] = float((i % 60 >= 30) * (i / 60 >= 20) * (z + 1));
        avfSections.push_back(vfSection);
    }
    vfSection.assign(60 * 40, -1e30f);
    avfSections.push_back(vfSection);
    WriteStack(m_aDir / "v.mrc", 60, 40, avfSections);
    const Args vstrView = {"view", m_aDir / "v.mrc", "-o", m_aDir / "v.png", "--contrast", "0,100"};
    json aJson = mRunJson(vstrView + Args{"--slices", "1,3-4", "--width", "300"});
    EXPECT_TRUE(aJson["black"] == 0 && aJson["white"] == 3) << aJson;
    EXPECT_EQ(aJson["slices"], (json{1, 3, 4}));
    const CPng aZ(m_aDir / "v.png");  // four times as large, one below the other
    EXPECT_EQ(aJson["picture"]["size"], (json{aZ.GetWidth(), aZ.GetHeight()}));
    const auto IsGrey = [](unsigned uiPixel) { return uiPixel == 85 * 0x010101; };
    EXPECT_EQ(aZ.Count(14 + 120, 38, 120, 80, IsGrey), 9600) << "the upper right quarter";
    EXPECT_EQ(aZ.Get(14, 38), 0u) << "the upper left corner of the first slice";

    aJson = mRunJson(vstrView + Args{"--axis", "x", "--slices", "31"});
    EXPECT_EQ(aJson["picture"]["size"], (json{14 + 60 + 14, 14 + 24 + 160 + 14}));
    const CPng aX(m_aDir / "v.png");  // 4 x 40, four times as large: z to the right, y upwards
    for (int z = 0; z < 4; ++z)
    {
        EXPECT_EQ(aX.Get(14 + 4 * z + 2, 40), (z == 3 ? 0 : 85 * (z + 1u)) * 0x010101) << z;
        EXPECT_EQ(aX.Get(14 + 4 * z + 2, 38 + 120), 0u) << z;
    }
    EXPECT_EQ(mRunJson(vstrView + Args{"--axis", "y"})["slices"], json{21});
    const CPng aY(m_aDir / "v.png");  // 60 x 4, four times as large
    EXPECT_EQ(aY.Get(14 + 236, 38 + 14), 85 * 0x010101u) << "z = 0 is the lowest row";
    EXPECT_EQ(aY.Get(14 + 236, 38 + 6), 0xFFFFFFu);
    EXPECT_GT(aY.Count(14, 14, 60, 24, IsDark), 20) << "its title";
}

TEST(ClientPictures, PreviewAndPlotShowTheirNumbers)
{
    const CTempDir aDir;
    std::string strError;
    CSlices aSlices(3, 4, 5);
    aSlices.WantCentral();
    Floats vfSection(12);
    for (int z = 0; z < 5; ++z)
    {
        for (std::size_t i = 0; i < 12; ++i) vfSection[i] = float(12 * std::size_t(z) + i);
        aSlices.Add(z, vfSection);
    }
    ASSERT_TRUE(WritePreview(aDir / "p.png", aSlices, strError)) << strError;
    const CPng aPreview(aDir / "p.png");
    constexpr int iScale = 69;  // as many times as make 750 pixels of 3 + 5 + 3
    ASSERT_EQ(aPreview.GetWidth(), 14 * 4 + iScale * 11);
    ASSERT_EQ(aPreview.GetHeight(), 24 + 28 + iScale * 5);
    int iLeft = 14;
    for (const Slice& rSlice : aSlices.Get())
    {
        EXPECT_GT(aPreview.Count(iLeft, 14, 90, 24, IsDark), 40) << "no title";
        for (int i = 0; i < rSlice.iWidth * rSlice.iHeight; ++i)
        {
            const int x = i % rSlice.iWidth, y = i / rSlice.iWidth;
            // All values but the outermost ones are between black and white.
            const float fGrey = 255 * (rSlice.vfPixels[std::size_t(i)] - 1) / 55;
            EXPECT_NEAR(
                aPreview.Get(iLeft + iScale * x + 34, 38 + iScale * (rSlice.iHeight - 1 - y) + 34) &
                    0xFF,
                std::clamp(fGrey, 0.f, 255.f), 1)
                << rSlice.cAxis << " " << x << " " << y;
        }
        iLeft += iScale * rSlice.iWidth + 14;
    }

    ASSERT_TRUE(WriteRfactorPlot(aDir / "r.png", std::vector{1.0, 0.5, 0.25}, "a title", strError));
    const CPng aPlot(aDir / "r.png");
    // Dots where the axes put them: 0 to 1 between rows 458 and 46, 1 to 3 over columns 80 to 776.
    for (const auto& [x, y] : {std::pair{100, 46}, {428, 252}, {756, 355}})
    {
        EXPECT_GT(aPlot.Count(x - 3, y - 3, 7, 7, IsBlue), 30) << x;
        EXPECT_EQ(aPlot.Count(x - 3, y + 8, 7, 60, IsBlue), 0) << "below the curve";
    }
    EXPECT_GT(aPlot.Count(101, 46, 650, 310, IsBlue), 1300) << "the lines between them";
    EXPECT_GT(aPlot.Count(40, 36, 34, 20, IsDark), 20) << "1.0";
    EXPECT_GT(aPlot.Count(350, 10, 160, 26, IsDark), 60) << "the title";
    EXPECT_GT(aPlot.Count(380, 490, 100, 24, IsDark), 60) << "iteration";
    EXPECT_GT(aPlot.Count(5, 200, 26, 100, IsDark), 60) << "R-factor";
    EXPECT_EQ(aPlot.Count(90, 458, 680, 1, IsDark), 680) << "the frame";
}

TEST(ClientDocuments, ShowTheHelp)
{
    const CTempDir aDir;
    const std::string strDocument = ReadFile(TALVEN_CLI_DOCUMENT);
    for (const char* pcCommand :
         {"reconstruct", "reproject", "transform", "compare", "view", "info", "phantom", "serve"})
    {
        const Outcome aHelp = WaitForProgram(aDir, StartProgram(aDir, {pcCommand, "--help"}));
        EXPECT_EQ(aHelp.iExit, 0);
        EXPECT_NE(strDocument.find("```text\n" + aHelp.strOut + "```\n"), std::string::npos)
            << "scripts/update-cli-docs puts the help of " << pcCommand << " into docs/cli.md";
    }
    const Outcome aVersion = WaitForProgram(aDir, StartProgram(aDir, {"--version"}));
    EXPECT_EQ(aVersion.strOut.rfind("talven ", 0), 0u);
}

}  // namespace
}  // namespace talven::test
