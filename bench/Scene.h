#pragma once

#include <cstddef>
#include <vector>

#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/GBackProj.h"
#include "gpulib/Device/GForwardProj.h"
#include "gpulib/Device/GRFactor.h"
#include "gpulib/Device/GWeightProjs.h"
#include "gpulib/Device/PitchedPtr2D.h"

/// A tilt series of typical shape with random values, and its volume, for a number of rows.
struct Scene
{
    int iX, iZ, iProjs, iRows;
    float fRelax = 0.01f;
    std::vector<float> vfCos, vfSin;  ///< -60 to 60 degrees
    std::vector<float> vfVolume;      ///< [z][row][x]
    std::vector<float> vfProjs;       ///< [projection][row][x]

    explicit Scene(int iRowsWanted = 16, int iWidth = 1024, int iHeight = 256, int iTilts = 61);
    const float* SliceLine(int z, int iRow) const
    {
        return vfVolume.data() + (std::size_t(z) * iRows + iRow) * iX;
    }
    const float* ProjLine(int n, int iRow) const
    {
        return vfProjs.data() + (std::size_t(n) * iRows + iRow) * iX;
    }
    /// Samples of one row whose footprint touches the slice; the others are zeros by construction.
    double CountSamples() const;
    /// Samples of one row that a kernel for single rays takes: a few beside the slice with them.
    double CountFetched() const;
    /// Pairs of a voxel and a projection of one row.
    double CountUpdates() const { return double(iX) * iZ * iProjs; }
};

/// A scene in the memory of the device that the calling thread selected, and its kernels. The
/// operations return false when the device refuses; TakeDeviceError() tells why.
class CDeviceScene
{
public:
    [[nodiscard]] bool Create(const Scene& rScene);
    /// Projections of the projectors; at first all.
    void SetRange(int iFirst, int iEnd) { m_aSet = {iFirst, iEnd}; }

    [[nodiscard]] bool UploadSlices();
    [[nodiscard]] bool DownloadSlices();
    [[nodiscard]] bool Forward() { return m_aForward.DoIt(m_aSet); }
    /// Likewise with the difference from the measured rows in the place of the sums; Diff() makes
    /// it of sums that stand already.
    [[nodiscard]] bool ForwardDiff() { return m_aForward.DoIt(m_aSet, ECombine::eDiff); }
    [[nodiscard]] bool Diff() { return m_aForward.Combine(m_aSet, ECombine::eDiff); }
    [[nodiscard]] bool Back() { return m_aBack.DoIt(m_aSet, m_pScene->fRelax, 0, m_pScene->iRows); }
    /// One projection after the other: what SART does when every set is one projection.
    [[nodiscard]] bool Sweep();
    [[nodiscard]] bool Weight() { return m_aWeight.WeightRecon({0, m_pScene->iProjs}); }
    [[nodiscard]] bool SumAbs() { return m_aFactor.DoDif(m_aAccum.GetImage(), 0, m_pScene->iRows); }

    std::vector<float> ReadSums() const;                              ///< [projection][row][x]
    const std::vector<float>& GetVolume() const { return m_vfBack; }  ///< after DownloadSlices()

private:
    const Scene* m_pScene = nullptr;  // borrowed
    ::SetRange m_aSet;
    CDeviceArray2D m_aVol, m_aRaw, m_aCosSin, m_aIndex, m_aRange, m_aWeights;
    CPitchedPtr2D m_aSums, m_aAccum;
    GForwardProj m_aForward;
    GBackProj m_aBack;
    GRFactor m_aFactor;
    GWeightProjs m_aWeight;
    std::vector<float> m_vfBack;
};
