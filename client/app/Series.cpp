#include "Series.h"

#include "Options.h"
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
    rApp.option_defaults()->group(g_pcAlignment);
    rApp.add_option("--angle-offset", rRequest.dAngleOffset, "Added to all angles, degrees")
        ->check(CLI::Range(-180.0, 180.0));
    rApp.add_option("--shift-z", rRequest.aAlign.dShiftZ,
                    "Move the specimen by so many voxels towards higher slices")
        ->check(CLI::Range(-1e5, 1e5));
    rApp.add_option("--x-tilt", rRequest.aAlign.dTiltX,
                    "The specimen rises towards +Y by this angle, degrees: lay it flat")
        ->check(CLI::Range(-60.0, 60.0))
        ->type_name("DEG");
    rApp.option_defaults()->group("Options");
}

bool CSeries::Open()
{
    if (!m_aStack.Open(m_strTilts)) return Fail(m_strError, m_aStack.GetError());
    const StackFacts aFacts = {m_strTilts, GetSize(), GetViewCount(), m_aStack.GetHeader().dPixel};
    return m_aFiles.Read(aFacts, m_strXf, *m_pRequest) || Fail(m_strError, m_aFiles.GetError());
}

ImageSource CSeries::GetViews(std::span<const int> iViews)
{
    return ReadFrom(m_aStack, iViews);
}

}  // namespace talven
