#include <algorithm>
#include <cmath>

#include "tests/soak/Session.h"
#include "tests/wire/Messages.h"

namespace
{
// Relative errors, all elements together: the rounding of one pass of float sums, and what
// iterations make of it. The ratios of EM enlarge the rounding of rays that hardly touch the
// volume.
double GetTolerance(ECheck eCheck)
{
    return eCheck == eSartRun ? 2e-4 : eCheck == eEmRun ? 1e-3 : 2e-5;
}

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
    const TestData aExpected = RunOracle(aJob, m_aModel.MakeData());  // while the server works
    if (!mReply(aRequest, uiSerial, true) || !mCheckConsole(aRequest, true)) return false;
    if (bReproject) return mCheckStack(aExpected) && mLook();
    const ECheck eCheck = KindOf(aJob);
    const bool bIterates = eCheck == eSartRun || eCheck == eEmRun;
    if (!mCheckVolume(aExpected, eCheck)) return false;
    if (bIterates && !mCheckStat(aJob, aExpected, eCheck)) return false;
    if (bIterates && aJob.uiInterval > 0 && !aJob.vfKernel.empty()) m_rTally.Note(eSmoothed);
    return mLook();
}

bool CSession::mCheckVolume(const TestData& rExpected, ECheck eCheck)
{
    std::vector<float> vfGot;
    for (int z = 0; z < m_aModel.aVolume.iN; ++z)
    {
        if (!mServe({Msg::eVolGet, {std::uint32_t(z)}, {}})) return false;
        const std::vector<float> vfSlice = m_aReply.Floats();
        vfGot.insert(vfGot.end(), vfSlice.begin(), vfSlice.end());
    }
    const double dError = RelativeError(vfGot, rExpected.vfVolume);

    m_aModel.aVolume.vf = std::move(vfGot);
    return mAgrees(eCheck, dError, GetTolerance(eCheck), "volume");
}

/// Selected projections are computed, the others stay.
bool CSession::mCheckStack(const TestData& rExpected)
{
    Images aExpected = m_aModel.aStack;
    aExpected.vf = rExpected.vfProjs;
    std::vector<float> vfGot, vfWanted;
    for (int n = 0; n < aExpected.iN; ++n)
    {
        const bool bSelected = std::ranges::count(m_aModel.vuiList, std::uint32_t(n)) > 0;
        if (!bSelected && !mGet(Msg::eProjGet, n, m_aModel.aStack.Nth(n))) return false;
        if (!bSelected) continue;
        if (!mServe({Msg::eProjGet, {std::uint32_t(n)}, {}})) return false;
        const std::vector<float> vf = m_aReply.Floats();
        if (vf.size() != aExpected.GetPixels()) return mWrong("PROJGET: %zu pixels", vf.size());
        vfGot.insert(vfGot.end(), vf.begin(), vf.end());
        vfWanted.insert(vfWanted.end(), aExpected.Nth(n).begin(), aExpected.Nth(n).end());
        std::ranges::copy(vf, m_aModel.aStack.Nth(n).begin());
    }

    return mAgrees(eReprojected, RelativeError(vfGot, vfWanted), GetTolerance(eReprojected),
                   "stack");
}

/// The R-factor sums of each iteration, relative to the sums themselves.
bool CSession::mCheckStat(const TestJob& rJob, const TestData& rExpected, ECheck eCheck)
{
    const std::size_t tPairs = rJob.vuiList.size();
    const double dLargest = std::ranges::max(rExpected.vdRfactor);
    double dError = 0;

    m_aModel.vvfStat.clear();
    for (std::size_t i = 0; i < std::size_t(rJob.iIterations); ++i)
    {
        if (!mServe({Msg::eReconStatGet, {std::uint32_t(i)}, {}})) return false;
        const std::vector<float> vfGot = m_aReply.Floats();
        if (vfGot.size() != 2 * tPairs) return mWrong("RECONSTATGET: %zu sums", vfGot.size());
        for (std::size_t k = 0; k < 2 * tPairs; ++k)
        {
            const double dExpected = rExpected.vdRfactor[2 * tPairs * i + k];
            const double dRaw = rExpected.vdRfactor[2 * tPairs * i + k / 2 * 2];
            const double dSize = k % 2 == 0 ? dRaw : dExpected + 0.05 * dRaw;
            // Next to nothing beside the others is rounding.
            const double dMiss = std::fabs(vfGot[k] - dExpected) / (dSize + 0.01 * dLargest + 1e-6);
            dError = dMiss <= dError ? dError : dMiss;  // NaN counts
        }
        m_aModel.vvfStat.push_back(vfGot);
    }
    return mAgrees(eCheck, dError, GetTolerance(eCheck), "R-factors");
}

bool CSession::mAgrees(ECheck eCheck, double dError, double dTolerance, const char* pcWhat)
{
    if (!(dError <= dTolerance))
        return mWrong("%s: error %.3g, tolerance %.3g, %s, stack %d x %d x %d, volume %d x %d",
                      pcWhat, dError, dTolerance, g_apcChecks[eCheck], m_aModel.aStack.iX,
                      m_aModel.aStack.iY, m_aModel.aStack.iN, m_aModel.aVolume.iX,
                      m_aModel.aVolume.iN);
    m_rTally.Note(eCheck, dError / dTolerance);
    return true;
}
