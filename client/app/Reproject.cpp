#include "Reproject.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

#include "Interrupt.h"
#include "Transfer.h"
#include "talven/Angles.h"
#include "talven/MrcWriter.h"

namespace talven
{
namespace
{

bool Fail(std::string& rError, const std::string& strWhy)
{
    rError = strWhy;
    return false;
}

/// Why no server could be reached; the user's own Ctrl-C is no fault of the server.
std::string ExplainConnect(const CServerLink& rLink)
{
    return CInterrupt::IsSet() ? "interrupted" : rLink.GetError();
}

}  // namespace

bool RunReproject(const ReprojectArgs& rArgs, std::string& rError)
{
    const CReport aReport(rArgs.m_aReport);
    const CStopwatch aTotal;
    CMrcReader aVolume;
    std::vector<float> vfAngles;
    if (!aVolume.Open(rArgs.m_strVolume)) return Fail(rError, aVolume.GetError());
    if (!ReadAngles(rArgs.m_strAngles, vfAngles, rError)) return false;

    const MrcHeader& rHeader = aVolume.GetHeader();
    const JobSize aSize = {rArgs.m_iWidth > 0 ? rArgs.m_iWidth : rHeader.m_iX, rHeader.m_iY,
                           static_cast<int>(vfAngles.size()), rHeader.m_iX, rHeader.m_iZ};
    if (!CheckJobSize(aSize, rArgs.m_aServer, rError)) return false;
    CMrcWriter aOutput;
    if (!aOutput.Create(rArgs.m_strOutput, aSize.m_iProjX, aSize.m_iProjY, aSize.m_iProjs,
                        rHeader.m_dPixel, false, "Talven: reprojection"))
        return Fail(rError, aOutput.GetError());

    const auto [pfLow, pfHigh] = std::minmax_element(vfAngles.begin(), vfAngles.end());
    aReport.PrintLine(
        Format("%s: %d x %d x %d -> %d projections of %d x %d, %g to %g degrees; the server needs "
               "%s of memory",
               rArgs.m_strVolume.c_str(), aSize.m_iVolX, aSize.m_iProjY, aSize.m_iVolZ,
               aSize.m_iProjs, aSize.m_iProjX, aSize.m_iProjY, double(*pfLow), double(*pfHigh),
               FormatBytes(aSize.GetBytes(1)).c_str()));

    CServerLink aLink;
    if (!aLink.Connect(rArgs.m_aServer, aReport)) return Fail(rError, ExplainConnect(aLink));
    CSession& rSession = aLink.GetSession();
    if (!rSession.SetStackSize(aSize.m_iProjX, aSize.m_iProjY, vfAngles) ||
        !rSession.SetVolumeSize(aSize.m_iVolX, aSize.m_iProjY, aSize.m_iVolZ) ||
        !rSession.SetWeightBox(nullptr))
        return Fail(rError, aLink.Explain());
    if (!UploadImages(aVolume, AllSections(aSize.m_iVolZ), EImages::SLICES, aLink, aReport, rError))
        return false;
    {
        const CElapsedTime aElapsed(aReport, "reprojecting");
        if (!rSession.Reproject()) return Fail(rError, aLink.Explain());
    }
    const auto TakeProjection = [&](int, std::span<const float> pfPixels)
    { return aOutput.WriteSection(pfPixels) || Fail(rError, aOutput.GetError()); };
    if (!DownloadImages(aSize.m_iProjs, std::size_t(aSize.m_iProjX) * std::size_t(aSize.m_iProjY),
                        EImages::PROJECTIONS, TakeProjection, aLink, aReport, rError))
        return false;
    aLink.Close();
    if (!aOutput.Finish()) return Fail(rError, aOutput.GetError());

    if (aReport.IsJson())
    {
        const nlohmann::ordered_json aJson = {
            {"command", "reproject"},
            {"stack",
             {{"file", rArgs.m_strOutput},
              {"size", {aSize.m_iProjX, aSize.m_iProjY, aSize.m_iProjs}}}},
            {"seconds", {{"total", aTotal.GetSeconds()}}}};
        std::puts(aJson.dump(2).c_str());
    }
    aReport.PrintLine(rArgs.m_strOutput + ": " + FormatSeconds(aTotal.GetSeconds()));
    return true;
}

bool RunInfo(const InfoArgs& rArgs, std::string& rError)
{
    const CReport aReport(rArgs.m_aReport);
    CServerLink aLink;
    if (!aLink.Connect(rArgs.m_aServer, aReport)) return Fail(rError, ExplainConnect(aLink));
    std::uint64_t ulMemory = 0;
    if (!aLink.GetSession().GetServerMemory(ulMemory)) return Fail(rError, aLink.Explain());
    const std::string strServer =
        rArgs.m_aServer.m_strServer.empty() ? "this machine" : rArgs.m_aServer.m_strServer;
    if (aReport.IsJson())
    {
        const nlohmann::ordered_json aJson = {
            {"command", "info"}, {"server", strServer}, {"memory_bytes", ulMemory}};
        std::puts(aJson.dump(2).c_str());
    }
    aReport.PrintLine(strServer + ": " + FormatBytes(ulMemory) + " of device memory for jobs");
    return true;
}

}  // namespace talven
