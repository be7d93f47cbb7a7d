#include <algorithm>
#include <ranges>

#include "tests/softcuda/Runtime.h"

// Streams and events: who runs when.

namespace SoftCuda
{
void Device::RunOne(CUstream_st& rStream)
{
    const std::function<void()> fRun = std::move(rStream.aQueue.front());
    rStream.aQueue.pop_front();
    fRun();
}

void Device::RunOthers(const CUstream_st* pStream)
{
    if (g_eOrder != EOrder::eOthersFirst || std::exchange(bRunningOthers, true)) return;
    for (CUstream_st* pOther : vpStreams)
        while (pOther != pStream && !pOther->aQueue.empty()) RunOne(*pOther);
    bRunningOthers = false;
}

cudaError_t Device::Drain(CUstream_st& rStream)
{
    RunOthers(&rStream);
    while (!rStream.aQueue.empty()) RunOne(rStream);
    return eSticky;
}

cudaError_t Device::RunUntil(const std::shared_ptr<Record>& pRecord)
{
    if (pRecord && !pRecord->bDone) RunOthers(pRecord->pStream);
    while (pRecord && !pRecord->bDone) RunOne(*pRecord->pStream);
    return eSticky;
}

cudaError_t Device::Synchronize()
{
    // The newest stream first: a producer was usually created before its consumer, and a consumer
    // that does not wait shall be seen here too.
    for (CUstream_st* pStream : vpStreams | std::views::reverse)
        while (!pStream->aQueue.empty()) RunOne(*pStream);
    return eSticky;
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaDeviceSynchronize()
{
    return Call(__func__, [](Device& rDevice) { return rDevice.Synchronize(); });
}

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned int flags)
{
    const auto Work = [=](Device& rDevice)
    {
        if (flags != cudaStreamNonBlocking) return cudaErrorInvalidValue;
        *stream = rDevice.Keep(EKind::eStream, 0, std::make_shared<CUstream_st>());
        rDevice.vpStreams.push_back(*stream);
        return cudaSuccess;
    };
    return Call(__func__, Work);
}

cudaError_t cudaStreamDestroy(cudaStream_t stream)
{
    const auto Work = [=](Device& rDevice)
    {
        rDevice.Drain(*stream);  // its work is still done, at some time
        std::erase(rDevice.vpStreams, stream);
        return rDevice.Remove(stream);
    };
    return CallWith(EKind::eStream, stream, __func__, Work, true);
}

cudaError_t cudaStreamSynchronize(cudaStream_t stream)
{
    const auto Work = [=](Device& rDevice) { return rDevice.Drain(*stream); };
    return CallWith(EKind::eStream, stream, __func__, Work);
}

cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int)
{
    const auto Work = [=](Device& rDevice)
    {
        if (!rDevice.Find(EKind::eEvent, event)) return cudaErrorInvalidResourceHandle;
        // The event may be recorded anew before this wait runs: it waits for this record.
        const auto Wait = [&rDevice, pRecord = event->pRecord] { rDevice.RunUntil(pRecord); };
        stream->aQueue.push_back(Wait);
        return cudaSuccess;
    };
    return CallWith(EKind::eStream, stream, __func__, Work);
}

cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags)
{
    const auto Work = [=](Device& rDevice)
    {
        *event = rDevice.Keep(EKind::eEvent, 0, std::make_shared<CUevent_st>(flags));
        return cudaSuccess;
    };
    return Call(__func__, Work);
}

cudaError_t cudaEventDestroy(cudaEvent_t event)
{
    const auto Work = [=](Device& rDevice) { return rDevice.Remove(event); };
    return CallWith(EKind::eEvent, event, __func__, Work, true);
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream)
{
    const auto Work = [=](Device& rDevice)
    {
        if (!rDevice.Find(EKind::eEvent, event)) return cudaErrorInvalidResourceHandle;
        const auto pRecord = event->pRecord = std::make_shared<Record>(stream);
        const auto Mark = [=]
        {
            pRecord->aTime = std::chrono::steady_clock::now();
            pRecord->bDone = true;
        };
        stream->aQueue.push_back(Mark);
        return cudaSuccess;
    };
    return CallWith(EKind::eStream, stream, __func__, Work);
}

cudaError_t cudaEventSynchronize(cudaEvent_t event)
{
    const auto Work = [=](Device& rDevice) { return rDevice.RunUntil(event->pRecord); };
    return CallWith(EKind::eEvent, event, __func__, Work);
}

cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end)
{
    const auto Work = [=](Device&)
    {
        for (const cudaEvent_t pEvent : {start, end})
            if ((pEvent->uiFlags & cudaEventDisableTiming) != 0 || !pEvent->pRecord)
                return cudaErrorInvalidResourceHandle;
        if (!start->pRecord->bDone || !end->pRecord->bDone) return cudaErrorNotReady;
        const auto aTime = end->pRecord->aTime - start->pRecord->aTime;
        *ms = std::chrono::duration<float, std::milli>(aTime).count();
        return cudaSuccess;
    };
    return CallWith(EKind::eEvent, start, __func__, Work);
}
