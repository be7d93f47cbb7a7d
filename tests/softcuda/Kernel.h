#pragma once

#include <functional>

#include "tests/softcuda/Device.h"

namespace SoftCuda
{
using Kernel = std::function<void()>;

struct Shape
{
    dim3 aGrid, aBlock;
    std::size_t tShared;
    int GetThreads() const { return static_cast<int>(aBlock.x * aBlock.y * aBlock.z); }
    std::size_t GetBlocks() const { return std::size_t(aGrid.x) * aGrid.y * aGrid.z; }
    uint3 GetThread(int t) const { return mUnravel(t, aBlock); }
    uint3 GetBlock(std::size_t b) const { return mUnravel(b, aGrid); }

private:
    static uint3 mUnravel(std::size_t t, const dim3& r)
    {
        return {unsigned(t % r.x), unsigned(t / r.x % r.y), unsigned(t / r.x / r.y)};
    }
};

/// Makes the calling thread run kernels of a device.
/// \param pBarrier  what stands behind __syncthreads(); null: none may be met
void EnterKernel(CDevice* pDevice, const Shape& rShape, void (*pBarrier)());

/// A launch whose threads meet at barriers, on one thread of the machine for each CUDA thread:
/// ThreadSanitizer sees where __syncthreads() is missing.
void RunOnThreads(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel);
/// The same on one thread, many times faster: from barrier to barrier in a fixed order, which is
/// turned round at each, so that a missing barrier is likely a wrong result.
void RunOnFibers(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel);

/// Fills the shared memory of a block with NaNs.
void ClearShared(const Shape& rShape);
inline constexpr char s_acDiverged[] = "threads of a block met different barriers";
}  // namespace SoftCuda
