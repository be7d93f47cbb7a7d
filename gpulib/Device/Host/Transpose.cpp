#include "gpulib/Device/Host/Transpose.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{
typedef float F4 __attribute__((vector_size(16)));

/// 4 x 4 values: row i of the result is column i of the source. Strides in values.
inline void Transpose4(const float* pfIn, std::size_t tStrideIn, float* pfOut,
                       std::size_t tStrideOut)
{
    F4 v0, v1, v2, v3;
    std::memcpy(&v0, pfIn, sizeof(F4));
    std::memcpy(&v1, pfIn + tStrideIn, sizeof(F4));
    std::memcpy(&v2, pfIn + 2 * tStrideIn, sizeof(F4));
    std::memcpy(&v3, pfIn + 3 * tStrideIn, sizeof(F4));
    const F4 v01Low = __builtin_shufflevector(v0, v1, 0, 4, 1, 5);
    const F4 v01High = __builtin_shufflevector(v0, v1, 2, 6, 3, 7);
    const F4 v23Low = __builtin_shufflevector(v2, v3, 0, 4, 1, 5);
    const F4 v23High = __builtin_shufflevector(v2, v3, 2, 6, 3, 7);
    v0 = __builtin_shufflevector(v01Low, v23Low, 0, 1, 4, 5);
    v1 = __builtin_shufflevector(v01Low, v23Low, 2, 3, 6, 7);
    v2 = __builtin_shufflevector(v01High, v23High, 0, 1, 4, 5);
    v3 = __builtin_shufflevector(v01High, v23High, 2, 3, 6, 7);
    std::memcpy(pfOut, &v0, sizeof(F4));
    std::memcpy(pfOut + tStrideOut, &v1, sizeof(F4));
    std::memcpy(pfOut + 2 * tStrideOut, &v2, sizeof(F4));
    std::memcpy(pfOut + 3 * tStrideOut, &v3, sizeof(F4));
}

/// Source [row][column] to destination [column][row].
void TransposeBlock(const float* pfIn, std::size_t tStrideIn, int iRows, int iColumns, float* pfOut,
                    std::size_t tStrideOut)
{
    const int iRows4 = iRows & ~3, iColumns4 = iColumns & ~3;
    for (int c = 0; c < iColumns4; c += 4)
        for (int r = 0; r < iRows4; r += 4)
            Transpose4(pfIn + r * tStrideIn + c, tStrideIn, pfOut + c * tStrideOut + r, tStrideOut);
    for (int c = 0; c < iColumns; ++c)
        for (int r = c < iColumns4 ? iRows4 : 0; r < iRows; ++r)
            pfOut[c * tStrideOut + r] = pfIn[r * tStrideIn + c];
}

/// Rows of images of one lane stand in the image as they stand outside.
void CopyRow(float* pfOut, const float* pfIn, int iColumns)
{
    std::memcpy(pfOut, pfIn, std::size_t(iColumns) * sizeof(float));
}

constexpr int g_iColumns = 64;  // of a block: whole cache lines on either side

float* ElementOf(const DeviceImage& rImage, int iX, int iY)
{
    return static_cast<float*>(rImage.pvData) + iY * rImage.tPitch / sizeof(float) +
           std::size_t(iX) * rImage.iLanes;
}
}  // namespace

void Interleave(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0, int iY0,
                int iWidth, int iHeight)
{
    const int iLanes = rImage.iLanes, iRows = std::min(iLanes, rSource.iLanes);
    if (iLanes == 1 && iRows == 1)
    {
        for (int y = 0; y < iHeight; ++y)
            CopyRow(ElementOf(rImage, iX0, iY0 + y), rSource.pData + y * rSource.tStrideY, iWidth);
        return;
    }
    for (int y = 0; y < iHeight; ++y)
        for (int x = 0; x < iWidth; x += g_iColumns)
        {
            const int iColumns = std::min(g_iColumns, iWidth - x);
            float* pfOut = ElementOf(rImage, iX0 + x, iY0 + y);
            if (iRows < iLanes)
                std::memset(pfOut, 0, std::size_t(iColumns) * iLanes * sizeof(float));
            TransposeBlock(rSource.pData + y * rSource.tStrideY + x, rSource.tStrideLane, iRows,
                           iColumns, pfOut, iLanes);
        }
}

void Deinterleave(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                  int iWidth, int iHeight)
{
    const int iRows = std::min(rImage.iLanes, rDest.iLanes);
    if (rImage.iLanes == 1 && iRows == 1)
    {
        for (int y = 0; y < iHeight; ++y)
            CopyRow(rDest.pData + y * rDest.tStrideY, ElementOf(rImage, iX0, iY0 + y), iWidth);
        return;
    }
    for (int y = 0; y < iHeight; ++y)
        for (int x = 0; x < iWidth; x += g_iColumns)
            TransposeBlock(ElementOf(rImage, iX0 + x, iY0 + y), rImage.iLanes,
                           std::min(g_iColumns, iWidth - x), iRows,
                           rDest.pData + y * rDest.tStrideY + x, rDest.tStrideLane);
}

void InterleaveInPlace(const DeviceImage& rImage, float* pfRoom)
{
    const int iX = rImage.iWidth, iLanes = rImage.iLanes;
    for (int y = 0; y < rImage.iHeight; ++y)
    {
        float* const pfRow = ElementOf(rImage, 0, y);
        for (int x = 0; x < iX; x += g_iColumns)
            TransposeBlock(pfRow + x, iX, iLanes, std::min(g_iColumns, iX - x),
                           pfRoom + std::size_t(x) * iLanes, iLanes);
        CopyRow(pfRow, pfRoom, iX * iLanes);
    }
}

void DeinterleaveInPlace(const DeviceImage& rImage, float* pfRoom)
{
    const int iX = rImage.iWidth, iLanes = rImage.iLanes;
    for (int y = 0; y < rImage.iHeight; ++y)
    {
        float* const pfRow = ElementOf(rImage, 0, y);
        CopyRow(pfRoom, pfRow, iX * iLanes);
        for (int x = 0; x < iX; x += g_iColumns)
            TransposeBlock(pfRoom + std::size_t(x) * iLanes, iLanes, std::min(g_iColumns, iX - x),
                           iLanes, pfRow + x, iX);
    }
}
