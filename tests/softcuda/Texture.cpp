#include <algorithm>
#include <cmath>

#include "tests/softcuda/Call.h"

// Arrays, texture and surface objects, and the texture unit.

using namespace SoftCuda;

namespace
{
/// The layer of a texture or surface that a kernel may touch; null after a trap.
const Object* FindLayered(unsigned long long uHandle, bool bTexture)
{
    const Object* pObject = RunningDevice()->FindObject(uHandle, bTexture);
    if (!pObject)
        Trap("no %s object of this device: %llx", bTexture ? "texture" : "surface", uHandle);
    else if (!pObject->pArray)
        Trap("the array of object %llx is freed", uHandle);
    else if (!(pObject->pArray->uFlags & cudaArrayLayered))
        Trap("the array of object %llx has no layers", uHandle);
    else
        return pObject;
    return nullptr;
}

/// Unnormalised coordinate kept close to the texels; NaN falls on the first.
float Tame(float fX, std::size_t tSize)
{
    if (!(fX > -1.0f)) return -1.0f;
    return std::min(fX, static_cast<float>(tSize) + 1.0f);
}

int Clamp(int i, std::size_t tSize)
{
    return std::clamp(i, 0, static_cast<int>(tSize) - 1);
}

/// The two texels of one axis and the weight of the second, a multiple of 1/256.
struct Axis
{
    int i0, i1;
    float fWeight;
    Axis(float fX, std::size_t tSize)
    {
        const float fFloor = std::floor(fX - 0.5f);
        fWeight = std::floor((fX - 0.5f - fFloor) * 256.0f + 0.5f) / 256.0f;
        i0 = Clamp(static_cast<int>(fFloor), tSize);
        i1 = Clamp(static_cast<int>(fFloor) + 1, tSize);
    }
};

cudaError_t CheckArray(const CDevice& rDevice, const cudaResourceDesc& rDesc)
{
    if (rDesc.resType != cudaResourceTypeArray) return cudaErrorNotSupported;  // here
    return OwnerOf(rDesc.res.array.array) == &rDevice ? cudaSuccess : cudaErrorInvalidValue;
}

cudaError_t DestroyObject(const char* pcCall, unsigned long long uHandle, bool bTexture)
{
    const auto Work = [=](CDevice& rDevice)
    {
        Object* pObject = rDevice.FindObject(uHandle, bTexture);
        if (!pObject) return cudaErrorInvalidValue;
        *pObject = {};  // work that waits for its turn finds it gone
        return cudaSuccess;
    };
    return Call(pcCall, Current(), Work, true);
}
}  // namespace

namespace SoftCuda
{
float Sample(cudaTextureObject_t uTexture, float fX, float fY, int iLayer)
{
    const Object* pObject = FindLayered(uTexture, true);
    if (!pObject) return 0.0f;
    const cudaArray& rArray = *pObject->pArray;
    const auto [tX, tY, tLayers] = rArray.aSize;
    const float* pfLayer =
        reinterpret_cast<const float*>(rArray.vuTexels.data()) + Clamp(iLayer, tLayers) * (tX * tY);
    const auto Texel = [&, tWidth = tX](int x, int y) { return pfLayer[y * tWidth + x]; };
    fX = Tame(fX, tX);
    fY = Tame(fY, tY);
    if (!pObject->bLinear)
        return Texel(Clamp(static_cast<int>(std::floor(fX)), tX),
                     Clamp(static_cast<int>(std::floor(fY)), tY));
    const Axis aX(fX, tX), aY(fY, tY);
    const float fA = aX.fWeight, fB = aY.fWeight;
    return (1 - fA) * (1 - fB) * Texel(aX.i0, aY.i0) + fA * (1 - fB) * Texel(aX.i1, aY.i0) +
           (1 - fA) * fB * Texel(aX.i0, aY.i1) + fA * fB * Texel(aX.i1, aY.i1);
}

void* GetTexel(cudaSurfaceObject_t uSurface, int iX, int iY, int iLayer, std::size_t tSize)
{
    const Object* pObject = FindLayered(uSurface, false);
    if (!pObject) return nullptr;
    cudaArray& rArray = *pObject->pArray;
    const cudaExtent& rSize = rArray.aSize;
    const std::size_t tRow = rSize.width * rArray.tElement;
    if (iX >= 0 && iY >= 0 && iLayer >= 0 && iX % tSize == 0 && tSize == rArray.tElement &&
        iX + tSize <= tRow && std::size_t(iY) < rSize.height && std::size_t(iLayer) < rSize.depth)
        return rArray.vuTexels.data() + (iLayer * rSize.height + iY) * tRow + iX;
    Trap("surface access of %zu bytes at byte %d, row %d, layer %d of %zu x %zu x %zu elements",
         tSize, iX, iY, iLayer, rSize.width, rSize.height, rSize.depth);
    return nullptr;
}
}  // namespace SoftCuda

cudaError_t cudaMalloc3DArray(cudaArray_t* array, const cudaChannelFormatDesc* desc,
                              cudaExtent extent, unsigned int flags)
{
    const auto Work = [&](CDevice& rDevice)
    {
        const int iBits = desc->x + desc->y + desc->z + desc->w;
        if (extent.width == 0 || extent.height == 0 || extent.depth == 0 || extent.width > 32768 ||
            extent.height > 32768 || extent.depth > 2048 || iBits <= 0 || iBits % 8 != 0 ||
            flags > (cudaArrayLayered | cudaArraySurfaceLoadStore))
            return cudaErrorInvalidValue;
        cudaArray aShape;
        aShape.aFormat = *desc;
        aShape.tElement = iBits / 8;
        aShape.aSize = extent;
        aShape.uFlags = flags;
        *array = rDevice.AddArray(aShape);
        return *array ? cudaSuccess : cudaErrorMemoryAllocation;
    };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaFreeArray(cudaArray_t array)
{
    const auto Work = [=](CDevice& rDevice) { rDevice.Free(array, array->vuTexels.size()); };
    return array ? Call(__func__, OwnerOf(array), Work, true) : cudaSuccess;
}

cudaError_t cudaCreateTextureObject(cudaTextureObject_t* pTexObject,
                                    const cudaResourceDesc* pResDesc,
                                    const cudaTextureDesc* pTexDesc,
                                    const cudaResourceViewDesc* pResViewDesc)
{
    const auto Work = [=](CDevice& rDevice)
    {
        const cudaError_t eError = CheckArray(rDevice, *pResDesc);
        if (eError != cudaSuccess) return eError;
        const cudaChannelFormatDesc& rFormat = pResDesc->res.array.array->aFormat;
        if (rFormat.f != cudaChannelFormatKindFloat || rFormat.x != 32 || rFormat.y != 0 ||
            pTexDesc->addressMode[0] != cudaAddressModeClamp ||
            pTexDesc->addressMode[1] != cudaAddressModeClamp || pResViewDesc ||
            pTexDesc->normalizedCoords || pTexDesc->readMode != cudaReadModeElementType)
            return cudaErrorNotSupported;  // here
        const bool bLinear = pTexDesc->filterMode == cudaFilterModeLinear;
        *pTexObject = rDevice.AddObject({pResDesc->res.array.array, true, true, bLinear});
        return cudaSuccess;
    };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaDestroyTextureObject(cudaTextureObject_t texObject)
{
    return DestroyObject(__func__, texObject, true);
}

cudaError_t cudaCreateSurfaceObject(cudaSurfaceObject_t* pSurfObject,
                                    const cudaResourceDesc* pResDesc)
{
    const auto Work = [=](CDevice& rDevice)
    {
        cudaArray* const pArray = pResDesc->res.array.array;
        const cudaError_t eError = CheckArray(rDevice, *pResDesc);
        if (eError != cudaSuccess) return eError;
        if (!(pArray->uFlags & cudaArraySurfaceLoadStore)) return cudaErrorInvalidValue;
        *pSurfObject = rDevice.AddObject({pArray, true, false, false});
        return cudaSuccess;
    };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaDestroySurfaceObject(cudaSurfaceObject_t surfObject)
{
    return DestroyObject(__func__, surfObject, false);
}
