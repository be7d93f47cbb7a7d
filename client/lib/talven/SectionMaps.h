#pragma once

#include <vector>

#include "talven/Alignment.h"

namespace talven
{

/// The maps of all sections of a measured stack, as their owner counts pixels and as the server
/// does, from the corners.
class CSectionMaps
{
public:
    /// \param aMatrices  one for each section, or one for all
    /// \param bCentres   they count from the centres of the images, not from their corners
    CSectionMaps(std::vector<Affine> aMatrices, bool bCentres, const ImageSize& rAligned,
                 const ImageSize& rMeasured);
    CSectionMaps() : CSectionMaps({g_aIdentity}, false, {}, {}) {}

    /// The map of a section plus a shift in the measured image, for the server.
    Affine GetMap(int iSection, double dShiftX = 0, double dShiftY = 0) const;
    /// The same as the owner counts.
    Affine GetOwnMap(int iSection, double dShiftX = 0, double dShiftY = 0) const;

private:
    std::vector<Affine> m_aMatrices;
    bool m_bCentres;
    ImageSize m_aAligned, m_aMeasured;
};

/// Whether missing pixels stay missing on that scale.
bool KeepsMissing(const IntensityScale& rScale);

/// The scale whose results are smaller by dOffset, which becomes 0 where there is none.
///
/// The server sums in single precision: images less their mean lose far fewer digits.
IntensityScale TakeOff(IntensityScale aScale, double& rOffset);

}  // namespace talven
