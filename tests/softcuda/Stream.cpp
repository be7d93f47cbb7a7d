#include <algorithm>
#include <chrono>
#include <deque>
#include <ranges>
#include <utility>

#include "tests/softcuda/Runtime.h"

// Streams and events: who runs when.

namespace SoftCuda
{
/// A place in a stream: what an event remembers of its last cudaEventRecord.
struct Record
{
    CUstream_st* pStream = nullptr;  // valid while !bDone
    bool bDone = false;
    std::chrono::steady_clock::time_point aTime;
};
}  // namespace SoftCuda

struct CUstream_st : SoftCuda::Counted
{
    std::deque<std::function<void()>> aQueue;
};
struct CUevent_st : SoftCuda::Counted
{
    bool bTimed;
    std::shared_ptr<SoftCuda::Record> pRecord;  // null: never recorded
};

namespace SoftCuda
{
cudaError_t Enqueue(const char* pcCall, cudaStream_t pStream, std::function<void()> fRun,
                    bool bAlways)
{
    const cudaError_t eError = Begin(pcCall);
    if (eError != cudaSuccess) return eError;
    if (std::ranges::count(Current().vpStreams, pStream) == 0) return cudaErrorInvalidValue;
    pStream->aQueue.push_back(
        [=, &rDevice = Current()]
        {
            if (bAlways || rDevice.eSticky == cudaSuccess) fRun();
        });
    return cudaSuccess;
}

void Device::Run(CUstream_st& rStream, const Record* pUntil)
{
    if (g_aSettings.eOrder == EOrder::eOthersFirst && !std::exchange(bRunningOthers, true))
    {
        for (CUstream_st* pOther : vpStreams)
            if (pOther != &rStream) Run(*pOther);
        bRunningOthers = false;
    }
    while (!rStream.aQueue.empty() && !(pUntil && pUntil->bDone))
    {
        const std::function<void()> fRun = std::move(rStream.aQueue.front());
        rStream.aQueue.pop_front();
        fRun();
    }
}

void Device::WaitFor(const std::shared_ptr<Record>& pRecord)
{
    if (pRecord && !pRecord->bDone) Run(*pRecord->pStream, pRecord.get());
}

void Device::Synchronize()
{
    // The newest stream first: a producer was usually created before its consumer, and a consumer
    // that does not wait shall be seen here too.
    for (CUstream_st* pStream : vpStreams | std::views::reverse) Run(*pStream);
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaDeviceSynchronize()
{
    return Call(__func__, [](Device& rDevice) { rDevice.Synchronize(); });
}

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned int)
{
    return Call(__func__,
                [=](Device& rDevice) { rDevice.vpStreams.push_back(*stream = new CUstream_st); });
}

cudaError_t cudaStreamDestroy(cudaStream_t stream)
{
    Current().Run(*stream);  // its work is still done, at some time
    if (std::erase(Current().vpStreams, stream) == 0) return cudaErrorInvalidValue;
    delete stream;
    return cudaSuccess;
}

cudaError_t cudaStreamSynchronize(cudaStream_t stream)
{
    return Call(__func__, [=](Device& rDevice) { rDevice.Run(*stream); });
}

cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int)
{
    return Enqueue(__func__, stream,
                   [&rDevice = Current(), pRecord = event->pRecord] { rDevice.WaitFor(pRecord); });
}

cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags)
{
    const bool bTimed = (flags & cudaEventDisableTiming) == 0;
    return Call(__func__, [=](Device&) { *event = new CUevent_st{{}, bTimed, nullptr}; });
}

cudaError_t cudaEventDestroy(cudaEvent_t event)
{
    delete event;
    return cudaSuccess;
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream)
{
    const auto pRecord = event->pRecord = std::make_shared<Record>(stream);
    const auto Mark = [=]
    {
        pRecord->aTime = std::chrono::steady_clock::now();
        pRecord->bDone = true;
    };
    return Enqueue(__func__, stream, Mark);
}

cudaError_t cudaEventSynchronize(cudaEvent_t event)
{
    return Call(__func__, [=](Device& rDevice) { rDevice.WaitFor(event->pRecord); });
}

/// The device gets on with its work between every other two questions.
cudaError_t cudaEventQuery(cudaEvent_t event)
{
    Device& rDevice = Current();
    const cudaError_t eError = Begin(__func__);
    if (eError != cudaSuccess) return eError;
    if (rDevice.bAsked = !rDevice.bAsked; !rDevice.bAsked) rDevice.WaitFor(event->pRecord);
    return !event->pRecord || event->pRecord->bDone ? cudaSuccess : cudaErrorNotReady;
}

cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end)
{
    if (!start->bTimed || !end->bTimed) return cudaErrorInvalidValue;
    *ms = std::chrono::duration<float, std::milli>(end->pRecord->aTime - start->pRecord->aTime)
              .count();
    return cudaSuccess;
}
