#pragma once

#include <condition_variable>
#include <mutex>

class Util_Volume;

/// The host volume of a job as all workers see it, with the rendezvous that keeps them in step.
///
/// Each worker writes its own Y rows only. The volume is borrowed.
class CTomoVolume
{
public:
    CTomoVolume() = default;
    CTomoVolume(Util_Volume* pVolume, int iNumDevices) { Set(pVolume, iNumDevices); }
    CTomoVolume(const CTomoVolume&) = delete;
    CTomoVolume& operator=(const CTomoVolume&) = delete;

    /// Binds a volume and the number of workers; clears the rendezvous and an abort.
    void Set(Util_Volume* pVolume, int iNumDevices);
    Util_Volume* GetVolume() const { return m_pVolume; }
    const int* GetSize() const { return m_piSize; }  ///< X, Y, Z of the volume, null without one

    /// Arrival; the last one sets the flag and wakes the others, any other clears it.
    void NotifyDone();
    /// Waits once for the last arrival, unless the flag is set already.
    void WaitAllDone();

    /// Arrival and wait as one step: returns when all workers have arrived.
    /// \return false when the job was aborted; the workers then end without further rendezvous
    [[nodiscard]] bool Rendezvous();
    /// Releases every worker that waits or will wait; a worker that fails calls it.
    void Abort();
    /// Makes the rendezvous ready for a new job with the same volume and workers.
    void Reset();

private:
    Util_Volume* m_pVolume = nullptr;
    const int* m_piSize = nullptr;
    std::condition_variable m_aCond;
    std::mutex m_aMutex;  // guards all below
    int m_iNumDevices = 0;
    int m_iDoneDevices = 0;
    bool m_bAllDone = false;
    bool m_bAborted = false;
    int m_iArrived = 0;                // at the current Rendezvous()
    unsigned long m_ulGeneration = 0;  // rendezvous completed
};
