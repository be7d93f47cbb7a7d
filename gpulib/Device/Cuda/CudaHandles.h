#pragma once

#include <cuda_runtime.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "gpulib/Device/Cuda/CudaCheck.h"

// Owners of what the CUDA runtime hands out. Each belongs to the device that was selected when it
// was made; errors while freeing have no one to go to and are dropped.

template <auto DESTROY>
struct CudaDeleter
{
    template <class T>
    void operator()(T* pHandle) const
    {
        static_cast<void>(DESTROY(pHandle));
    }
};

using CudaStream =
    std::unique_ptr<std::remove_pointer_t<cudaStream_t>, CudaDeleter<cudaStreamDestroy>>;
using CudaEvent =
    std::unique_ptr<std::remove_pointer_t<cudaEvent_t>, CudaDeleter<cudaEventDestroy>>;
using PinnedBlock = std::unique_ptr<void, CudaDeleter<cudaFreeHost>>;

/// A stream that does not wait for others by itself. \return false with the reason noted
[[nodiscard]] inline bool MakeStream(CudaStream& rStream)
{
    cudaStream_t pStream = nullptr;
    if (!CudaOk(cudaStreamCreateWithFlags(&pStream, cudaStreamNonBlocking), "create stream"))
        return false;
    rStream.reset(pStream);
    return true;
}

[[nodiscard]] inline bool MakeEvent(CudaEvent& rEvent,
                                    unsigned int uiFlags = cudaEventDisableTiming)
{
    cudaEvent_t pEvent = nullptr;
    if (!CudaOk(cudaEventCreateWithFlags(&pEvent, uiFlags), "create event")) return false;
    rEvent.reset(pEvent);
    return true;
}

/// Freed memory stays with the program up to a size that transforms and comparisons need again with
/// every command. \return false with the reason noted
[[nodiscard]] inline bool KeepFreedMemory(int iDevice)
{
    std::uint64_t uiKept = std::uint64_t(512) << 20;
    cudaMemPool_t pPool = nullptr;
    return CudaOk(cudaDeviceGetDefaultMemPool(&pPool, iDevice), "find memory pool") &&
           CudaOk(cudaMemPoolSetAttribute(pPool, cudaMemPoolAttrReleaseThreshold, &uiKept),
                  "set up memory pool");
}

/// Linear device memory that grows when more is asked for; the content is lost then.
class CCudaBuffer
{
public:
    [[nodiscard]] bool Reserve(std::size_t tBytes)
    {
        if (tBytes <= m_tBytes) return true;
        Free();
        void* pvData = nullptr;
        if (!CudaOk(cudaMalloc(&pvData, tBytes), "allocate %zu MiB", tBytes >> 20)) return false;
        m_pvData.reset(pvData);
        m_tBytes = tBytes;
        return true;
    }
    void Free()
    {
        m_pvData.reset();
        m_tBytes = 0;
    }
    std::size_t GetBytes() const { return m_tBytes; }
    float* GetFloats() const { return static_cast<float*>(m_pvData.get()); }

private:
    std::unique_ptr<void, CudaDeleter<cudaFree>> m_pvData;
    std::size_t m_tBytes = 0;
};
