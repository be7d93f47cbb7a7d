#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "tests/softcuda/SoftCuda.h"

namespace SoftCuda
{
enum class EKind;

/// A place in a stream: what an event remembers of its last cudaEventRecord.
struct Record
{
    CUstream_st* pStream = nullptr;  // valid while !bDone
    bool bDone = false;
    std::chrono::steady_clock::time_point aTime;
};

struct Operation
{
    std::function<void()> Run;        // may be empty
    std::shared_ptr<Record> pRecord;  // is done after this operation; may be null
};
}  // namespace SoftCuda

struct CUstream_st
{
    std::deque<SoftCuda::Operation> aQueue;
};

struct CUevent_st
{
    bool bTiming = false;
    std::shared_ptr<SoftCuda::Record> pRecord;  // null: never recorded
};

struct cudaArray
{
    std::vector<unsigned char> vuTexels;  // [layer][y][x], no padding
    cudaChannelFormatDesc aFormat{};
    std::size_t tElement = 0;  // bytes
    cudaExtent aSize{};        // elements, none is 0
    unsigned int uFlags = 0;
};

namespace SoftCuda
{
/// A texture or surface object.
struct Object
{
    cudaArray* pArray = nullptr;  // null: the array was freed
    bool bLive = false;
    bool bTexture = false;
    bool bLinear = false;
};

/// One device: memory, streams, objects. All but Break and its queries under GetMutex().
class CDevice
{
public:
    CDevice();
    CDevice(const CDevice&) = delete;
    CDevice& operator=(const CDevice&) = delete;
    ~CDevice() { Forget(); }
    std::mutex& GetMutex() { return m_aMutex; }

    // Errors that stay.
    void Break(cudaError_t eError);
    cudaError_t GetSticky() const { return m_eSticky; }
    bool IsBroken() const { return m_eSticky != cudaSuccess; }

    // Streams.
    CUstream_st& GetStream(cudaStream_t pStream) { return pStream ? *pStream : *m_vStreams[0]; }
    void Enqueue(CUstream_st& rStream, std::function<void()> Run)
    {
        rStream.aQueue.push_back({std::move(Run), {}});
    }
    void Mark(CUstream_st& rStream, CUevent_st& rEvent);
    void Drain(CUstream_st& rStream);
    void RunUntil(const std::shared_ptr<Record>& pRecord);  ///< null: nothing to wait for
    void RunOne(CUstream_st& rStream);                      ///< its queue is not empty
    void Synchronize();
    cudaStream_t AddStream();
    void DestroyStream(cudaStream_t pStream);

    // Memory. New memory holds 0xFF bytes: quiet NaNs. Freeing waits for the device.
    void* Allocate(EKind eKind, std::size_t tBytes);            ///< null: the device is full
    bool Holds(const void* pvFirst, std::size_t tBytes) const;  ///< within one allocation
    cudaArray_t AddArray(const cudaArray& rShape);              ///< null: the device is full
    void Free(const void* pvBegin, std::size_t tBytes);         ///< tBytes: of the device

    // Texture and surface objects; a handle is never used twice.
    unsigned long long AddObject(const Object& rObject);
    Object* FindObject(unsigned long long uHandle, bool bTexture);  ///< null: no such, or dead

    void Forget();  ///< frees all, drops the work, takes the errors and counts back
    int CountObjects() const;
    std::size_t GetUsed() const { return m_tUsed; }
    std::size_t GetPeak() const { return m_tPeak; }

    // Settings and counts, changed while no other thread calls the runtime.
    std::size_t m_tMemory = 0;
    int m_iCapability = 0;
    std::atomic<int> m_iLaunches = 0;

private:
    void mRunOthers(const CUstream_st& rStream);
    bool mTake(std::size_t tBytes);

    std::mutex m_aMutex;
    std::atomic<cudaError_t> m_eSticky = cudaSuccess;
    std::vector<std::shared_ptr<CUstream_st>> m_vStreams;  // the first: the default stream
    std::vector<Object> m_vObjects;
    std::size_t m_tUsed = 0, m_tPeak = 0;
    bool m_bRunningOthers = false;
};
}  // namespace SoftCuda
