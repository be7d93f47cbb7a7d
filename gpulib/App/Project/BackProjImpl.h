#pragma once

#include "gpulib/Device/GBackProj.h"

/// Updates the slices of one batch from the working rows of a set, in place.
class CBackProjImpl
{
public:
    void SetImages(const RunImages& rImages) { m_aGBackProj.SetImages(rImages); }
    /// The batch at work: iRows rows from row iY of the band on.
    void SetBatch(int iY, int iRows)
    {
        m_iY = iY;
        m_iRows = iRows;
    }
    /// SART update, and the working rows of aNext, which may be empty.
    [[nodiscard]] bool DoIt(SetRange aSet, float fRelax, SetRange aNext = {}) const
    {
        return m_aGBackProj.DoIt(aSet, fRelax, m_iY, m_iRows, aNext);
    }
    /// EM update likewise.
    [[nodiscard]] bool DoItEm(SetRange aSet, float fRelax, SetRange aNext = {}) const
    {
        return m_aGBackProj.DoItEm(aSet, fRelax, m_iY, m_iRows, aNext);
    }

private:
    GBackProj m_aGBackProj;
    int m_iY = 0, m_iRows = 0;
};
