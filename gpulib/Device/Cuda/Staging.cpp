#include "gpulib/Device/Cuda/Staging.h"

#include <algorithm>
#include <cstring>

#include "gpulib/Device/DeviceError.h"

namespace
{
/// Calls fRun(pHost, tOffset, tRun) for the pieces of host memory that make up the values [tFirst,
/// tFirst + tCount) of an image in the order [y][lane][x]; tOffset counts from tFirst.
template <class T, class F>
void ForEachRun(const HostRows<T>& rRows, int iWidth, std::size_t tFirst, std::size_t tCount,
                F fRun)
{
    const std::size_t tWidth = iWidth, tSlice = tWidth * rRows.iLanes;
    const bool bWhole = rRows.tStrideLane == tWidth;  // the rows of a batch are neighbours
    for (std::size_t t = 0; t < tCount;)
    {
        const std::size_t tInSlice = (tFirst + t) % tSlice, tX = tInSlice % tWidth;
        T* const pHost = rRows.pData + (tFirst + t) / tSlice * rRows.tStrideY +
                         tInSlice / tWidth * rRows.tStrideLane + tX;
        const std::size_t tRun = std::min(tCount - t, bWhole ? tSlice - tInSlice : tWidth - tX);
        fRun(pHost, t, tRun);
        t += tRun;
    }
}

template <class T>
std::size_t CountValues(const HostRows<T>& rRows, int iWidth, int iHeight)
{
    return std::size_t(iWidth) * iHeight * rRows.iLanes;
}
}  // namespace

bool CStaging::Create(cudaStream_t pCompute)
{
    m_pCompute = pCompute;
    const auto MakeChunk = [](Chunk& rChunk)
    {
        void* pvData = nullptr;
        if (!MakeEvent(rChunk.pCopied) || !CudaOk(cudaMallocHost(&pvData, m_tChunk * sizeof(float)),
                                                  "pin %zu MiB", m_tChunk * sizeof(float) >> 20))
            return false;
        rChunk.pvData.reset(pvData);
        return true;
    };
    for (Chunk& rChunk : m_aUpChunks)
        if (!MakeChunk(rChunk)) return false;
    for (Chunk& rChunk : m_aDownChunks)
        if (!MakeChunk(rChunk)) return false;
    for (Slot& rSlot : m_aSlots)
        if (!MakeEvent(rSlot.pArrived) || !MakeEvent(rSlot.pConsumed)) return false;
    return MakeStream(m_pUp) && MakeStream(m_pDown) && MakeEvent(m_pGathered);
}

void CStaging::Prefetch(const HostRows<const float>& rSource, int iWidth, int iHeight)
{
    Slot* const pSlot = mFindFree(CountValues(rSource, iWidth, iHeight) * sizeof(float));
    if (!pSlot) return;
    pSlot->bFull = mStage(*pSlot, rSource, iWidth, iHeight);
    // The Upload() will try again and say what is wrong.
    if (!pSlot->bFull) static_cast<void>(TakeDeviceError());
}

bool CStaging::Upload(const ImageRegion& rRegion, const HostRows<const float>& rSource)
{
    const int iWidth = rRegion.iWidth, iHeight = rRegion.iHeight;
    Slot* pSlot = mFindPrefetched(rSource, iWidth, iHeight);
    if (!pSlot)
    {
        pSlot = mFindFree(CountValues(rSource, iWidth, iHeight) * sizeof(float));
        if (!pSlot)  // prefetched values that nobody has asked for yet
        {
            pSlot = &m_aSlots[0];
            pSlot->bFull = false;
        }
        if (!mStage(*pSlot, rSource, iWidth, iHeight)) return false;
    }
    pSlot->bFull = false;
    return CudaOk(cudaStreamWaitEvent(m_pCompute, pSlot->pArrived.get(), 0), "upload: wait") &&
           Scatter(rRegion, pSlot->aValues.GetFloats(), m_pCompute) &&
           CudaOk(cudaEventRecord(pSlot->pConsumed.get(), m_pCompute), "upload: record");
}

CStaging::Slot* CStaging::mFindPrefetched(const HostRows<const float>& rSource, int iWidth,
                                          int iHeight)
{
    for (Slot& rSlot : m_aSlots)
        if (rSlot.bFull && rSlot.aSource.pData == rSource.pData &&
            rSlot.aSource.tStrideY == rSource.tStrideY &&
            rSlot.aSource.tStrideLane == rSource.tStrideLane &&
            rSlot.aSource.iLanes == rSource.iLanes && rSlot.iWidth == iWidth &&
            rSlot.iHeight == iHeight)
            return &rSlot;
    return nullptr;
}

/// The smallest free slot that is large enough, or else the smallest one, which will grow.
CStaging::Slot* CStaging::mFindFree(std::size_t tBytes)
{
    Slot* pBest = nullptr;
    const auto IsBetter = [&](const Slot& rSlot)
    {
        const std::size_t tHas = rSlot.aValues.GetBytes(), tBest = pBest->aValues.GetBytes();
        return (tHas >= tBytes) == (tBest >= tBytes) ? tHas < tBest : tHas >= tBytes;
    };
    for (Slot& rSlot : m_aSlots)
        if (!rSlot.bFull && (!pBest || IsBetter(rSlot))) pBest = &rSlot;
    return pBest;
}

bool CStaging::mStage(Slot& rSlot, const HostRows<const float>& rSource, int iWidth, int iHeight)
{
    const std::size_t tValues = CountValues(rSource, iWidth, iHeight);
    rSlot.aSource = rSource;
    rSlot.iWidth = iWidth;
    rSlot.iHeight = iHeight;
    if (!rSlot.aValues.Reserve(tValues * sizeof(float)) ||
        !CudaOk(cudaStreamWaitEvent(m_pUp.get(), rSlot.pConsumed.get(), 0), "stage: wait"))
        return false;
    for (std::size_t t = 0; t < tValues; t += m_tChunk)
    {
        Chunk& rChunk = m_aUpChunks[m_iUpChunk];
        m_iUpChunk ^= 1;
        if (!CudaOk(cudaEventSynchronize(rChunk.pCopied.get()), "stage: wait for a chunk"))
            return false;
        const std::size_t tCount = std::min(m_tChunk, tValues - t);
        ForEachRun(rSource, iWidth, t, tCount,
                   [&](const float* pfHost, std::size_t tOffset, std::size_t tRun)
                   { std::memcpy(rChunk.GetFloats() + tOffset, pfHost, tRun * sizeof(float)); });
        if (!CudaOk(cudaMemcpyAsync(rSlot.aValues.GetFloats() + t, rChunk.GetFloats(),
                                    tCount * sizeof(float), cudaMemcpyHostToDevice, m_pUp.get()),
                    "stage: copy %zu values", tCount) ||
            !CudaOk(cudaEventRecord(rChunk.pCopied.get(), m_pUp.get()), "stage: record"))
            return false;
    }
    return CudaOk(cudaEventRecord(rSlot.pArrived.get(), m_pUp.get()), "stage: record");
}

bool CStaging::StartDownload(const ImageRegion& rRegion, const HostRows<float>& rDest)
{
    if (!FinishDownload()) return false;
    const std::size_t tValues = CountValues(rDest, rRegion.iWidth, rRegion.iHeight);
    m_bPending = m_aOutgoing.Reserve(tValues * sizeof(float)) &&
                 Gather(rRegion, m_aOutgoing.GetFloats(), m_pCompute) &&
                 CudaOk(cudaEventRecord(m_pGathered.get(), m_pCompute), "download: record");
    m_aPending = rRegion;
    m_aDest = rDest;
    return m_bPending;
}

bool CStaging::FinishDownload()
{
    if (!m_bPending) return true;
    m_bPending = false;
    const int iWidth = m_aPending.iWidth;
    const std::size_t tValues = CountValues(m_aDest, iWidth, m_aPending.iHeight);
    const std::size_t tPieces = (tValues + m_tChunk - 1) / m_tChunk;
    if (!CudaOk(cudaStreamWaitEvent(m_pDown.get(), m_pGathered.get(), 0), "download: wait") ||
        (tPieces > 0 && !mQueuePiece(0, tValues)))
        return false;
    for (std::size_t p = 0; p < tPieces; ++p)
    {
        if (p + 1 < tPieces && !mQueuePiece(p + 1, tValues)) return false;
        const Chunk& rChunk = m_aDownChunks[p % 2];
        if (!CudaOk(cudaEventSynchronize(rChunk.pCopied.get()), "download: wait for the kernels"))
            return false;
        ForEachRun(m_aDest, iWidth, p * m_tChunk, std::min(m_tChunk, tValues - p * m_tChunk),
                   [&](float* pfHost, std::size_t tOffset, std::size_t tRun)
                   { std::memcpy(pfHost, rChunk.GetFloats() + tOffset, tRun * sizeof(float)); });
    }
    return true;
}

/// Queues the copy of one piece of the pending download into its pinned chunk.
bool CStaging::mQueuePiece(std::size_t tPiece, std::size_t tValues)
{
    const std::size_t tFirst = tPiece * m_tChunk, tCount = std::min(m_tChunk, tValues - tFirst);
    const Chunk& rChunk = m_aDownChunks[tPiece % 2];
    return CudaOk(cudaMemcpyAsync(rChunk.GetFloats(), m_aOutgoing.GetFloats() + tFirst,
                                  tCount * sizeof(float), cudaMemcpyDeviceToHost, m_pDown.get()),
                  "download: copy %zu values", tCount) &&
           CudaOk(cudaEventRecord(rChunk.pCopied.get(), m_pDown.get()), "download: record");
}

void CStaging::Drop()
{
    // Errors have been told where they happened; here only nothing must be under way any more.
    static_cast<void>(cudaStreamSynchronize(m_pUp.get()));
    static_cast<void>(cudaStreamSynchronize(m_pDown.get()));
    static_cast<void>(cudaStreamSynchronize(m_pCompute));
    m_bPending = false;
    m_aOutgoing.Free();
    for (Slot& rSlot : m_aSlots)
    {
        rSlot.bFull = false;
        rSlot.aValues.Free();
    }
}
