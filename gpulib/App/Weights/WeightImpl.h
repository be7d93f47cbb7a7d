#pragma once

#include <span>
#include <vector>

#include "gpulib/Device/GWeightProjs.h"

/// Applies the box weights to projection rows, in place.
class CWeightImpl
{
public:
    /// \param uiIndices  the list that is on the device too; a projection may stand in it more than
    ///                   once
    void Configure(const RunImages& rImages, std::span<const unsigned int> uiIndices);

    /// Ray sums of the set divided by their pre-weight.
    [[nodiscard]] bool WeightProjs(SetRange aSet) const;
    /// Working rows of the set times their projection weight.
    [[nodiscard]] bool WeightRecon(SetRange aSet) const;
    /// Measured rows of all projections times their pre-weight.
    [[nodiscard]] bool WeightRef() const { return m_aGWeightProjs.WeightRef({0, m_iProjs}); }

private:
    template <class Operation>
    [[nodiscard]] bool mForEachOnce(SetRange aSet, Operation aOperation) const;

    GWeightProjs m_aGWeightProjs;
    int m_iProjs = 0;
    std::vector<int> m_viBefore;  // where the projection stands last before a position; -1: nowhere
};
