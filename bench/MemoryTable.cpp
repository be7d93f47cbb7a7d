// talven-memory-bench [ITERATIONS [CASE]]: peak memory and processor time of the real server, which
// stands beside this program or is named by TALVEN_SERVER, in jobs of two workers.

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "talven/PrivateServer.h"

namespace
{
constexpr int g_iX = 1024, g_iProjs = 61;

struct Case
{
    const char* pcName;
    talven::EMethod eMethod;
    int iY, iZ;
    int iSets;
    int iJobs = 1;  // one after the other: all but the first go on from a volume
};

[[noreturn]] void Fail(const std::string& strWhat)
{
    std::fprintf(stderr, "talven-memory-bench: %s\n", strWhat.c_str());
    std::exit(1);
}

void Demand(bool bDone, const talven::CSession& rSession)
{
    if (!bDone) Fail(rSession.GetError());
}

/// Most memory that the process has held, bytes.
double GetPeak(pid_t iPid)
{
    std::ifstream aStatus("/proc/" + std::to_string(iPid) + "/status");
    for (std::string strLine; std::getline(aStatus, strLine);)
        if (strLine.rfind("VmHWM:", 0) == 0) return std::atof(strLine.c_str() + 6) * 1024;
    return 0;
}

/// Processor time that the process has used, seconds: its own, and the system's for it.
std::array<double, 2> GetTimes(pid_t iPid)
{
    std::ifstream aStat("/proc/" + std::to_string(iPid) + "/stat");
    std::string strLine;
    std::getline(aStat, strLine);
    std::istringstream aFields(strLine.substr(strLine.rfind(')') + 1));
    std::string strField;
    for (int i = 0; i < 11; ++i) aFields >> strField;
    double dUser = 0, dSystem = 0;
    aFields >> dUser >> dSystem;
    const auto dTicks = static_cast<double>(sysconf(_SC_CLK_TCK));
    return {dUser / dTicks, dSystem / dTicks};
}

void Upload(talven::CSession& rSession, const Case& rCase)
{
    std::vector<float> vfAngles(g_iProjs), vfImage(std::size_t(g_iX) * rCase.iY);
    for (int i = 0; i < g_iProjs; ++i) vfAngles[std::size_t(i)] = static_cast<float>(2 * i - 60);
    std::minstd_rand aRandom;
    for (float& rPixel : vfImage) rPixel = 1 + static_cast<float>(aRandom() % 1000) / 1000;
    Demand(rSession.SetStackSize(g_iX, rCase.iY, vfAngles), rSession);
    for (int i = 0; i < g_iProjs; ++i) Demand(rSession.SetProjection(i, vfImage), rSession);
    Demand(rSession.SetVolumeSize(g_iX, rCase.iY, rCase.iZ) && rSession.SetWeightBox(nullptr),
           rSession);
}

void Run(const Case& rCase, int iIterations)
{
    talven::CSession aSession;
    talven::CPrivateServer aServer;
    talven::PrivateServerOptions aServerOptions;
    aServerOptions.iDevices = 2;
    aServerOptions.strBackend = "host";
    if (!aServer.Start(aServerOptions, aSession)) Fail(aServer.GetError());
    Upload(aSession, rCase);
    const double dBefore = GetPeak(aServer.GetPid());

    talven::ReconOptions aOptions;
    aOptions.eMethod = rCase.eMethod;
    aOptions.iIterations = iIterations;
    for (int s = 0; s < rCase.iSets; ++s)
        aOptions.vuiSetSizes.push_back(
            std::uint32_t((s + 1) * g_iProjs / rCase.iSets - s * g_iProjs / rCase.iSets));
    aOptions.vfRelax.assign(std::size_t(iIterations) * rCase.iSets, 1.0f);
    Demand(aSession.SetReconOptions(aOptions), aSession);

    const auto adStart = GetTimes(aServer.GetPid());
    for (int j = 0; j < rCase.iJobs; ++j) Demand(aSession.Reconstruct(), aSession);
    const auto adEnd = GetTimes(aServer.GetPid());
    const double dData = 4.0 * g_iX * rCase.iY * (g_iProjs + rCase.iZ);
    const double dStack = 4.0 * g_iX * rCase.iY * g_iProjs, dPeak = GetPeak(aServer.GetPid());
    std::printf(
        "%-38s %7.1f MB  %.3fx  (%4.1f MB before the job)  %6.2f s + %.2f s of the system\n",
        rCase.pcName, dPeak / 1e6, dPeak / dData, (dBefore - dStack) / 1e6, adEnd[0] - adStart[0],
        adEnd[1] - adStart[1]);
    std::fflush(stdout);
}
}  // namespace

int main(int iArgs, char** ppcArgs)
{
    const int iIterations = iArgs > 1 ? std::atoi(ppcArgs[1]) : 1;
    if (iIterations < 1) Fail("iterations: a number from 1 on");
    using enum talven::EMethod;
    std::printf(
        "%d iterations, %d views of %d columns, two workers\n"
        "peak memory, times stack and volume; processor time\n\n",
        iIterations, g_iProjs, g_iX);
    const int iOnly = iArgs > 2 ? std::atoi(ppcArgs[2]) : 0;
    const Case aCases[] = {{"SART, 256 rows, one set", eSart, 256, 256, 1},
                           {"SART, 256 rows, a view in a set", eSart, 256, 256, g_iProjs},
                           {"EM, 256 rows, one set", eEm, 256, 256, 1},
                           {"SART, 256 rows, one set, twice", eSart, 256, 256, 1, 2},
                           {"SART, 1024 rows of 195, one set", eSart, 1024, 195, 1}};
    for (const Case& rCase : aCases)
        if (iOnly == 0 || &rCase - aCases == iOnly - 1) Run(rCase, iIterations);
    return 0;
}
