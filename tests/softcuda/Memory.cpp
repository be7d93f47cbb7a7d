#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/softcuda/Runtime.h"

// What the program holds of a device: memory, and copies of regions of it.

namespace SoftCuda
{
Owned* Device::Find(EKind eKind, const void* pvBegin)
{
    const auto iFound = aOwned.find(static_cast<const char*>(pvBegin));
    return iFound != aOwned.end() && iFound->second.eKind == eKind ? &iFound->second : nullptr;
}

bool Device::Holds(EKind eKind, const void* pvFirst, std::size_t tBytes)
{
    const char* const pcFirst = static_cast<const char*>(pvFirst);
    const auto iNext = aOwned.upper_bound(pcFirst);
    if (iNext == aOwned.begin()) return false;
    const auto& [pcBegin, rOwned] = *std::prev(iNext);
    const std::size_t tOffset = pcFirst - pcBegin;
    return rOwned.eKind == eKind && tOffset < rOwned.tBytes && tBytes <= rOwned.tBytes - tOffset;
}

bool Device::Take(std::size_t tBytes)
{
    if (tUsed > tMemory || tBytes > tMemory - tUsed) return false;
    tUsed += tBytes;
    tPeak = std::max(tPeak, tUsed);
    return true;
}

cudaError_t Device::Remove(const void* pvBegin)
{
    const auto iOwned = aOwned.find(static_cast<const char*>(pvBegin));
    if (iOwned->second.eKind != EKind::ePinned) tUsed -= iOwned->second.tBytes;
    aOwned.erase(iOwned);
    return cudaSuccess;
}

namespace
{
/// Memory that no program can take for initialised: 0xFF bytes are quiet NaNs.
cudaError_t Allocate(const char* pcCall, EKind eKind, void** ppvBegin, std::size_t tBytes)
{
    const auto Work = [=](Device& rDevice)
    {
        if (eKind == EKind::eMemory && !rDevice.Take(tBytes)) return cudaErrorMemoryAllocation;
        if (posix_memalign(ppvBegin, 512, tBytes) != 0) throw std::bad_alloc();
        std::memset(*ppvBegin, 0xFF, tBytes);
        rDevice.Keep(eKind, tBytes, std::shared_ptr<void>(*ppvBegin, std::free));
        return cudaSuccess;
    };
    return Call(pcCall, Work);
}

/// Freeing waits for the device.
cudaError_t Free(const char* pcCall, EKind eKind, void* pvBegin)
{
    const auto Work = [=](Device& rDevice)
    {
        rDevice.Synchronize();
        if (eKind == EKind::eArray) *static_cast<cudaArray_t>(pvBegin) = {};  // objects see it
        return rDevice.Remove(pvBegin);
    };
    return pvBegin ? CallWith(eKind, pvBegin, pcCall, Work, true) : cudaSuccess;
}

/// From pageable memory the bytes are taken now; from pinned memory when the copy runs.
cudaError_t Copy(const char* pcCall, cudaStream_t pStream, cudaMemcpyKind eKind, void* pvDst,
                 std::size_t tDstPitch, const void* pvSrc, std::size_t tSrcPitch,
                 std::size_t tWidth, std::size_t tHeight)
{
    const auto Work = [=](Device& rDevice)
    {
        if (tWidth == 0 || tHeight == 0) return cudaSuccess;
        const bool bUp = eKind == cudaMemcpyHostToDevice, bDown = eKind == cudaMemcpyDeviceToHost;
        const std::size_t tDst = (tHeight - 1) * tDstPitch + tWidth;
        const std::size_t tSrc = (tHeight - 1) * tSrcPitch + tWidth;
        if (tDstPitch < tWidth || rDevice.Holds(EKind::eMemory, pvDst, bDown ? 1 : tDst) == bDown ||
            tSrcPitch < tWidth || rDevice.Holds(EKind::eMemory, pvSrc, bUp ? 1 : tSrc) == bUp)
            return cudaErrorInvalidValue;
        const bool bStage = bUp && !rDevice.Holds(EKind::ePinned, pvSrc, tSrc);
        const char* const pcSource = static_cast<const char*>(pvSrc);
        const std::vector<char> vcStage(pcSource, pcSource + (bStage ? tSrc : 0));
        const auto Run = [=, &rDevice]
        {
            if (rDevice.eSticky != cudaSuccess) return;
            const char* pcSrc = bStage ? vcStage.data() : pcSource;
            for (std::size_t y = 0; y < tHeight; ++y)
                std::memcpy(static_cast<char*>(pvDst) + y * tDstPitch, pcSrc + y * tSrcPitch,
                            tWidth);
        };
        pStream->aQueue.push_back(Run);
        return cudaSuccess;
    };
    return CallWith(EKind::eStream, pStream, pcCall, Work);
}
}  // namespace
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaMalloc(void** devPtr, std::size_t size)
{
    return Allocate(__func__, EKind::eMemory, devPtr, size);
}

cudaError_t cudaMallocPitch(void** devPtr, std::size_t* pitch, std::size_t width,
                            std::size_t height)
{
    *pitch = (width + 511) / 512 * 512;
    return Allocate(__func__, EKind::eMemory, devPtr, *pitch * height);
}

cudaError_t cudaMallocHost(void** ptr, std::size_t size)
{
    return Allocate(__func__, EKind::ePinned, ptr, size);
}

cudaError_t cudaFree(void* devPtr)
{
    return Free(__func__, EKind::eMemory, devPtr);
}

cudaError_t cudaFreeHost(void* ptr)
{
    return Free(__func__, EKind::ePinned, ptr);
}

cudaError_t cudaFreeArray(cudaArray_t array)
{
    return Free(__func__, EKind::eArray, array);
}

cudaError_t cudaMemset2DAsync(void* devPtr, std::size_t pitch, int value, std::size_t width,
                              std::size_t height, cudaStream_t stream)
{
    const std::vector<char> vcValues(width * height, static_cast<char>(value));
    return Copy(__func__, stream, cudaMemcpyHostToDevice, devPtr, pitch, vcValues.data(), width,
                width, height);
}

cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream)
{
    return Copy(__func__, stream, kind, dst, count, src, count, count, 1);
}

cudaError_t cudaMemcpy2DAsync(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                              std::size_t width, std::size_t height, cudaMemcpyKind kind,
                              cudaStream_t stream)
{
    return Copy(__func__, stream, kind, dst, dpitch, src, spitch, width, height);
}
