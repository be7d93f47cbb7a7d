#pragma once

#include <span>

#include "gpulib/App/CompareImpl.h"

/// Tells how well a measured projection, resampled and rescaled, matches a band of rows of a
/// projection of the stack: nine sums over the pixels that it covers.
class CCompare
{
public:
    void SetTranMatrix(std::span<const float, 6> fMatrix);
    void SetIntScale(std::span<const float, 6> fScale);
    void SetRangeY(int iStartY, int iSizeY) { m_aImpl.SetRangeY(iStartY, iSizeY); }
    /// The measured image, borrowed; one DoIt() uses it up.
    [[nodiscard]] bool SetMProj(const float* pfMProj, int iSizeX, int iSizeY);
    void SetAProj(const float* pfAProj, int iSizeX, int iSizeY);

    [[nodiscard]] bool DoIt(bool bLog) { return m_aImpl.DoIt(bLog, m_aTotals); }
    const CompareTotals& GetTotals() const { return m_aTotals; }

private:
    CCompareImpl m_aImpl;
    CompareTotals m_aTotals = {};
};
