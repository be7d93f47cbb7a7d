#include <algorithm>
#include <cmath>

#include "talven/Reconstruction.h"

namespace talven
{

bool CReconstruction::Upload(const ReconPlan& rPlan, const ImageSource& rProjs,
                             const ImageSource& rInitial)
{
    m_aPlan = rPlan;
    m_fLift = 0;
    return (!m_aPlan.bUnconstrained || mProjectOnes()) && mAlignRows(rProjs) && mSendPlan() &&
           mUploadViews(rProjs) && (!m_aPlan.aFilter || mFilterViews()) &&
           (!m_aPlan.bUnconstrained || mLiftViews(rInitial)) && mUploadVolume(rInitial);
}

/// The volume before any data: a server that lacks the memory says so before the long transfer.
bool CReconstruction::mSendPlan()
{
    CSession& rSession = mGetSession();
    const JobSize& rSize = m_aPlan.aSize;
    const GaussianKernel& rKernel = m_aPlan.aSmoothKernel;
    return mServer(rSession.SetStackSize(rSize.iProjX, rSize.iProjY, m_aPlan.vfAngles) &&
                   mEmptyVolume() && rSession.SelectProjections(m_aPlan.vuiOrder) &&
                   rSession.SetReconOptions(m_aPlan.aOptions) &&
                   rSession.SetWeightBox(m_aPlan.aBox ? &*m_aPlan.aBox : nullptr) &&
                   (m_aPlan.iSmoothInterval == 0
                        ? rSession.StopSmoothing()
                        : rSession.SetSmoothing(m_aPlan.iSmoothInterval,
                                                {rKernel.iSize, rKernel.iSize, rKernel.iSize},
                                                rKernel.vfValues)));
}

/// A volume of another number of voxels is empty.
bool CReconstruction::mEmptyVolume()
{
    const JobSize& rSize = m_aPlan.aSize;
    return mServer(mGetSession().SetVolumeSize(rSize.GetVoxels() == 1 ? 2 : 1, 1, 1) &&
                   mGetSession().SetVolumeSize(rSize.iVolX, rSize.iProjY, rSize.iVolZ));
}

/// The volume to start from, where it is not zeros.
bool CReconstruction::mUploadVolume(const ImageSource& rInitial)
{
    const JobSize& rSize = m_aPlan.aSize;
    const float fLift = m_aPlan.bUnconstrained ? m_fLift : 0;
    if (!rInitial && fLift == 0) return true;
    const ImageSource Lifted = [&](int i, std::span<float> fSlice, std::string& rError)
    {
        if (rInitial && !rInitial(i, fSlice, rError)) return false;
        for (float& rfVoxel : fSlice) rfVoxel = (rInitial ? rfVoxel : 0) + fLift;
        return true;
    };
    return mUpload(EImages::eSlices, rSize.iVolZ, ImageSize{rSize.iVolX, rSize.iProjY}.GetPixels(),
                   fLift > 0 ? Lifted : rInitial);
}

bool CReconstruction::mUploadViews(const ImageSource& rViews)
{
    const JobSize& rSize = m_aPlan.aSize;
    const bool bAligned = !m_aPlan.aAlignment.IsNone();
    if (bAligned && !m_aPlan.IsPart()) return mSendAligned(rViews);
    const std::size_t tPixels = ImageSize{rSize.iProjX, rSize.iProjY}.GetPixels();
    const ImageSource Aligned = [&](int i, std::span<float> fPixels, std::string&)
    {
        std::copy_n(m_vfAligned.begin() + std::ptrdiff_t(tPixels) * i, tPixels, fPixels.begin());
        return true;
    };
    const bool bDone =
        mUpload(EImages::eProjections, rSize.iProjs, tPixels, bAligned ? Aligned : rViews);
    m_vfAligned = {};
    return bDone;
}

/// Raw rows from the first that the rows of an aligned view are interpolated from.
int CReconstruction::mCountRawRows(const Affine& rMap) const
{
    const ViewAlignment& rAlignment = m_aPlan.aAlignment;
    double dLast = 0;
    for (const int iX : {0, rAlignment.aAligned.iX - 1})
        for (const int iY : {m_aPlan.aSent.iFirst, m_aPlan.aSent.iEnd - 1})
            dLast = std::max(dLast, double(rMap[2]) * iX + double(rMap[3]) * iY + double(rMap[5]));
    return static_cast<int>(std::min(dLast + 3, double(rAlignment.aBinned.iY)));
}

/// Aligns whole views and keeps the rows that are wanted: only so are they the same bits as those
/// of a job with all rows. The server gets of each view what these rows need.
bool CReconstruction::mAlignRows(const ImageSource& rViews)
{
    const ViewAlignment& rAlignment = m_aPlan.aAlignment;
    m_vfAligned.clear();
    if (rAlignment.IsNone() || !m_aPlan.IsPart()) return true;
    const ImageSize &rBinned = rAlignment.aBinned, &rAligned = rAlignment.aAligned;
    CSession& rSession = mGetSession();
    std::vector<float> vfBinned(rBinned.GetPixels());
    const CSession::Sink Keep = [&](int, std::span<const float> fAligned)
    {
        const std::span<const float> fRows = m_aPlan.aSent.Of(fAligned, rAligned.iX);
        m_vfAligned.insert(m_vfAligned.end(), fRows.begin(), fRows.end());
        return true;
    };
    const ImageSink AlignOne = [&](int i, std::span<const float> fRaw, std::string&)
    {
        const Affine& rMap = rAlignment.aMaps[std::size_t(i)];
        BinImage(fRaw, rAlignment.aRaw, rAlignment.iBin, vfBinned);
        const std::span<const float> fSent(
            vfBinned.data(), std::size_t(mCountRawRows(rMap)) * std::size_t(rBinned.iX));
        return mServer(rSession.SetMeasured(0, fSent) && rSession.Transform(0, 0, rMap, {}) &&
                       rSession.GetProjection(0, rAligned.GetPixels(), Keep));
    };
    const float fNoTilt = 0;
    return mServer(rSession.SetStackSize(rAligned.iX, rAligned.iY, std::span(&fNoTilt, 1)) &&
                   rSession.SetMeasuredSize(rBinned.iX, rBinned.iY, 1)) &&
           mSendEach(m_aPlan.aSize.iProjs, rAlignment.aRaw.GetPixels(), rViews, AlignOne);
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
    const auto Filter = [&](int i, std::span<float> fPixels)
    {
        const auto fWeight = static_cast<float>(rSize.iProjs * vdWeights[std::size_t(i)]);
        for (std::size_t t = 0; t < tPixels; t += std::size_t(rSize.iProjX))
            aFilter.Run(fPixels.subspan(t, std::size_t(rSize.iProjX)));
        for (float& rfPixel : fPixels)
            if (!IsMissing(rfPixel)) m_fLift = std::max(m_fLift, -(rfPixel *= fWeight));
    };
    const auto Lift = [&](int, std::span<float> fPixels)
    {
        for (float& rfPixel : fPixels)
            if (!IsMissing(rfPixel)) rfPixel += m_fLift;
    };
    return mChangeViews("filter", Filter) && mChangeViews("lift", Lift);
}

/// What a volume of ones looks like: all rows are alike, so one is enough.
bool CReconstruction::mProjectOnes()
{
    JobSize aSize = m_aPlan.aSize;
    aSize.iProjY = 1;
    m_vfOnes.clear();
    CReprojection aJob(mGetLink(), mGetMonitor());
    const auto Give = [](int, std::span<float> fRow, std::string&)
    {
        std::ranges::fill(fRow, 1.0f);
        return true;
    };
    const auto Take = [this](int, std::span<const float> fRow, std::string&)
    {
        m_vfOnes.insert(m_vfOnes.end(), fRow.begin(), fRow.end());
        return true;
    };
    return aJob.Run(aSize, m_aPlan.vfAngles, Give, Take) || mFail(aJob.GetError());
}

/// SART cuts what is below 0, but cannot tell a volume and its projections from those of the same
/// volume and a constant. With one of twice the largest pixel hardly anything is cut, as voxels get
/// pixels over the length of their rays.
bool CReconstruction::mLiftViews(const ImageSource& rInitial)
{
    const JobSize& rSize = m_aPlan.aSize;
    float fLowest = 0;
    std::vector<float> vfSlice(ImageSize{rSize.iVolX, rSize.iProjY}.GetPixels());
    for (int z = 0; rInitial && z < rSize.iVolZ; ++z)
    {
        std::string strError;
        if (!rInitial(z, vfSlice, strError)) return mFail(strError);
        fLowest = std::min(fLowest, *std::min_element(vfSlice.begin(), vfSlice.end()));
    }
    const auto tX = static_cast<std::size_t>(rSize.iProjX);
    const std::size_t tCounted = (tX + 255) / 256 * 256;
    m_vfMeasured.clear();
    const auto Look = [&](int, std::span<const float> fPixels)
    {
        double dSum = 0;
        for (std::size_t t = 0; t < fPixels.size(); ++t)
        {
            if (IsMissing(fPixels[t])) continue;
            m_fLift = std::max(m_fLift, std::fabs(fPixels[t]));
            // As the server counts a row.
            dSum += std::fabs(double(fPixels[t])) * double(t % tX < tX - 1 ? 1 : tCounted - tX + 1);
        }
        m_vfMeasured.push_back(float(dSum));
    };
    const auto Lift = [&](int i, std::span<float> fPixels)
    {
        for (std::size_t t = 0; t < fPixels.size(); ++t)
            if (!IsMissing(fPixels[t]))
                fPixels[t] += m_fLift * m_vfOnes[std::size_t(i) * tX + t % tX];
    };
    if (!mChangeViews("look", Look)) return false;
    m_fLift = 2 * m_fLift - fLowest;
    return mChangeViews("lift", Lift);
}

bool CReconstruction::mChangeViews(const char* pcPhase, const ViewChange& Change)
{
    const JobSize& rSize = m_aPlan.aSize;
    const std::size_t tPixels = ImageSize{rSize.iProjX, rSize.iProjY}.GetPixels();
    std::vector<float> vfPixels;
    const CSession::Sink Take = [&](int, std::span<const float> fPixels)
    {
        vfPixels.assign(fPixels.begin(), fPixels.end());
        return true;
    };
    CPhase aPhase(mGetMonitor(), pcPhase, rSize.iProjs, sizeof(float) * tPixels);
    for (int i = 0; i < rSize.iProjs; ++i)
    {
        if (!mGoOn() || !mServer(mGetSession().GetProjection(i, tPixels, Take))) return false;
        Change(i, vfPixels);
        if (!mServer(mGetSession().SetProjection(i, vfPixels))) return false;
        aPhase.Step(i + 1);
    }
    return mServer(mGetSession().Flush());
}

}  // namespace talven
