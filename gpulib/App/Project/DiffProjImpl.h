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
    /// The slices were loaded or updated: no ray sum holds any more but those of aNext, which were
    /// made with the update.
    void NotifyVolChanged(SetRange aNext = {}) { m_aKept = aNext; }
    /// The slices that were loaded are 0 everywhere, and so are their ray sums.
    [[nodiscard]] bool NotifyVolZero();

    /// Ray sums of the set, unless they stand already.
    [[nodiscard]] bool CalcSums(SetRange aSet);
    /// Working rows of the set = measured - ray sums. They may take the place of the sums.
    [[nodiscard]] bool DoDif(SetRange aSet)
    {
        return CalcSums(aSet) && mUse(&GForwardProj::DoDiff, aSet);
    }
    /// Working rows of the set times their projection weights.
    [[nodiscard]] bool WeightProjs(SetRange aSet) const { return m_aWeightImpl.WeightRecon(aSet); }

protected:
    /// A step that works on the ray sums, after which none holds.
    [[nodiscard]] bool mUse(bool (GForwardProj::*pStep)(SetRange) const, SetRange aSet)
    {
        m_aKept = {};
        return (m_aGForwardProj.*pStep)(aSet);
    }
    GForwardProj m_aGForwardProj;

private:
    CWeightImpl m_aWeightImpl;
    DeviceImage m_aSums;
    SetRange m_aAll;   // the whole list
    SetRange m_aKept;  // list positions whose sums stand in m_aSums
};

/// The same with ratios, for EM.
class CDivProjImpl : public CDiffProjImpl
{
public:
    /// Working rows of the set = measured / ray sums; 1 where there is nothing to compare.
    [[nodiscard]] bool DoDiv(SetRange aSet)
    {
        return CalcSums(aSet) && mUse(&GForwardProj::DoDiv, aSet);
    }
};
