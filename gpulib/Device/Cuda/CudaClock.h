#pragma once

#include <cuda_runtime.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "gpulib/Device/Cuda/CudaHandles.h"

/// Tells where the time of a job goes, for benchmarks.
///
/// While one lives, every launch and copy that its thread queues stands between two events, and
/// what the thread itself does for them is timed on the host. Without one they cost a test of a
/// pointer. The events keep kernels apart that would follow each other closely: times add up to a
/// little more than those of a job without a clock.
class CCudaClock
{
public:
    struct Total
    {
        double dSeconds = 0;
        int iCount = 0;
    };
    using Totals = std::map<std::string, Total>;

    CCudaClock();  ///< of the calling thread, which has none yet
    ~CCudaClock();
    CCudaClock(const CCudaClock&) = delete;
    CCudaClock& operator=(const CCudaClock&) = delete;

    /// Waits for all that was timed and hands over its totals by name: launches by theirs, all else
    /// by those below. The clock goes on from zero. \return false with the reason noted
    [[nodiscard]] bool Take(Totals& rTotals);

private:
    friend class CDeviceSpan;
    friend class CHostSpan;
    struct Span
    {
        const char* pcName;
        CudaEvent pBegin, pEnd;
    };
    static bool mMark(CudaEvent& rEvent, cudaStream_t pStream);
    std::vector<Span> m_vSpans;
    Totals m_aHost;
    bool m_bBroken = false;  // an event could not be recorded
};

// What is timed beside launches.
inline constexpr char g_acToDevice[] = "copy to the device", g_acToHost[] = "copy to the host";
inline constexpr char g_acPack[] = "pack", g_acUnpack[] = "unpack";  // pinned memory, by the host
inline constexpr char g_acWait[] = "wait";                           // of the host

/// Times what its scope queues on a stream.
class CDeviceSpan
{
public:
    /// \param pcName  lives as long as the clock
    CDeviceSpan(const char* pcName, cudaStream_t pStream);
    ~CDeviceSpan();

private:
    cudaStream_t m_pStream;
};

/// Times what the host does in its scope.
class CHostSpan
{
public:
    explicit CHostSpan(const char* pcName);
    ~CHostSpan();

private:
    const char* m_pcName;
    std::chrono::steady_clock::time_point m_aBegin;
};
