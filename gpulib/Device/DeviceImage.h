#pragma once

#include <cstddef>
#include <cstdint>

/// One image in device memory as the kernels see it: plain data without ownership, passed by value.
///
/// A batch image holds the same X-Z (or X-projection) image for iLanes consecutive Y rows; a table
/// (angles, index list, weights, ranges) is the same for all rows and has one lane. The host
/// backend stores element (x, y, channel, lane) at
///     ((y * iWidth + x) * iChannels + channel) * iLanes + lane,
/// so that the rows of a batch lie next to each other and one SIMD register holds one element of
/// all of them. CUDA keeps sampled images in a layered array, one layer per lane, and all others in
/// linear memory, lane after lane.
struct DeviceImage
{
    void* pvData = nullptr;       ///< first byte; CUDA: or the layered array
    std::uint64_t uiTexture = 0;  ///< CUDA, layered arrays: texture object
    std::uint64_t uiSurface = 0;  ///< CUDA, layered arrays: surface object
    std::size_t tPitch = 0;       ///< bytes from one row of elements to the next
    int iWidth = 0, iHeight = 0;  ///< elements
    int iDepth = 1;          ///< slices of a 3-D image; slice k begins at image row k * iHeight
    int iChannels = 1;       ///< values per element
    int iLanes = 1;          ///< Y rows held; 1 for tables
    bool bSampled = false;   ///< kernels read it between its elements; one channel, 4 bytes
    bool bLent = false;      ///< host: the memory belongs to someone else
    int iBytes = 4;          ///< bytes per value: 4 (float, int, unsigned), 8 (double)
    void* pvRoom = nullptr;  ///< host, lent rows: to bring them back into their order
};

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
};
