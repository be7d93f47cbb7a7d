#pragma once

#include <span>

#include "gpulib/App/Weights/WeightImpl.h"
#include "gpulib/Device/GForwardProj.h"
#include "gpulib/Device/PitchedPtr2D.h"

struct CTextures;

/// Compares the measured rows with the ray sums of the current slices.
///
/// Ray sums are kept as long as the slices do not change: the sums behind the residual of one
/// iteration serve the first set of the next one.
class CDiffProjImpl
{
public:
    virtual ~CDiffProjImpl() = default;

    void SetTextures(CTextures& rTextures);
    /// The list that is on the device too.
    void SetProjIndices(std::span<const unsigned int> uiIndices);
    void SetProjSize(int iProjX, int iProjs);
    /// The ray sums of a batch; not needed where rows are weighted only.
    [[nodiscard]] bool AllocMemory(int iLanes);
    void SetVolSize(int iVolX, int iVolZ) { m_aGForwardProj.SetVolSize(iVolX, iVolZ); }
    void SetSetRange(const int* piRange);
    /// The slices were loaded or updated: no ray sum holds any more.
    void NotifyVolChanged() { m_iSumsFirst = m_iSumsEnd = 0; }
    /// The slices that were loaded are 0 everywhere, and so are their ray sums.
    [[nodiscard]] bool NotifyVolZero();

    /// Working rows of the set = measured - ray sums.
    [[nodiscard]] bool DoDif();
    /// Working rows of the set times their projection weights.
    [[nodiscard]] bool WeightProjs();
    /// Measured rows of all projections times their pre-weights.
    [[nodiscard]] bool WeightRef();
    void FreeMemory() { m_aSums.Free(); }

protected:
    [[nodiscard]] bool mCalcSums();
    GForwardProj m_aGForwardProj;
    CPitchedPtr2D m_aSums;  // [proj][x], row n belongs to raw number n
    CTextures* m_pTextures = nullptr;

private:
    CWeightImpl m_aWeightImpl;
    int m_iListSize = 0;
    int m_iProjX = 0;
    int m_iProjs = 0;
    int m_aiSetRange[2] = {0, 0};
    int m_iSumsFirst = 0, m_iSumsEnd = 0;  // list positions whose sums stand in m_aSums
};
