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
    const CReport aReport(rArgs.aReport);
    const CStopwatch aTotal;
    CMrcReader aVolume;
    std::vector<float> vfAngles;
    if (!aVolume.Open(rArgs.strVolume)) return Fail(rError, aVolume.GetError());
    if (!ReadAngles(rArgs.strAngles, vfAngles, rError)) return false;

    const MrcHeader& rHeader = aVolume.GetHeader();
    const JobSize aSize = {rArgs.iWidth > 0 ? rArgs.iWidth : rHeader.iX, rHeader.iY,
                           static_cast<int>(vfAngles.size()), rHeader.iX, rHeader.iZ};
    if (!CheckJobSize(aSize, rArgs.aServer, rError)) return false;
    CMrcWriter aOutput;
    if (!aOutput.Create(rArgs.strOutput, aSize.iProjX, aSize.iProjY, aSize.iProjs, rHeader.dPixel,
                        false, "Talven: reprojection"))
        return Fail(rError, aOutput.GetError());

    const auto [fLow, fHigh] = std::minmax_element(vfAngles.begin(), vfAngles.end());
    aReport.PrintLine(Format(
        "%s: %d x %d x %d -> %d projections of %d x %d, %g to %g degrees; the server needs "
        "%s of memory",
        rArgs.strVolume.c_str(), aSize.iVolX, aSize.iProjY, aSize.iVolZ, aSize.iProjs, aSize.iProjX,
        aSize.iProjY, double(*fLow), double(*fHigh), FormatBytes(aSize.GetBytes(1)).c_str()));

    CServerLink aLink;
    if (!aLink.Connect(rArgs.aServer, aReport)) return Fail(rError, ExplainConnect(aLink));
    CSession& rSession = aLink.GetSession();
    if (!rSession.SetStackSize(aSize.iProjX, aSize.iProjY, vfAngles) ||
        !rSession.SetVolumeSize(aSize.iVolX, aSize.iProjY, aSize.iVolZ) ||
        !rSession.SetWeightBox(nullptr))
        return Fail(rError, aLink.Explain());
    if (!UploadImages(aVolume, AllSections(aSize.iVolZ), EImages::eSlices, aLink, aReport, rError))
        return false;
    {
        const CElapsedTime aElapsed(aReport, "reprojecting");
        if (!rSession.Reproject()) return Fail(rError, aLink.Explain());
    }
    const auto TakeProjection = [&](int, std::span<const float> fPixels)
    { return aOutput.WriteSection(fPixels) || Fail(rError, aOutput.GetError()); };
    if (!DownloadImages(aSize.iProjs, std::size_t(aSize.iProjX) * std::size_t(aSize.iProjY),
                        EImages::eProjections, TakeProjection, aLink, aReport, rError))
        return false;
    aLink.Close();
    if (!aOutput.Finish()) return Fail(rError, aOutput.GetError());

    if (aReport.IsJson())
    {
        const nlohmann::ordered_json aJson = {
            {"command", "reproject"},
            {"stack",
             {{"file", rArgs.strOutput}, {"size", {aSize.iProjX, aSize.iProjY, aSize.iProjs}}}},
            {"seconds", {{"total", aTotal.GetSeconds()}}}};
        std::puts(aJson.dump(2).c_str());
    }
    aReport.PrintLine(rArgs.strOutput + ": " + FormatSeconds(aTotal.GetSeconds()));
    return true;
}

bool RunInfo(const InfoArgs& rArgs, std::string& rError)
{
    const CReport aReport(rArgs.aReport);
    CServerLink aLink;
    if (!aLink.Connect(rArgs.aServer, aReport)) return Fail(rError, ExplainConnect(aLink));
    std::uint64_t ulMemory = 0;
    if (!aLink.GetSession().GetServerMemory(ulMemory)) return Fail(rError, aLink.Explain());
    const std::string strServer =
        rArgs.aServer.strServer.empty() ? "this machine" : rArgs.aServer.strServer;
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
