#pragma once

#include <array>
#include <cstddef>

#include "gpulib/Device/Cuda/CudaHandles.h"
#include "gpulib/Device/Cuda/Transfer.h"

/// Moves images between pageable host memory and one device beside the kernels.
///
/// Values go through pinned chunks to linear device memory on a stream of their own; only the copy
/// from there into the image is queued between the kernels. So the values of the next batch travel
/// while the kernels of this one run, and finished values leave under the kernels of the next. The
/// host moves a chunk now and then while it queues kernels: the queue holds fewer of them than some
/// batches have. Used by one thread at a time, with the device selected.
class CStaging
{
public:
    /// \param pCompute  the stream of the kernels, borrowed
    [[nodiscard]] bool Create(cudaStream_t pCompute);

    /// Tells of values that an Upload() of exactly this source will ask for; nothing happens when
    /// there is no room. The values must stay as they are until that Upload() or Drop().
    void Prefetch(const HostRows<const float>& rSource, int iWidth, int iHeight);
    /// Fills a region from the host; rSource has been read when it returns.
    [[nodiscard]] bool Upload(const ImageRegion& rRegion, const HostRows<const float>& rSource);
    /// Begins to fetch a region; rDest is written by FinishDownload(), which is called first when
    /// an earlier download is pending.
    [[nodiscard]] bool StartDownload(const ImageRegion& rRegion, const HostRows<float>& rDest);
    [[nodiscard]] bool FinishDownload();
    /// After each kernel: moves a chunk, without waiting, where the device is far behind.
    [[nodiscard]] bool Advance();
    /// Forgets all that was prefetched or is pending and frees the device memory.
    void Drop();

private:
    static constexpr std::size_t m_tChunk = std::size_t(1) << 20;  // values
    /// Pinned memory that one copy at a time uses; two take turns in each direction.
    struct Chunk
    {
        PinnedBlock pvData;
        CudaEvent pCopied;
        float* GetFloats() const { return static_cast<float*>(pvData.get()); }
    };
    /// Values on their way to the device.
    struct Slot
    {
        CCudaBuffer aValues;
        CudaEvent pArrived, pConsumed;
        HostRows<const float> aSource;
        int iWidth = 0, iHeight = 0;
        std::size_t tValues = 0, tStaged = 0;  // all, and those that are under way or there
        bool bTaken = false;                   // for values that no Upload() has taken
    };

    static bool mIsFree(const Slot& r) { return !r.bTaken; }
    static bool mIsUnstaged(const Slot& r) { return r.bTaken && r.tStaged < r.tValues; }
    template <class F>
    Slot* mFind(F fIs);
    [[nodiscard]] bool mTake(Slot& rSlot, const HostRows<const float>& rSource, int iWidth,
                             int iHeight);
    [[nodiscard]] bool mStageChunk(Slot& rSlot);
    template <class F>
    [[nodiscard]] static bool mSplit(int iHeight, F fMove);
    [[nodiscard]] bool mQueueChunks();
    const Chunk& mDownChunk() const { return m_aDownChunks[m_tUnpacked / m_tChunk % 2]; }
    [[nodiscard]] bool mUnpackChunk();

    cudaStream_t m_pCompute = nullptr;
    CudaStream m_pUp, m_pDown;
    std::array<Chunk, 2> m_aUpChunks, m_aDownChunks;
    int m_iUpChunk = 0;  // whose turn it is
    std::array<Slot, 2> m_aSlots;
    CudaEvent m_pMark;  // among the kernels
    int m_iSince = 0;   // kernels queued after it

    // The pending download.
    CCudaBuffer m_aOutgoing;
    CudaEvent m_pGathered;
    HostRows<float> m_aDest;
    int m_iWidth = 0;
    std::size_t m_tPending = 0, m_tQueued = 0, m_tUnpacked = 0;  // values; 0: none is pending
};
