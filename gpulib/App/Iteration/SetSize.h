#pragma once

#include <span>
#include <vector>

#include "gpulib/Device/RunImages.h"

/// Division of the projection index list into consecutive sets.
class CSetSize
{
public:
    void SetNumProjs(unsigned int uiProjs) { m_uiProjs = uiProjs; }
    /// \param uiSetSize  sizes of the sets, at least uiSets of them; they need not add up to the
    ///                   list; borrowed until Calculate(). Fewer: even sets, the remainder one
    ///                   each over the first sets.
    void SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize);
    /// To be called after every change of the above.
    void Calculate();

    unsigned int GetNumSets() const { return static_cast<unsigned int>(m_vSets.size()); }
    /// List positions of set uiSet, cut at the end of the list.
    SetRange GetSetRange(unsigned int uiSet) const { return m_vSets[uiSet]; }
    /// The same of the whole list.
    SetRange GetFullRange() const { return {0, static_cast<int>(m_uiProjs)}; }

private:
    unsigned int mCalcSetSize(unsigned int uiSet) const;
    unsigned int m_uiProjs = 0;
    unsigned int m_uiSets = 0;
    std::span<const unsigned int> m_uiSetSize;  // empty: even sets
    std::vector<SetRange> m_vSets;
};
