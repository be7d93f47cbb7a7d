#pragma once

#include <span>
#include <vector>

#include "gpulib/Device/GWeightProjs.h"

struct CTextures;

/// Applies the box weights to projection rows, in place.
class CWeightImpl
{
public:
    /// Takes the images; to be called after they were created.
    void SetTextures(const CTextures& rTextures);
    void SetProjX(int iProjX) { m_aGWeightProjs.SetProjSize(iProjX); }
    /// The list that is on the device too. A projection may stand in it more than once.
    void SetProjIndices(std::span<const unsigned int> uiIndices);
    void SetSetRange(int iStart, int iEnd);

    /// Rows of the set divided by their pre-weight.
    [[nodiscard]] bool WeightProjs(const DeviceImage& rRows);
    /// Rows of the set times their projection weight.
    [[nodiscard]] bool WeightRecon(const DeviceImage& rRows);
    /// Rows [start, end), by raw number, times their pre-weight.
    [[nodiscard]] bool WeightRef(const DeviceImage& rRows);

private:
    template <class Operation>
    [[nodiscard]] bool mForEachOnce(Operation aOperation);

    GWeightProjs m_aGWeightProjs;
    std::vector<int> m_viBefore;  // where the projection stands last before a position; -1: nowhere
    int m_iStart = 0, m_iEnd = 0;
};
