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
            "Tilt series, MRC; aligned, with the tilt axis along Y, or see --xf")
        ->required();
    m_aFiles.AddOptions(rApp);
    AddAlignment(rApp, rRequest.aAlign, m_strXf);
    AddTilting(rApp, rRequest);
}

bool CSeries::Open()
{
    if (!m_aStack.Open(m_strTilts)) return Fail(m_strError, m_aStack.GetError());
    const StackFacts aFacts = {m_strTilts, GetSize(), GetViewCount(), m_aStack.GetHeader().dPixel};
    return m_aFiles.Read(aFacts, m_strXf, *m_pRequest) || Fail(m_strError, m_aFiles.GetError());
}

ImageSource CSeries::GetViews(std::span<const int> iViews)
{
    ImageSource Views = ReadFrom(m_aStack, iViews);
    if (!m_aFiles.IsDoseWeighted()) return Views;
    std::vector<ViewDose> aDoses;
    for (const int iView : iViews) aDoses.push_back(GetDoses()[std::size_t(iView)]);
    return WeighByDose(Views, GetSize(), GetPixel(), m_aFiles.GetVoltage(), aDoses);
}

}  // namespace talven
