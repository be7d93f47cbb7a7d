#pragma once

#include <cuda_runtime.h>

#include <cstddef>

#include "gpulib/Device/DeviceImage.h"

// How kernels read and write images. Coordinates are texels: the centre of texel 0 lies at 0.

#define CUDA_FN static __device__ __forceinline__

/// First byte of an image row in linear memory.
CUDA_FN char* RowOf(const DeviceImage& rImage, int iRow, int iLane)
{
    const std::size_t tRows = static_cast<std::size_t>(rImage.iHeight) * rImage.iDepth;
    return static_cast<char*>(rImage.pvData) + (tRows * iLane + iRow) * rImage.tPitch;
}

/// Two channels of a table.
struct alignas(8) Pair
{
    float fA, fB;
};

/// Row iRow of a table, as values of type T.
template <class T>
CUDA_FN const T* TableRow(const DeviceImage& rTable, int iRow)
{
    return reinterpret_cast<const T*>(RowOf(rTable, iRow, 0));
}

/// One element of an image of floats, wherever it is kept.
CUDA_FN float LoadTexel(const DeviceImage& rImage, int iX, int iY, int iLane)
{
    if (rImage.bSampled) return surf2DLayeredread<float>(rImage.uiSurface, iX * 4, iY, iLane);
    return reinterpret_cast<const float*>(RowOf(rImage, iY, iLane))[iX];
}

CUDA_FN void StoreTexel(const DeviceImage& rImage, int iX, int iY, int iLane, float fValue)
{
    if (rImage.bSampled)
        surf2DLayeredwrite(fValue, rImage.uiSurface, iX * 4, iY, iLane);
    else
        reinterpret_cast<float*>(RowOf(rImage, iY, iLane))[iX] = fValue;
}

/// The texture unit's own bilinear filter, whose weights have 8 bits. The textures filter.
struct FilterSampler
{
    CUDA_FN float Sample(const DeviceImage& rImage, float fU, float fV, int iLane)
    {
        return tex2DLayered<float>(rImage.uiTexture, fU + 0.5f, fV + 0.5f, iLane);
    }
    CUDA_FN float SampleRow(const DeviceImage& rImage, float fU, int iRow, int iLane)
    {
        return tex2DLayered<float>(rImage.uiTexture, fU + 0.5f, iRow + 0.5f, iLane);
    }
};

/// The same with weights of full precision, from reads of single texels. The textures do not
/// filter.
struct ExactSampler
{
    CUDA_FN float Texel(const DeviceImage& rImage, float fX, float fY, int iLane)
    {
        return tex2DLayered<float>(rImage.uiTexture, fX + 0.5f, fY + 0.5f, iLane);
    }
    CUDA_FN float Mix(float fA, float fB, float fPart)
    {
        // fB - fA would lose fA beside -1e30. Without weight fB does not count: it may be infinite.
        return fPart > 0.0f ? fmaf(fPart, fB, (1.0f - fPart) * fA) : fA;
    }
    CUDA_FN float SampleRow(const DeviceImage& rImage, float fU, int iRow, int iLane)
    {
        const float fX = floorf(fU), fY = static_cast<float>(iRow);
        return Mix(Texel(rImage, fX, fY, iLane), Texel(rImage, fX + 1.0f, fY, iLane), fU - fX);
    }
    CUDA_FN float Sample(const DeviceImage& rImage, float fU, float fV, int iLane)
    {
        const float fX = floorf(fU), fY = floorf(fV), fRight = fU - fX;
        const float fUpper =
            Mix(Texel(rImage, fX, fY, iLane), Texel(rImage, fX + 1.0f, fY, iLane), fRight);
        const float fLower = Mix(Texel(rImage, fX, fY + 1.0f, iLane),
                                 Texel(rImage, fX + 1.0f, fY + 1.0f, iLane), fRight);
        return Mix(fUpper, fLower, fV - fY);
    }
};
