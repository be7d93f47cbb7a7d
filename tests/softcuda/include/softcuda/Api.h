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
const char* cudaGetErrorName(cudaError_t error);
const char* cudaGetErrorString(cudaError_t error);
cudaError_t cudaDeviceSynchronize();

cudaError_t cudaMalloc(void** devPtr, std::size_t size);
cudaError_t cudaMallocPitch(void** devPtr, std::size_t* pitch, std::size_t width,
                            std::size_t height);
cudaError_t cudaFree(void* devPtr);
cudaError_t cudaMallocHost(void** ptr, std::size_t size);
cudaError_t cudaFreeHost(void* ptr);

cudaError_t cudaMemset2DAsync(void* devPtr, std::size_t pitch, int value, std::size_t width,
                              std::size_t height, cudaStream_t stream = 0);
cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream = 0);
cudaError_t cudaMemcpy2DAsync(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                              std::size_t width, std::size_t height, cudaMemcpyKind kind,
                              cudaStream_t stream = 0);

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
cudaError_t cudaEventCreateWithFlags(cudaEvent_t* event, unsigned int flags);
cudaError_t cudaEventDestroy(cudaEvent_t event);
cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream = 0);
cudaError_t cudaEventSynchronize(cudaEvent_t event);
cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t end);

template <class T>
cudaChannelFormatDesc cudaCreateChannelDesc() = delete;
template <>
inline cudaChannelFormatDesc cudaCreateChannelDesc<float>()
{
    return {32, 0, 0, 0, cudaChannelFormatKindFloat};
}
