#include <algorithm>
#include <cmath>

#include "tests/softcuda/Runtime.h"

// Arrays, texture and surface objects, and the texture unit.

namespace SoftCuda
{
namespace
{
/// A handle is never used twice, nor on two devices.
unsigned long long FirstHandle(const Device& rDevice)
{
    return (&rDevice - g_aDevices.data() + 1ULL) << 32;
}

Object* FindObject(Device& rDevice, unsigned long long ulHandle, bool bTexture)
{
    const unsigned long long ulIndex = ulHandle - FirstHandle(rDevice);
    if (ulIndex >= rDevice.vObjects.size()) return nullptr;
    Object& rObject = rDevice.vObjects[ulIndex];
    return rObject.pArray && rObject.bTexture == bTexture ? &rObject : nullptr;
}

/// An object that a kernel uses; null after a trap.
const Object* Use(unsigned long long ulHandle, bool bTexture)
{
    const Object* const pObject = FindObject(Current(), ulHandle, bTexture);
    if (pObject && (pObject->pArray->uiFlags & cudaArrayLayered) != 0) return pObject;
    Trap("no layered texture or surface of this device: %llx\n", ulHandle);
    return nullptr;
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

cudaError_t AddObject(const char* pcCall, unsigned long long* pulHandle,
                      const cudaResourceDesc& rResource, const cudaTextureDesc* pTexture)
{
    const auto Work = [&](Device& rDevice)
    {
        const Owned* const pOwned = rDevice.Find(EKind::eArray, rResource.res.array.array);
        if (rResource.resType != cudaResourceTypeArray || !pOwned) return cudaErrorInvalidValue;
        const auto pArray = std::static_pointer_cast<cudaArray>(pOwned->pContent);
        Object aObject = {pArray, pTexture != nullptr, false};
        if (pTexture)
        {
            const auto& [aiMode, iFilter, iRead, iNormalized] = *pTexture;
            if (aiMode[0] != cudaAddressModeClamp || aiMode[1] != cudaAddressModeClamp ||
                iFilter == 0 || iRead != cudaReadModeElementType || iNormalized != 0)
                return cudaErrorInvalidValue;
            aObject.bLinear = iFilter == cudaFilterModeLinear;
        }
        else if ((pArray->uiFlags & cudaArraySurfaceLoadStore) == 0)
            return cudaErrorInvalidValue;
        *pulHandle = FirstHandle(rDevice) + rDevice.vObjects.size();
        rDevice.vObjects.push_back(aObject);
        return cudaSuccess;
    };
    return Call(pcCall, Work);
}

cudaError_t DestroyObject(const char* pcCall, unsigned long long ulHandle, bool bTexture)
{
    const auto Work = [=](Device& rDevice)
    {
        Object* const pObject = FindObject(rDevice, ulHandle, bTexture);
        if (!pObject) return cudaErrorInvalidValue;
        *pObject = {};  // work that waits for its turn finds it gone
        return cudaSuccess;
    };
    return Call(pcCall, Work, true);
}
}  // namespace

float Sample(cudaTextureObject_t ulTexture, float fX, float fY, int iLayer)
{
    const Object* const pObject = Use(ulTexture, true);
    if (!pObject) return 0;
    const auto& [tX, tY, tLayers] = pObject->pArray->aSize;
    const float* const pfLayer =
        pObject->pArray->vfTexels.data() + std::clamp(iLayer, 0, int(tLayers) - 1) * (tX * tY);
    const Axis aX(fX, tX, pObject->bLinear), aY(fY, tY, pObject->bLinear);
    if (!pObject->bLinear) return pfLayer[aY.ai[0] * tX + aX.ai[0]];
    float fSum = 0;
    for (const int y : {0, 1})
        for (const int x : {0, 1})
            fSum += aX.Weight(x) * aY.Weight(y) * pfLayer[aY.ai[y] * tX + aX.ai[x]];
    return fSum;
}

float* GetTexel(cudaSurfaceObject_t ulSurface, int iX, int iY, int iLayer)
{
    const Object* const pObject = Use(ulSurface, false);
    if (!pObject) return nullptr;
    const auto& [tX, tY, tLayers] = pObject->pArray->aSize;
    const std::size_t tTexel = std::size_t(iX) / sizeof(float);  // negative: far outside
    if (iX % sizeof(float) == 0 && tTexel < tX && std::size_t(iY) < tY &&
        std::size_t(iLayer) < tLayers)
        return &pObject->pArray->vfTexels[(iLayer * tY + iY) * tX + tTexel];
    Trap("surface access at byte %d, row %d, layer %d\n", iX, iY, iLayer);
    return nullptr;
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaMalloc3DArray(cudaArray_t* array, const cudaChannelFormatDesc* desc,
                              cudaExtent extent, unsigned int flags)
{
    const auto Work = [=](Device& rDevice)
    {
        const auto& [tX, tY, tLayers] = extent;
        if (tX == 0 || tY == 0 || tLayers == 0 || tX > 32768 || tY > 32768 || tLayers > 2048 ||
            desc->x != 32 || desc->y != 0)
            return cudaErrorInvalidValue;
        const std::size_t tTexels = tX * tY * tLayers, tBytes = tTexels * sizeof(float);
        if (!rDevice.Take(tBytes)) return cudaErrorMemoryAllocation;
        const std::vector<float> vfNaNs(tTexels, std::nanf(""));
        *array =
            rDevice.Keep(EKind::eArray, tBytes, std::make_shared<cudaArray>(vfNaNs, extent, flags));
        return cudaSuccess;
    };
    return Call(__func__, Work);
}

cudaError_t cudaCreateTextureObject(cudaTextureObject_t* object, const cudaResourceDesc* resource,
                                    const cudaTextureDesc* texture, const void*)
{
    return AddObject(__func__, object, *resource, texture);
}

cudaError_t cudaDestroyTextureObject(cudaTextureObject_t object)
{
    return DestroyObject(__func__, object, true);
}

cudaError_t cudaCreateSurfaceObject(cudaSurfaceObject_t* object, const cudaResourceDesc* resource)
{
    return AddObject(__func__, object, *resource, nullptr);
}

cudaError_t cudaDestroySurfaceObject(cudaSurfaceObject_t object)
{
    return DestroyObject(__func__, object, false);
}
