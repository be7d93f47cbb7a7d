#include "gpulib/Device/Cuda/CudaClock.h"

#include <utility>

namespace
{
thread_local CCudaClock* t_pClock = nullptr;
}

CCudaClock::CCudaClock()
{
    t_pClock = this;
}

CCudaClock::~CCudaClock()
{
    t_pClock = nullptr;
}

bool CCudaClock::Take(Totals& rTotals)
{
    rTotals = std::exchange(m_aHost, {});
    const std::vector<Span> vSpans = std::exchange(m_vSpans, {});
    if (std::exchange(m_bBroken, false)) return false;
    for (const Span& rSpan : vSpans)
    {
        float fMilliseconds = 0;
        if (!CudaOk(cudaEventSynchronize(rSpan.pEnd.get()), "clock: wait") ||
            !CudaOk(cudaEventElapsedTime(&fMilliseconds, rSpan.pBegin.get(), rSpan.pEnd.get()),
                    "clock: time of %s", rSpan.pcName))
            return false;
        Total& rTotal = rTotals[rSpan.pcName];
        rTotal.dSeconds += 1e-3 * double(fMilliseconds);
        ++rTotal.iCount;
    }
    return true;
}

bool CCudaClock::mMark(CudaEvent& rEvent, cudaStream_t pStream)
{
    return MakeEvent(rEvent, cudaEventDefault) &&
           CudaOk(cudaEventRecord(rEvent.get(), pStream), "clock: record");
}

CDeviceSpan::CDeviceSpan(const char* pcName, cudaStream_t pStream) : m_pStream(pStream)
{
    if (!t_pClock || t_pClock->m_bBroken) return;
    t_pClock->m_vSpans.push_back({pcName, {}, {}});
    t_pClock->m_bBroken = !CCudaClock::mMark(t_pClock->m_vSpans.back().pBegin, pStream);
}

CDeviceSpan::~CDeviceSpan()
{
    if (!t_pClock || t_pClock->m_bBroken || t_pClock->m_vSpans.empty()) return;
    t_pClock->m_bBroken = !CCudaClock::mMark(t_pClock->m_vSpans.back().pEnd, m_pStream);
}

CHostSpan::CHostSpan(const char* pcName) : m_pcName(pcName)
{
    if (t_pClock) m_aBegin = std::chrono::steady_clock::now();
}

CHostSpan::~CHostSpan()
{
    if (!t_pClock) return;
    CCudaClock::Total& rTotal = t_pClock->m_aHost[m_pcName];
    const auto aTime = std::chrono::steady_clock::now() - m_aBegin;
    rTotal.dSeconds += std::chrono::duration<double>(aTime).count();
    ++rTotal.iCount;
}
