#include "Phantom.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <vector>

#include "Interrupt.h"
#include "Lists.h"
#include "PhantomModel.h"
#include "ServerLink.h"
#include "talven/Angles.h"
#include "talven/MrcWriter.h"

namespace talven
{
namespace
{

constexpr int g_iMaxProjs = 10'000;

class CPhantom
{
public:
    explicit CPhantom(const PhantomArgs& rArgs) : m_aArgs(rArgs), m_aReport(rArgs.aReport) {}
    bool Run();
    const std::string& GetError() const { return m_strError; }

private:
    bool mReadArgs();
    bool mWriteStack(const CPhantomModel& rModel, const std::string& strPath);
    bool mWriteTruth(const CPhantomModel& rModel, const std::string& strPath);
    void mAddNoise(std::span<float> fPixels, double dMean, CNoise& rNoise) const;
    double mGetMean(const CPhantomModel& rModel) const;
    bool mFail(const std::string& strError)
    {
        m_strError = strError;
        return false;
    }

    const PhantomArgs& m_aArgs;
    CReport m_aReport;
    int m_iX = 0, m_iY = 0;
    std::vector<float> m_vfAngles;
    std::string m_strError;
};

bool CPhantom::Run()
{
    const CStopwatch aWatch;
    if (!mReadArgs()) return false;
    const CPhantomModel aModel(m_iX, m_iY, m_aArgs.iThickness, m_aArgs.iBeads, m_aArgs.ulSeed);
    const std::string strStack = m_aArgs.strPrefix + ".mrc";
    const std::string strAngles = m_aArgs.strPrefix + ".tlt";
    const std::string strTruth = m_aArgs.strPrefix + "_truth.mrc";
    if (!mWriteStack(aModel, strStack) || !mWriteTruth(aModel, strTruth) ||
        !WriteAngles(strAngles, m_vfAngles, m_strError))
        return false;

    if (m_aReport.IsJson())
    {
        const nlohmann::ordered_json aJson = {
            {"command", "phantom"},
            {"stack", {{"file", strStack}, {"size", {m_iX, m_iY, m_vfAngles.size()}}}},
            {"angles", {{"file", strAngles}, {"degrees", m_vfAngles}}},
            {"truth", {{"file", strTruth}, {"size", {m_iX, m_iY, m_aArgs.iThickness}}}}};
        std::puts(aJson.dump(2).c_str());
    }
    m_aReport.PrintLine(
        Format("%s: %zu projections of %d x %d, %g to %g degrees; %s; %s: %d x %d "
               "x %d; %s",
               strStack.c_str(), m_vfAngles.size(), m_iX, m_iY, double(m_vfAngles.front()),
               double(m_vfAngles.back()), strAngles.c_str(), strTruth.c_str(), m_iX, m_iY,
               m_aArgs.iThickness, FormatSeconds(aWatch.GetSeconds()).c_str()));
    return true;
}

bool CPhantom::mReadArgs()
{
    std::vector<std::uint32_t> vuiSize;
    std::vector<double> vdAngles;
    std::string strError;
    if (!ParseSizes(m_aArgs.strSize, vuiSize, strError) || vuiSize.size() != 2 ||
        vuiSize[0] > 65535 || vuiSize[1] > 65535)
        return mFail("--size: expected X,Y, such as 512,256");
    if (!ParseNumbers(m_aArgs.strAngles, 3, vdAngles, strError) || vdAngles[2] <= 0 ||
        vdAngles[1] < vdAngles[0] || (vdAngles[1] - vdAngles[0]) / vdAngles[2] > g_iMaxProjs ||
        std::fabs(vdAngles[0]) > 360 || std::fabs(vdAngles[1]) > 360)
        return mFail("--angles: expected FROM,TO,STEP in degrees, such as -60,60,2");
    m_iX = static_cast<int>(vuiSize[0]);
    m_iY = static_cast<int>(vuiSize[1]);
    // Half a step of rounding: -60,60,0.1 includes 60.
    for (int i = 0; vdAngles[0] + i * vdAngles[2] < vdAngles[1] + 1e-6 * vdAngles[2]; ++i)
        m_vfAngles.push_back(static_cast<float>(vdAngles[0] + i * vdAngles[2]));
    return true;
}

bool CPhantom::mWriteStack(const CPhantomModel& rModel, const std::string& strPath)
{
    const int iProjs = static_cast<int>(m_vfAngles.size());
    std::vector<float> vfPixels(std::size_t(m_iX) * std::size_t(m_iY));
    CMrcWriter aWriter;
    if (!aWriter.Create(strPath, m_iX, m_iY, iProjs, m_aArgs.dPixel, false,
                        "Talven: phantom tilt series"))
        return mFail(aWriter.GetError());
    const bool bNoise = m_aArgs.dNoise > 0 || m_aArgs.dDose > 0;
    const double dMean = bNoise ? mGetMean(rModel) : 0;
    CNoise aNoise(m_aArgs.ulSeed ^ 0x6E6F697365);  // not the stream that placed the objects
    CProgressBar aBar(m_aReport, "projections", iProjs, vfPixels.size() * sizeof(float));
    for (int i = 0; i < iProjs; ++i)
    {
        if (CInterrupt::IsSet()) return mFail("interrupted");
        rModel.MakeProjection(m_vfAngles[std::size_t(i)], vfPixels);
        if (bNoise) mAddNoise(vfPixels, dMean, aNoise);
        if (!aWriter.WriteSection(vfPixels)) return mFail(aWriter.GetError());
        aBar.Step(i + 1);
    }
    return aWriter.Finish() || mFail(aWriter.GetError());
}

bool CPhantom::mWriteTruth(const CPhantomModel& rModel, const std::string& strPath)
{
    std::vector<float> vfPixels(std::size_t(m_iX) * std::size_t(m_iY));
    CMrcWriter aWriter;
    if (!aWriter.Create(strPath, m_iX, m_iY, m_aArgs.iThickness, m_aArgs.dPixel, true,
                        "Talven: phantom"))
        return mFail(aWriter.GetError());
    CProgressBar aBar(m_aReport, "truth", m_aArgs.iThickness, vfPixels.size() * sizeof(float));
    for (int z = 0; z < m_aArgs.iThickness; ++z)
    {
        if (CInterrupt::IsSet()) return mFail("interrupted");
        rModel.MakeSection(z, vfPixels);
        if (!aWriter.WriteSection(vfPixels)) return mFail(aWriter.GetError());
        aBar.Step(z + 1);
    }
    return aWriter.Finish() || mFail(aWriter.GetError());
}

/// Mean of the projection nearest to 0 degrees. All have the same sum but for what leaves the
/// field.
double CPhantom::mGetMean(const CPhantomModel& rModel) const
{
    float fNearest = m_vfAngles.front();
    for (const float fAngle : m_vfAngles)
        if (std::fabs(fAngle) < std::fabs(fNearest)) fNearest = fAngle;
    std::vector<float> vfPixels(std::size_t(m_iX) * std::size_t(m_iY));
    rModel.MakeProjection(fNearest, vfPixels);
    double dSum = 0;
    for (const float fPixel : vfPixels) dSum += fPixel;
    return dSum / double(vfPixels.size());
}

void CPhantom::mAddNoise(std::span<float> fPixels, double dMean, CNoise& rNoise) const
{
    const double dCounts = dMean > 0 ? m_aArgs.dDose / dMean : 0;  // per unit of signal
    for (float& rPixel : fPixels)
    {
        double dValue = rPixel;
        if (dCounts > 0) dValue = rNoise.GetPoisson(dValue * dCounts) / dCounts;
        if (m_aArgs.dNoise > 0) dValue += m_aArgs.dNoise * dMean * rNoise.GetGaussian();
        rPixel = static_cast<float>(dValue);
    }
}

}  // namespace

bool RunPhantom(const PhantomArgs& rArgs, std::string& rError)
{
    CPhantom aPhantom(rArgs);
    if (aPhantom.Run()) return true;
    rError = aPhantom.GetError();
    return false;
}

}  // namespace talven
