#include <algorithm>
#include <cmath>

#include "tests/oracle/JobOracle.h"
#include "tests/soak/Session.h"
#include "tests/wire/Messages.h"

namespace
{
bool IsModest(const std::vector<float>& rValues)
{
    constexpr float fMost = 1e6f;  // squares and ray sums stay far from the end of floats
    return std::ranges::all_of(rValues,
                               [](float f) { return IsMissing(f) || std::fabs(f) < fMost; });
}

ECheck KindOf(const TestJob& rJob)
{
    if (rJob.bReproject) return eReprojected;
    if (rJob.eMethod == EMethod::eBackProj) return eBackProjected;
    return rJob.eMethod == EMethod::eSart ? eSartRun : eEmRun;
}

/// The rounding of one pass of float sums, and what iterations make of it.
double GetTolerance(ECheck eCheck)
{
    return eCheck == eSartRun ? 2e-4 : eCheck == eEmRun ? 5e-4 : 2e-5;
}
}  // namespace

/// Leaves out what the server carries out and no oracle can follow.
bool CSession::mPrepareJob()
{
    if (!IsModest(m_aModel.aStack.vf) && !mStack(false)) return false;
    if (!IsModest(m_aModel.aVolume.vf) && !mVolume(false)) return false;
    // The depth of an endless slab along a ray that never leaves it is a matter of rounding.
    const auto IsSteep = [](float fAngle) { return std::fabs(fAngle) > 85; };
    if (!m_aModel.HasSlab() || std::ranges::none_of(m_aModel.vfAngles, IsSteep)) return true;
    return mSetBox(OracleBox{{0, 0}, {2, 2}});
}

bool CSession::mJob(bool bReproject)
{
    const Request aRequest = {bReproject ? Msg::eReproject : Msg::eReconstruct, {}, {}};
    if (!mPrepareJob()) return false;
    if (!m_aModel.CanRun(bReproject) &&
        !(mServe(aRequest, false) && mLook() && mMakeAll() && mPrepareJob()))
        return false;
    if (m_bCutInJob) m_aClient.CutAfter(std::size_t(m_aRandom.Int(64, 150)), m_bCutResets);
    if (!mSend(aRequest)) return false;

    const std::uint32_t uiSerial = m_aClient.GetLastSerial();
    const TestJob aJob = m_aModel.MakeJob(bReproject);
    const TestData aStart = m_aModel.MakeData();
    const TestData aExpected = RunOracle(aJob, aStart);  // while the server works
    TestData aGot;
    if (!mReply(aRequest, uiSerial, true) || !mCheckConsole(aRequest, true) ||
        !(bReproject ? mFetchStack(aGot) : mFetchVolume(aGot) && mFetchStat(aJob, aGot)))
        return false;
    return mCheckJob(aJob, aStart, aGot, aExpected) && mLook();
}

bool CSession::mCheckJob(const TestJob& rJob, const TestData& rStart, const TestData& rGot,
                         const TestData& rExpected)
{
    const ECheck eCheck = KindOf(rJob);
    if (rJob.uiInterval > 0 && !rJob.vfKernel.empty()) m_rTally.Note(eSmoothed);
    const double dError = JobError(rJob, rGot, rExpected), dTolerance = GetTolerance(eCheck);
    if (dError <= dTolerance) return mAgrees(eCheck, dError, dTolerance);
    m_rTally.Note(eDoubted);
    const double dDoubt = 4 * JobDoubt(rJob, rStart, rExpected);
    // EM divides by ray sums, by 1 where one is 0. A sum of zeros and one of roundings are worlds
    // apart, and no small change of the inputs leads from one to the other. CheckCounts() bounds
    // them.
    if (eCheck == eEmRun && !(dError <= dDoubt) && std::isfinite(dError))
    {
        m_rTally.Note(eUnjudged);
        return true;
    }
    return mAgrees(eCheck, dError, dDoubt);
}

/// The volume, which the model takes over.
bool CSession::mFetchVolume(TestData& rGot)
{
    for (int z = 0; z < m_aModel.aVolume.iN; ++z)
    {
        if (!mServe({Msg::eVolGet, {std::uint32_t(z)}, {}})) return false;
        const std::vector<float> vfSlice = m_aReply.Floats();
        rGot.vfVolume.insert(rGot.vfVolume.end(), vfSlice.begin(), vfSlice.end());
    }
    if (rGot.vfVolume.size() != m_aModel.aVolume.vf.size())
        return mWrong("VOLGET: %zu voxels", rGot.vfVolume.size());
    m_aModel.aVolume.vf = rGot.vfVolume;
    return true;
}

/// The stack: selected projections are new, the others are what they were.
bool CSession::mFetchStack(TestData& rGot)
{
    for (int n = 0; n < m_aModel.aStack.iN; ++n)
    {
        const std::span<float> fProj = m_aModel.aStack.Nth(n);
        if (std::ranges::count(m_aModel.vuiList, std::uint32_t(n)) == 0)
        {
            if (!mGet(Msg::eProjGet, n, fProj)) return false;
        }
        else
        {
            if (!mServe({Msg::eProjGet, {std::uint32_t(n)}, {}})) return false;
            const std::vector<float> vf = m_aReply.Floats();
            if (vf.size() != fProj.size()) return mWrong("PROJGET: %zu pixels", vf.size());
            std::ranges::copy(vf, fProj.begin());
        }
    }
    rGot.vfProjs = m_aModel.aStack.vf;
    return true;
}

/// The R-factor sums; plain back projection leaves those of the last job.
bool CSession::mFetchStat(const TestJob& rJob, TestData& rGot)
{
    if (rJob.eMethod == EMethod::eBackProj) return true;
    m_aModel.vvfStat.clear();
    for (int i = 0; i < rJob.iIterations; ++i)
    {
        if (!mServe({Msg::eReconStatGet, {std::uint32_t(i)}, {}})) return false;
        m_aModel.vvfStat.push_back(m_aReply.Floats());
        const std::vector<float>& vf = m_aModel.vvfStat.back();
        rGot.vdRfactor.insert(rGot.vdRfactor.end(), vf.begin(), vf.end());
    }
    return true;
}

bool CSession::mAgrees(ECheck eCheck, double dError, double dTolerance)
{
    const Images &rStack = m_aModel.aStack, &rVolume = m_aModel.aVolume;
    if (!(dError <= dTolerance))
        return mWrong("%s: error %.3g, tolerance %.3g, stack %d x %d x %d, volume %d x %d",
                      g_apcChecks[eCheck], dError, dTolerance, rStack.iX, rStack.iY, rStack.iN,
                      rVolume.iX, rVolume.iN);
    m_rTally.Note(eCheck, dError / dTolerance);
    return true;
}
