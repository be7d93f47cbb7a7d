#include <cmath>
#include <functional>

#include "Command.h"
#include "Lists.h"
#include "Options.h"
#include "talven/Angles.h"
#include "talven/MrcWriter.h"
#include "talven/Phantom.h"

namespace talven
{
namespace
{

constexpr int g_iMaxProjs = 10'000;

/// `talven phantom`: writes PREFIX.mrc, PREFIX.tlt and PREFIX_truth.mrc.
class CPhantomCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mReadOptions();
    using Painter = std::function<void(int iSection, std::span<float> fPixels)>;
    bool mWrite(const std::string& strPath, const char* pcPhase, int iSections, bool bVolume,
                const Painter& rPainter);

    std::string m_strPrefix, m_strAngles = "-60,60,2";
    std::vector<std::uint32_t> m_vuiSize = {512, 512};
    int m_iThickness = 128;
    int m_iBeads = 12;
    double m_dNoise = 0, m_dDose = 0;
    std::uint64_t m_ulSeed = 1;
    double m_dPixel = 10;

    int m_iX = 0, m_iY = 0;
    std::vector<float> m_vfAngles;
};

void CPhantomCommand::AddOptions(CLI::App& rApp)
{
    rApp.add_option("prefix", m_strPrefix, "Writes PREFIX.mrc, PREFIX.tlt, PREFIX_truth.mrc")
        ->required();
    AddParsed(rApp, "--size", "TEXT", m_vuiSize, ParseSizes, "X,Y of the projections, pixels")
        ->default_str("512,512");
    const auto Add = [&](const char* pcName, auto& rValue, const char* pcText)
    { return rApp.add_option(pcName, rValue, pcText)->capture_default_str(); };
    Add("--thickness", m_iThickness, "Z of the volume, voxels")->check(CLI::Range(1, 32768));
    Add("--angles", m_strAngles, "FROM,TO,STEP in degrees");
    Add("--beads", m_iBeads, "Fiducial beads")->check(CLI::Range(0, 1000));
    Add("--noise", m_dNoise, "Gaussian noise: its standard deviation over the mean of a projection")
        ->check(CLI::Range(0.0, 1e6));
    Add("--dose", m_dDose, "Poisson noise: counts per pixel where the signal is mean; 0: none")
        ->check(CLI::Range(0.0, 1e9));
    Add("--seed", m_ulSeed, "Chooses the specimen and the noise");
    Add("--pixel", m_dPixel, "Size of a pixel, Angstrom")->check(CLI::Range(0.0, 1e9));
    mAddReportOptions(rApp);
}

bool CPhantomCommand::Run()
{
    if (!mReadOptions()) return false;
    const CPhantomModel aModel(m_iX, m_iY, m_iThickness, m_iBeads, m_ulSeed);
    CDetector aDetector(aModel, m_vfAngles, m_dNoise, m_dDose, m_ulSeed);
    const auto iProjs = static_cast<int>(m_vfAngles.size());
    const std::string strStack = m_strPrefix + ".mrc";
    const std::string strAngles = m_strPrefix + ".tlt";
    const std::string strTruth = m_strPrefix + "_truth.mrc";
    if (!mWrite(strStack, "projections", iProjs, false,
                [&](int i, std::span<float> fPixels)
                { aDetector.Record(m_vfAngles[std::size_t(i)], fPixels); }) ||
        !mWrite(strTruth, "truth", m_iThickness, true,
                [&](int iZ, std::span<float> fPixels) { aModel.MakeSection(iZ, fPixels); }) ||
        !WriteAngles(strAngles, m_vfAngles, m_strError))
        return false;

    mReport({{"command", "phantom"},
             {"stack", {{"file", strStack}, {"size", {m_iX, m_iY, iProjs}}}},
             {"angles", {{"file", strAngles}, {"degrees", m_vfAngles}}},
             {"truth", {{"file", strTruth}, {"size", {m_iX, m_iY, m_iThickness}}}}},
            Format("%s: %d projections of %d x %d, %g to %g degrees; %s; %s: %d x %d x %d; %s",
                   strStack.c_str(), iProjs, m_iX, m_iY, double(m_vfAngles.front()),
                   double(m_vfAngles.back()), strAngles.c_str(), strTruth.c_str(), m_iX, m_iY,
                   m_iThickness, FormatSeconds(m_aTotal.GetSeconds()).c_str()));
    return true;
}

bool CPhantomCommand::mReadOptions()
{
    std::vector<double> vdAngles;
    std::string strError;
    if (m_vuiSize.size() != 2 || m_vuiSize[0] > 65535 || m_vuiSize[1] > 65535)
        return mFail("--size: expected X,Y, such as 512,256");
    if (!ParseNumbers(m_strAngles, 3, vdAngles, strError) || vdAngles[2] <= 0 ||
        vdAngles[1] < vdAngles[0] || (vdAngles[1] - vdAngles[0]) / vdAngles[2] > g_iMaxProjs ||
        std::fabs(vdAngles[0]) > 360 || std::fabs(vdAngles[1]) > 360)
        return mFail("--angles: expected FROM,TO,STEP in degrees, such as -60,60,2");
    m_iX = static_cast<int>(m_vuiSize[0]);
    m_iY = static_cast<int>(m_vuiSize[1]);
    // A millionth of a step for rounding: -60,60,0.1 includes 60.
    for (int i = 0; vdAngles[0] + i * vdAngles[2] < vdAngles[1] + 1e-6 * vdAngles[2]; ++i)
        m_vfAngles.push_back(static_cast<float>(vdAngles[0] + i * vdAngles[2]));
    return true;
}

bool CPhantomCommand::mWrite(const std::string& strPath, const char* pcPhase, int iSections,
                             bool bVolume, const Painter& rPainter)
{
    std::vector<float> vfPixels(std::size_t(m_iX) * std::size_t(m_iY));
    CMrcWriter aWriter;
    if (!mCheck(aWriter.Create(strPath, m_iX, m_iY, iSections, m_dPixel, bVolume,
                               bVolume ? "Talven: phantom" : "Talven: phantom tilt series"),
                aWriter))
        return false;
    CPhase aPhase(m_aReport, pcPhase, iSections, sizeof(float) * vfPixels.size());
    for (int i = 0; i < iSections; ++i)
    {
        if (!mGoOn()) return false;
        rPainter(i, vfPixels);
        if (!mCheck(aWriter.WriteSection(vfPixels), aWriter)) return false;
        aPhase.Step(i + 1);
    }
    return mCheck(aWriter.Finish(), aWriter);
}

}  // namespace

std::unique_ptr<CCommand> MakePhantom()
{
    return std::make_unique<CPhantomCommand>();
}

}  // namespace talven
