// What the tests of the kernels cannot show: that the device is as late, as strict and as unhelpful
// as it says.

#include "tests/softcuda/SoftCuda.h"

#include <gtest/gtest.h>

#include <tuple>

extern __shared__ float s_afShared[];

namespace
{
constexpr std::size_t g_tFloat = sizeof(float);

__global__ void AddKernel(float* pfTo, const float* pfFrom)
{
    *pfTo = *pfFrom + 1.0f;
}
/// Sums 64 ones for each block by halves.
__global__ void SumKernel(float* pfOut, bool bBarrier, bool bLeave)
{
    const int t = threadIdx.x;
    s_afShared[t] = 1.0f;
    for (int n = 32; n > 0; n /= 2)
    {
        if (bLeave && t >= n) return;
        if (bBarrier) __syncthreads();
        if (t < n) s_afShared[t] += s_afShared[t + n];
    }
    if (t == 0) pfOut[blockIdx.x] = s_afShared[0];
}

class SoftCudaTest : public testing::Test
{
protected:
    ~SoftCudaTest() override { SoftCuda::Reset(); }
    static float* NewFloats(int iCount)
    {
        void* pv = nullptr;
        EXPECT_EQ(cudaMalloc(&pv, iCount * g_tFloat), cudaSuccess);
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
        const cudaStream_t pStream = NewStream();
        EXPECT_EQ(cudaMemcpyAsync(&fValue, pf, g_tFloat, cudaMemcpyDeviceToHost, pStream),
                  cudaSuccess);
        EXPECT_EQ(cudaStreamDestroy(pStream), cudaSuccess);
        return fValue;
    }
    static cudaError_t Poke(float* pf, const float& rfValue, cudaStream_t pStream)
    {
        return cudaMemcpyAsync(pf, &rfValue, g_tFloat, cudaMemcpyHostToDevice, pStream);
    }
};

TEST_F(SoftCudaTest, WorkWaitsUntilItIsDemanded)
{
    const cudaStream_t pA = NewStream(), pB = NewStream();
    float* const pfDevice = NewFloats(3);
    void* pvPinned = nullptr;
    cudaEvent_t pEvent = nullptr;
    ASSERT_EQ(cudaMallocHost(&pvPinned, g_tFloat), cudaSuccess);
    ASSERT_EQ(cudaEventCreateWithFlags(&pEvent, cudaEventDisableTiming), cudaSuccess);
    float& rfPinned = *static_cast<float*>(pvPinned);
    rfPinned = 20.0f;
    Poke(pfDevice, 10.0f, pA);  // pageable: staged
    Poke(pfDevice + 1, rfPinned, pA);
    rfPinned = 21.0f;  // in time, alas
    EXPECT_NE(Peek(pfDevice), Peek(pfDevice)) << "new memory is no number, A was not waited for";
    ASSERT_EQ(cudaStreamSynchronize(pA), cudaSuccess);
    EXPECT_EQ(Peek(pfDevice), 10.0f);
    EXPECT_EQ(Peek(pfDevice + 1), 21.0f);

    // B reads what A makes, and A makes the next before B is demanded.
    const auto eLazy = SoftCuda::EOrder::eLazy, eOthers = SoftCuda::EOrder::eOthersFirst;
    for (const auto& [eOrder, bWait, bWaitBack, fSeen] : {std::tuple{eLazy, false, true, 11.0f},
                                                          {eLazy, true, false, 1.0f},
                                                          {eOthers, true, false, -1.0f},
                                                          {eOthers, true, true, 1.0f}})
    {
        Poke(pfDevice, 10.0f, pA);
        ASSERT_EQ(cudaStreamSynchronize(pA), cudaSuccess);
        SoftCuda::SetOrder(eOrder);
        cudaMemset2DAsync(pfDevice, g_tFloat, 0, g_tFloat, 1, pA);
        cudaEventRecord(pEvent, pA);
        if (bWait) cudaStreamWaitEvent(pB, pEvent, 0);
        const cudaLaunchConfig_t aOne = {dim3(1), dim3(1), 0, pB};
        ASSERT_EQ(cudaLaunchKernelEx(&aOne, AddKernel, pfDevice + 2, pfDevice), cudaSuccess);
        cudaEventRecord(pEvent, pB);
        if (bWaitBack) cudaStreamWaitEvent(pA, pEvent, 0);
        Poke(pfDevice, -2.0f, pA);
        ASSERT_EQ(cudaStreamSynchronize(pB), cudaSuccess);
        EXPECT_EQ(Peek(pfDevice + 2), fSeen) << "order " << int(eOrder) << " wait " << bWait;
        SoftCuda::SetOrder(eLazy);
        ASSERT_EQ(cudaDeviceSynchronize(), cudaSuccess);
        EXPECT_EQ(Peek(pfDevice), -2.0f);
    }
}

TEST_F(SoftCudaTest, KernelsThatBreakRulesAreSeen)
{
    for (const auto& [bBarrier, bLeave, tShared, eWant] : {
             std::tuple{true, false, 64 * g_tFloat, cudaSuccess},
#if !defined(__SANITIZE_THREAD__)  // which ends the program
                 {false, false, 64 * g_tFloat, cudaSuccess},
#endif
                 {true, true, 64 * g_tFloat, cudaErrorLaunchFailure},
             {
                 true, false, 0 * g_tFloat, cudaErrorLaunchFailure
             }
         })
    {
        float* const pf = NewFloats(2);
        const cudaLaunchConfig_t aConfig = {dim3(2), dim3(64), tShared, NewStream()};
        EXPECT_EQ(cudaLaunchKernelEx(&aConfig, SumKernel, pf, bBarrier, bLeave), cudaSuccess);
        EXPECT_EQ(cudaDeviceSynchronize(), eWant);
        EXPECT_EQ(cudaGetLastError(), eWant) << "the error stays";
        EXPECT_TRUE(eWant != cudaSuccess || (Peek(pf + 1) == 64.0f) == bBarrier);
        SoftCuda::Reset();
    }
}

TEST_F(SoftCudaTest, RefusesWhatIsOutOfRange)
{
    float* const pfEnd = NewFloats(25) + 25;
    const cudaStream_t pStream = NewStream();
    EXPECT_EQ(Poke(pfEnd, 0, pStream), cudaErrorInvalidValue);
    EXPECT_EQ(cudaMemset2DAsync(pfEnd - 1, g_tFloat, 0, g_tFloat, 2, pStream),
              cudaErrorInvalidValue);
    for (const auto& [aGrid, aBlock] :
         {std::pair{dim3(1, 1, 65536), dim3(1)}, {dim3(1), dim3(32, 33)}})
    {
        const cudaLaunchConfig_t aConfig = {aGrid, aBlock, 0, pStream};
        EXPECT_EQ(cudaLaunchKernelEx(&aConfig, AddKernel, nullptr, nullptr),
                  cudaErrorInvalidConfiguration);
    }
    EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 2);
    SoftCuda::Reset();
    EXPECT_EQ(cudaStreamSynchronize(pStream), cudaErrorInvalidResourceHandle);
    EXPECT_EQ(cudaFree(pfEnd - 25), cudaErrorInvalidResourceHandle);
    EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 0);
}
}  // namespace
