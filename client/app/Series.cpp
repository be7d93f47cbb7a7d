#include "Series.h"

#include "Options.h"
#include "talven/Angles.h"
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
    AddFile(rApp, "--angles", m_strAngles, "Tilt angles in degrees, one per line (.tlt)")
        ->required();
    AddAlignment(rApp, rRequest.aAlign, m_strXf);
    AddTilting(rApp, rRequest);
}

bool CSeries::Open()
{
    if (!m_aStack.Open(m_strTilts)) return Fail(m_strError, m_aStack.GetError());
    return mReadAngles() &&
           (m_strXf.empty() || ReadXf(m_strXf, m_pRequest->aAlign.aMaps, m_strError));
}

bool CSeries::mReadAngles()
{
    if (!ReadAngles(m_strAngles, m_vfAngles, m_strError)) return false;
    if (m_vfAngles.size() == std::size_t(GetViewCount())) return true;
    return Fail(
        m_strError,
        Format("%s has %zu angle%s, but %s has %d sections", m_strAngles.c_str(), m_vfAngles.size(),
               m_vfAngles.size() == 1 ? "" : "s", m_strTilts.c_str(), GetViewCount()));
}

ImageSource CSeries::GetViews(std::span<const int> iViews)
{
    return ReadFrom(m_aStack, iViews);
}

}  // namespace talven
