#include "Transfer.h"

#include <numeric>

#include "Interrupt.h"

namespace talven
{

std::vector<int> AllSections(int iCount)
{
    std::vector<int> viSections(static_cast<std::size_t>(iCount));
    std::iota(viSections.begin(), viSections.end(), 0);
    return viSections;
}

bool UploadImages(CMrcReader& rReader, std::span<const int> iSections, EImages eImages,
                  CServerLink& rLink, const CReport& rReport, std::string& rError)
{
    const std::size_t tPixels = rReader.GetHeader().GetSectionPixels();
    std::vector<float> vfPixels(tPixels);
    CSession& rSession = rLink.GetSession();
    CProgressBar aBar(rReport, "upload", static_cast<int>(iSections.size()), 4 * tPixels);
    for (int i = 0; i < static_cast<int>(iSections.size()); ++i)
    {
        if (CInterrupt::IsSet())
        {
            rError = "interrupted";
            return false;
        }
        if (!rReader.ReadSection(iSections[std::size_t(i)], vfPixels))
        {
            rError = rReader.GetError();
            return false;
        }
        const bool bSent = eImages == EImages::eSlices ? rSession.SetSlice(i, vfPixels)
                                                       : rSession.SetProjection(i, vfPixels);
        if (!bSent)
        {
            rError = rLink.Explain();
            return false;
        }
        aBar.Step(i + 1);
    }
    if (rSession.Flush()) return true;
    rError = rLink.Explain();
    return false;
}

bool DownloadImages(int iCount, std::size_t tPixels, EImages eImages, const CSession::Sink& rSink,
                    CServerLink& rLink, const CReport& rReport, std::string& rError)
{
    CProgressBar aBar(rReport, "download", iCount, 4 * tPixels);
    bool bTaken = true;
    const CSession::Sink TakeOne = [&](int iIndex, std::span<const float> fPixels)
    {
        aBar.Step(iIndex + 1);
        if (CInterrupt::IsSet()) rError = "interrupted";
        bTaken = !CInterrupt::IsSet() && rSink(iIndex, fPixels);
        return bTaken;
    };
    CSession& rSession = rLink.GetSession();
    if (eImages == EImages::eSlices ? rSession.GetSlices(iCount, tPixels, TakeOne)
                                    : rSession.GetProjections(iCount, tPixels, TakeOne))
        return true;
    if (bTaken) rError = rLink.Explain();  // else the sink has said why
    return false;
}

}  // namespace talven
