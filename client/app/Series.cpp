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
            "Tilt series, MRC, HDF5 or TIFF; aligned, with the tilt axis along Y, or see --xf")
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

ImageSource CSeries::GetViews(std::span<const int> iViews)
{
    return m_aXray.Correct(ReadFrom(*m_pStack, iViews));
}

}  // namespace talven
