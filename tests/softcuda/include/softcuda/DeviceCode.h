#pragma once

#include <cmath>

#include "softcuda/Types.h"

// What a kernel sees. Dynamic shared memory is the one array s_afShared, declared in the global
// namespace: extern __shared__ float s_afShared[];

namespace SoftCuda
{
inline constinit thread_local const uint3* t_pThread = nullptr;
/// Threads of a block take turns on one thread of the machine: the sanitizer must not see that they
/// share this pointer.
[[gnu::no_sanitize("thread")]] inline const uint3& ThisThread()
{
    return *t_pThread;
}
/// One sample of a layered texture; a bad handle traps and gives 0.
float Sample(cudaTextureObject_t uTexture, float fX, float fY, int iLayer);
/// The texel at byte iX of a row, null (after a trap) outside of the array.
void* GetTexel(cudaSurfaceObject_t uSurface, int iX, int iY, int iLayer, std::size_t tSize);
void BlockBarrier();
}  // namespace SoftCuda

#define threadIdx SoftCuda::ThisThread()
inline constinit thread_local uint3 blockIdx{};

inline void __syncthreads()
{
    SoftCuda::BlockBarrier();
}

template <class T>
T tex2DLayered(cudaTextureObject_t texObject, float x, float y, int layer) = delete;
template <>
inline float tex2DLayered<float>(cudaTextureObject_t texObject, float x, float y, int layer)
{
    return SoftCuda::Sample(texObject, x, y, layer);
}

template <class T>
T surf2DLayeredread(cudaSurfaceObject_t obj, int x, int y, int layer)
{
    const void* pvTexel = SoftCuda::GetTexel(obj, x, y, layer, sizeof(T));
    return pvTexel ? *static_cast<const T*>(pvTexel) : T{};
}
template <class T>
void surf2DLayeredwrite(T val, cudaSurfaceObject_t obj, int x, int y, int layer)
{
    if (void* pvTexel = SoftCuda::GetTexel(obj, x, y, layer, sizeof(T)))
        *static_cast<T*>(pvTexel) = val;
}
