#pragma once

#include <cstddef>
#include <memory>

#include "gpulib/App/Smooth/SplitVolumeX.h"

class Util_Volume;

/// One worker's part in smoothing the volume that all workers share.
///
/// A pass is DoIt(), a rendezvous of all workers, Assemble(), and another rendezvous. Each worker
/// smooths its piece along X in a copy of its own; the result does not depend on their number.
/// Without a kernel nothing happens.
class CTomoSmooth
{
public:
    CTomoSmooth();
    ~CTomoSmooth();
    CTomoSmooth(const CTomoSmooth&) = delete;
    CTomoSmooth& operator=(const CTomoSmooth&) = delete;

    void SetVolume(Util_Volume* pVolume) { m_pVolume = pVolume; }        ///< borrowed
    void SetKernel(const Util_Volume* pKernel) { m_pKernel = pKernel; }  ///< borrowed; may be null
    /// \param iNumDevices  workers, each with one piece
    /// \param iDeviceID    device of this worker
    /// \param iThreadID    number of this worker, from 0: its piece
    void SetDeviceInfo(int iNumDevices, int iDeviceID, int iThreadID);

    /// Smooths this worker's piece of the volume, which is only read.
    /// \return false with the reason noted (TakeDeviceError)
    [[nodiscard]] bool DoIt();
    /// Writes the piece into the volume and releases it.
    void Assemble();

    /// Memory that all workers together take for one pass, host and devices.
    /// \param piVolSize  X, Y, Z
    static std::size_t GetBytes(const int* piVolSize, int iKernelX, int iWorkers, int iDeviceID);

private:
    Util_Volume* m_pVolume = nullptr;
    const Util_Volume* m_pKernel = nullptr;
    int m_iNumDevices = 1;
    int m_iDeviceID = 0;
    int m_iThreadID = 0;
    CSplitVolumeX m_aSplitVolumeX;
    std::unique_ptr<Util_Volume> m_pSplitVol;  // between DoIt() and Assemble()
};
