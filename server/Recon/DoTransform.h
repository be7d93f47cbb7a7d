#pragma once

#include <algorithm>
#include <span>

#include "gpulib/App/Align/Transform.h"
#include "gpulib/App/Job.h"

class Util_Volume;

/// Transform of a measured projection into a projection of the stack, one band of rows.
class CDoTransform
{
public:
    void SetTranMatrix(std::span<const float, 6> fMatrix)
    {
        std::ranges::copy(fMatrix, m_aJob.afMatrix.begin());
    }
    void SetIntScale(std::span<const float, 6> fScale)
    {
        std::ranges::copy(fScale, m_aJob.afScale.begin());
    }
    /// Projection iMProj of the measured stack; borrowed.
    void SetMProj(const Util_Volume* pMProjs, int iMProj);
    /// Projection iAProj of the stack, changed in place, and its valid columns; borrowed.
    void SetAProj(Util_Volume* pProjs, int iAProj, std::span<unsigned int> uiRangeX);

    [[nodiscard]] bool DoIt(int iStartY, int iSizeY);
    [[nodiscard]] bool DoItLog(int iStartY, int iSizeY);  ///< with the logarithmic scale

private:
    [[nodiscard]] bool mRun(bool bLog, int iStartY, int iSizeY);
    AlignJob m_aJob;
};
