#include "Alignment.h"

#include <cmath>

#include "Lists.h"
#include "Report.h"

namespace talven
{

bool CAlignment::Make(const AlignmentArgs& rArgs, const MrcHeader& rMeasured, int iX, int iY,
                      std::string& rError)
{
    m_bCentre = rArgs.strOrigin == "centre";
    m_dCentreX = 0.5 * (iX - 1);
    m_dCentreY = 0.5 * (iY - 1);
    m_dMeasuredCentreX = 0.5 * (rMeasured.iX - 1);
    m_dMeasuredCentreY = 0.5 * (rMeasured.iY - 1);
    return mMakeMatrices(rArgs, rMeasured.iZ, rError) && mMakeScale(rArgs, rError);
}

bool CAlignment::mMakeMatrices(const AlignmentArgs& rArgs, int iSections, std::string& rError)
{
    m_aMatrices = {g_aIdentity};
    if (!rArgs.strMatrices.empty())
    {
        if (!ReadMatrices(rArgs.strMatrices, m_aMatrices, rError)) return false;
        if (m_aMatrices.size() == static_cast<std::size_t>(iSections)) return true;
        rError =
            Format("%s has %zu matri%s, but the stack has %d sections", rArgs.strMatrices.c_str(),
                   m_aMatrices.size(), m_aMatrices.size() == 1 ? "x" : "ces", iSections);
        return false;
    }
    if (rArgs.strMatrix.empty()) return true;
    std::vector<double> vdMatrix;
    if (!ParseNumbers(rArgs.strMatrix, 6, vdMatrix, rError)) return false;
    for (std::size_t i = 0; i < 6; ++i)
    {
        m_aMatrices[0][i] = static_cast<float>(vdMatrix[i]);
        if (std::isfinite(m_aMatrices[0][i])) continue;
        rError = Format("--matrix: %g is too large", vdMatrix[i]);
        return false;
    }
    return true;
}

bool CAlignment::mMakeScale(const AlignmentArgs& rArgs, std::string& rError)
{
    m_aScale.bLog = rArgs.bLog;
    m_aScale.fGain = static_cast<float>(rArgs.dGain);
    m_aScale.fOffset = static_cast<float>(rArgs.dOffset);
    if (rArgs.bMost) m_aScale.fMost = static_cast<float>(rArgs.dMost);
    if (rArgs.bLog)
    {
        m_aScale.fBeam = static_cast<float>(rArgs.dBeam);
        m_aScale.fLeast = static_cast<float>(rArgs.dLeast);
        m_aScale.fFactor = static_cast<float>(rArgs.dFactor);
    }
    for (const float fValue : m_aScale.GetValues())
        if (!std::isfinite(fValue))
        {
            rError = "a number of the intensity scale is too large or not a number";
            return false;
        }
    if (m_aScale.fBeam > 0 && m_aScale.fLeast > 0) return true;
    rError = Format("--log needs a --beam and a --least above 0, not %g and %g", rArgs.dBeam,
                    rArgs.dLeast);
    return false;
}

Affine CAlignment::GetUserMatrix(int iSection, double dShiftX, double dShiftY) const
{
    Affine aMatrix = m_aMatrices[m_aMatrices.size() == 1 ? 0 : std::size_t(iSection)];
    aMatrix[4] = static_cast<float>(aMatrix[4] + dShiftX);
    aMatrix[5] = static_cast<float>(aMatrix[5] + dShiftY);
    return aMatrix;
}

Affine CAlignment::GetMap(int iSection, double dShiftX, double dShiftY) const
{
    Affine aMap = GetUserMatrix(iSection, dShiftX, dShiftY);
    if (!m_bCentre) return aMap;
    const auto& [fA, fB, fC, fD, fE, fF] = aMap;
    aMap[4] = static_cast<float>(fE + m_dMeasuredCentreX - fA * m_dCentreX - fB * m_dCentreY);
    aMap[5] = static_cast<float>(fF + m_dMeasuredCentreY - fC * m_dCentreX - fD * m_dCentreY);
    return aMap;
}

}  // namespace talven
