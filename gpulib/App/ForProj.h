#pragma once

#include "gpulib/App/ForProjImpl.h"
#include "gpulib/App/ReconBase.h"

/// Reprojects the volume at the angles of the stack and writes the selected projections into it.
class CForProj : public CReconBase
{
public:
    /// Weighting is on when both are given.
    void SetPreweightBox(const float* pfOrig, const float* pfDim) override;
    [[nodiscard]] bool DoIt(int iStartY, int iSizeY) override;

private:
    [[nodiscard]] bool mPrepare();
    [[nodiscard]] bool mConfigForProj();
    CForProjImpl m_aForProjImpl;
    bool m_bWeight = false;
};
