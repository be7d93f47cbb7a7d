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
    Sys().aOwners.Add(EKind::eStream, m_vStreams.back().get(), 1, this);
    return m_vStreams.back().get();
}

void CDevice::DestroyStream(cudaStream_t pStream)
{
    Sys().aOwners.Remove(pStream);
    pStream->bDestroyed = true;  // its work is still done, at some time
    std::erase_if(m_vStreams,
                  [](const auto& pOld) { return pOld->bDestroyed && pOld->aQueue.empty(); });
}

cudaEvent_t CDevice::AddEvent(bool bTiming)
{
    m_vEvents.push_back(std::make_unique<CUevent_st>());
    m_vEvents.back()->bTiming = bTiming;
    Sys().aOwners.Add(EKind::eEvent, m_vEvents.back().get(), 1, this);
    return m_vEvents.back().get();
}

void CDevice::DestroyEvent(cudaEvent_t pEvent)
{
    Sys().aOwners.Remove(pEvent);
    std::erase_if(m_vEvents, [=](const auto& pOther) { return pOther.get() == pEvent; });
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* pStream, unsigned int flags)
{
    const CCall aCall(__func__, Current());
    if (aCall.IsRefused()) return aCall.End();
    if (flags != cudaStreamNonBlocking) return aCall.End(cudaErrorNotSupported);  // here
    *pStream = aCall->AddStream();
    return aCall.End();
}

cudaError_t cudaStreamDestroy(cudaStream_t stream)
{
    const CCall aCall(__func__, stream ? OwnerOf(stream) : nullptr, true);
    if (!aCall.IsRefused()) aCall->DestroyStream(stream);
    return aCall.End();
}

cudaError_t cudaStreamSynchronize(cudaStream_t stream)
{
    const CCall aCall(__func__, OwnerOf(stream));
    if (!aCall.IsRefused()) aCall->Drain(aCall->GetStream(stream));
    return aCall.End();
}

cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int flags)
{
    const CCall aCall(__func__, OwnerOf(stream));
    if (aCall.IsRefused()) return aCall.End();
    if (!OwnerOf(event)) return aCall.End(cudaErrorInvalidResourceHandle);
    if (OwnerOf(event) != &*aCall) return aCall.End(cudaErrorNotSupported);  // here
    if (flags != 0) return aCall.End(cudaErrorInvalidValue);
    // The event may be recorded anew before this wait runs: it waits for this record.
    aCall->Enqueue(aCall->GetStream(stream),
                   [pDevice = &*aCall, pRecord = event->pRecord] { pDevice->RunUntil(pRecord); });
    return aCall.End();
}

cudaError_t cudaEventCreate(cudaEvent_t* event)
{
    const CCall aCall(__func__, Current());
    if (!aCall.IsRefused()) *event = aCall->AddEvent(true);
    return aCall.End();
}

cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags)
{
    const CCall aCall(__func__, Current());
    if (aCall.IsRefused()) return aCall.End();
    if (flags > (cudaEventDisableTiming | cudaEventBlockingSync))
        return aCall.End(cudaErrorInvalidValue);
    *event = aCall->AddEvent(!(flags & cudaEventDisableTiming));
    return aCall.End();
}

cudaError_t cudaEventDestroy(cudaEvent_t event)
{
    const CCall aCall(__func__, OwnerOf(event), true);
    if (!aCall.IsRefused()) aCall->DestroyEvent(event);
    return aCall.End();
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream)
{
    const CCall aCall(__func__, OwnerOf(stream));
    if (aCall.IsRefused()) return aCall.End();
    if (OwnerOf(event) != &*aCall) return aCall.End(cudaErrorInvalidResourceHandle);
    aCall->Mark(aCall->GetStream(stream), *event);
    return aCall.End();
}

cudaError_t cudaEventSynchronize(cudaEvent_t event)
{
    const CCall aCall(__func__, OwnerOf(event));
    if (!aCall.IsRefused()) aCall->RunUntil(event->pRecord);
    return aCall.End();
}

cudaError_t cudaEventQuery(cudaEvent_t event)
{
    const CCall aCall(__func__, OwnerOf(event));
    if (aCall.IsRefused() || !event->pRecord || event->pRecord->bDone) return aCall.End();
    aCall->RunOne(*event->pRecord->pStream);  // a loop of queries comes to an end
    return aCall.End(cudaErrorNotReady);
}

cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end)
{
    const CCall aCall(__func__, OwnerOf(start));
    if (aCall.IsRefused()) return aCall.End();
    for (const cudaEvent_t pEvent : {start, end})
        if (OwnerOf(pEvent) != &*aCall || !pEvent->bTiming || !pEvent->pRecord)
            return aCall.End(cudaErrorInvalidResourceHandle);
    if (!start->pRecord->bDone || !end->pRecord->bDone) return aCall.End(cudaErrorNotReady);
    const auto aTime = end->pRecord->aTime - start->pRecord->aTime;
    *ms = std::chrono::duration<float, std::milli>(aTime).count();
    return aCall.End();
}
