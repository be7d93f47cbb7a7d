// What the tests of the kernels cannot show: that the device is as late, as strict and as unhelpful
// as it says.

#include "tests/softcuda/SoftCuda.h"

#include <gtest/gtest.h>

#include <tuple>

extern __shared__ float s_afShared[];

namespace
{
constexpr std::size_t tF = sizeof(float);

__global__ void AddKernel(float* pfTo, const float* pfFrom)
{
    *pfTo = *pfFrom + 1.0f;
}
__global__ void StoreKernel(cudaSurfaceObject_t uSurface, int iX, int iY)
{
    surf2DLayeredwrite<float>(5.0f, uSurface, iX, iY, 0);
}
enum class EFault
{
    eNone,
    eLeave,      // half of the threads leave before a barrier
    eNoBarrier,  // no barrier before the neighbour's value is read
};
/// Sums 64 ones for each block by halves.
__global__ void SumKernel(float* pfOut, EFault eFault)
{
    const int t = threadIdx.x;
    s_afShared[t] = 1.0f;
    for (int n = 32; n > 0; n /= 2)
    {
        if (eFault == EFault::eLeave && t >= n) return;
        if (eFault != EFault::eNoBarrier) __syncthreads();
        if (t < n) s_afShared[t] += s_afShared[t + n];
    }
    if (t == 0) pfOut[blockIdx.x] = s_afShared[0];
}

template <class... Args>
cudaError_t Launch(dim3 aGrid, dim3 aBlock, std::size_t tShared, cudaStream_t pStream,
                   void (*pKernel)(Args...), std::type_identity_t<Args>... aArgs)
{
    const cudaLaunchConfig_t aConfig = {aGrid, aBlock, tShared, pStream, nullptr, 0};
    return cudaLaunchKernelEx(&aConfig, pKernel, aArgs...);
}

class SoftCudaTest : public testing::Test
{
protected:
    void TearDown() override { SoftCuda::Reset(); }
    static float* NewFloats(int iCount)
    {
        void* pv = nullptr;
        EXPECT_EQ(cudaMalloc(&pv, iCount * tF), cudaSuccess);
        return static_cast<float*>(pv);
    }
    static cudaStream_t NewStream()
    {
        cudaStream_t pStream = nullptr;
        EXPECT_EQ(cudaStreamCreateWithFlags(&pStream, cudaStreamNonBlocking), cudaSuccess);
        return pStream;
    }
    /// Copies on a stream of its own, without waiting for others.
    static float Peek(const float* pf)
    {
        float fValue = 0;
        EXPECT_EQ(cudaMemcpyAsync(&fValue, pf, tF, cudaMemcpyDeviceToHost, nullptr), cudaSuccess);
        EXPECT_EQ(cudaStreamSynchronize(nullptr), cudaSuccess);
        return fValue;
    }
    static void Poke(float* pf, float fValue, cudaStream_t pStream = nullptr)
    {
        EXPECT_EQ(cudaMemcpyAsync(pf, &fValue, tF, cudaMemcpyHostToDevice, pStream), cudaSuccess);
        EXPECT_TRUE(pStream || cudaStreamSynchronize(nullptr) == cudaSuccess);
    }
};

TEST_F(SoftCudaTest, WorkWaitsUntilItIsDemanded)
{
    cudaStream_t pA = NewStream(), pB = NewStream();
    float* pfDevice = NewFloats(3);
    EXPECT_NE(Peek(pfDevice), Peek(pfDevice)) << "new memory is no number";
    void* pvPinned = nullptr;
    ASSERT_EQ(cudaMallocHost(&pvPinned, tF), cudaSuccess);
    float& rfPinned = *static_cast<float*>(pvPinned);
    rfPinned = 20.0f;
    Poke(pfDevice, 1.0f);
    Poke(pfDevice, 10.0f, pA);  // pageable: staged
    cudaMemcpyAsync(pfDevice + 1, pvPinned, tF, cudaMemcpyHostToDevice, pA);
    rfPinned = 21.0f;  // in time, alas
    EXPECT_EQ(Peek(pfDevice), 1.0f) << "another stream was waited for";
    ASSERT_EQ(cudaStreamSynchronize(pA), cudaSuccess);
    EXPECT_EQ(Peek(pfDevice), 10.0f);
    EXPECT_EQ(Peek(pfDevice + 1), 21.0f);

    // B reads what A makes, and A makes the next before B is demanded.
    cudaEvent_t pEvent = nullptr;
    ASSERT_EQ(cudaEventCreateWithFlags(&pEvent, cudaEventDisableTiming), cudaSuccess);
    struct Case
    {
        SoftCuda::EOrder eOrder;
        bool bWait, bWaitBack;
        float fSeen;
    };
    const auto eLazy = SoftCuda::EOrder::eLazy, eOthers = SoftCuda::EOrder::eOthersFirst;
    for (const Case& r : {Case{eLazy, false, true, 11.0f},
                          {eLazy, true, false, 1.0f},
                          {eOthers, true, false, -1.0f},
                          {eOthers, true, true, 1.0f}})
    {
        SoftCuda::SetOrder(r.eOrder);
        Poke(pfDevice, 10.0f);
        cudaMemset2DAsync(pfDevice, tF, 0, tF, 1, pA);
        cudaEventRecord(pEvent, pA);
        if (r.bWait) cudaStreamWaitEvent(pB, pEvent);
        ASSERT_EQ(Launch(1, 1, 0, pB, AddKernel, pfDevice + 2, pfDevice), cudaSuccess);
        cudaEventRecord(pEvent, pB);
        if (r.bWaitBack) cudaStreamWaitEvent(pA, pEvent);
        Poke(pfDevice, -2.0f, pA);
        ASSERT_EQ(cudaStreamSynchronize(pB), cudaSuccess);
        EXPECT_EQ(Peek(pfDevice + 2), r.fSeen) << "order " << int(r.eOrder) << " wait " << r.bWait;
        ASSERT_EQ(cudaDeviceSynchronize(), cudaSuccess);
        EXPECT_EQ(Peek(pfDevice), -2.0f);
    }
}

TEST_F(SoftCudaTest, KernelsThatBreakRulesAreSeen)
{
    const cudaChannelFormatDesc aFormat = cudaCreateChannelDesc<float>();
    for (const auto& [iX, iY] : {std::pair{12, 2}, {16, 0}, {2, 0}, {0, 3}})
    {
        cudaResourceDesc aResource = {};
        ASSERT_EQ(cudaMalloc3DArray(&aResource.res.array.array, &aFormat, {4, 3, 1},
                                    cudaArrayLayered | cudaArraySurfaceLoadStore),
                  cudaSuccess);
        cudaSurfaceObject_t uSurface = 0;
        ASSERT_EQ(cudaCreateSurfaceObject(&uSurface, &aResource), cudaSuccess);
        Launch(1, 1, 0, nullptr, StoreKernel, uSurface, iX, iY);
        const cudaError_t eWant = iX == 12 ? cudaSuccess : cudaErrorLaunchFailure;
        EXPECT_EQ(cudaDeviceSynchronize(), eWant) << iX << ", " << iY;
        EXPECT_EQ(cudaGetLastError(), eWant) << "the error stays";
        SoftCuda::Reset();
    }
    for (const auto& [eFault, tShared, eWant] : {std::tuple{EFault::eNone, 64 * tF, cudaSuccess},
                                                 {EFault::eLeave, 64 * tF, cudaErrorLaunchFailure},
                                                 {EFault::eNone, 0 * tF, cudaErrorLaunchFailure}})
    {
        float* pf = NewFloats(2);
        Launch(2, 64, tShared, nullptr, SumKernel, pf, eFault);
        EXPECT_EQ(cudaDeviceSynchronize(), eWant);
        EXPECT_TRUE(eWant != cudaSuccess || Peek(pf + 1) == 64.0f);
        SoftCuda::Reset();
    }
#if !defined(__SANITIZE_THREAD__)  // which ends the program
    float* pf = NewFloats(1);
    Launch(1, 64, 64 * tF, nullptr, SumKernel, pf, EFault::eNoBarrier);
    EXPECT_NE(Peek(pf), 64.0f);
#endif
}

TEST_F(SoftCudaTest, RefusesCountsAndFailsOnRequest)
{
    for (const auto& [aGrid, aBlock, eWant] :
         {std::tuple{dim3(1, 65535), dim3(1, 16, 64), cudaSuccess},
          {dim3(0), dim3(1), cudaErrorInvalidConfiguration},
          {dim3(1, 1, 65536), dim3(1), cudaErrorInvalidConfiguration},
          {dim3(1), dim3(32, 33), cudaErrorInvalidConfiguration}})
        EXPECT_EQ(Launch(aGrid, aBlock, 0, nullptr, StoreKernel, 0, 0, 0), eWant);
    SoftCuda::Reset();

    void* pv = nullptr;
    float fHost = 0;
    SoftCuda::SetMemory(1000);
    EXPECT_EQ(cudaMalloc(&pv, 1001), cudaErrorMemoryAllocation);
    EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
    SoftCuda::FailNext("cudaMalloc", cudaErrorMemoryAllocation, 1);
    EXPECT_EQ(cudaMalloc(&pv, 1000), cudaSuccess);
    EXPECT_EQ(cudaFree(pv), cudaSuccess);
    EXPECT_EQ(cudaMalloc(&pv, 100), cudaErrorMemoryAllocation);
    EXPECT_EQ(cudaMalloc(&pv, 100), cudaSuccess);
    char* const pcEnd = static_cast<char*>(pv) + 100;
    EXPECT_EQ(cudaMemcpyAsync(pcEnd, &fHost, tF, cudaMemcpyHostToDevice), cudaErrorInvalidValue);
    EXPECT_EQ(cudaMemcpyAsync(&fHost, &fHost, tF, cudaMemcpyDeviceToHost), cudaErrorInvalidValue);
    EXPECT_EQ(cudaMemset2DAsync(pcEnd - tF, tF, 0, tF, 2), cudaErrorInvalidValue);
    cudaStream_t pStream = NewStream();
    EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 2);
    EXPECT_EQ(cudaStreamDestroy(pStream), cudaSuccess);
    EXPECT_EQ(cudaStreamSynchronize(pStream), cudaErrorInvalidResourceHandle);
    EXPECT_EQ(cudaFree(pv), cudaSuccess);
    EXPECT_EQ(cudaFree(pv), cudaErrorInvalidValue);
    EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 0);
    EXPECT_EQ(SoftCuda::GetMemoryPeak(), 1000u);
}
}  // namespace
