#include "Aligning.h"

#include "talven/Text.h"

namespace talven
{

void CAligning::AddOptions(CLI::App& rApp)
{
    rApp.add_flag("--fixed-axis", m_bFixed, "The tilt axis is as given, not about");
    rApp.add_flag("--isolated", m_aRequest.bIsolated,
                  "All views hold the whole specimen across the axis, at any angle");
    rApp.add_flag("--invert", m_aRequest.bDark, "The specimen is darker than its surroundings");
}

bool CAligning::Run(CServerLink& rLink, CReport& rReport, const ImageSize& rRaw,
                    std::span<const float> fAngles, const std::vector<int>& viViews,
                    const ImageSource& rViews)
{
    if (m_bFixed && m_aRequest.eAxis == EAxis::eUnknown)
        return Fail(m_strError, "--fixed-axis: not with an unknown axis");
    if (m_bFixed) m_aRequest.eAxis = EAxis::eGiven;
    m_viViews = viViews;
    m_viBins = m_aRequest.viBins.empty() ? ChooseBins(rRaw) : m_aRequest.viBins;
    std::vector<float> vfAngles;
    vfAngles.reserve(viViews.size());
    for (const int i : viViews) vfAngles.push_back(fAngles[std::size_t(i)]);
    std::string strError;
    if (!CheckSeriesAlign(m_aRequest, rRaw, vfAngles, strError))
        return Fail(m_strError, "--" + strError);
    CSeriesAligner aAligner(rLink, rReport);
    if (!aAligner.Run(m_aRequest, rRaw, vfAngles, rViews, m_aResult))
        return Fail(m_strError, aAligner.GetError());

    const ViewPlaces& rPlaces = m_aResult.aPlaces;
    m_aMaps.assign(fAngles.size(), Turn(-rPlaces.dTiltAxis));
    const std::vector<ViewMap> aMaps = rPlaces.MakeMaps();
    for (std::size_t n = 0; n < aMaps.size(); ++n) m_aMaps[std::size_t(viViews[n])] = aMaps[n];
    RoundAsXf(m_aMaps);
    for (const std::string& rWarning : m_aResult.astrWarnings)
        rReport.PrintLine("Warning: " + rWarning);
    return true;
}

std::vector<int> CAligning::ListLeftOut() const
{
    std::vector<int> viLeftOut;
    for (const int n : m_aResult.ListLeftOut()) viLeftOut.push_back(m_viViews[std::size_t(n)]);
    return viLeftOut;
}

std::string CAligning::Describe() const
{
    const SeriesAlignment& r = m_aResult;
    std::string strText = Format("tilt axis at %.2f", r.aPlaces.dTiltAxis);
    strText += Format(
        " degrees, views agree to %.2f pixels with volumes made without them, "
        "correlation %.2f",
        r.dWanted, r.dCorrelation);
    const std::vector<int> viLeftOut = ListLeftOut();
    if (!viLeftOut.empty())
        strText += Format(viLeftOut.size() == 1
                              ? "; left out: view %s, which looks like none of the others"
                              : "; left out: views %s, which look like none of the others",
                          FormatViews(viLeftOut).c_str());
    return strText;
}

nlohmann::ordered_json CAligning::MakeJson() const
{
    using Json = nlohmann::ordered_json;
    const SeriesAlignment& r = m_aResult;
    Json aShifts = Json::array(), aCorrelations = Json::array(), aLeftOut = Json::array();
    for (const ViewPlace& rPlace : r.aPlaces.aViews) aShifts.push_back({-rPlace.dX, -rPlace.dY});
    for (const AlignedView& rView : r.aViews) aCorrelations.push_back(rView.aMatch.dCorrelation);
    for (const int i : ListLeftOut()) aLeftOut.push_back(i + 1);
    Json aViews = Json::array();
    for (const int i : m_viViews) aViews.push_back(i + 1);
    return {{"axis", r.aPlaces.dTiltAxis},
            {"axis_uncertainty", r.aAxis.bFlat ? Json() : Json(r.aAxis.dUncertainty)},
            {"bins", m_viBins},
            {"rounds", r.aRounds.size()},
            {"correlation", r.dCorrelation},
            {"still_wanted", r.dWanted},
            {"views", aViews},
            {"shifts", aShifts},
            {"correlations", aCorrelations},
            {"excluded", aLeftOut},
            {"warnings", r.astrWarnings}};
}

}  // namespace talven
