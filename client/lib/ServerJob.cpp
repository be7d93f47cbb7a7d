#include "talven/ServerJob.h"

#include <vector>

namespace talven
{

bool CServerJob::mUpload(EImages eImages, int iCount, std::size_t tPixels,
                         const ImageSource& rSource)
{
    const ImageSink Send = [&](int i, std::span<const float> fPixels, std::string&)
    {
        return mServer(eImages == EImages::eSlices ? mGetSession().SetSlice(i, fPixels)
                                                   : mGetSession().SetProjection(i, fPixels));
    };
    return mSendEach(iCount, tPixels, rSource, Send);
}

bool CServerJob::mSendEach(int iCount, std::size_t tPixels, const ImageSource& rSource,
                           const ImageSink& Send)
{
    std::vector<float> vfPixels(tPixels);
    CPhase aPhase(m_rMonitor, "upload", iCount, sizeof(float) * tPixels);
    for (int i = 0; i < iCount; ++i)
    {
        if (!mGoOn() || !rSource(i, vfPixels, m_strError) || !Send(i, vfPixels, m_strError))
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
