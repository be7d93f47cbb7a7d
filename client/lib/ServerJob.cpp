#include "talven/ServerJob.h"

#include <vector>

namespace talven
{

bool CServerJob::mUpload(EImages eImages, int iCount, std::size_t tPixels,
                         const ImageSource& rSource)
{
    std::vector<float> vfPixels(tPixels);
    CPhase aPhase(m_rMonitor, "upload", iCount, sizeof(float) * tPixels);
    for (int i = 0; i < iCount; ++i)
    {
        if (!mGoOn() || !rSource(i, vfPixels, m_strError)) return false;
        if (!mServer(eImages == EImages::eSlices ? mGetSession().SetSlice(i, vfPixels)
                                                 : mGetSession().SetProjection(i, vfPixels)))
            return false;
        aPhase.Step(i + 1);
    }
    return mServer(mGetSession().Flush());
}

bool CServerJob::mDownload(EImages eImages, int iCount, std::size_t tPixels, const ImageSink& rSink)
{
    CPhase aPhase(m_rMonitor, "download", iCount, sizeof(float) * tPixels);
    bool bTaken = true;
    const CSession::Sink TakeOne = [&](int iIndex, std::span<const float> fPixels)
    {
        aPhase.Step(iIndex + 1);
        return bTaken = mGoOn() && rSink(iIndex, fPixels, m_strError);
    };
    const bool bDone = eImages == EImages::eSlices
                           ? mGetSession().GetSlices(iCount, tPixels, TakeOne)
                           : mGetSession().GetProjections(iCount, tPixels, TakeOne);
    return bTaken && mServer(bDone);  // else the sink has said why
}

}  // namespace talven
