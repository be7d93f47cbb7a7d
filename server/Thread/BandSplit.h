#pragma once

#include <vector>

/// Cuts the rows of a stack into one band of consecutive rows per worker.
class CBandSplit
{
public:
    /// Even bands; the last one takes the remainder. Bands are empty when rows are few.
    void Calculate(int iRows, int iBands);
    void FreeMemory() { m_viStart.clear(); }
    int GetStart(int iBand) const { return m_viStart[iBand]; }
    int GetSize(int iBand) const { return m_viStart[iBand + 1] - m_viStart[iBand]; }
    int GetNumBands() const
    {
        return m_viStart.empty() ? 0 : static_cast<int>(m_viStart.size()) - 1;
    }
    bool HasBand(int iBand) const { return iBand >= 0 && iBand < GetNumBands(); }

private:
    std::vector<int> m_viStart;  // first row of each band, then one past the last row
};
