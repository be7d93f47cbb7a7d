#include "gpulib/App/Smooth/TomoSmoothImpl.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "Util/Util_Volume.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/DeviceInfo.h"

int CTomoSmoothImpl::CalcNumSplits(std::size_t tVoxels, int iDevice)
{
    CDeviceInfo aInfo;
    aInfo.Query();
    const int iMemory = aInfo.GetDeviceMemory(iDevice);
    if (iMemory == 0) return 0;
    const std::size_t tMiB = tVoxels * sizeof(float) >> 20;
    return static_cast<int>(std::max<std::size_t>(tMiB / std::max(iMemory >> 2, 1), 1));
}

bool CTomoSmoothImpl::DoIt(Util_Volume& rVolume, const Util_Volume& rKernel, int iDevice)
{
    int iPieces = CalcNumSplits(rVolume.GetVoxels(), iDevice);
    if (iPieces == 0) return DeviceFail("smooth: no memory on device %d", iDevice);
    // Other programs may hold memory of the device: what does not fit is tried with half of it.
    const int iX = rVolume.GetSizeX(), iOverlap = rKernel.GetSizeX() / 2;
    const auto CountColumns = [&]
    { return std::min(iX, iX / iPieces + iX % iPieces + 2 * iOverlap); };
    for (; !mMakeImages(CountColumns(), rVolume.GetSizeY(), rVolume.GetSizeZ()); iPieces *= 2)
    {
        if (iPieces > iX / 2) return false;
        TakeDeviceError();
    }
    return DoInPieces(rVolume, rKernel, iPieces);
}

bool CTomoSmoothImpl::DoInPieces(Util_Volume& rVolume, const Util_Volume& rKernel, int iPieces)
{
    if (!mCopyKernelToDevice(rKernel)) return false;
    if (iPieces == 1) return mSmooth(rVolume);  // whole, without a copy
    m_aSplitVolumeX.DoIt(&rVolume, iPieces, rKernel.GetSizeX() / 2);
    std::vector<std::unique_ptr<Util_Volume>> vpPieces(iPieces);
    int iStored = 0;  // pieces put back
    for (int n = 0; n < iPieces; ++n)
    {
        vpPieces[n] = m_aSplitVolumeX.GetNthSplit(n);
        for (; iStored < n && !mIsReadAfter(iStored, n); ++iStored)
            mStore(vpPieces[iStored], iStored);
        if (vpPieces[n] && !mSmooth(*vpPieces[n])) return false;
    }
    for (; iStored < iPieces; ++iStored) mStore(vpPieces[iStored], iStored);
    return true;
}

/// Overlaps are read from what is not yet smoothed. A wide kernel reaches over several pieces.
bool CTomoSmoothImpl::mIsReadAfter(int iPiece, int iTaken) const
{
    const CSplitVolumeX& rSplit = m_aSplitVolumeX;
    if (iTaken + 1 >= rSplit.GetNumSplits()) return false;
    const int iReadFrom = rSplit.GetStartX(iTaken + 1) - rSplit.GetOverlapLeft(iTaken + 1);
    return iReadFrom < rSplit.GetStartX(iPiece) + rSplit.GetSizeX(iPiece);
}

void CTomoSmoothImpl::mStore(std::unique_ptr<Util_Volume>& rpPiece, int n)
{
    if (rpPiece) m_aSplitVolumeX.AssembleNthSplit(*rpPiece, n);
    rpPiece.reset();
}

bool CTomoSmoothImpl::mCopyKernelToDevice(const Util_Volume& rKernel)
{
    if (!m_aKernelArray.Create(rKernel.GetSizeX(), rKernel.GetSizeY(), rKernel.GetSizeZ()) ||
        !m_aKernelArray.HostToDevice(rKernel.GetData()))
        return false;
    m_aGSmooth.SetGaussianArray(m_aKernelArray.GetImage());
    return true;
}

bool CTomoSmoothImpl::mMakeImages(int iX, int iY, int iZ)
{
    m_aPitchedPtr.Free();
    return m_aVolumeArray.Create(iX, iY, iZ) && m_aPitchedPtr.Create(iX, iY, iZ);
}

bool CTomoSmoothImpl::mSmooth(Util_Volume& rPiece)
{
    if (!mMakeImages(rPiece.GetSizeX(), rPiece.GetSizeY(), rPiece.GetSizeZ()) ||
        !m_aVolumeArray.HostToDevice(rPiece.GetData()))
        return false;
    m_aGSmooth.SetVolumeArray(m_aVolumeArray.GetImage());
    return m_aGSmooth.DoIt(m_aPitchedPtr.GetImage()) && m_aPitchedPtr.ToHost(rPiece.GetData());
}
