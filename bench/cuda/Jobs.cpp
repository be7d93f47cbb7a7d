// Whole jobs: how long they take, and whether they compute the same as the host.

#include <cmath>
#include <cstdio>
#include <vector>

#include "bench/cuda/Job.h"
#include "bench/cuda/Sections.h"
#include "gpulib/Device/Backend.h"

namespace
{
/// What a phase of the table is made of; null: all launches that no other phase names.
struct Phase
{
    const char* pcName;
    const char* pcTotal;
    bool bHost;
};
constexpr Phase g_aPhases[] = {
    {"host: packing", g_acPack, true},         {"host: unpacking", g_acUnpack, true},
    {"host: waiting", g_acWait, true},         {"copies to the device", g_acToDevice, false},
    {"copies to the host", g_acToHost, false}, {"forward projection", "ForwardProject", false},
    {"back projection", "BackProject", false}};

void PrintLine(const char* pcName, double dSeconds, double dTotal)
{
    std::printf("    %-24s %10.4f s %6.1f %%\n", pcName, dSeconds, 100 * dSeconds / dTotal);
}

/// Phases of the host follow each other and add up to the time of the job; those of the device
/// run beside them and beside each other.
void PrintPhases(CCudaClock::Totals aTotals, double dTotal)
{
    double dOtherHost = dTotal, dOtherKernels = 0;
    int iOthers = 0;
    for (const Phase& rPhase : g_aPhases)
    {
        const double dSeconds = aTotals[rPhase.pcTotal].dSeconds;
        if (rPhase.bHost) dOtherHost -= dSeconds;
        PrintLine(rPhase.pcName, dSeconds, dTotal);
        aTotals.erase(rPhase.pcTotal);
    }
    for (const auto& [strName, rOther] : aTotals)
    {
        dOtherKernels += rOther.dSeconds;
        iOthers += rOther.iCount;
    }
    PrintLine("other kernels", dOtherKernels, dTotal);
    PrintLine("host: all else", dOtherHost, dTotal);
    std::printf("    (%d launches of other kernels)\n", iOthers);
}

bool PrintJob(const Job& rJob, Util_Volume& rStack)
{
    CCudaClock::Totals aTotals;
    Util_Volume aVolume;
    const double dFirst = RunJob(rJob, rStack, aVolume), dSecond = RunJob(rJob, rStack, aVolume);
    const double dClocked = RunJob(rJob, rStack, aVolume, &aTotals);
    if (std::isnan(dFirst) || std::isnan(dSecond) || std::isnan(dClocked)) return false;
    std::printf("  %u subsets: first run %.3f s, second %.3f s; with a clock %.3f s, of which\n",
                rJob.uiSets, dFirst, dSecond, dClocked);
    PrintPhases(std::move(aTotals), dClocked);
    return true;
}

double RelativeL2(const Util_Volume& rGot, const Util_Volume& rExpected)
{
    double dError = 0, dNorm = 0;
    for (std::size_t i = 0; i < rExpected.GetVoxels(); ++i)
    {
        const double dExpected = double(rExpected.GetData()[i]);
        dError += std::pow(double(rGot.GetData()[i]) - dExpected, 2);
        dNorm += dExpected * dExpected;
    }
    return std::sqrt(dError / dNorm);
}

/// One line. \return whether the CUDA backend agrees with the host
bool PrintAgreementOf(const Job& rJob)
{
    Util_Volume aStack, aExpected, aVolume;
    FillStack(rJob, aStack);
    SetBackend(nullptr);
    SetBackend(MakeHostBackend("", 1));
    if (!GetBackend()->SelectDevice(0) || std::isnan(RunJob(rJob, aStack, aExpected)) ||
        !UseCuda() || std::isnan(RunJob(rJob, aStack, aVolume)))
        return false;
    constexpr double dMost = 1e-5;
    const double dError = RelativeL2(aVolume, aExpected);
    const bool bAgrees = dError <= dMost;  // not of NaN
    std::printf("  %s %-4s %2u subsets: relative L2 %.2e, at most %.0e\n",
                bAgrees ? "PASS" : "FAIL", rJob.bEm ? "EM" : "SART", rJob.uiSets, dError, dMost);
    SetBackend(nullptr);
    return bAgrees;
}
}  // namespace

bool PrintJobs(const BenchSize& rSize)
{
    Job aJob = {rSize.iJobX, rSize.iJobY, rSize.iJobZ, rSize.iProjs, rSize.iIterations, 1};
    Util_Volume aStack;
    FillStack(aJob, aStack);
    std::printf("\nSART, volume %d x %d x %d, %d projections of %d x %d, %d iterations\n", aJob.iX,
                aJob.iY, aJob.iZ, aJob.iProjs, aJob.iX, aJob.iY, aJob.iIterations);
    for (const int iSets : {1, aJob.iProjs})
    {
        aJob.uiSets = unsigned(iSets);
        if (!PrintJob(aJob, aStack)) return false;
    }
    return true;
}

bool PrintAgreement(const BenchSize& rSize)
{
    Job aJob = {rSize.iAgreeX, rSize.iAgreeY, rSize.iAgreeZ, rSize.iProjs, rSize.iIterations, 1};
    std::printf("\nvolume %d x %d x %d beside the host's, %d projections, %d iterations\n", aJob.iX,
                aJob.iY, aJob.iZ, aJob.iProjs, aJob.iIterations);
    bool bAgree = PrintAgreementOf(aJob);
    aJob.uiSets = unsigned(std::min(10, aJob.iProjs));
    bAgree = PrintAgreementOf(aJob) && bAgree;
    aJob.uiSets = 1;
    aJob.bEm = true;
    return PrintAgreementOf(aJob) && bAgree;
}
