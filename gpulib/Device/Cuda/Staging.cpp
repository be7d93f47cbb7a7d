#include "gpulib/Device/Cuda/Staging.h"

#include <algorithm>
#include <cstring>

#include "gpulib/Device/Cuda/CudaClock.h"
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

void Pack(const HostRows<const float>& rRows, int iWidth, std::size_t tFirst, std::size_t tCount,
          float* pfPinned)
{
    const CHostSpan aSpan(g_acPack);
    ForEachRun(rRows, iWidth, tFirst, tCount,
               [=](const float* pfHost, std::size_t tOffset, std::size_t tRun)
               { std::memcpy(pfPinned + tOffset, pfHost, tRun * sizeof(float)); });
}

void Unpack(const HostRows<float>& rRows, int iWidth, std::size_t tFirst, std::size_t tCount,
            const float* pfPinned)
{
    const CHostSpan aSpan(g_acUnpack);
    ForEachRun(rRows, iWidth, tFirst, tCount,
               [=](float* pfHost, std::size_t tOffset, std::size_t tRun)
               { std::memcpy(pfHost, pfPinned + tOffset, tRun * sizeof(float)); });
}

template <class T>
std::size_t CountValues(const HostRows<T>& rRows, int iWidth, int iHeight)
{
    return std::size_t(iWidth) * iHeight * rRows.iLanes;
}

/// Lines [iFirst, iEnd) of a region, or of the host memory of one.
ImageRegion LinesOf(ImageRegion aRegion, int iFirst, int iEnd)
{
    aRegion.iY0 += iFirst;
    aRegion.iHeight = iEnd - iFirst;
    return aRegion;
}
template <class T>
HostRows<T> LinesOf(HostRows<T> aRows, int iFirst)
{
    aRows.pData += aRows.tStrideY * iFirst;
    return aRows;
}

bool WaitFor(const CudaEvent& rEvent, const char* pcWhat)
{
    const CHostSpan aSpan(g_acWait);
    return CudaOk(cudaEventSynchronize(rEvent.get()), "%s", pcWhat);
}

/// Copies tCount values on a stream and marks the end of the copy.
bool CopyValues(float* pfDest, const float* pfSource, std::size_t tCount, cudaMemcpyKind eKind,
                cudaStream_t pStream, const CudaEvent& rCopied)
{
    const bool bUp = eKind == cudaMemcpyHostToDevice;
    const CDeviceSpan aSpan(bUp ? g_acToDevice : g_acToHost, pStream);
    const char* const pcWhat = bUp ? "stage" : "download";
    return CudaOk(cudaMemcpyAsync(pfDest, pfSource, tCount * sizeof(float), eKind, pStream),
                  "%s: copy %zu values", pcWhat, tCount) &&
           CudaOk(cudaEventRecord(rCopied.get(), pStream), "%s: record", pcWhat);
}
}  // namespace

bool CStaging::Create(cudaStream_t pCompute)
{
    m_pCompute = pCompute;
    const auto MakeChunk = [](Chunk& rChunk)
    {
        void* pvData = nullptr;
        // The host sleeps until a copy is done: one core for each GPU would be busy otherwise.
        if (!MakeEvent(rChunk.pCopied, cudaEventDisableTiming | cudaEventBlockingSync) ||
            !CudaOk(cudaMallocHost(&pvData, m_tChunk * sizeof(float)), "pin %zu MiB",
                    m_tChunk * sizeof(float) >> 20))
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

/// Moves the halves of a region, one after the other, when the whole does not fit into what is left
/// of the memory.
template <class F>
bool CStaging::mSplit(int iHeight, F fMove)
{
    if (iHeight <= 1) return false;
    static_cast<void>(TakeDeviceError());
    return fMove(0, iHeight / 2) && fMove(iHeight / 2, iHeight);
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
        if (!pSlot->aValues.Reserve(CountValues(rSource, iWidth, iHeight) * sizeof(float)))
            return mSplit(
                iHeight, [&](int iFirst, int iEnd)
                { return Upload(LinesOf(rRegion, iFirst, iEnd), LinesOf(rSource, iFirst)); });
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
        if (!WaitFor(rChunk.pCopied, "stage: wait for a chunk")) return false;
        const std::size_t tCount = std::min(m_tChunk, tValues - t);
        Pack(rSource, iWidth, t, tCount, rChunk.GetFloats());
        if (!CopyValues(rSlot.aValues.GetFloats() + t, rChunk.GetFloats(), tCount,
                        cudaMemcpyHostToDevice, m_pUp.get(), rChunk.pCopied))
            return false;
    }
    return CudaOk(cudaEventRecord(rSlot.pArrived.get(), m_pUp.get()), "stage: record");
}

bool CStaging::StartDownload(const ImageRegion& rRegion, const HostRows<float>& rDest)
{
    if (!FinishDownload()) return false;
    const std::size_t tValues = CountValues(rDest, rRegion.iWidth, rRegion.iHeight);
    if (!m_aOutgoing.Reserve(tValues * sizeof(float)))
        return mSplit(
            rRegion.iHeight, [&](int iFirst, int iEnd)
            { return StartDownload(LinesOf(rRegion, iFirst, iEnd), LinesOf(rDest, iFirst)); });
    m_bPending = Gather(rRegion, m_aOutgoing.GetFloats(), m_pCompute) &&
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
        if (!WaitFor(rChunk.pCopied, "download: wait for the kernels")) return false;
        Unpack(m_aDest, iWidth, p * m_tChunk, std::min(m_tChunk, tValues - p * m_tChunk),
               rChunk.GetFloats());
    }
    return true;
}

/// Queues the copy of one piece of the pending download into its pinned chunk.
bool CStaging::mQueuePiece(std::size_t tPiece, std::size_t tValues)
{
    const std::size_t tFirst = tPiece * m_tChunk, tCount = std::min(m_tChunk, tValues - tFirst);
    const Chunk& rChunk = m_aDownChunks[tPiece % 2];
    return CopyValues(rChunk.GetFloats(), m_aOutgoing.GetFloats() + tFirst, tCount,
                      cudaMemcpyDeviceToHost, m_pDown.get(), rChunk.pCopied);
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
