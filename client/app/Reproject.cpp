#include <algorithm>

#include "Command.h"
#include "Options.h"
#include "talven/Angles.h"
#include "talven/FileImages.h"
#include "talven/MrcReader.h"
#include "talven/Reconstruction.h"

namespace talven
{
namespace
{

/// `talven reproject`.
class CReprojectCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    std::string m_strVolume, m_strAngles, m_strOutput;
    int m_iWidth = 0;  // of the detector; 0: the volume's
};

void CReprojectCommand::AddOptions(CLI::App& rApp)
{
    AddFile(rApp, "--volume", m_strVolume, "The volume, MRC")->required();
    AddFile(rApp, "--angles", m_strAngles, "Tilt angles in degrees, one per line")->required();
    AddFile(rApp, "-o,--output", m_strOutput, "The projections, MRC")->required();
    rApp.add_option("--width", m_iWidth, "Columns of the detector [the volume's X]")
        ->check(CLI::PositiveNumber);
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

bool CReprojectCommand::Run()
{
    CMrcReader aVolume;
    std::vector<float> vfAngles;
    if (!mCheck(aVolume.Open(m_strVolume), aVolume) ||
        !ReadAngles(m_strAngles, vfAngles, m_strError))
        return false;
    if (!CheckDegrees(vfAngles, m_strError)) return mFail(m_strAngles + ": " + m_strError);
    const MrcHeader& rHeader = aVolume.GetHeader();
    const JobSize aSize = {m_iWidth > 0 ? m_iWidth : rHeader.iX, rHeader.iY,
                           static_cast<int>(vfAngles.size()), rHeader.iX, rHeader.iZ};
    CMrcWriter aOutput;
    const auto Create = [&]
    {
        return mCheck(aOutput.Create(m_strOutput, aSize.iProjX, aSize.iProjY, aSize.iProjs,
                                     rHeader.dPixel, false, "Talven: reprojection"),
                      aOutput);
    };
    if (!mCheckSize(aSize) || !Create()) return false;
    const auto [pLow, pHigh] = std::minmax_element(vfAngles.begin(), vfAngles.end());
    m_aReport.PrintLine(Format(
        "%s: %d x %d x %d -> %d projections of %d x %d, %g to %g degrees; the server needs "
        "%s of memory",
        m_strVolume.c_str(), aSize.iVolX, aSize.iProjY, aSize.iVolZ, aSize.iProjs, aSize.iProjX,
        aSize.iProjY, double(*pLow), double(*pHigh), FormatBytes(aSize.GetBytes(1)).c_str()));

    const auto Project = [&]
    {
        CReprojection aJob(m_aLink, m_aReport);
        return Create() &&
               mCheck(aJob.Run(aSize, vfAngles, ReadFrom(aVolume), WriteTo(aOutput)), aJob);
    };
    if (!mConnect() || !mWork(Project)) return false;
    m_aLink.Close();
    if (!mCheck(aOutput.Finish(), aOutput)) return false;
    mReport(
        {{"command", "reproject"},
         {"stack", {{"file", m_strOutput}, {"size", {aSize.iProjX, aSize.iProjY, aSize.iProjs}}}},
         {"seconds", {{"total", m_aTotal.GetSeconds()}}}},
        m_strOutput + ": " + FormatSeconds(m_aTotal.GetSeconds()));
    return true;
}

/// `talven info`.
class CInfoCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override
    {
        mAddServerOptions(rApp);
        mAddReportOptions(rApp);
    }
    bool Run() override;
};

bool CInfoCommand::Run()
{
    std::uint64_t ulMemory = 0;
    if (!mConnect()) return false;
    if (!m_aLink.GetSession().GetServerMemory(ulMemory)) return mFail(m_aLink.Explain());
    const std::string strServer = m_aServerOptions.IsHere() ? "this machine" : m_aLink.GetName();
    mReport({{"command", "info"}, {"server", strServer}, {"memory_bytes", ulMemory}},
            strServer + ": " + FormatBytes(ulMemory) + " of device memory for jobs");
    return true;
}

}  // namespace

std::unique_ptr<CCommand> MakeReproject()
{
    return std::make_unique<CReprojectCommand>();
}
std::unique_ptr<CCommand> MakeInfo()
{
    return std::make_unique<CInfoCommand>();
}

}  // namespace talven
