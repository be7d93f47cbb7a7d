#include "talven/Reconstruction.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "talven/Text.h"
#include "talven/VolumeTilt.h"

namespace talven
{

bool CReconstruction::Restart(const ReconPlan& rPlan, const ImageSource& rInitial)
{
    m_aPlan = rPlan;
    CSession& rSession = mGetSession();
    return mEmptyVolume() &&
           mServer(rSession.SelectProjections(rPlan.vuiOrder) &&
                   rSession.SetReconOptions(rPlan.aOptions)) &&
           mUploadVolume(rInitial);
}

bool CReconstruction::Run(const Checkpoint& rCheckpoint)
{
    m_vdRfactors.clear();
    m_vdViewResiduals.clear();
    m_aSums.clear();
    if (m_aPlan.aOptions.eMethod == EMethod::eSart)
    {
        mGetMonitor().SetKeeping(true);
        const bool bDone = mRunPieces(rCheckpoint);
        mGetMonitor().SetKeeping(false);
        return bDone;
    }
    const CPhase aPhase(mGetMonitor(), "reconstructing");
    return mRunPiece(0, m_aPlan.aOptions.iIterations);
}

/// Iterations of which the server has the options.
bool CReconstruction::mRunPiece(int iFirst, int iCount)
{
    CSession& rSession = mGetSession();
    const bool bAll = iCount == m_aPlan.aOptions.iIterations;
    if (!mServer((bAll || rSession.SetReconOptions(m_aPlan.GetIterations(iFirst, iCount))) &&
                 rSession.Reconstruct()))
        return false;
    if (m_aPlan.aOptions.eMethod == EMethod::eBackProj) return true;
    std::vector<RfactorSums> aSums;
    for (int i = 0; i < iCount; ++i)
    {
        if (!mServer(rSession.GetRfactors(i, aSums))) return false;
        for (std::size_t t = 0; t < aSums.size() && m_aPlan.bUnconstrained; ++t)
            aSums[t].fRaw = m_vfMeasured[m_aPlan.vuiOrder[t]];
        m_vdRfactors.push_back(CalcRfactor(aSums));
        mNoteSums(aSums);
    }
    return true;
}

/// \param aSums  of the views in the plan's order
void CReconstruction::mNoteSums(std::span<const RfactorSums> aSums)
{
    // The order counts the views of the server's stack; a half plan has some of them, in turn.
    std::vector<std::uint32_t> vuiViews = m_aPlan.vuiOrder;
    std::sort(vuiViews.begin(), vuiViews.end());
    m_vdViewResiduals.assign(vuiViews.size(), std::numeric_limits<double>::quiet_NaN());
    m_aSums.emplace_back(vuiViews.size());
    for (std::size_t i = 0; i < std::min(aSums.size(), vuiViews.size()); ++i)
    {
        const auto pView = std::lower_bound(vuiViews.begin(), vuiViews.end(), m_aPlan.vuiOrder[i]);
        const auto tView = std::size_t(pView - vuiViews.begin());
        m_vdViewResiduals[tView] = CalcRfactor(aSums.subspan(i, 1));
        m_aSums.back()[tView] = aSums[i];
    }
}

bool CReconstruction::mRunPieces(const Checkpoint& rCheckpoint)
{
    using Clock = std::chrono::steady_clock;
    constexpr double dSeconds = 3;  // of a piece: its start is little beside that
    const int iAll = m_aPlan.aOptions.iIterations, iUnit = std::max(1, m_aPlan.iSmoothInterval);
    const int iStep = m_aPlan.iCheckpoint > 0 ? m_aPlan.iCheckpoint : iAll;
    const bool bAlone = m_aPlan.dStopGain > 0;  // every iteration decides
    CPhase aPhase(mGetMonitor(), "reconstructing", iAll);
    for (int iDone = 0, iPiece = iUnit; iDone < iAll;)
    {
        const int iCount = std::min({iPiece, iAll - iDone, iStep - iDone % iStep});
        const auto tStart = Clock::now();
        if (!mRunPiece(iDone, iCount)) return false;
        iDone += iCount;
        aPhase.Note(Format("R-factor %.4g", m_vdRfactors.back()));
        aPhase.Step(iDone);
        if (mIsEnough()) return true;
        std::string strError;
        if (rCheckpoint && iDone % iStep == 0 && iDone < iAll && !rCheckpoint(iDone, strError))
            return mFail(strError);
        const double dEach = std::chrono::duration<double>(Clock::now() - tStart).count() / iCount;
        const double dUnits = std::clamp(dSeconds / (dEach * iUnit), 1.0, double(iAll));
        if (!bAlone) iPiece = iUnit * int(dUnits);
    }
    return true;
}

/// Whether the run shall end with what there is.
bool CReconstruction::mIsEnough() const
{
    const std::size_t tDone = m_vdRfactors.size();
    if (mGetMonitor().IsEnough()) return true;
    return tDone > 1 &&
           m_vdRfactors[tDone - 1] > (1 - m_aPlan.dStopGain) * m_vdRfactors[tDone - 2] &&
           m_aPlan.dStopGain > 0;
}

bool CReconstruction::Download(const ImageSink& rSlices)
{
    const JobSize& rSize = m_aPlan.aSize;
    CVolumeTilt aTilt(m_aPlan.dTiltX, rSize, m_aPlan.iThickness);
    const ImageSink LayFlat = [&](int i, std::span<const float> fSlice, std::string& rError)
    { return aTilt.Take(i, fSlice, rSlices, rError); };
    const RowRange aCore = {m_aPlan.aRows.iFirst - m_aPlan.aSent.iFirst,
                            m_aPlan.aRows.iEnd - m_aPlan.aSent.iFirst};
    const ImageSink Core = [&](int i, std::span<const float> fSlice, std::string& rError)
    { return rSlices(i, aCore.Of(fSlice, rSize.iVolX), rError); };
    const ImageSink& rWhole = m_aPlan.dTiltX != 0 ? LayFlat : Core;
    std::vector<float> vfSlice(ImageSize{rSize.iVolX, rSize.iProjY}.GetPixels());
    m_ulCut = 0;
    const ImageSink TakeLifted = [&](int i, std::span<const float> fSlice, std::string& rError)
    {
        m_ulCut += std::uint64_t(std::count(fSlice.begin(), fSlice.end(), 0.0f));
        // What no view of a filtered back projection saw is 0.
        const auto TakeOff = [this](float fVoxel)
        { return fVoxel > 0 || m_aPlan.bUnconstrained ? fVoxel - m_fLift : 0; };
        std::transform(fSlice.begin(), fSlice.end(), vfSlice.begin(), TakeOff);
        return rWhole(i, vfSlice, rError);
    };
    return mDownload(EImages::eSlices, rSize.iVolZ, vfSlice.size(),
                     m_fLift > 0 ? TakeLifted : rWhole);
}

bool CReprojection::Run(const JobSize& rSize, std::span<const float> fAngles,
                        const ImageSource& rSlices, const ImageSink& rProjs)
{
    CSession& rSession = mGetSession();
    if (!mServer(rSession.SetStackSize(rSize.iProjX, rSize.iProjY, fAngles) &&
                 rSession.SetVolumeSize(rSize.iVolX, rSize.iProjY, rSize.iVolZ) &&
                 rSession.SetWeightBox(nullptr)) ||
        !mUpload(EImages::eSlices, rSize.iVolZ, ImageSize{rSize.iVolX, rSize.iProjY}.GetPixels(),
                 rSlices))
        return false;
    {
        const CPhase aPhase(mGetMonitor(), "reprojecting");
        if (!mServer(rSession.Reproject())) return false;
    }
    return mDownload(EImages::eProjections, rSize.iProjs,
                     ImageSize{rSize.iProjX, rSize.iProjY}.GetPixels(), rProjs);
}

}  // namespace talven
