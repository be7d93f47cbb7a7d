#pragma once

#include <cstddef>
#include <initializer_list>

/// Rows of a batch whose values stand next to each other.
constexpr int g_iGroupLanes = 32;

/// One image in device memory as the kernels see it: plain data without ownership, passed by value.
///
/// A batch image holds the same X-Z (or X-projection) image for iLanes consecutive Y rows; a table
/// (angles, index list, weights, ranges) is the same for all rows and has one lane. Lanes come in
/// groups of at most 32; element (x, y, channel, lane) of a group stands at
///     ((y * iWidth + x) * iChannels + channel) * lanes of the group + lane,
/// so that the rows of a batch lie next to each other: a SIMD register holds one element of them,
/// 32 of them are a line of a GPU's cache. The host has one group of 1 to 32 lanes, CUDA groups of
/// 32, one after the other.
struct DeviceImage
{
    void* pvData = nullptr;       ///< first byte
    std::size_t tPitch = 0;       ///< bytes from one row of elements to the next
    int iWidth = 0, iHeight = 0;  ///< elements
    int iDepth = 1;          ///< slices of a 3-D image; slice k begins at image row k * iHeight
    int iChannels = 1;       ///< values per element
    int iLanes = 1;          ///< Y rows held; 1 for tables
    bool bBatch = false;     ///< holds rows of a batch, if only one
    bool bLent = false;      ///< the memory belongs to someone else
    int iBytes = 4;          ///< bytes per value: 4 (float, int, unsigned), 8 (double)
    void* pvRoom = nullptr;  ///< host, lent rows: to bring them back into their order
};

/// Groups of lanes of an image.
inline int CountGroups(const DeviceImage& rImage)
{
    return (rImage.iLanes + g_iGroupLanes - 1) / g_iGroupLanes;
}

/// Bytes of an image; the largest number where they are more.
inline std::size_t CountBytes(const DeviceImage& rImage)
{
    std::size_t tBytes = rImage.tPitch;
    for (const int iExtent : {rImage.iHeight, rImage.iDepth, CountGroups(rImage)})
        if (__builtin_mul_overflow(tBytes, static_cast<std::size_t>(iExtent), &tBytes))
            return ~static_cast<std::size_t>(0);
    return tBytes;
}

/// Host memory that an image is filled from or copied to, row by row of the batch.
///
/// Value (x, y, lane) stands at pfData[x + y * tStrideY + lane * tStrideLane] (times the channels
/// for interleaved tables). For a Util_Volume of X * Y * Z the X-Z slices from row iY on are {data
/// + X * iY, X * Y, X, rows}: the height of the slice runs along Z, the lanes along Y.
template <class T>
struct HostRows
{
    T* pData = nullptr;
    std::size_t tStrideY = 0;     ///< values from one image row to the next
    std::size_t tStrideLane = 0;  ///< values from one row of the batch to the next
    int iLanes = 1;               ///< rows present; lanes from here on are filled with zeros

    HostRows<const T> AsConst() const { return {pData, tStrideY, tStrideLane, iLanes}; }
    bool operator==(const HostRows&) const = default;
};
