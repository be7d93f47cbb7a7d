#pragma once

#include <span>

#include "gpulib/App/Weights/WeightImpl.h"
#include "gpulib/Device/GForwardProj.h"

/// Compares the measured rows, times their pre-weights, with the ray sums of the current slices.
///
/// Ray sums are kept as long as the slices do not change: the sums behind the residual of one
/// iteration serve the first set of the next one.
class CDiffProjImpl
{
public:
    /// \param uiIndices  the list that is on the device too
    void Configure(const RunImages& rImages, std::span<const unsigned int> uiIndices);
    /// The slices were loaded or updated: no ray sum holds any more, nor working rows but those of
    /// aNext, which were made with the update.
    void NotifyVolChanged(SetRange aNext = {})
    {
        m_aKept = {};
        m_aMade = aNext;
    }
    /// The slices that were loaded are 0 everywhere, and so are their ray sums.
    [[nodiscard]] bool NotifyVolZero();

    /// Ray sums of the set, unless they stand already.
    [[nodiscard]] bool CalcSums(SetRange aSet);
    /// Working rows of the set = (measured - ray sums) times their projection weights, unless they
    /// stand already. They take the place of the sums.
    [[nodiscard]] bool DoDif(SetRange aSet) { return mCompare(aSet, ECombine::eDiff); }

protected:
    [[nodiscard]] bool mCompare(SetRange aSet, ECombine eOperation);

private:
    bool mHoldsSums(SetRange aSet) const;

    GForwardProj m_aGForwardProj;
    CWeightImpl m_aWeightImpl;
    DeviceImage m_aSums;
    SetRange m_aAll;   // the whole list
    SetRange m_aKept;  // list positions whose sums stand in m_aSums
    SetRange m_aMade;  // and the set whose working rows do
};

/// The same with ratios, for EM.
class CDivProjImpl : public CDiffProjImpl
{
public:
    /// Working rows of the set = measured / ray sums; 1 where there is nothing to compare.
    [[nodiscard]] bool DoDiv(SetRange aSet) { return mCompare(aSet, ECombine::eDiv); }
};
