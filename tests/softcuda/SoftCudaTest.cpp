#include "tests/softcuda/SoftCuda.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <thread>
#include <vector>

extern __shared__ float s_afShared[];

namespace
{
constexpr float fNaN = std::numeric_limits<float>::quiet_NaN();
constexpr std::size_t tF = sizeof(float);

struct Points
{
    cudaTextureObject_t uTexture;
    const float* pfXY;
    float* pfOut;
    int iLayer;
};
__global__ void SampleKernel(const __grid_constant__ Points aP)
{
    const int i = blockIdx.x * blockDim.x + threadIdx.x;
    aP.pfOut[i] = tex2DLayered<float>(aP.uTexture, aP.pfXY[2 * i], aP.pfXY[2 * i + 1], aP.iLayer);
}
__global__ void AddKernel(float* pfTo, const float* pfFrom)
{
    *pfTo = __ldg(pfFrom) + 1.0f;
}
__global__ void StoreKernel(cudaSurfaceObject_t uSurface, int iX, int iY, int iLayer)
{
    surf2DLayeredwrite<float>(5.0f, uSurface, iX, iY, iLayer);
}
/// Sums blockDim.x values for each block by halves; broken: half of the threads leave early.
__global__ void __launch_bounds__(256) SumKernel(const float* pfIn, float* pfOut, bool bBroken)
{
    const int t = threadIdx.x;
    s_afShared[t] = pfIn[blockIdx.x * blockDim.x + t];
    for (int n = blockDim.x / 2; n > 0; n /= 2)
    {
        if (bBroken && t >= n) return;
        __syncthreads();
        if (t < n) s_afShared[t] += s_afShared[t + n];
    }
    if (t == 0) pfOut[blockIdx.x] = s_afShared[0];
}

cudaLaunchConfig_t Config(dim3 aGrid, dim3 aBlock, std::size_t tShared = 0,
                          cudaStream_t pStream = nullptr)
{
    cudaLaunchConfig_t aConfig = {};
    aConfig.gridDim = aGrid;
    aConfig.blockDim = aBlock;
    aConfig.dynamicSmemBytes = tShared;
    aConfig.stream = pStream;
    return aConfig;
}
template <class... Args, class... Given>
cudaError_t Launch(const cudaLaunchConfig_t& rConfig, void (*pKernel)(Args...), Given... aArgs)
{
    return cudaLaunchKernelEx(&rConfig, pKernel, aArgs...);
}

float* OnDevice(const std::vector<float>& vf)
{
    float* pf = nullptr;
    EXPECT_EQ(cudaMalloc(&pf, vf.size() * tF), cudaSuccess);
    EXPECT_EQ(cudaMemcpy(pf, vf.data(), vf.size() * tF, cudaMemcpyHostToDevice), cudaSuccess);
    return pf;
}
std::vector<float> OnHost(const float* pf, int iCount)
{
    std::vector<float> vf(iCount);
    EXPECT_EQ(cudaMemcpy(vf.data(), pf, iCount * tF, cudaMemcpyDeviceToHost), cudaSuccess);
    return vf;
}
/// The same, without waiting for any stream but the default one.
float Peek(const float* pf)
{
    return OnHost(pf, 1)[0];
}

cudaArray_t NewArray(cudaExtent aSize)
{
    cudaArray_t pArray = nullptr;
    const cudaChannelFormatDesc aFormat = cudaCreateChannelDesc<float>();
    EXPECT_EQ(
        cudaMalloc3DArray(&pArray, &aFormat, aSize, cudaArrayLayered | cudaArraySurfaceLoadStore),
        cudaSuccess);
    return pArray;
}
cudaResourceDesc Resource(cudaArray_t pArray)
{
    cudaResourceDesc aDesc = {};
    aDesc.resType = cudaResourceTypeArray;
    aDesc.res.array.array = pArray;
    return aDesc;
}
cudaStream_t NewStream()
{
    cudaStream_t pStream = nullptr;
    EXPECT_EQ(cudaStreamCreateWithFlags(&pStream, cudaStreamNonBlocking), cudaSuccess);
    return pStream;
}

class SoftCudaTest : public testing::Test
{
protected:
    void TearDown() override { SoftCuda::Reset(); }
};

TEST_F(SoftCudaTest, SamplesAsTheTextureUnitDoes)
{
    constexpr int iX = 5, iY = 3, iZ = 2;
    std::vector<float> vfTexels(iX * iY * iZ);
    for (int i = 0; i < iX * iY * iZ; ++i) vfTexels[i] = i * i % 17 - 5.0f;
    cudaMemcpy3DParms aCopy = {};
    aCopy.srcPtr = make_cudaPitchedPtr(vfTexels.data(), iX * tF, iX, iY);
    aCopy.dstArray = NewArray({iX, iY, iZ});
    aCopy.extent = {iX, iY, iZ};
    aCopy.kind = cudaMemcpyHostToDevice;
    ASSERT_EQ(cudaMemcpy3D(&aCopy), cudaSuccess);

    const float fInf = std::numeric_limits<float>::infinity();
    const std::vector<float> vfXY = {0.5f, 0.5f, 2.0f, 1.0f,  1.7f,  2.1f,  -3.0f, 1.25f,  0.0f,
                                     0.0f, 5.0f, 3.0f, 4.77f, 2.9f,  3.33f, 40.0f, 2.502f, 1.498f,
                                     fNaN, 1.5f, fInf, 0.5f,  -fInf, 2.5f,  4.4f,  -1e30f};
    const int iPoints = static_cast<int>(vfXY.size() / 2);
    const auto At = [&](int x, int y, int z)
    {
        return vfTexels[(std::clamp(z, 0, iZ - 1) * iY + std::clamp(y, 0, iY - 1)) * iX +
                        std::clamp(x, 0, iX - 1)];
    };
    const auto Split = [](double d, int& i) {  // weight of the second texel, in 1/256
        d = std::isnan(d) ? 0 : std::clamp(d, -100.0, 100.0);
        i = static_cast<int>(std::floor(d - 0.5));
        return std::round((d - 0.5 - i) * 256) / 256;
    };
    for (const auto eFilter : {cudaFilterModeLinear, cudaFilterModePoint})
        for (const int iLayer : {-1, 0, 1, 9})
        {
            cudaTextureDesc aDesc = {};
            aDesc.addressMode[0] = aDesc.addressMode[1] = cudaAddressModeClamp;
            aDesc.filterMode = eFilter;
            const cudaResourceDesc aResource = Resource(aCopy.dstArray);
            Points aPoints{0, OnDevice(vfXY), OnDevice(vfXY), iLayer};
            ASSERT_EQ(cudaCreateTextureObject(&aPoints.uTexture, &aResource, &aDesc, nullptr),
                      cudaSuccess);
            ASSERT_EQ(Launch(Config(iPoints, 1), SampleKernel, aPoints), cudaSuccess);
            const std::vector<float> vfOut = OnHost(aPoints.pfOut, iPoints);
            for (int i = 0; i < iPoints; ++i)
            {
                int x, y;
                double dA = Split(vfXY[2 * i], x), dB = Split(vfXY[2 * i + 1], y);
                if (eFilter == cudaFilterModePoint)
                {
                    x += dA >= 0.5, y += dB >= 0.5;
                    dA = dB = 0;
                }
                const double dWant =
                    (1 - dB) * ((1 - dA) * At(x, y, iLayer) + dA * At(x + 1, y, iLayer)) +
                    dB * ((1 - dA) * At(x, y + 1, iLayer) + dA * At(x + 1, y + 1, iLayer));
                EXPECT_NEAR(vfOut[i], dWant, 4e-6)
                    << "point " << i << " layer " << iLayer << " filter " << eFilter;
            }
        }
}

TEST_F(SoftCudaTest, WorkWaitsUntilItIsDemanded)
{
    cudaStream_t pA = NewStream(), pB = NewStream();
    float* pfDevice = OnDevice({1.0f, 1.0f, 1.0f});
    float *pfPinned = nullptr, fPageable = 10.0f;
    ASSERT_EQ(cudaMallocHost(&pfPinned, tF), cudaSuccess);
    *pfPinned = 20.0f;
    cudaMemcpyAsync(pfDevice, &fPageable, tF, cudaMemcpyHostToDevice, pA);
    cudaMemcpyAsync(pfDevice + 1, pfPinned, tF, cudaMemcpyHostToDevice, pA);
    fPageable = 11.0f;  // too late: staged
    *pfPinned = 21.0f;  // in time, alas
    EXPECT_EQ(Peek(pfDevice), 1.0f) << "a blocking copy ran a non-blocking stream";
    ASSERT_EQ(cudaStreamSynchronize(pA), cudaSuccess);
    EXPECT_EQ(OnHost(pfDevice, 3), (std::vector<float>{10.0f, 21.0f, 1.0f}));

    cudaEvent_t aEvent = nullptr;
    ASSERT_EQ(cudaEventCreateWithFlags(&aEvent, cudaEventDisableTiming), cudaSuccess);
    cudaEventRecord(aEvent, pA);
    EXPECT_EQ(cudaEventQuery(aEvent), cudaErrorNotReady);
    EXPECT_EQ(cudaEventQuery(aEvent), cudaSuccess) << "a loop of queries must end";

    // B reads what A makes, and A makes the next before B is demanded.
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
        const float fBefore = 10.0f, fNext = -2.0f;
        cudaMemcpy(pfDevice, &fBefore, tF, cudaMemcpyHostToDevice);
        cudaMemsetAsync(pfDevice, 0, tF, pA);
        cudaEventRecord(aEvent, pA);
        if (r.bWait) cudaStreamWaitEvent(pB, aEvent);
        ASSERT_EQ(Launch(Config(1, 1, 0, pB), AddKernel, pfDevice + 2, pfDevice), cudaSuccess);
        cudaEventRecord(aEvent, pB);
        if (r.bWaitBack) cudaStreamWaitEvent(pA, aEvent);
        cudaMemcpyAsync(pfDevice, &fNext, tF, cudaMemcpyHostToDevice, pA);
        ASSERT_EQ(cudaStreamSynchronize(pB), cudaSuccess);
        EXPECT_EQ(Peek(pfDevice + 2), r.fSeen) << "order " << int(r.eOrder) << " wait " << r.bWait;
        ASSERT_EQ(cudaDeviceSynchronize(), cudaSuccess);
        EXPECT_EQ(Peek(pfDevice), -2.0f);
    }
}

TEST_F(SoftCudaTest, CopiesBoxesBetweenHostArrayAndPitchedMemory)
{
    const cudaExtent aSize{7, 5, 3}, aBox{4, 2, 2};
    std::vector<float> vfFrom(9 * 6 * 4), vfTo(8 * 4 * 2, -1.0f);
    std::iota(vfFrom.begin(), vfFrom.end(), 0.0f);
    cudaPitchedPtr aPitched = {nullptr, 0, aSize.width, aSize.height};
    ASSERT_EQ(cudaMallocPitch(&aPitched.ptr, &aPitched.pitch, aSize.width * tF,
                              aSize.height * aSize.depth),
              cudaSuccess);
    EXPECT_EQ(aPitched.pitch, 512u);
    cudaArray_t pA = NewArray(aSize), pB = NewArray(aSize);
    cudaMemcpy3DParms aHostToA = {}, aAToB = {}, aBToPitched = {}, aPitchedToHost = {};
    aHostToA.srcPtr = make_cudaPitchedPtr(vfFrom.data(), 9 * tF, 9, 6);
    aHostToA.srcPos = {2 * tF, 3, 1};
    aHostToA.dstArray = aAToB.srcArray = pA;
    aHostToA.dstPos = aAToB.srcPos = {3, 1, 0};
    aAToB.dstArray = aBToPitched.srcArray = pB;
    aAToB.dstPos = aBToPitched.srcPos = {1, 2, 1};
    aBToPitched.dstPtr = aPitchedToHost.srcPtr = aPitched;
    aBToPitched.dstPos = aPitchedToHost.srcPos = {3 * tF, 0, 1};
    aPitchedToHost.dstPtr = make_cudaPitchedPtr(vfTo.data(), 8 * tF, 8, 4);
    aPitchedToHost.dstPos = {tF, 1, 0};
    aHostToA.extent = aAToB.extent = aBToPitched.extent = aBox;
    aPitchedToHost.extent = {aBox.width * tF, aBox.height, aBox.depth};
    aHostToA.kind = cudaMemcpyHostToDevice;
    aAToB.kind = aBToPitched.kind = cudaMemcpyDeviceToDevice;
    aPitchedToHost.kind = cudaMemcpyDefault;
    for (const auto* pCopy : {&aHostToA, &aAToB, &aBToPitched, &aPitchedToHost})
        ASSERT_EQ(cudaMemcpy3D(pCopy), cudaSuccess);
    for (std::size_t i = 0; i < vfTo.size(); ++i)
    {
        const std::size_t x = i % 8 - 1, y = i / 8 % 4 - 1, z = i / 32;
        const bool bIn = x < aBox.width && y < aBox.height && z < aBox.depth;
        EXPECT_EQ(vfTo[i], bIn ? vfFrom[((z + 1) * 6 + y + 3) * 9 + x + 2] : -1.0f) << i;
    }
    std::vector<float> vfRow(3);
    cudaMemcpy2D(vfRow.data(), 0, aPitched.ptr, aPitched.pitch, 3 * tF, 1, cudaMemcpyDeviceToHost);
    EXPECT_TRUE(std::isnan(vfRow[0])) << "new memory is no zeros";

    cudaMemcpy3DParms aBad = aHostToA;
    for (auto& [iMember, tValue] :
         std::vector<std::pair<std::size_t*, std::size_t>>{{&aBad.dstPos.x, 4},
                                                           {&aBad.dstPos.y, 4},
                                                           {&aBad.dstPos.z, 2},
                                                           {&aBad.srcPtr.ysize, 4},
                                                           {&aBad.srcPtr.pitch, 5 * tF},
                                                           {&aBad.extent.width, 8}})
    {
        aBad = aHostToA;
        *iMember = tValue;
        EXPECT_EQ(cudaMemcpy3D(&aBad), cudaErrorInvalidValue);
    }
    aBad = aBToPitched;  // beyond the allocation
    aBad.dstPos.z = 2;
    EXPECT_EQ(cudaMemcpy3D(&aBad), cudaErrorInvalidValue);
}

TEST_F(SoftCudaTest, BlocksSumThroughSharedMemoryOnBothDevices)
{
    const auto Sum = [](int iDevice)
    {
        ASSERT_EQ(cudaSetDevice(iDevice), cudaSuccess);
        std::vector<float> vf(3 * 64);
        std::iota(vf.begin(), vf.end(), float(iDevice));
        float *pfIn = OnDevice(vf), *pfOut = OnDevice({0, 0, 0});
        ASSERT_EQ(Launch(Config(3, 64, 64 * tF), SumKernel, pfIn, pfOut, false), cudaSuccess);
        for (int b = 0; const float fSum : OnHost(pfOut, 3))
            EXPECT_EQ(fSum, 64 * (iDevice + 64 * b++) + 63 * 32) << "block " << b;
    };
    std::jthread aOther(Sum, 1);
    Sum(0);
    aOther.join();
    EXPECT_EQ(SoftCuda::GetLaunches(), 2);
}

TEST_F(SoftCudaTest, KernelsThatBreakRulesBreakTheDevice)
{
    float* pf = nullptr;
    cudaSurfaceObject_t uSurface = 0;
    for (int iCase = 0; iCase < 8; ++iCase)
    {
        SCOPED_TRACE(iCase);
        pf = OnDevice(std::vector<float>(64));
        const cudaResourceDesc aResource = Resource(NewArray({4, 3, 2}));
        ASSERT_EQ(cudaCreateSurfaceObject(&uSurface, &aResource), cudaSuccess);
        const struct
        {
            int iX, iY, iLayer;
        } aAt[6] = {{12, 2, 1}, {16, 0, 0}, {-4, 0, 0}, {2, 0, 0}, {0, 3, 0}, {0, 0, 2}};
        if (iCase < 6)
            Launch(Config(1, 1), StoreKernel, uSurface, aAt[iCase].iX, aAt[iCase].iY,
                   aAt[iCase].iLayer);
        else
            Launch(Config(1, 64, iCase == 6 ? 64 * tF : 0), SumKernel, pf, pf, true);
        const cudaError_t eWant = iCase == 0 ? cudaSuccess : cudaErrorLaunchFailure;
        EXPECT_EQ(cudaDeviceSynchronize(), eWant);
        EXPECT_EQ(cudaMalloc(&pf, 4), eWant) << "the error stays";
        EXPECT_EQ(cudaGetLastError(), eWant);
        SoftCuda::Reset();
    }
}

TEST_F(SoftCudaTest, RefusesCountsAndFailsOnRequest)
{
    struct Case
    {
        dim3 aGrid, aBlock;
        std::size_t tShared;
        cudaError_t eWant;
    };
    for (const Case& r : {Case{{1, 65535}, {1, 16, 64}, 49152, cudaSuccess},
                          {{0}, 1, 0, cudaErrorInvalidConfiguration},
                          {{1, 1, 65536}, 1, 0, cudaErrorInvalidConfiguration},
                          {1, {32, 33}, 0, cudaErrorInvalidConfiguration},
                          {1, 1, 49153, cudaErrorInvalidValue}})
        EXPECT_EQ(Launch(Config(r.aGrid, r.aBlock, r.tShared), StoreKernel, 0, 0, 0, 0), r.eWant);
    SoftCuda::Reset();

    float *pf = nullptr, fHost = 0;
    SoftCuda::SetMemory(1000);
    EXPECT_EQ(cudaMalloc(&pf, 1001), cudaErrorMemoryAllocation);
    EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
    SoftCuda::FailNext("cudaMalloc", cudaErrorMemoryAllocation, 1);
    EXPECT_EQ(cudaMalloc(&pf, 1000), cudaSuccess);
    EXPECT_EQ(cudaFree(pf), cudaSuccess);
    EXPECT_EQ(cudaMalloc(&pf, 100), cudaErrorMemoryAllocation);
    EXPECT_EQ(cudaMalloc(&pf, 100), cudaSuccess);
    EXPECT_EQ(cudaMemcpy(pf + 25, &fHost, tF, cudaMemcpyHostToDevice), cudaErrorInvalidValue);
    EXPECT_EQ(cudaMemsetAsync(pf + 24, 0, 2 * tF), cudaErrorInvalidValue);
    cudaStream_t pStream = NewStream();
    EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 2);
    EXPECT_EQ(cudaStreamDestroy(pStream), cudaSuccess);
    EXPECT_EQ(cudaStreamSynchronize(pStream), cudaErrorInvalidResourceHandle);
    EXPECT_EQ(cudaFree(pf), cudaSuccess);
    EXPECT_EQ(cudaFree(pf), cudaErrorInvalidValue);
    EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 0);
    EXPECT_EQ(SoftCuda::GetMemoryPeak(), 1000u);

    int iValue = 7;
    SoftCuda::SetDevices(0);
    EXPECT_EQ(cudaGetDeviceCount(&iValue), cudaErrorNoDevice);
    SoftCuda::SetDevices(-1);
    EXPECT_EQ(cudaGetDeviceCount(&iValue), cudaErrorInsufficientDriver);
    EXPECT_EQ(cudaDriverGetVersion(&iValue), cudaSuccess);
    EXPECT_EQ(iValue, 0);
}
}  // namespace
