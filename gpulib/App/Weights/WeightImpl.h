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

    /// Runs an operation over the set such that a row is treated once although its projection
    /// stands in the set twice: in one launch, cut where a projection comes again.
    template <class Operation>
    [[nodiscard]] bool ForEachOnce(SetRange aSet, Operation aOperation) const
    {
        int iFirst = aSet.iFirst;
        for (int p = aSet.iFirst; p <= aSet.iEnd; ++p)
        {
            if (p < aSet.iEnd && m_viBefore[p] < aSet.iFirst) continue;
            if (iFirst < p && !aOperation(SetRange{iFirst, p})) return false;
            iFirst = p + 1;
        }
        return true;
    }

private:
    GWeightProjs m_aGWeightProjs;
    int m_iProjs = 0;
    std::vector<int> m_viBefore;  // where the projection stands last before a position; -1: nowhere
};
