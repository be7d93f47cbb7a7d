#include "Reconstruct.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <optional>

#include "Agreement.h"
#include "Interrupt.h"
#include "Preview.h"
#include "ReconstructPlan.h"
#include "RfactorPlot.h"
#include "Transfer.h"
#include "VolumeViews.h"
#include "talven/AtomicFile.h"
#include "talven/MrcWriter.h"

namespace talven
{
namespace
{

/// One run of the command, step by step.
class CReconstruct
{
public:
    explicit CReconstruct(const ReconstructArgs& rArgs) : m_aArgs(rArgs), m_aReport(rArgs.aReport)
    {
    }
    bool Run();
    const std::string& GetError() const { return m_strError; }

private:
    bool mOpenFiles();
    bool mOpenSameSize(CMrcReader& rReader, const std::string& strPath);
    bool mUpload();
    bool mSetSmoothing();
    bool mCompute();
    bool mFetchRfactors();
    bool mDownload();
    bool mFinishFiles();
    bool mWriteRfactors();
    void mSummarise() const;
    nlohmann::ordered_json mMakeJson() const;

    bool mFail(const std::string& strError)
    {
        m_strError = strError;
        return false;
    }
    bool mServer(bool bDone) { return bDone || mFail(m_aLink.Explain()); }

    const ReconstructArgs& m_aArgs;
    CReport m_aReport;
    CReconstructPlan m_aPlan;
    CMrcReader m_aInitial, m_aReference;
    CMrcWriter m_aOutput;
    CServerLink m_aLink;
    std::optional<CVolumeViews> m_aViews;
    CAgreement m_aAgreement;
    std::vector<double> m_vdRfactors;
    CStopwatch m_aTotal;
    double m_dUpload = 0, m_dCompute = 0, m_dDownload = 0;
    std::string m_strError;
};

bool CReconstruct::Run()
{
    if (!m_aPlan.Make(m_aArgs)) return mFail(m_aPlan.GetError());
    if (!mOpenFiles()) return false;
    m_aReport.PrintLine(m_aPlan.Describe(m_aArgs));
    if (!m_aLink.Connect(m_aArgs.aServer, m_aReport))
        return mFail(CInterrupt::IsSet() ? "interrupted" : m_aLink.GetError());
    if (!mUpload() || !mCompute() || !mFetchRfactors() || !mDownload()) return false;
    m_aLink.Close();
    if (!mFinishFiles()) return false;
    mSummarise();
    return true;
}

/// Inputs that must fit the volume, and the output: what cannot be written is said before the work.
bool CReconstruct::mOpenFiles()
{
    if (!mOpenSameSize(m_aInitial, m_aArgs.strInitial) ||
        !mOpenSameSize(m_aReference, m_aArgs.strReference))
        return false;
    const JobSize& rSize = m_aPlan.GetSize();
    if (!m_aArgs.strPreview.empty()) m_aViews.emplace(rSize.iVolX, rSize.iProjY, rSize.iVolZ);
    for (const std::string& strPath : {m_aArgs.strPreview, m_aArgs.strPlot, m_aArgs.strRfactors})
    {
        CAtomicFile aProbe;
        if (!strPath.empty() && !aProbe.Create(strPath)) return mFail(aProbe.GetError());
    }
    return m_aOutput.Create(m_aArgs.strOutput, rSize.iVolX, rSize.iProjY, rSize.iVolZ,
                            m_aPlan.GetStack().GetHeader().dPixel, true,
                            "Talven: " + m_aPlan.DescribeMethod()) ||
           mFail(m_aOutput.GetError());
}

bool CReconstruct::mOpenSameSize(CMrcReader& rReader, const std::string& strPath)
{
    if (strPath.empty()) return true;
    if (!rReader.Open(strPath)) return mFail(rReader.GetError());
    const MrcHeader& rHeader = rReader.GetHeader();
    const JobSize& rSize = m_aPlan.GetSize();
    if (rHeader.iX == rSize.iVolX && rHeader.iY == rSize.iProjY && rHeader.iZ == rSize.iVolZ)
        return true;
    return mFail(Format("%s is %d x %d x %d, the volume is %d x %d x %d", strPath.c_str(),
                        rHeader.iX, rHeader.iY, rHeader.iZ, rSize.iVolX, rSize.iProjY,
                        rSize.iVolZ));
}

bool CReconstruct::mUpload()
{
    const CStopwatch aWatch;
    CSession& rSession = m_aLink.GetSession();
    const JobSize& rSize = m_aPlan.GetSize();
    // The volume before its data: a server that lacks the memory says so before the long transfer.
    if (!mServer(rSession.SetStackSize(rSize.iProjX, rSize.iProjY, m_aPlan.GetAngles()) &&
                 rSession.SetVolumeSize(rSize.iVolX, rSize.iProjY, rSize.iVolZ) &&
                 rSession.SelectProjections(m_aPlan.GetOrder()) &&
                 rSession.SetReconOptions(m_aPlan.GetOptions()) &&
                 rSession.SetWeightBox(m_aPlan.GetWeightBox()) && mSetSmoothing()))
        return false;
    if (!UploadImages(m_aPlan.GetStack(), m_aPlan.GetViews(), EImages::eProjections, m_aLink,
                      m_aReport, m_strError))
        return false;
    if (!m_aArgs.strInitial.empty() &&
        !UploadImages(m_aInitial, AllSections(rSize.iVolZ), EImages::eSlices, m_aLink, m_aReport,
                      m_strError))
        return false;
    m_dUpload = aWatch.GetSeconds();
    return true;
}

bool CReconstruct::mSetSmoothing()
{
    const int iInterval = m_aPlan.GetSmoothInterval();
    if (iInterval == 0) return true;  // what a session starts with
    const GaussianKernel& rKernel = m_aPlan.GetSmoothKernel();
    return m_aLink.GetSession().SetSmoothing(
        iInterval, {rKernel.iSize, rKernel.iSize, rKernel.iSize}, rKernel.vfValues);
}

bool CReconstruct::mCompute()
{
    const CElapsedTime aElapsed(m_aReport, "reconstructing");
    const CStopwatch aWatch;
    const bool bDone = m_aLink.GetSession().Reconstruct();
    m_dCompute = aWatch.GetSeconds();
    return mServer(bDone);
}

bool CReconstruct::mFetchRfactors()
{
    if (m_aPlan.GetOptions().eMethod == EMethod::eBackProj) return true;
    std::vector<RfactorSums> aSums;
    for (int i = 0; i < m_aPlan.GetOptions().iIterations; ++i)
    {
        if (!mServer(m_aLink.GetSession().GetRfactors(i, aSums))) return false;
        m_vdRfactors.push_back(CalcRfactor(aSums));
    }
    return true;
}

bool CReconstruct::mDownload()
{
    const CStopwatch aWatch;
    const JobSize& rSize = m_aPlan.GetSize();
    const std::size_t tPixels = std::size_t(rSize.iVolX) * std::size_t(rSize.iProjY);
    std::vector<float> vfReference(m_aArgs.strReference.empty() ? 0 : tPixels);
    const auto TakeSlice = [&](int iZ, std::span<const float> fSlice)
    {
        if (m_aViews) m_aViews->Add(iZ, fSlice);
        if (!vfReference.empty())
        {
            if (!m_aReference.ReadSection(iZ, vfReference)) return mFail(m_aReference.GetError());
            m_aAgreement.Add(fSlice, vfReference);
        }
        return m_aOutput.WriteSection(fSlice) || mFail(m_aOutput.GetError());
    };
    const bool bDone = DownloadImages(rSize.iVolZ, tPixels, EImages::eSlices, TakeSlice, m_aLink,
                                      m_aReport, m_strError);
    m_dDownload = aWatch.GetSeconds();
    return bDone;
}

bool CReconstruct::mFinishFiles()
{
    if (!m_aOutput.Finish()) return mFail(m_aOutput.GetError());
    if (m_aViews && !WritePreview(m_aArgs.strPreview, *m_aViews, m_strError)) return false;
    return mWriteRfactors();
}

bool CReconstruct::mWriteRfactors()
{
    if (!m_aArgs.strPlot.empty() &&
        !WriteRfactorPlot(m_aArgs.strPlot, m_vdRfactors, m_aPlan.DescribeMethod(), m_strError))
        return false;
    if (m_aArgs.strRfactors.empty()) return true;
    std::string strText = "iteration,rfactor\n";
    for (std::size_t i = 0; i < m_vdRfactors.size(); ++i)
        strText += Format("%zu,%.6g\n", i + 1, m_vdRfactors[i]);
    return WriteTextFile(m_aArgs.strRfactors, strText, m_strError);
}

void CReconstruct::mSummarise() const
{
    if (m_aReport.IsJson())
    {
        std::puts(mMakeJson().dump(2).c_str());
        return;
    }
    std::string strLine =
        Format("%s: upload %s, reconstruction %s, download %s, all %s", m_aArgs.strOutput.c_str(),
               FormatSeconds(m_dUpload).c_str(), FormatSeconds(m_dCompute).c_str(),
               FormatSeconds(m_dDownload).c_str(), FormatSeconds(m_aTotal.GetSeconds()).c_str());
    if (m_vdRfactors.size() == 1) strLine += Format("; R-factor %.4f", m_vdRfactors[0]);
    if (m_vdRfactors.size() > 1)
        strLine += Format("; R-factor %.4f -> %.4f", m_vdRfactors.front(), m_vdRfactors.back());
    m_aReport.PrintLine(strLine);
    if (!m_aArgs.strReference.empty())
        m_aReport.PrintLine(Format("%s: correlation %.4f, relative RMS error %.4f",
                                   m_aArgs.strReference.c_str(), m_aAgreement.GetCorrelation(),
                                   m_aAgreement.GetRelativeError()));
}

nlohmann::ordered_json CReconstruct::mMakeJson() const
{
    const JobSize& rSize = m_aPlan.GetSize();
    const MrcHeader& rHeader = m_aOutput.GetHeader();
    nlohmann::ordered_json aJson;
    aJson["command"] = "reconstruct";
    aJson["stack"] = {{"file", m_aArgs.strTilts},
                      {"size", {rSize.iProjX, rSize.iProjY, rSize.iProjs}},
                      {"angles", m_aPlan.GetAngles()}};
    aJson["volume"] = {
        {"file", m_aArgs.strOutput}, {"size", {rSize.iVolX, rSize.iProjY, rSize.iVolZ}},
        {"min", rHeader.fMin},       {"max", rHeader.fMax},
        {"mean", rHeader.fMean},     {"rms", rHeader.fRms}};
    aJson["method"] = m_aArgs.strMethod;
    if (!m_vdRfactors.empty())
    {
        aJson["iterations"] = m_aPlan.GetOptions().iIterations;
        aJson["subset_sizes"] = m_aPlan.GetOptions().vuiSetSizes;
        aJson["rfactors"] = m_vdRfactors;
    }
    if (const int iInterval = m_aPlan.GetSmoothInterval(); iInterval > 0)
        aJson["smoothing"] = {{"interval", iInterval},
                              {"kernel_size", m_aPlan.GetSmoothKernel().iSize}};
    aJson["seconds"] = {{"upload", m_dUpload},
                        {"reconstruct", m_dCompute},
                        {"download", m_dDownload},
                        {"total", m_aTotal.GetSeconds()}};
    if (!m_aArgs.strReference.empty())
        aJson["reference"] = {{"file", m_aArgs.strReference},
                              {"correlation", m_aAgreement.GetCorrelation()},
                              {"relative_rms_error", m_aAgreement.GetRelativeError()}};
    return aJson;
}

}  // namespace

bool RunReconstruct(const ReconstructArgs& rArgs, std::string& rError)
{
    CReconstruct aReconstruct(rArgs);
    if (aReconstruct.Run()) return true;
    rError = aReconstruct.GetError();
    return false;
}

}  // namespace talven
