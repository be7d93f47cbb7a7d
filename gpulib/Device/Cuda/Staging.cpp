#include "gpulib/Device/Cuda/Staging.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "gpulib/Device/Cuda/CudaClock.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
/// Copies the values [tFirst, tFirst + tCount) of an image in the order [y][lane][x] from host
/// memory to pfPinned, or back where that is not const.
template <class T>
void MoveRuns(const HostRows<T>& rRows, int iWidth, std::size_t tFirst, std::size_t tCount,
              float* pfPinned)
{
    constexpr bool bPack = std::is_const_v<T>;
    const CHostSpan aSpan(bPack ? g_acPack : g_acUnpack);
    const std::size_t tWidth = iWidth, tSlice = tWidth * rRows.iLanes;
    const bool bWhole = rRows.tStrideLane == tWidth;  // the rows of a batch are neighbours
    for (std::size_t t = 0; t < tCount;)
    {
        const std::size_t tInSlice = (tFirst + t) % tSlice, tX = tInSlice % tWidth;
        T* const pHost = rRows.pData + (tFirst + t) / tSlice * rRows.tStrideY +
                         tInSlice / tWidth * rRows.tStrideLane + tX;
        const std::size_t tRun = std::min(tCount - t, bWhole ? tSlice - tInSlice : tWidth - tX);
        if constexpr (bPack)
            std::copy_n(pHost, tRun, pfPinned + t);
        else
            std::copy_n(pfPinned + t, tRun, pHost);
        t += tRun;
    }
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

/// Whether all before the event is done; what went wrong shows in the next operation.
bool IsDone(const CudaEvent& rEvent)
{
    return cudaEventQuery(rEvent.get()) != cudaErrorNotReady;
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
    for (Chunk* const pChunk :
         {&m_aUpChunks[0], &m_aUpChunks[1], &m_aDownChunks[0], &m_aDownChunks[1]})
    {
        void* pvData = nullptr;
        // The host sleeps until a copy is done: one core for each GPU would be busy otherwise.
        if (!MakeEvent(pChunk->pCopied, cudaEventDisableTiming | cudaEventBlockingSync) ||
            !CudaOk(cudaMallocHost(&pvData, m_tChunk * sizeof(float)), "pin %zu MiB",
                    m_tChunk * sizeof(float) >> 20))
            return false;
        pChunk->pvData.reset(pvData);
    }
    for (Slot& rSlot : m_aSlots)
        if (!MakeEvent(rSlot.pArrived) || !MakeEvent(rSlot.pConsumed)) return false;
    return MakeStream(m_pUp) && MakeStream(m_pDown) && MakeEvent(m_pGathered) && MakeEvent(m_pMark);
}

void CStaging::Prefetch(const HostRows<const float>& rSource, int iWidth, int iHeight)
{
    Slot* const pSlot = mFind(mIsFree);
    // The Upload() will try again and say what is wrong.
    if (pSlot && !mTake(*pSlot, rSource, iWidth, iHeight)) static_cast<void>(TakeDeviceError());
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
    Slot* pSlot = mFind(
        [&](const Slot& r)
        { return r.bTaken && r.aSource == rSource && r.iWidth == iWidth && r.iHeight == iHeight; });
    if (!pSlot)
    {
        pSlot = mFind(mIsFree);
        if (!pSlot) pSlot = &m_aSlots[0];  // prefetched values that nobody has asked for yet
        if (!mTake(*pSlot, rSource, iWidth, iHeight))
            return mSplit(
                iHeight, [&](int iFirst, int iEnd)
                { return Upload(LinesOf(rRegion, iFirst, iEnd), LinesOf(rSource, iFirst)); });
    }
    while (pSlot->tStaged < pSlot->tValues)
        if (!mStageChunk(*pSlot)) return false;
    pSlot->bTaken = false;
    return CudaOk(cudaEventRecord(pSlot->pArrived.get(), m_pUp.get()), "stage: record") &&
           CudaOk(cudaStreamWaitEvent(m_pCompute, pSlot->pArrived.get(), 0), "upload: wait") &&
           Scatter(rRegion, pSlot->aValues.GetFloats(), m_pCompute) &&
           CudaOk(cudaEventRecord(pSlot->pConsumed.get(), m_pCompute), "upload: record");
}

/// The first slot of which that is true, or null.
template <class F>
CStaging::Slot* CStaging::mFind(F fIs)
{
    const auto iSlot = std::ranges::find_if(m_aSlots, fIs);
    return iSlot == m_aSlots.end() ? nullptr : &*iSlot;
}

/// Takes a slot for values to come; false when there is no room for them.
bool CStaging::mTake(Slot& rSlot, const HostRows<const float>& rSource, int iWidth, int iHeight)
{
    rSlot.aSource = rSource;
    rSlot.iWidth = iWidth;
    rSlot.iHeight = iHeight;
    rSlot.tValues = CountValues(rSource, iWidth, iHeight);
    rSlot.tStaged = 0;
    rSlot.bTaken =
        rSlot.aValues.Reserve(rSlot.tValues * sizeof(float)) &&
        CudaOk(cudaStreamWaitEvent(m_pUp.get(), rSlot.pConsumed.get(), 0), "stage: wait");
    return rSlot.bTaken;
}

bool CStaging::mStageChunk(Slot& rSlot)
{
    Chunk& rChunk = m_aUpChunks[m_iUpChunk];
    m_iUpChunk ^= 1;
    const std::size_t tFirst = rSlot.tStaged, tCount = std::min(m_tChunk, rSlot.tValues - tFirst);
    rSlot.bTaken = false;  // after a failure
    if (!WaitFor(rChunk.pCopied, "stage: wait for a chunk")) return false;
    MoveRuns(rSlot.aSource, rSlot.iWidth, tFirst, tCount, rChunk.GetFloats());
    rSlot.tStaged += tCount;
    rSlot.bTaken = CopyValues(rSlot.aValues.GetFloats() + tFirst, rChunk.GetFloats(), tCount,
                              cudaMemcpyHostToDevice, m_pUp.get(), rChunk.pCopied);
    return rSlot.bTaken;
}

/// A chunk takes the host as long as many kernels of a small set take the device.
bool CStaging::Advance()
{
    constexpr int iFarBehind = 64;
    if (++m_iSince < iFarBehind) return true;
    if (IsDone(m_pMark))
    {
        m_iSince = 0;
        return CudaOk(cudaEventRecord(m_pMark.get(), m_pCompute), "mark kernels");
    }
    if (m_tPending > 0 && IsDone(mDownChunk().pCopied)) return mUnpackChunk();
    Slot* const pSlot = mFind(mIsUnstaged);
    return !pSlot || !IsDone(m_aUpChunks[m_iUpChunk].pCopied) || mStageChunk(*pSlot);
}

bool CStaging::StartDownload(const ImageRegion& rRegion, const HostRows<float>& rDest)
{
    if (!FinishDownload()) return false;
    const std::size_t tValues = CountValues(rDest, rRegion.iWidth, rRegion.iHeight);
    if (!m_aOutgoing.Reserve(tValues * sizeof(float)))
        return mSplit(
            rRegion.iHeight, [&](int iFirst, int iEnd)
            { return StartDownload(LinesOf(rRegion, iFirst, iEnd), LinesOf(rDest, iFirst)); });
    if (!Gather(rRegion, m_aOutgoing.GetFloats(), m_pCompute)) return false;
    m_aDest = rDest;
    m_iWidth = rRegion.iWidth;
    m_tQueued = m_tUnpacked = 0;
    m_tPending = tValues;
    return CudaOk(cudaEventRecord(m_pGathered.get(), m_pCompute), "download: record") &&
           CudaOk(cudaStreamWaitEvent(m_pDown.get(), m_pGathered.get(), 0), "download: wait") &&
           mQueueChunks();
}

/// While the host would wait it moves what will be asked for.
bool CStaging::FinishDownload()
{
    while (m_tPending > 0)
    {
        Slot* const pSlot = IsDone(mDownChunk().pCopied) ? nullptr : mFind(mIsUnstaged);
        if (!(pSlot ? mStageChunk(*pSlot) : mUnpackChunk())) return false;
    }
    return true;
}

/// Queues copies of the pending download into the two pinned chunks.
bool CStaging::mQueueChunks()
{
    for (; m_tQueued < std::min(m_tPending, m_tUnpacked + 2 * m_tChunk); m_tQueued += m_tChunk)
    {
        const Chunk& rChunk = m_aDownChunks[m_tQueued / m_tChunk % 2];
        if (!CopyValues(rChunk.GetFloats(), m_aOutgoing.GetFloats() + m_tQueued,
                        std::min(m_tChunk, m_tPending - m_tQueued), cudaMemcpyDeviceToHost,
                        m_pDown.get(), rChunk.pCopied))
            return false;
    }
    return true;
}

/// Brings the next chunk of the pending download home; after a failure none is pending.
bool CStaging::mUnpackChunk()
{
    const std::size_t tAll = std::exchange(m_tPending, 0);
    const Chunk& rChunk = mDownChunk();
    if (!WaitFor(rChunk.pCopied, "download: wait for the kernels")) return false;
    const std::size_t tCount = std::min(m_tChunk, tAll - m_tUnpacked);
    MoveRuns(m_aDest, m_iWidth, m_tUnpacked, tCount, rChunk.GetFloats());
    m_tUnpacked += tCount;
    if (m_tUnpacked < tAll) m_tPending = tAll;
    return mQueueChunks();
}

void CStaging::Drop()
{
    // Errors have been told where they happened; here only nothing must be under way any more.
    static_cast<void>(cudaStreamSynchronize(m_pUp.get()));
    static_cast<void>(cudaStreamSynchronize(m_pDown.get()));
    static_cast<void>(cudaStreamSynchronize(m_pCompute));
    m_tPending = 0;
    m_aOutgoing.Free();
    for (Slot& rSlot : m_aSlots)
    {
        rSlot.bTaken = false;
        rSlot.aValues.Free();
    }
}
