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
}

void CDevice::Mark(CUstream_st& rStream, CUevent_st& rEvent)
{
    rEvent.pRecord = std::make_shared<Record>();
    rEvent.pRecord->pStream = &rStream;
    rStream.aQueue.push_back({{}, rEvent.pRecord});
}

cudaStream_t CDevice::AddStream()
{
    m_vStreams.push_back(std::make_shared<CUstream_st>());
    Sys().aOwners.Add({EKind::eStream, 1, this, m_vStreams.back()});
    return m_vStreams.back().get();
}

void CDevice::DestroyStream(cudaStream_t pStream)
{
    Drain(*pStream);  // its work is still done, at some time
    Sys().aOwners.Remove(pStream);
    std::erase_if(m_vStreams, [=](const auto& pOther) { return pOther.get() == pStream; });
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* pStream, unsigned int flags)
{
    const auto Work = [&](CDevice& rDevice)
    {
        if (flags != cudaStreamNonBlocking) return cudaErrorNotSupported;  // here
        *pStream = rDevice.AddStream();
        return cudaSuccess;
    };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaStreamDestroy(cudaStream_t stream)
{
    const auto Work = [=](CDevice& rDevice) { rDevice.DestroyStream(stream); };
    return Call(__func__, stream ? OwnerOf(stream) : nullptr, Work, true);
}

cudaError_t cudaStreamSynchronize(cudaStream_t stream)
{
    return Call(__func__, OwnerOf(stream),
                [=](CDevice& rDevice) { rDevice.Drain(rDevice.GetStream(stream)); });
}

cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int flags)
{
    const auto Work = [=](CDevice& rDevice)
    {
        if (!OwnerOf(event)) return cudaErrorInvalidResourceHandle;
        if (OwnerOf(event) != &rDevice || flags != 0) return cudaErrorNotSupported;  // here
        // The event may be recorded anew before this wait runs: it waits for this record.
        rDevice.Enqueue(rDevice.GetStream(stream),
                        [&rDevice, pRecord = event->pRecord] { rDevice.RunUntil(pRecord); });
        return cudaSuccess;
    };
    return Call(__func__, OwnerOf(stream), Work);
}

cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags)
{
    const auto Work = [=](CDevice& rDevice)
    {
        if (flags > (cudaEventDisableTiming | cudaEventBlockingSync)) return cudaErrorInvalidValue;
        const auto pEvent = std::make_shared<CUevent_st>();
        pEvent->bTiming = !(flags & cudaEventDisableTiming);
        Sys().aOwners.Add({EKind::eEvent, 1, &rDevice, pEvent});
        *event = pEvent.get();
        return cudaSuccess;
    };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaEventDestroy(cudaEvent_t event)
{
    return Call(
        __func__, OwnerOf(event), [=](CDevice&) { Sys().aOwners.Remove(event); }, true);
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream)
{
    const auto Work = [=](CDevice& rDevice)
    {
        if (OwnerOf(event) != &rDevice) return cudaErrorInvalidResourceHandle;
        rDevice.Mark(rDevice.GetStream(stream), *event);
        return cudaSuccess;
    };
    return Call(__func__, OwnerOf(stream), Work);
}

cudaError_t cudaEventSynchronize(cudaEvent_t event)
{
    return Call(__func__, OwnerOf(event),
                [=](CDevice& rDevice) { rDevice.RunUntil(event->pRecord); });
}

cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end)
{
    const auto Work = [=](CDevice& rDevice)
    {
        for (const cudaEvent_t pEvent : {start, end})
            if (OwnerOf(pEvent) != &rDevice || !pEvent->bTiming || !pEvent->pRecord)
                return cudaErrorInvalidResourceHandle;
        if (!start->pRecord->bDone || !end->pRecord->bDone) return cudaErrorNotReady;
        const auto aTime = end->pRecord->aTime - start->pRecord->aTime;
        *ms = std::chrono::duration<float, std::milli>(aTime).count();
        return cudaSuccess;
    };
    return Call(__func__, OwnerOf(start), Work);
}
