#include "talven/SectionMaps.h"

#include <algorithm>
#include <cmath>

namespace talven
{

CSectionMaps::CSectionMaps(std::vector<Affine> aMatrices, bool bCentres, const ImageSize& rAligned,
                           const ImageSize& rMeasured)
    : m_aMatrices(std::move(aMatrices)),
      m_bCentres(bCentres),
      m_aAligned(rAligned),
      m_aMeasured(rMeasured)
{
}

Affine CSectionMaps::GetOwnMap(int iSection, double dShiftX, double dShiftY) const
{
    const std::size_t tMatrix = m_aMatrices.size() == 1 ? 0 : std::size_t(iSection);
    return Shift(m_aMatrices[tMatrix], dShiftX, dShiftY);
}

Affine CSectionMaps::GetMap(int iSection, double dShiftX, double dShiftY) const
{
    const Affine aMap = GetOwnMap(iSection, dShiftX, dShiftY);
    return m_bCentres ? CountFromCorners(aMap, m_aAligned, m_aMeasured) : aMap;
}

bool KeepsMissing(const IntensityScale& rScale)
{
    return !rScale.bLog && rScale.fGain > 0;
}

IntensityScale TakeOff(IntensityScale aScale, double& rOffset)
{
    constexpr double dMost = std::numeric_limits<float>::max();
    if (aScale.bLog)
    {
        const double dBeam = aScale.fBeam * std::exp(-rOffset / aScale.fFactor);
        if (!(dBeam > 1e-30 && dBeam < 1e30))
        {
            rOffset = 0;
            return aScale;
        }
        aScale.fBeam = static_cast<float>(dBeam);
    }
    else
        aScale.fOffset = static_cast<float>(std::clamp(aScale.fOffset - rOffset, -dMost, dMost));
    aScale.fMost = static_cast<float>(std::clamp(aScale.fMost - rOffset, -dMost, dMost));
    return aScale;
}

}  // namespace talven
