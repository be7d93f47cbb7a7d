#include "Series.h"

#include "Options.h"
#include "talven/DoseFilter.h"
#include "talven/FileImages.h"
#include "talven/Text.h"

namespace talven
{

void CSeries::AddOptions(CLI::App& rApp, ReconRequest& rRequest)
{
    m_pRequest = &rRequest;
    AddFile(rApp, "--tilts", m_strTilts,
            "Tilt series, MRC, HDF5 or TIFF; aligned, with the tilt axis along Y, or see --xf")
        ->required();
    m_aFiles.AddOptions(rApp);
    AddAlignment(rApp, rRequest.aAlign, m_strXf);
    AddTilting(rApp, rRequest);
    m_aXray.AddOptions(rApp);
}

bool CSeries::Open()
{
    m_pStack = OpenStack(m_strTilts, m_strError);
    return m_pStack &&
           (m_aFiles.Read(*m_pStack, m_strXf, *m_pRequest) ||
            Fail(m_strError, m_aFiles.GetError())) &&
           m_aXray.Open(*m_pStack, GetAngles(), *m_pRequest, m_strError);
}

ImageSource CSeries::GetViewsOf(CImageStack& rStack, const ReconPlan& rPlan) const
{
    if (!rPlan.IsPart() || !rPlan.aAlignment.IsNone()) return mGetViews(rStack, rPlan.viViews);
    if (m_aXray.IsNone() && !m_aFiles.IsDoseWeighted())
        return ReadFrom(rStack, rPlan.viViews, rPlan.aSent);
    return CutRows(mGetViews(rStack, rPlan.viViews), GetSize(), rPlan.aSent);
}

ImageSource CSeries::mGetViews(CImageStack& rStack, std::span<const int> iViews) const
{
    ImageSource Views = m_aXray.Correct(ReadFrom(rStack, iViews));
    if (!m_aFiles.IsDoseWeighted()) return Views;
    std::vector<ViewDose> aDoses;
    for (const int iView : iViews) aDoses.push_back(GetDoses()[std::size_t(iView)]);
    return WeighByDose(Views, GetSize(), GetPixel(), m_aFiles.GetVoltage(), aDoses);
}

}  // namespace talven
