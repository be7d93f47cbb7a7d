#include <algorithm>

#include "tests/softcuda/Call.h"

// Streams and events: who runs when.

namespace SoftCuda
{
void CDevice::RunOne(CUstream_st& rStream)
{
    const Operation aOp = std::move(rStream.aQueue.front());
    rStream.aQueue.pop_front();
    if (aOp.Run && !IsBroken()) aOp.Run();
    if (!aOp.pRecord) return;
    aOp.pRecord->aTime = std::chrono::steady_clock::now();
    aOp.pRecord->bDone = true;
}

void CDevice::mRunOthers(const CUstream_st& rStream)
{
    if (Sys().eOrder != EOrder::eOthersFirst || m_bRunningOthers) return;
    m_bRunningOthers = true;
    for (const auto& pOther : m_vStreams)
        while (pOther.get() != &rStream && !pOther->aQueue.empty()) RunOne(*pOther);
    m_bRunningOthers = false;
}

void CDevice::Drain(CUstream_st& rStream)
{
    mRunOthers(rStream);
    while (!rStream.aQueue.empty()) RunOne(rStream);
}

void CDevice::RunUntil(const std::shared_ptr<Record>& pRecord)
{
    if (!pRecord || pRecord->bDone) return;
    mRunOthers(*pRecord->pStream);
    while (!pRecord->bDone) RunOne(*pRecord->pStream);
}

void CDevice::Synchronize()
{
    // The newest stream first: a producer was usually created before its consumer, and a consumer
    // that does not wait shall be seen here too.
    for (auto iStream = m_vStreams.rbegin(); iStream != m_vStreams.rend(); ++iStream)
        while (!(*iStream)->aQueue.empty()) RunOne(**iStream);
    std::erase_if(m_vStreams, [](const auto& pStream) { return pStream->bDestroyed; });
}

void CDevice::Mark(CUstream_st& rStream, CUevent_st& rEvent)
{
    rEvent.pRecord = std::make_shared<Record>();
    rEvent.pRecord->pStream = &rStream;
    mPush(rStream, {{}, rEvent.pRecord});
}

cudaStream_t CDevice::AddStream()
{
    m_vStreams.push_back(std::make_unique<CUstream_st>());
    Sys().aHandles.Add(m_vStreams.back().get(), this);
    return m_vStreams.back().get();
}

void CDevice::DestroyStream(cudaStream_t pStream)
{
    Sys().aHandles.Remove(pStream);
    pStream->bDestroyed = true;  // its work is still done, at some time
    std::erase_if(m_vStreams,
                  [](const auto& pOld) { return pOld->bDestroyed && pOld->aQueue.empty(); });
}

cudaEvent_t CDevice::AddEvent(bool bTiming)
{
    m_vEvents.push_back(std::make_unique<CUevent_st>());
    m_vEvents.back()->bTiming = bTiming;
    Sys().aHandles.Add(m_vEvents.back().get(), this);
    return m_vEvents.back().get();
}

void CDevice::DestroyEvent(cudaEvent_t pEvent)
{
    Sys().aHandles.Remove(pEvent);
    std::erase_if(m_vEvents, [=](const auto& pOther) { return pOther.get() == pEvent; });
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* pStream, unsigned int flags)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice)
                    {
                        if (flags != cudaStreamNonBlocking)
                            return cudaErrorNotSupported;  // by this runtime
                        *pStream = rDevice.AddStream();
                        return cudaSuccess;
                    });
}

cudaError_t cudaStreamDestroy(cudaStream_t stream)
{
    return OnDevice(
        __func__, OwnerOf(stream),
        [&](CDevice& rDevice)
        {
            rDevice.DestroyStream(stream);
            return cudaSuccess;
        },
        EBroken::eRelease);
}

cudaError_t cudaStreamSynchronize(cudaStream_t stream)
{
    return OnDevice(__func__, OwnerOfStream(stream),
                    [&](CDevice& rDevice)
                    {
                        rDevice.Drain(rDevice.GetStream(stream));
                        return cudaSuccess;
                    });
}

cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int flags)
{
    return OnDevice(__func__, OwnerOfStream(stream),
                    [&](CDevice& rDevice)
                    {
                        if (!OwnerOf(event)) return cudaErrorInvalidResourceHandle;
                        if (OwnerOf(event) != &rDevice)
                            return cudaErrorNotSupported;  // by this runtime
                        if (flags != 0) return cudaErrorInvalidValue;
                        // The event may be recorded anew before this wait runs: it waits for this
                        // record.
                        rDevice.Enqueue(rDevice.GetStream(stream),
                                        [&rDevice, pRecord = event->pRecord]
                                        { rDevice.RunUntil(pRecord); });
                        return cudaSuccess;
                    });
}

cudaError_t cudaEventCreate(cudaEvent_t* event)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice)
                    {
                        *event = rDevice.AddEvent(true);
                        return cudaSuccess;
                    });
}

cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice)
                    {
                        if (flags > (cudaEventDisableTiming | cudaEventBlockingSync))
                            return cudaErrorInvalidValue;
                        *event = rDevice.AddEvent(!(flags & cudaEventDisableTiming));
                        return cudaSuccess;
                    });
}

cudaError_t cudaEventDestroy(cudaEvent_t event)
{
    return OnDevice(
        __func__, OwnerOf(event),
        [&](CDevice& rDevice)
        {
            rDevice.DestroyEvent(event);
            return cudaSuccess;
        },
        EBroken::eRelease);
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream)
{
    return OnDevice(__func__, OwnerOfStream(stream),
                    [&](CDevice& rDevice)
                    {
                        if (OwnerOf(event) != &rDevice) return cudaErrorInvalidResourceHandle;
                        rDevice.Mark(rDevice.GetStream(stream), *event);
                        return cudaSuccess;
                    });
}

cudaError_t cudaEventSynchronize(cudaEvent_t event)
{
    return OnDevice(__func__, OwnerOf(event),
                    [&](CDevice& rDevice)
                    {
                        rDevice.RunUntil(event->pRecord);
                        return cudaSuccess;
                    });
}

cudaError_t cudaEventQuery(cudaEvent_t event)
{
    return OnDevice(
        __func__, OwnerOf(event),
        [&](CDevice& rDevice)
        {
            if (!event->pRecord || event->pRecord->bDone) return cudaSuccess;
            rDevice.RunOne(*event->pRecord->pStream);  // a loop of queries comes to an end
            return cudaErrorNotReady;
        });
}

cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end)
{
    return OnDevice(__func__, OwnerOf(start),
                    [&](CDevice& rDevice)
                    {
                        if (OwnerOf(end) != &rDevice || !start->bTiming || !end->bTiming ||
                            !start->pRecord || !end->pRecord)
                            return cudaErrorInvalidResourceHandle;
                        if (!start->pRecord->bDone || !end->pRecord->bDone)
                            return cudaErrorNotReady;
                        const auto aTime = end->pRecord->aTime - start->pRecord->aTime;
                        *ms = std::chrono::duration<float, std::milli>(aTime).count();
                        return cudaSuccess;
                    });
}
