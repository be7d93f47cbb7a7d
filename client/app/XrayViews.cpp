#include "XrayViews.h"

#include "Lists.h"
#include "Options.h"
#include "talven/FileImages.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr const char* g_pcNone = "none";

}  // namespace

void CXrayViews::AddOptions(CLI::App& rApp)
{
    rApp.option_defaults()->group("X-ray views");
    AddFile(rApp, "--flat", m_strFlat,
            "Images of the beam without a specimen [those in an HDF5 file; none: no images]");
    AddFile(rApp, "--dark", m_strDark,
            "Images without the beam [those in an HDF5 file; none: no images]");
    rApp.add_flag("--minus-log", m_bMinusLog,
                  "The negative logarithm of the views: absorption from what was let through");
    const auto Parse = [this](const std::string& strText, std::string& rError)
    {
        std::vector<double> vdColumn;
        m_bFindCentre = strText == "auto";
        if (m_bFindCentre) return true;
        if (!ParseNumbers(strText, 1, vdColumn, rError)) return false;
        m_dCentre = vdColumn[0];
        return true;
    };
    AddParsed(rApp, "--centre", "COLUMN", Parse,
              "Where the rotation axis crosses the middle row of the views, pixels from 0, a "
              "fraction allowed; auto: found from views half a turn apart [the middle]");
    rApp.option_defaults()->group("Options");
}

bool CXrayViews::Open(CImageStack& rSeries, std::span<const float> fAngles, ReconRequest& rRequest,
                      std::string& rError)
{
    std::unique_ptr<CImageStack> pFlat, pDark;
    if (!mOpenFrames(rSeries, CImageStack::EFrames::eFlat, m_strFlat, pFlat, rError) ||
        !mOpenFrames(rSeries, CImageStack::EFrames::eDark, m_strDark, pDark, rError) ||
        !m_aFlatField.Make(pFlat.get(), pDark.get(), m_bMinusLog, rSeries.GetSize(), rError))
        return false;
    if (pFlat) m_vstrNotes.push_back(Format("flat: mean of %d", pFlat->GetSections()));
    if (pDark) m_vstrNotes.push_back(Format("dark: mean of %d", pDark->GetSections()));
    if (m_bFindCentre && !mFindCentre(rSeries, fAngles, rRequest, rError)) return false;
    rRequest.aAlign.dCentre = m_dCentre;
    return true;
}

/// Those that are asked for, or those that the series holds, or none.
bool CXrayViews::mOpenFrames(CImageStack& rSeries, CImageStack::EFrames eFrames,
                             const std::string& strPath, std::unique_ptr<CImageStack>& rFrames,
                             std::string& rError)
{
    if (strPath == g_pcNone) return true;
    if (strPath.empty())
        return rSeries.OpenFrames(eFrames, rFrames) || Fail(rError, rSeries.GetError());
    rFrames = OpenStack(strPath, rError);
    if (!rFrames) return false;
    std::unique_ptr<CImageStack> pOwn;  // an HDF5 file of a scan: its frames, not its views
    if (!rFrames->OpenFrames(eFrames, pOwn)) return Fail(rError, rFrames->GetError());
    if (pOwn) rFrames = std::move(pOwn);
    return true;
}

bool CXrayViews::mFindCentre(CImageStack& rSeries, std::span<const float> fAngles,
                             const ReconRequest& rRequest, std::string& rError)
{
    const std::vector<int> viViews = SelectViews(rRequest, rSeries.GetSections());
    std::vector<float> vfAngles;
    for (const int i : viViews) vfAngles.push_back(fAngles[std::size_t(i)]);
    const ImageSource Views = m_aFlatField.Correct(ReadFrom(rSeries, viViews));
    if (!FindRotationCentre(rSeries.GetSize(), vfAngles, Views, m_aFound, rError))
        return Fail(rError, "--centre: " + rError);
    m_dCentre = m_aFound.dColumn;
    m_vstrNotes.push_back(Format("axis: column %.2f, found from views %d and %d (correlation %.2f)",
                                 m_aFound.dColumn, viViews[std::size_t(m_aFound.iViews[0])] + 1,
                                 viViews[std::size_t(m_aFound.iViews[1])] + 1,
                                 m_aFound.dCorrelation));
    return true;
}

ImageSource CXrayViews::Correct(ImageSource Views) const
{
    return IsNone() ? Views : m_aFlatField.Correct(std::move(Views));
}

std::string CXrayViews::Describe() const
{
    std::string strAll;
    for (const std::string& rNote : m_vstrNotes) strAll += (strAll.empty() ? " (" : "; ") + rNote;
    return strAll.empty() ? strAll : strAll + ")";
}

}  // namespace talven
