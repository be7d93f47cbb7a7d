#pragma once

#include <cstddef>

// Types of the runtime API, with the names and values of the toolkit's headers.

#define __global__
#define __device__
#define __host__
#define __shared__
#define __grid_constant__
#define __forceinline__ inline __attribute__((always_inline))
#define __launch_bounds__(...)

/// Every error this runtime returns: value, name, text.
#define SOFTCUDA_ERRORS(X)                                                      \
    X(0, cudaSuccess, "no error")                                               \
    X(1, cudaErrorInvalidValue, "invalid argument")                             \
    X(2, cudaErrorMemoryAllocation, "out of memory")                            \
    X(9, cudaErrorInvalidConfiguration, "invalid configuration argument")       \
    X(12, cudaErrorInvalidPitchValue, "invalid pitch argument")                 \
    X(21, cudaErrorInvalidMemcpyDirection, "invalid copy direction for memcpy") \
    X(35, cudaErrorInsufficientDriver,                                          \
      "CUDA driver version is insufficient for CUDA runtime version")           \
    X(100, cudaErrorNoDevice, "no CUDA-capable device is detected")             \
    X(101, cudaErrorInvalidDevice, "invalid device ordinal")                    \
    X(214, cudaErrorECCUncorrectable, "uncorrectable ECC error encountered")    \
    X(400, cudaErrorInvalidResourceHandle, "invalid resource handle")           \
    X(600, cudaErrorNotReady, "device not ready")                               \
    X(700, cudaErrorIllegalAddress, "an illegal memory access was encountered") \
    X(702, cudaErrorLaunchTimeout, "the launch timed out and was terminated")   \
    X(719, cudaErrorLaunchFailure, "unspecified launch failure")                \
    X(801, cudaErrorNotSupported, "operation not supported")                    \
    X(999, cudaErrorUnknown, "unknown error")

enum cudaError
{
#define SOFTCUDA_ENUM(VALUE, NAME, TEXT) NAME = VALUE,
    SOFTCUDA_ERRORS(SOFTCUDA_ENUM)
#undef SOFTCUDA_ENUM
};
using cudaError_t = cudaError;

struct uint3
{
    unsigned int x, y, z;
};
struct dim3
{
    unsigned int x, y, z;
    constexpr dim3(unsigned int vx = 1, unsigned int vy = 1, unsigned int vz = 1)
        : x(vx), y(vy), z(vz)
    {
    }
};

using cudaStream_t = struct CUstream_st*;
using cudaEvent_t = struct CUevent_st*;
using cudaArray_t = struct cudaArray*;
using cudaTextureObject_t = unsigned long long;
using cudaSurfaceObject_t = unsigned long long;

inline constexpr unsigned int cudaStreamNonBlocking = 1;
inline constexpr unsigned int cudaEventDefault = 0;
inline constexpr unsigned int cudaEventBlockingSync = 1;
inline constexpr unsigned int cudaEventDisableTiming = 2;
inline constexpr unsigned int cudaArrayLayered = 1;
inline constexpr unsigned int cudaArraySurfaceLoadStore = 2;

struct cudaDeviceProp  // the fields that are filled
{
    char name[256];
    std::size_t totalGlobalMem;
    int major, minor;
    int multiProcessorCount;
};

enum cudaMemcpyKind
{
    cudaMemcpyHostToDevice = 1,
    cudaMemcpyDeviceToHost = 2,
    cudaMemcpyDeviceToDevice = 3
};
enum cudaChannelFormatKind
{
    cudaChannelFormatKindFloat = 2
};
struct cudaChannelFormatDesc
{
    int x, y, z, w;  // bits
    cudaChannelFormatKind f;
};
struct cudaExtent
{
    std::size_t width, height, depth;
};

enum cudaResourceType
{
    cudaResourceTypeArray = 0
};
struct cudaResourceDesc
{
    cudaResourceType resType;
    union
    {
        struct
        {
            cudaArray_t array;
        } array;
    } res;
    unsigned int flags;
};
enum cudaTextureAddressMode
{
    cudaAddressModeWrap = 0,
    cudaAddressModeClamp = 1
};
enum cudaTextureFilterMode
{
    cudaFilterModePoint = 0,
    cudaFilterModeLinear = 1
};
enum cudaTextureReadMode
{
    cudaReadModeElementType = 0
};
struct cudaTextureDesc  // the fields that are read
{
    cudaTextureAddressMode addressMode[3];
    cudaTextureFilterMode filterMode;
    cudaTextureReadMode readMode;
    int normalizedCoords;
};
struct cudaResourceViewDesc;
struct cudaLaunchAttribute;

struct cudaLaunchConfig_t
{
    dim3 gridDim, blockDim;
    std::size_t dynamicSmemBytes;
    cudaStream_t stream;
    cudaLaunchAttribute* attrs;
    unsigned int numAttrs;
};
