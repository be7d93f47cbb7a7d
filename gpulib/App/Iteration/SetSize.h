#pragma once

#include <span>
#include <vector>

/// Division of the projection index list into consecutive sets.
class CSetSize
{
public:
    void SetNumProjs(unsigned int uiProjs) { m_uiProjs = uiProjs; }
    /// \param uiSetSize  sizes of the sets, at least uiSets of them; they need not add up to the
    ///                   list. Empty: even sets, the remainder one each over the first sets.
    void SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize);
    /// To be called after every change of the above.
    void Calculate();

    unsigned int GetNumSets() const { return m_uiSets; }
    /// First and one-past-last list position of set iSet, cut at the end of the list; valid until
    /// the next call.
    const int* GetSetRange(int iSet);
    /// The same of the whole list.
    const int* GetFullRange();

private:
    void mCalcSetSize();
    unsigned int m_uiSets = 0;
    unsigned int m_uiProjs = 0;
    int m_iRange[2] = {0, 0};
    std::vector<unsigned int> m_vuiSetSize;
    std::vector<unsigned long long> m_vullStartProj;  // 64 bits: the sizes are the client's
};
