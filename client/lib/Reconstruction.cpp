#include "talven/Reconstruction.h"

namespace talven
{

bool CReconstruction::Upload(const ReconPlan& rPlan, const ImageSource& rProjs,
                             const ImageSource& rInitial)
{
    m_aPlan = rPlan;
    const JobSize& rSize = rPlan.aSize;
    const ImageSize aSlice = {rSize.iVolX, rSize.iProjY};
    return mSendPlan() &&
           mUpload(EImages::eProjections, rSize.iProjs,
                   ImageSize{rSize.iProjX, rSize.iProjY}.GetPixels(), rProjs) &&
           (!rInitial || mUpload(EImages::eSlices, rSize.iVolZ, aSlice.GetPixels(), rInitial));
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

bool CReconstruction::Run()
{
    {
        const CPhase aPhase(mGetMonitor(), "reconstructing");
        if (!mServer(mGetSession().Reconstruct())) return false;
    }
    m_vdRfactors.clear();
    if (m_aPlan.aOptions.eMethod == EMethod::eBackProj) return true;
    for (int i = 0; i < m_aPlan.aOptions.iIterations; ++i)
    {
        std::vector<RfactorSums> aSums;
        if (!mServer(mGetSession().GetRfactors(i, aSums))) return false;
        m_vdRfactors.push_back(CalcRfactor(aSums));
    }
    return true;
}

bool CReconstruction::Download(const ImageSink& rSlices)
{
    const JobSize& rSize = m_aPlan.aSize;
    return mDownload(EImages::eSlices, rSize.iVolZ,
                     ImageSize{rSize.iVolX, rSize.iProjY}.GetPixels(), rSlices);
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
