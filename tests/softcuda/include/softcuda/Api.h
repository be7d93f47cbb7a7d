#pragma once

#include "softcuda/Types.h"

cudaError_t cudaGetDeviceCount(int* count);
cudaError_t cudaDriverGetVersion(int* driverVersion);
cudaError_t cudaRuntimeGetVersion(int* runtimeVersion);
cudaError_t cudaSetDevice(int device);
cudaError_t cudaGetDevice(int* device);
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device);
cudaError_t cudaMemGetInfo(std::size_t* free, std::size_t* total);
cudaError_t cudaGetLastError();
cudaError_t cudaPeekAtLastError();
const char* cudaGetErrorName(cudaError_t error);
const char* cudaGetErrorString(cudaError_t error);
cudaError_t cudaDeviceSynchronize();
cudaError_t cudaDeviceReset();

cudaError_t cudaMalloc(void** devPtr, std::size_t size);
cudaError_t cudaMallocPitch(void** devPtr, std::size_t* pitch, std::size_t width,
                            std::size_t height);
cudaError_t cudaFree(void* devPtr);
cudaError_t cudaMallocHost(void** ptr, std::size_t size);
cudaError_t cudaHostAlloc(void** pHost, std::size_t size, unsigned int flags);
cudaError_t cudaFreeHost(void* ptr);

cudaError_t cudaMemsetAsync(void* devPtr, int value, std::size_t count, cudaStream_t stream = 0);
cudaError_t cudaMemset2DAsync(void* devPtr, std::size_t pitch, int value, std::size_t width,
                              std::size_t height, cudaStream_t stream = 0);
cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind);
cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream = 0);
cudaError_t cudaMemcpy2D(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                         std::size_t width, std::size_t height, cudaMemcpyKind kind);
cudaError_t cudaMemcpy2DAsync(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                              std::size_t width, std::size_t height, cudaMemcpyKind kind,
                              cudaStream_t stream = 0);
cudaError_t cudaMemcpy3D(const cudaMemcpy3DParms* p);
cudaError_t cudaMemcpy3DAsync(const cudaMemcpy3DParms* p, cudaStream_t stream = 0);

cudaError_t cudaMalloc3DArray(cudaArray_t* array, const cudaChannelFormatDesc* desc,
                              cudaExtent extent, unsigned int flags = 0);
cudaError_t cudaFreeArray(cudaArray_t array);
cudaError_t cudaCreateTextureObject(cudaTextureObject_t* pTexObject,
                                    const cudaResourceDesc* pResDesc,
                                    const cudaTextureDesc* pTexDesc,
                                    const cudaResourceViewDesc* pResViewDesc);
cudaError_t cudaDestroyTextureObject(cudaTextureObject_t texObject);
cudaError_t cudaCreateSurfaceObject(cudaSurfaceObject_t* pSurfObject,
                                    const cudaResourceDesc* pResDesc);
cudaError_t cudaDestroySurfaceObject(cudaSurfaceObject_t surfObject);

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* pStream, unsigned int flags);
cudaError_t cudaStreamDestroy(cudaStream_t stream);
cudaError_t cudaStreamSynchronize(cudaStream_t stream);
cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int flags = 0);
cudaError_t cudaEventCreate(cudaEvent_t* event);
cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags);
cudaError_t cudaEventDestroy(cudaEvent_t event);
cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream = 0);
cudaError_t cudaEventSynchronize(cudaEvent_t event);
cudaError_t cudaEventQuery(cudaEvent_t event);
cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end);

// The typed forms of the C++ API.
template <class T>
cudaError_t cudaMalloc(T** devPtr, std::size_t size)
{
    return cudaMalloc(reinterpret_cast<void**>(devPtr), size);
}
template <class T>
cudaError_t cudaMallocPitch(T** devPtr, std::size_t* pitch, std::size_t width, std::size_t height)
{
    return cudaMallocPitch(reinterpret_cast<void**>(devPtr), pitch, width, height);
}
template <class T>
cudaError_t cudaMallocHost(T** ptr, std::size_t size)
{
    return cudaMallocHost(reinterpret_cast<void**>(ptr), size);
}
template <class T>
cudaError_t cudaHostAlloc(T** ptr, std::size_t size, unsigned int flags)
{
    return cudaHostAlloc(reinterpret_cast<void**>(ptr), size, flags);
}

inline cudaChannelFormatDesc cudaCreateChannelDesc(int x, int y, int z, int w,
                                                   cudaChannelFormatKind f)
{
    return {x, y, z, w, f};
}
template <class T>
cudaChannelFormatDesc cudaCreateChannelDesc() = delete;
template <>
inline cudaChannelFormatDesc cudaCreateChannelDesc<float>()
{
    return {32, 0, 0, 0, cudaChannelFormatKindFloat};
}
inline cudaExtent make_cudaExtent(std::size_t w, std::size_t h, std::size_t d)
{
    return {w, h, d};
}
inline cudaPos make_cudaPos(std::size_t x, std::size_t y, std::size_t z)
{
    return {x, y, z};
}
inline cudaPitchedPtr make_cudaPitchedPtr(void* d, std::size_t p, std::size_t xsz, std::size_t ysz)
{
    return {d, p, xsz, ysz};
}
