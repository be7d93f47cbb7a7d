#pragma once

#include <vector>

#include "gpulib/Device/GRFactor.h"
#include "gpulib/Device/PitchedPtr2D.h"

/// Sums of |measured| and |residual| of every selected projection over all rows of a band.
class CRfactorImpl
{
public:
    /// Clears all sums.
    /// \param iProjs  length of the projection index list
    [[nodiscard]] bool AllocMemory(int iProjs, int iIters);
    void SetImages(const RunImages& rImages) { m_aGRFactor.SetImages(rImages); }
    /// Adds the measured rows of a batch.
    [[nodiscard]] bool CalcRaw(int iRows) const;
    /// Adds the residuals after iteration iIter, of which the ray sums stand.
    [[nodiscard]] bool CalcDif(int iIter, int iRows) const;
    /// Pairs (raw, residual), shape [iteration][list position][2]; the raw sum stands in every
    /// iteration. Left empty on failure.
    [[nodiscard]] bool GetRfactor(std::vector<double>& rRfactor) const;

private:
    CPitchedPtr2D m_aRawRfactor;  // doubles, [1][list position]
    CPitchedPtr2D m_aDifRfactor;  // doubles, [iteration][list position]
    GRFactor m_aGRFactor;
};
