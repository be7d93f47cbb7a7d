#pragma once

// The CUDA runtime of machines without a GPU: the part of the API that the CUDA backend uses, on
// the CPU and on purpose as late, as strict and as unhelpful as the real one may be. The backend's
// sources are compiled by g++ with this header found first; SoftCuda.h steers it from the tests.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <functional>
#include <type_traits>

#define __global__
#define __host__
#define __device__
#define __shared__
#define __grid_constant__
#define __forceinline__ inline __attribute__((always_inline))
#define __launch_bounds__(...)

/// Every error this runtime returns: value, name, text.
#define SOFTCUDA_ERRORS(X)                                                      \
    X(0, cudaSuccess, "no error")                                               \
    X(1, cudaErrorInvalidValue, "invalid argument")                             \
    X(2, cudaErrorMemoryAllocation, "out of memory")                            \
    X(35, cudaErrorInsufficientDriver, "CUDA driver version is insufficient")   \
    X(98, cudaErrorInvalidDeviceFunction, "invalid device function")            \
    X(100, cudaErrorNoDevice, "no CUDA-capable device is detected")             \
    X(209, cudaErrorNoKernelImageForDevice, "no kernel image is available")     \
    X(214, cudaErrorECCUncorrectable, "uncorrectable ECC error encountered")    \
    X(600, cudaErrorNotReady, "device not ready")                               \
    X(700, cudaErrorIllegalAddress, "an illegal memory access was encountered") \
    X(999, cudaErrorUnknown, "unknown error")

#define SOFTCUDA_ENUM(VALUE, NAME, TEXT) NAME = VALUE,
enum cudaError_t
{
    SOFTCUDA_ERRORS(SOFTCUDA_ENUM)
};

struct uint3
{
    unsigned int x = 1, y = 1, z = 1;
};
using dim3 = uint3;

using cudaStream_t = struct CUstream_st*;
using cudaEvent_t = struct CUevent_st*;
using cudaMemPool_t = struct CUmemPool_st*;

using cudaMemcpyKind = int;
inline constexpr cudaMemcpyKind cudaMemcpyHostToDevice = 1, cudaMemcpyDeviceToHost = 2;
inline constexpr cudaMemcpyKind cudaMemcpyDeviceToDevice = 3;
inline constexpr unsigned int cudaStreamNonBlocking = 1;
inline constexpr unsigned int cudaEventDefault = 0, cudaEventBlockingSync = 1;
inline constexpr unsigned int cudaEventDisableTiming = 2;
inline constexpr int cudaMemPoolAttrReleaseThreshold = 4;

struct cudaDeviceProp  // the fields that are filled
{
    char name[256];
    std::size_t totalGlobalMem;
    int major, minor, multiProcessorCount, l2CacheSize;
};
struct cudaFuncAttributes
{
};
struct cudaLaunchConfig_t
{
    dim3 gridDim, blockDim;
    std::size_t dynamicSmemBytes;
    cudaStream_t stream;
};

cudaError_t cudaGetDeviceCount(int* count);
cudaError_t cudaDriverGetVersion(int* driverVersion);
cudaError_t cudaRuntimeGetVersion(int* runtimeVersion);
cudaError_t cudaSetDevice(int device);
cudaError_t cudaGetDevice(int* device);
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device);
cudaError_t cudaFuncGetAttributes(cudaFuncAttributes* attr, const void* func);
cudaError_t cudaMemGetInfo(std::size_t* free, std::size_t* total);
cudaError_t cudaGetLastError();
const char* cudaGetErrorName(cudaError_t error);
const char* cudaGetErrorString(cudaError_t error);
cudaError_t cudaDeviceSynchronize();

cudaError_t cudaMalloc(void** devPtr, std::size_t size);
cudaError_t cudaMallocAsync(void** devPtr, std::size_t size, cudaStream_t stream);
cudaError_t cudaFreeAsync(void* devPtr, cudaStream_t stream);
cudaError_t cudaDeviceGetDefaultMemPool(cudaMemPool_t* pool, int device);
cudaError_t cudaMemPoolSetAttribute(cudaMemPool_t pool, int attribute, void* value);
cudaError_t cudaFree(void* devPtr);
cudaError_t cudaMallocHost(void** ptr, std::size_t size);
cudaError_t cudaFreeHost(void* ptr);
cudaError_t cudaMemsetAsync(void* devPtr, int value, std::size_t count, cudaStream_t stream);
cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream);

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned int flags);
cudaError_t cudaStreamDestroy(cudaStream_t stream);
cudaError_t cudaStreamSynchronize(cudaStream_t stream);
cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int flags);
cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags);
cudaError_t cudaEventDestroy(cudaEvent_t event);
cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream);
cudaError_t cudaEventSynchronize(cudaEvent_t event);
cudaError_t cudaEventQuery(cudaEvent_t event);
cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end);

// What a kernel sees. Dynamic shared memory is the one array s_afShared, declared in the global
// namespace: extern __shared__ float s_afShared[];

namespace SoftCuda
{
/// Queues a launch; fKernel runs the kernel for the CUDA thread that threadIdx and blockIdx name.
cudaError_t Launch(const cudaLaunchConfig_t& rConfig, std::function<void()> fKernel);

}  // namespace SoftCuda

inline constinit thread_local uint3 threadIdx, blockIdx;
void __syncthreads();
using std::min, std::max;
struct alignas(16) float4
{
    float x, y, z, w;
};
template <class T>
const T& __ldg(const T* pValue)
{
    return *pValue;
}
inline unsigned int __float_as_uint(float f)
{
    return std::bit_cast<unsigned int>(f);
}
/// The sum, rounded down; the double holds it whole.
inline float __fadd_rd(float a, float b)
{
    const double dSum = double(a) + b;
    const float fSum = float(dSum);
    return fSum > dSum ? std::nextafterf(fSum, -INFINITY) : fSum;
}

template <typename... ExpTypes, typename... ActTypes>
cudaError_t cudaLaunchKernelEx(const cudaLaunchConfig_t* config, void (*kernel)(ExpTypes...),
                               ActTypes... args)
{
    static_assert((std::is_trivially_copyable_v<ExpTypes> && ...), "a launch copies bytes");
    static_assert((sizeof(ExpTypes) + ... + 0) <= 4096, "parameters of a kernel");
    return SoftCuda::Launch(*config, [=] { kernel(args...); });
}
