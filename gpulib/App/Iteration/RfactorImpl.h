#pragma once

#include <vector>

#include "gpulib/Device/GRFactor.h"
#include "gpulib/Device/PitchedPtr2D.h"

struct CTextures;

/// Sums of |measured| and |residual| of every selected projection over all rows of a band.
class CRfactorImpl
{
public:
    void SetTextures(const CTextures& rTextures);
    /// Clears all sums.
    /// \param iProjs  length of the projection index list
    [[nodiscard]] bool AllocMemory(int iProjX, int iProjs, int iIters);
    /// Adds the measured rows of a batch.
    [[nodiscard]] bool CalcRaw(int iRows);
    /// Adds the residuals after iteration iIter, which stand in the working rows.
    [[nodiscard]] bool CalcDif(int iIter, int iRows);
    /// Pairs (raw, residual), shape [iteration][list position][2]; the raw sum stands in every
    /// iteration. Left empty on failure.
    [[nodiscard]] bool GetRfactor(std::vector<double>& rRfactor) const;
    void FreeMemory();

private:
    CPitchedPtr2D m_aRawRfactor;  // doubles, [1][list position]
    CPitchedPtr2D m_aDifRfactor;  // doubles, [iteration][list position]
    GRFactor m_aGRFactor;
    int m_iProjs = 0;
    int m_iIters = 0;
};
