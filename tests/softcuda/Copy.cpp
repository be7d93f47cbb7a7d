#include <cstring>

#include "tests/softcuda/Call.h"

// Copies and fills: rows of bytes between two places.

using namespace SoftCuda;

namespace
{
struct Side
{
    unsigned char* puFirst;
    std::size_t tPitch;
    bool bHost;
    Side(const void* pvFirst, std::size_t tBytes, bool bOnHost)
        : puFirst(static_cast<unsigned char*>(const_cast<void*>(pvFirst))),
          tPitch(tBytes),
          bHost(bOnHost)
    {
    }
};

struct Rows
{
    Side aDst, aSrc;
    std::size_t tWidth, tHeight;  // bytes, rows
    bool IsEmpty() const { return tWidth == 0 || tHeight == 0; }
    std::size_t GetSpan(const Side& rSide) const { return (tHeight - 1) * rSide.tPitch + tWidth; }
    void Copy() const
    {
        for (std::size_t y = 0; y < tHeight; ++y)
            std::memcpy(aDst.puFirst + y * aDst.tPitch, aSrc.puFirst + y * aSrc.tPitch, tWidth);
    }
    cudaError_t Check(const CDevice& rDevice, const Side& rSide) const
    {
        if (tHeight > 1 && rSide.tPitch < tWidth) return cudaErrorInvalidPitchValue;
        const bool bOnDevice = rDevice.Holds(rSide.puFirst, rSide.bHost ? 1 : GetSpan(rSide));
        return rSide.puFirst && bOnDevice != rSide.bHost ? cudaSuccess : cudaErrorInvalidValue;
    }
};

/// From pageable memory the bytes are taken now; from pinned memory when the copy runs.
void Enqueue(CDevice& rDevice, CUstream_st& rStream, Rows aRows)
{
    const Side aSrc = aRows.aSrc;
    if (!aSrc.bHost || Sys().aOwners.FindAround(EKind::ePinned, aSrc.puFirst, aRows.GetSpan(aSrc)))
        return rDevice.Enqueue(rStream, [aRows] { aRows.Copy(); });
    auto pStage = std::make_shared<std::vector<unsigned char>>(aRows.tWidth * aRows.tHeight);
    const Side aStage(pStage->data(), aRows.tWidth, true);
    Rows{aStage, aSrc, aRows.tWidth, aRows.tHeight}.Copy();
    aRows.aSrc = aStage;
    rDevice.Enqueue(rStream, [aRows, pStage] { aRows.Copy(); });
}

cudaError_t CopyRows(const char* pcCall, cudaStream_t pStream, const Rows& rRows)
{
    const auto Work = [&](CDevice& rDevice)
    {
        if (rRows.IsEmpty()) return cudaSuccess;
        for (const Side& rSide : {rRows.aDst, rRows.aSrc})
            if (const cudaError_t eError = rRows.Check(rDevice, rSide); eError != cudaSuccess)
                return eError;
        Enqueue(rDevice, rDevice.GetStream(pStream), rRows);
        return cudaSuccess;
    };
    return Call(pcCall, OwnerOf(pStream), Work);
}
}  // namespace

cudaError_t cudaMemset2DAsync(void* devPtr, std::size_t pitch, int value, std::size_t width,
                              std::size_t height, cudaStream_t stream)
{
    const Side aDst(devPtr, pitch, false);
    const auto Fill = [=]
    {
        for (std::size_t y = 0; y < height; ++y)
            std::memset(aDst.puFirst + y * pitch, value, width);
    };
    const auto Work = [&](CDevice& rDevice)
    {
        const Rows aRows{aDst, aDst, width, height};
        const cudaError_t eError = aRows.IsEmpty() ? cudaSuccess : aRows.Check(rDevice, aDst);
        if (eError == cudaSuccess) rDevice.Enqueue(rDevice.GetStream(stream), Fill);
        return eError;
    };
    return Call(__func__, OwnerOf(stream), Work);
}

cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream)
{
    const Side aDst(dst, count, kind == cudaMemcpyDeviceToHost);
    return CopyRows(__func__, stream,
                    {aDst, {src, count, kind == cudaMemcpyHostToDevice}, count, 1});
}

cudaError_t cudaMemcpy2DAsync(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                              std::size_t width, std::size_t height, cudaMemcpyKind kind,
                              cudaStream_t stream)
{
    const Side aDst(dst, dpitch, kind == cudaMemcpyDeviceToHost);
    const Side aSrc(src, spitch, kind == cudaMemcpyHostToDevice);
    return CopyRows(__func__, stream, {aDst, aSrc, width, height});
}
