#include "talven/Reconstruction.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "talven/Text.h"

namespace talven
{

bool CReconstruction::Upload(const ReconPlan& rPlan, const ImageSource& rProjs,
                             const ImageSource& rInitial)
{
    m_aPlan = rPlan;
    m_fLift = 0;
    const JobSize& rSize = rPlan.aSize;
    const ImageSize aSlice = {rSize.iVolX, rSize.iProjY};
    return mSendPlan() && mUploadViews(rProjs) && (!m_aPlan.aFilter || mFilterViews()) &&
           (!rInitial || mUpload(EImages::eSlices, rSize.iVolZ, aSlice.GetPixels(), rInitial));
}

bool CReconstruction::Restart(const ReconPlan& rPlan, const ImageSource& rInitial)
{
    m_aPlan = rPlan;
    CSession& rSession = mGetSession();
    const JobSize& rSize = rPlan.aSize;
    // A volume of another number of voxels is empty.
    return mServer(rSession.SetVolumeSize(rSize.GetVoxels() == 1 ? 2 : 1, 1, 1) &&
                   rSession.SetVolumeSize(rSize.iVolX, rSize.iProjY, rSize.iVolZ) &&
                   rSession.SelectProjections(rPlan.vuiOrder) &&
                   rSession.SetReconOptions(rPlan.aOptions)) &&
           (!rInitial || mUpload(EImages::eSlices, rSize.iVolZ,
                                 ImageSize{rSize.iVolX, rSize.iProjY}.GetPixels(), rInitial));
}

/// The volume before any data: a server that lacks the memory says so before the long transfer.
bool CReconstruction::mSendPlan()
{
    CSession& rSession = mGetSession();
    const JobSize& rSize = m_aPlan.aSize;
    const GaussianKernel& rKernel = m_aPlan.aSmoothKernel;
    return mServer(
        rSession.SetStackSize(rSize.iProjX, rSize.iProjY, m_aPlan.vfAngles) &&
        rSession.SetVolumeSize(rSize.iVolX, rSize.iProjY, rSize.iVolZ) &&
        rSession.SelectProjections(m_aPlan.vuiOrder) &&
        rSession.SetReconOptions(m_aPlan.aOptions) &&
        rSession.SetWeightBox(m_aPlan.aBox ? &*m_aPlan.aBox : nullptr) &&
        (m_aPlan.iSmoothInterval == 0 ||  // a session starts without smoothing
         rSession.SetSmoothing(m_aPlan.iSmoothInterval,
                               {rKernel.iSize, rKernel.iSize, rKernel.iSize}, rKernel.vfValues)));
}

bool CReconstruction::mUploadViews(const ImageSource& rViews)
{
    const JobSize& rSize = m_aPlan.aSize;
    if (!m_aPlan.aAlignment.IsNone()) return mSendAligned(rViews);
    return mUpload(EImages::eProjections, rSize.iProjs,
                   ImageSize{rSize.iProjX, rSize.iProjY}.GetPixels(), rViews);
}

/// The server maps the views onto its stack, one after the other.
bool CReconstruction::mSendAligned(const ImageSource& rViews)
{
    const ViewAlignment& rAlignment = m_aPlan.aAlignment;
    const ImageSize& rBinned = rAlignment.aBinned;
    CSession& rSession = mGetSession();
    std::vector<float> vfBinned(rBinned.GetPixels());
    const ImageSink SendOne = [&](int i, std::span<const float> fRaw, std::string&)
    {
        BinImage(fRaw, rAlignment.aRaw, rAlignment.iBin, vfBinned);
        return mServer(rSession.SetMeasured(0, vfBinned) &&
                       rSession.Transform(0, i, rAlignment.aMaps[std::size_t(i)], {}));
    };
    return mServer(rSession.SetMeasuredSize(rBinned.iX, rBinned.iY, 1)) &&
           mSendEach(m_aPlan.aSize.iProjs, rAlignment.aRaw.GetPixels(), rViews, SendOne);
}

/// Filters the projections of the server's stack. Its back projection is a mean over the views, and
/// cuts what is below 0: weights make an integral of it, a lift keeps it above.
bool CReconstruction::mFilterViews()
{
    const JobSize& rSize = m_aPlan.aSize;
    const std::size_t tPixels = ImageSize{rSize.iProjX, rSize.iProjY}.GetPixels();
    const std::vector<double> vdWeights = MakeViewWeights(m_aPlan.vfAngles);
    CRowFilter aFilter(*m_aPlan.aFilter, rSize.iProjX, rSize.iVolZ);
    std::vector<float> vfPixels;
    const CSession::Sink Take = [&](int, std::span<const float> fPixels)
    {
        vfPixels.assign(fPixels.begin(), fPixels.end());
        return true;
    };
    const auto Change = [&](const char* pcPhase, auto ChangeOne)
    {
        CPhase aPhase(mGetMonitor(), pcPhase, rSize.iProjs, sizeof(float) * tPixels);
        for (int i = 0; i < rSize.iProjs; ++i)
        {
            if (!mGoOn() || !mServer(mGetSession().GetProjection(i, tPixels, Take))) return false;
            ChangeOne(static_cast<float>(rSize.iProjs * vdWeights[std::size_t(i)]));
            if (!mServer(mGetSession().SetProjection(i, vfPixels))) return false;
            aPhase.Step(i + 1);
        }
        return true;
    };
    const auto Filter = [&](float fWeight)
    {
        for (std::size_t t = 0; t < tPixels; t += std::size_t(rSize.iProjX))
            aFilter.Run(std::span(vfPixels).subspan(t, std::size_t(rSize.iProjX)));
        for (float& rfPixel : vfPixels)
            if (!IsMissing(rfPixel)) m_fLift = std::max(m_fLift, -(rfPixel *= fWeight));
    };
    const auto Lift = [&](float)
    {
        for (float& rfPixel : vfPixels)
            if (!IsMissing(rfPixel)) rfPixel += m_fLift;
    };
    return Change("filter", Filter) && Change("lift", Lift) && mServer(mGetSession().Flush());
}

bool CReconstruction::Run(const Checkpoint& rCheckpoint)
{
    m_vdRfactors.clear();
    m_vdViewResiduals.clear();
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
        m_vdRfactors.push_back(CalcRfactor(aSums));
    }
    mNoteViewResiduals(aSums);
    return true;
}

/// \param aSums  of the views in the plan's order
void CReconstruction::mNoteViewResiduals(std::span<const RfactorSums> aSums)
{
    // The order counts the views of the server's stack; a half plan has some of them, in turn.
    std::vector<std::uint32_t> vuiViews = m_aPlan.vuiOrder;
    std::sort(vuiViews.begin(), vuiViews.end());
    m_vdViewResiduals.assign(vuiViews.size(), std::numeric_limits<double>::quiet_NaN());
    for (std::size_t i = 0; i < std::min(aSums.size(), vuiViews.size()); ++i)
    {
        const auto pView = std::lower_bound(vuiViews.begin(), vuiViews.end(), m_aPlan.vuiOrder[i]);
        m_vdViewResiduals[std::size_t(pView - vuiViews.begin())] = CalcRfactor(aSums.subspan(i, 1));
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
    std::vector<float> vfSlice(ImageSize{rSize.iVolX, rSize.iProjY}.GetPixels());
    const auto TakeOff = [this](float fVoxel) { return fVoxel > 0 ? fVoxel - m_fLift : 0; };
    const ImageSink TakeLifted = [&](int i, std::span<const float> fSlice, std::string& rError)
    {
        std::transform(fSlice.begin(), fSlice.end(), vfSlice.begin(),
                       TakeOff);  // 0: no view saw it
        return rSlices(i, vfSlice, rError);
    };
    return mDownload(EImages::eSlices, rSize.iVolZ, vfSlice.size(),
                     m_fLift > 0 ? TakeLifted : rSlices);
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
