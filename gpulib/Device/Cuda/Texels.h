#pragma once

#include <cuda_runtime.h>

#include <cstddef>
#include <cstdint>

#include "gpulib/Device/DeviceMath.h"

// How kernels read and write images. Coordinates are texels: the centre of texel 0 lies at 0.

#define CUDA_FN static __device__ __forceinline__

/// A thread works on four rows of a batch: eight threads on a texel of one group.
constexpr int g_iQuads = g_iGroupLanes / 4;

/// One value of four rows of the batch.
struct Quad
{
    float af[4];
};

/// Four rows of a batch: which group of lanes, which four of it.
struct RowQuad
{
    int iGroup, iQuad;
    CUDA_FN RowQuad Of(unsigned int uiGroup, unsigned int uiThread)
    {
        return {static_cast<int>(uiGroup), static_cast<int>(uiThread) % g_iQuads};
    }
    __device__ __forceinline__ int GetLane() const { return iGroup * g_iGroupLanes + iQuad * 4; }
};

/// Four rows of a texel of a batch image.
CUDA_FN float* TexelOf(const DeviceImage& rImage, int iX, int iRow, RowQuad aRows)
{
    return RowOf(rImage, iRow, aRows.iGroup) +
           (static_cast<std::size_t>(iX) * g_iGroupLanes + aRows.iQuad * 4);
}

CUDA_FN Quad Load(const float* pfTexel)
{
    const float4 v = *reinterpret_cast<const float4*>(pfTexel);
    return {{v.x, v.y, v.z, v.w}};
}

CUDA_FN void Store(float* pfTexel, const Quad& r)
{
    *reinterpret_cast<float4*>(pfTexel) = {r.af[0], r.af[1], r.af[2], r.af[3]};
}

/// The same from what the kernel does not write.
CUDA_FN Quad Fetch(const float4* pTexel)
{
    const float4 v = __ldg(pTexel);
    return {{v.x, v.y, v.z, v.w}};
}

/// rSum += fWeight * texel, with one rounding.
CUDA_FN void AddWeighted(Quad& rSum, float fWeight, const Quad& rTexel)
{
#pragma unroll
    for (int l = 0; l < 4; ++l) rSum.af[l] = fmaf(fWeight, rTexel.af[l], rSum.af[l]);
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
    return reinterpret_cast<const T*>(RowOf(rTable, iRow));
}

/// A coordinate from 0 to 2^23, rounded down to a texel and kept in the low bits of a float: this
/// takes one addition, a conversion to int eight times as long.
constexpr float g_fShift = 8388608.0f;
CUDA_FN float RoundDown(float fCoordinate)
{
    return __fadd_rd(fCoordinate, g_fShift);
}
/// Part of the way from that texel to the next.
CUDA_FN float PartAfter(float fCoordinate, float fRounded)
{
    return fCoordinate - (fRounded - g_fShift);
}

/// Places of the texels of a batch image for four rows. Columns are rounded coordinates; what these
/// hold beside the number is taken off once.
class CTexels
{
public:
    /// \param iY         row that counts as 0
    /// \param bRoundedY  rows are rounded coordinates, too
    __device__ __forceinline__ CTexels(const DeviceImage& rImage, int iY, RowQuad aRows,
                                       bool bRoundedY)
        : m_uiFirst(reinterpret_cast<std::uintptr_t>(TexelOf(rImage, 0, iY, aRows)) -
                    static_cast<std::uintptr_t>(m_uiShift) *
                        (m_uiTexel + (bRoundedY ? rImage.tPitch : 0))),
          m_uiPitch(static_cast<unsigned int>(rImage.tPitch))
    {
    }
    __device__ __forceinline__ const float4* Find(float fX, unsigned int uiY) const
    {
        const std::uintptr_t uiRow = m_uiFirst + static_cast<std::uint64_t>(uiY) * m_uiPitch;
        return reinterpret_cast<const float4*>(
            uiRow + static_cast<std::uint64_t>(__float_as_uint(fX)) * m_uiTexel);
    }

private:
    static constexpr unsigned int m_uiShift = 0x4B000000;  // g_fShift
    static constexpr unsigned int m_uiTexel = g_iGroupLanes * sizeof(float);
    std::uintptr_t m_uiFirst;
    unsigned int m_uiPitch;
};
