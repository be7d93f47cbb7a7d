#pragma once

#include <span>

#include "gpulib/App/Compare.h"

class Util_Volume;

/// Comparison of a measured projection with a projection of the stack, one band of rows.
class CDoCompare
{
public:
    void SetTranMatrix(std::span<const float, 6> fMatrix) { m_aCompare.SetTranMatrix(fMatrix); }
    void SetIntScale(std::span<const float, 6> fScale) { m_aCompare.SetIntScale(fScale); }
    /// Projection iMProj of the measured stack; borrowed.
    void SetMProj(const Util_Volume* pMProjs, int iMProj);
    /// Projection iAProj of the stack; borrowed.
    void SetAProj(const Util_Volume* pProjs, int iAProj);

    [[nodiscard]] bool DoIt(int iStartY, int iSizeY);
    [[nodiscard]] bool DoItLog(int iStartY, int iSizeY);  ///< with the logarithmic scale
    const CompareTotals& GetTotals() const { return m_aCompare.GetTotals(); }

private:
    [[nodiscard]] bool mRun(bool bLog, int iStartY, int iSizeY);
    CCompare m_aCompare;
    const Util_Volume* m_pMProjs = nullptr;
    int m_iMProj = 0;
};
