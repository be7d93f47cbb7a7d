#include "FurtherResults.h"

#include "Options.h"
#include "Preview.h"
#include "RfactorPlot.h"
#include "talven/AtomicFile.h"
#include "talven/Text.h"

namespace talven
{

void CFurtherResults::AddOptions(CLI::App& rApp)
{
    rApp.option_defaults()->group("Further results");
    AddFile(rApp, "--preview", m_strPreview, "PNG of the three central slices");
    AddFile(rApp, "--rfactor-plot", m_strPlot, "PNG of the R-factor after every iteration");
    AddFile(rApp, "--rfactors", m_strRfactors, "The same as text: iteration,rfactor");
    AddFile(rApp, "--reference", m_strReference,
            "Compare the volume with this one: correlation and relative RMS error");
    rApp.option_defaults()->group("Options");
}

bool CFurtherResults::Open(const JobSize& rSize, const RowRange& rRows, int iAllRows, bool bSlices)
{
    for (const std::string& rPath : {m_strPreview, m_strPlot, m_strRfactors})
    {
        CAtomicFile aProbe;
        if (!rPath.empty() && !aProbe.Create(rPath)) return Fail(m_strError, aProbe.GetError());
    }
    if (!m_strPreview.empty() || bSlices)
        m_aSlices.emplace(rSize.iVolX, rSize.iProjY, rSize.iVolZ).WantCentral();
    m_aRows = rRows;
    if (m_strReference.empty()) return true;
    m_vfReference.resize(std::size_t(rSize.iVolX) * std::size_t(rSize.iProjY));
    return OpenSameSize(m_aReference, m_strReference, rSize, iAllRows, m_strError);
}

bool CFurtherResults::Look(int iZ, std::span<const float> fSlice, std::string& rError)
{
    if (m_aSlices) m_aSlices->Add(iZ, fSlice);
    if (m_strReference.empty()) return true;
    if (!m_aReference.ReadRows(iZ, m_aRows.iFirst, m_vfReference))
        return Fail(rError, m_aReference.GetError());
    m_aAgreement.Add(fSlice, m_vfReference);
    return true;
}

bool CFurtherResults::Write(std::span<const double> dRfactors, const std::string& strMethod)
{
    return (m_strPreview.empty() || WritePreview(m_strPreview, *m_aSlices, m_strError)) &&
           (m_strPlot.empty() || WriteRfactorPlot(m_strPlot, dRfactors, strMethod, m_strError)) &&
           (m_strRfactors.empty() || mWriteRfactors(dRfactors));
}

bool CFurtherResults::mWriteRfactors(std::span<const double> dRfactors)
{
    std::string strText = "iteration,rfactor\n";
    for (std::size_t i = 0; i < dRfactors.size(); ++i)
        strText += Format("%zu,%.6g\n", i + 1, dRfactors[i]);
    return WriteTextFile(m_strRfactors, strText, m_strError);
}

std::string CFurtherResults::DescribeAgreement() const
{
    return Format("correlation %.4f, relative RMS error %.4f", m_aAgreement.GetCorrelation(),
                  m_aAgreement.GetRelativeError());
}

bool OpenSameSize(CMrcReader& rReader, const std::string& strPath, const JobSize& rSize, int iRows,
                  std::string& rError)
{
    if (!rReader.Open(strPath)) return Fail(rError, rReader.GetError());
    const MrcHeader& rHeader = rReader.GetHeader();
    if (rHeader.iX == rSize.iVolX && rHeader.iY == iRows && rHeader.iZ == rSize.iVolZ) return true;
    return Fail(rError,
                Format("%s is %d x %d x %d, the volume is %d x %d x %d", strPath.c_str(),
                       rHeader.iX, rHeader.iY, rHeader.iZ, rSize.iVolX, iRows, rSize.iVolZ));
}

}  // namespace talven
