#include <algorithm>
#include <cmath>

#include "tests/softcuda/Runtime.h"

// Arrays, texture and surface objects, and the texture unit.

struct cudaArray : SoftCuda::Counted
{
    std::vector<float> vfTexels;  // [layer][y][x]
    cudaExtent aSize;
};

namespace SoftCuda
{
namespace
{
/// What a handle of a texture or a surface points to.
struct Object : Counted
{
    cudaArray* pArray;
    bool bLinear;
};

const Object& Find(unsigned long long ulHandle)
{
    return *reinterpret_cast<const Object*>(ulHandle);
}

/// The first texel of one axis, the second if it counts, and its weight, a multiple of 1/256.
struct Axis
{
    int ai[2];
    float fWeight = 0;
    Axis(float fX, std::size_t tSize, bool bLinear)
    {
        fX = fX > -1.0f ? std::min(fX, static_cast<float>(tSize) + 1.0f) : -1.0f;  // NaN: -1
        const float fFirst = std::floor(bLinear ? fX - 0.5f : fX);
        if (bLinear) fWeight = std::floor((fX - 0.5f - fFirst) * 256.0f + 0.5f) / 256.0f;
        for (const int n : {0, 1}) ai[n] = std::clamp(int(fFirst) + n, 0, int(tSize) - 1);
    }
    float Weight(int n) const { return n == 0 ? 1 - fWeight : fWeight; }
};

cudaError_t AddObject(const char* pcCall, unsigned long long* pulHandle, cudaArray* pArray,
                      bool bLinear)
{
    return Call(
        pcCall,
        [=](Device&) {
            *pulHandle = reinterpret_cast<unsigned long long>(new Object{{}, pArray, bLinear});
        });
}

/// The texel at byte iX of a row; there is none outside of the array.
float& GetTexel(cudaSurfaceObject_t ulSurface, int iX, int iY, int iLayer)
{
    cudaArray& rArray = *Find(ulSurface).pArray;
    const auto& [tX, tY, tLayers] = rArray.aSize;
    const std::size_t tTexel = std::size_t(iX) / sizeof(float);  // negative: far outside
    if (iX % sizeof(float) == 0 && tTexel < tX && std::size_t(iY) < tY &&
        std::size_t(iLayer) < tLayers)
        return rArray.vfTexels[(iLayer * tY + iY) * tX + tTexel];
    Trap("surface access beside the array");
}
}  // namespace
}  // namespace SoftCuda

using namespace SoftCuda;

template <>
float tex2DLayered(cudaTextureObject_t texture, float x, float y, int layer)
{
    const Object& rObject = Find(texture);
    const cudaArray* const pArray = rObject.pArray;
    const auto& [tX, tY, tLayers] = pArray->aSize;
    const float* const pfLayer =
        pArray->vfTexels.data() + std::clamp(layer, 0, int(tLayers) - 1) * (tX * tY);
    const Axis aX(x, tX, rObject.bLinear), aY(y, tY, rObject.bLinear);
    if (!rObject.bLinear) return pfLayer[aY.ai[0] * tX + aX.ai[0]];
    float fSum = 0;
    for (const int v : {0, 1})
        for (const int u : {0, 1})
            fSum += aX.Weight(u) * aY.Weight(v) * pfLayer[aY.ai[v] * tX + aX.ai[u]];
    return fSum;
}

template <>
float surf2DLayeredread(cudaSurfaceObject_t surface, int x, int y, int layer)
{
    return GetTexel(surface, x, y, layer);
}

void surf2DLayeredwrite(float value, cudaSurfaceObject_t surface, int x, int y, int layer)
{
    GetTexel(surface, x, y, layer) = value;
}

cudaError_t cudaMalloc3DArray(cudaArray_t* array, const cudaChannelFormatDesc*, cudaExtent extent,
                              unsigned int flags)
{
    const std::size_t tTexels = extent.width * extent.height * extent.depth;
    if (tTexels == 0 || flags != (cudaArrayLayered | cudaArraySurfaceLoadStore))
        return cudaErrorInvalidValue;
    const cudaError_t eError = Take(__func__, tTexels * sizeof(float));
    if (eError != cudaSuccess) return eError;
    *array = new cudaArray{{}, std::vector<float>(tTexels, NAN), extent};
    return cudaSuccess;
}

cudaError_t cudaFreeArray(cudaArray_t array)
{
    Current().Synchronize();
    Current().tUsed -= array->vfTexels.size() * sizeof(float);
    delete array;
    return cudaSuccess;
}

cudaError_t cudaCreateTextureObject(cudaTextureObject_t* object, const cudaResourceDesc* resource,
                                    const cudaTextureDesc* texture, const void*)
{
    const auto& [aiMode, iFilter, iRead, iNormalized] = *texture;
    if (aiMode[0] != cudaAddressModeClamp || aiMode[1] != cudaAddressModeClamp ||
        iRead != cudaReadModeElementType || iNormalized != 0)
        return cudaErrorInvalidValue;
    return AddObject(__func__, object, resource->res.array.array, iFilter == cudaFilterModeLinear);
}

cudaError_t cudaCreateSurfaceObject(cudaSurfaceObject_t* object, const cudaResourceDesc* resource)
{
    return AddObject(__func__, object, resource->res.array.array, false);
}

cudaError_t cudaDestroySurfaceObject(cudaSurfaceObject_t object)
{
    delete &Find(object);
    return cudaSuccess;
}

cudaError_t cudaDestroyTextureObject(cudaTextureObject_t object)
{
    return cudaDestroySurfaceObject(object);
}
