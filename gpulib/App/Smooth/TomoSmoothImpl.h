#pragma once

#include <cstddef>
#include <memory>

#include "gpulib/App/Smooth/SplitVolumeX.h"
#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/GSmooth.h"
#include "gpulib/Device/PitchedPtr3D.h"

class Util_Volume;

/// Smooths a volume in place on the device of the calling thread, in pieces that fit into it.
class CTomoSmoothImpl
{
public:
    /// \param rKernel  with at least one voxel
    /// \param iDevice  the device of the calling thread, asked for its memory
    /// \return false with the reason noted (TakeDeviceError); the volume is then partly smoothed
    [[nodiscard]] bool DoIt(Util_Volume& rVolume, const Util_Volume& rKernel, int iDevice);
    /// The same in a given number of pieces, at least 1.
    [[nodiscard]] bool DoInPieces(Util_Volume& rVolume, const Util_Volume& rKernel, int iPieces);

    /// Pieces for a volume of tVoxels on a device: each takes about a quarter of its memory.
    /// \return 0 when there is no such device
    static int CalcNumSplits(std::size_t tVoxels, int iDevice);

private:
    [[nodiscard]] bool mCopyKernelToDevice(const Util_Volume& rKernel);
    [[nodiscard]] bool mMakeImages(int iX, int iY, int iZ);
    [[nodiscard]] bool mSmooth(Util_Volume& rPiece);
    bool mIsReadAfter(int iPiece, int iTaken) const;
    void mStore(std::unique_ptr<Util_Volume>& rpPiece, int n);

    CDeviceArray3D m_aKernelArray;
    CDeviceArray3D m_aVolumeArray;
    CPitchedPtr3D m_aPitchedPtr;
    CSplitVolumeX m_aSplitVolumeX;
    GSmooth m_aGSmooth;
};
