#pragma once

#include <string>
#include <vector>

#include "talven/Alignment.h"
#include "talven/MrcHeader.h"

namespace talven
{

/// The options that `talven transform` and `talven compare` share, as the user wrote them.
struct AlignmentArgs
{
    std::string strMatrix;    ///< six numbers for all sections; empty: none given
    std::string strMatrices;  ///< file, one matrix per section; empty: none given
    std::string strOrigin = "centre";
    double dGain = 1, dOffset = 0;
    double dMost = 0;  ///< counts when bMost
    bool bMost = false;
    bool bLog = false;
    double dBeam = 0;  ///< 0: not given
    double dLeast = 1, dFactor = 1;
};

/// The maps and the scale that follow from them.
class CAlignment
{
public:
    /// \param rMeasured  of the stack that is mapped, one matrix for each of its sections
    /// \param iX, iY     of the aligned grid
    [[nodiscard]] bool Make(const AlignmentArgs& rArgs, const MrcHeader& rMeasured, int iX, int iY,
                            std::string& rError);
    /// The map of a section plus a shift in the measured image, for the server: pixels count from
    /// the corner.
    Affine GetMap(int iSection, double dShiftX = 0, double dShiftY = 0) const;
    /// The same for the user, who may count them from the centres.
    Affine GetUserMatrix(int iSection, double dShiftX = 0, double dShiftY = 0) const;
    const IntensityScale& GetScale() const { return m_aScale; }

private:
    bool mMakeMatrices(const AlignmentArgs& rArgs, int iSections, std::string& rError);
    bool mMakeScale(const AlignmentArgs& rArgs, std::string& rError);

    std::vector<Affine> m_aMatrices;  // the user's; one alone is for all sections
    bool m_bCentre = true;
    double m_dCentreX = 0, m_dCentreY = 0;                  // of the aligned grid
    double m_dMeasuredCentreX = 0, m_dMeasuredCentreY = 0;  // of the measured image
    IntensityScale m_aScale;
};

/// A pixel that holds no data.
inline bool IsMissing(float fPixel)
{
    return fPixel < -1e15f;
}

}  // namespace talven
