#include <cstring>

#include "tests/softcuda/Call.h"

// Copies and fills. Every form becomes a box of bytes between two places.

using namespace SoftCuda;

namespace
{
struct Place
{
    unsigned char* pu = nullptr;
    std::size_t tPitch = 0, tSlice = 0;  // bytes
    bool bHost = false;
    bool bArray = false;  // its range is checked already
};

struct Box
{
    Place aDst, aSrc;
    std::size_t tWidth = 0, tHeight = 1, tDepth = 1;  // bytes, rows, slices
    bool IsEmpty() const { return tWidth == 0 || tHeight == 0 || tDepth == 0; }
    std::size_t GetSpan(const Place& r) const  ///< bytes from the first to the last
    {
        return (tDepth - 1) * r.tSlice + (tHeight - 1) * r.tPitch + tWidth;
    }
    template <class Row>
    void ForRows(Row aRow) const
    {
        for (std::size_t z = 0; z < tDepth; ++z)
            for (std::size_t y = 0; y < tHeight; ++y)
                aRow(aDst.pu + z * aDst.tSlice + y * aDst.tPitch,
                     aSrc.pu + z * aSrc.tSlice + y * aSrc.tPitch);
    }
    void Copy() const
    {
        ForRows([this](auto* puTo, const auto* puFrom) { std::memcpy(puTo, puFrom, tWidth); });
    }
};

cudaError_t Check(const CDevice& rDevice, const Box& rBox, const Place& rPlace)
{
    if (rPlace.bArray) return cudaSuccess;
    if (!rPlace.pu) return cudaErrorInvalidValue;
    const bool bRows = rBox.tHeight > 1 || rBox.tDepth > 1;
    if (bRows && rPlace.tPitch < rBox.tWidth) return cudaErrorInvalidPitchValue;
    const std::size_t tSpan = rBox.GetSpan(rPlace);
    if (!rPlace.bHost) return rDevice.Holds(rPlace.pu, tSpan) ? cudaSuccess : cudaErrorInvalidValue;
    return rDevice.Holds(rPlace.pu, 1) ? cudaErrorInvalidValue : cudaSuccess;
}

/// Which of the two places the host's are; false: no such kind.
bool SetKind(const CDevice& rDevice, Box& rBox, cudaMemcpyKind eKind)
{
    if (eKind < cudaMemcpyHostToHost || eKind > cudaMemcpyDefault) return false;
    const bool bGuess = eKind == cudaMemcpyDefault;
    rBox.aSrc.bHost = bGuess ? !rDevice.Holds(rBox.aSrc.pu, 1) : !(eKind & cudaMemcpyDeviceToHost);
    rBox.aDst.bHost = bGuess ? !rDevice.Holds(rBox.aDst.pu, 1) : !(eKind & cudaMemcpyHostToDevice);
    if (rBox.aSrc.bArray) rBox.aSrc.bHost = false;  // whatever the kind says
    if (rBox.aDst.bArray) rBox.aDst.bHost = false;
    return true;
}

/// From pageable memory the bytes are taken now; from pinned memory when the copy runs.
void Enqueue(CDevice& rDevice, CUstream_st& rStream, Box aBox)
{
    if (!aBox.aSrc.bHost || Sys().aPinned.Holds(aBox.aSrc.pu, aBox.GetSpan(aBox.aSrc)))
        return rDevice.Enqueue(rStream, [aBox] { aBox.Copy(); });
    auto pStage = std::make_shared<std::vector<unsigned char>>();
    aBox.ForRows([&](auto*, const auto* puFrom)
                 { pStage->insert(pStage->end(), puFrom, puFrom + aBox.tWidth); });
    aBox.aSrc.pu = pStage->data();
    aBox.aSrc.tPitch = aBox.tWidth;
    aBox.aSrc.tSlice = aBox.tWidth * aBox.tHeight;
    rDevice.Enqueue(rStream, [aBox, pStage] { aBox.Copy(); });
}

cudaError_t Submit(CDevice& rDevice, cudaStream_t pStream, bool bBlocking, Box aBox,
                   cudaMemcpyKind eKind)
{
    if (!SetKind(rDevice, aBox, eKind)) return cudaErrorInvalidMemcpyDirection;
    if (aBox.IsEmpty()) return cudaSuccess;
    for (const Place* pPlace : {&aBox.aDst, &aBox.aSrc})
        if (const cudaError_t eError = Check(rDevice, aBox, *pPlace); eError != cudaSuccess)
            return eError;
    CUstream_st& rStream = rDevice.GetStream(pStream);
    // A blocking copy within the device does not wait for it: only the default stream does.
    const bool bWithin = !aBox.aSrc.bHost && !aBox.aDst.bHost;
    if ((bBlocking && !bWithin) || (aBox.aSrc.bHost && aBox.aDst.bHost))
    {
        rDevice.Drain(rStream);
        if (!rDevice.IsBroken()) aBox.Copy();
    }
    else
        Enqueue(rDevice, rStream, aBox);
    return cudaSuccess;
}

Place Linear(const void* pvFirst, std::size_t tPitch, std::size_t tSlice = 0)
{
    return {static_cast<unsigned char*>(const_cast<void*>(pvFirst)), tPitch, tSlice};
}

Box Rows(void* pvDst, std::size_t tDstPitch, const void* pvSrc, std::size_t tSrcPitch,
         std::size_t tWidth, std::size_t tHeight)
{
    return {Linear(pvDst, tDstPitch), Linear(pvSrc, tSrcPitch), tWidth, tHeight};
}

/// One side of a 3-D copy: an array or a pitched pointer, never both. The position counts the
/// elements of that side; those of a pointer are bytes.
bool SetSide(const CDevice& rDevice, Place& rPlace, const Box& rBox, cudaArray_t pArray,
             const cudaPos& rPos, const cudaPitchedPtr& rPtr)
{
    if (!pArray == !rPtr.ptr) return false;
    if (!pArray)
    {
        // The slices of one box may not overlap.
        if (rBox.tDepth > 1 && rPtr.ysize < rPos.y + rBox.tHeight) return false;
        if (rBox.tHeight > 1 && rPtr.pitch < rPos.x + rBox.tWidth) return false;
        rPlace = Linear(rPtr.ptr, rPtr.pitch, rPtr.pitch * rPtr.ysize);
        rPlace.pu += rPos.z * rPlace.tSlice + rPos.y * rPlace.tPitch + rPos.x;
        return true;
    }
    if (OwnerOf(pArray) != &rDevice) return false;
    const cudaExtent& rSize = pArray->aSize;
    if (rPos.x * pArray->tElement + rBox.tWidth > rSize.width * pArray->tElement ||
        rPos.y + rBox.tHeight > rSize.height || rPos.z + rBox.tDepth > rSize.depth)
        return false;
    rPlace.tPitch = rSize.width * pArray->tElement;
    rPlace.tSlice = rPlace.tPitch * rSize.height;
    rPlace.pu = pArray->puTexels + rPos.z * rPlace.tSlice + rPos.y * rPlace.tPitch +
                rPos.x * pArray->tElement;
    rPlace.bArray = true;
    return true;
}

cudaError_t Submit3D(CDevice& rDevice, cudaStream_t pStream, bool bBlocking,
                     const cudaMemcpy3DParms& r)
{
    for (cudaArray_t pArray : {r.srcArray, r.dstArray})
        if (pArray && OwnerOf(pArray) != &rDevice) return cudaErrorInvalidResourceHandle;
    if (r.srcArray && r.dstArray && r.srcArray->tElement != r.dstArray->tElement)
        return cudaErrorInvalidValue;
    const cudaArray* pArray = r.srcArray ? r.srcArray : r.dstArray;
    Box aBox;  // the width counts elements of the array where there is one, else bytes
    aBox.tWidth = r.extent.width * (pArray ? pArray->tElement : 1);
    aBox.tHeight = r.extent.height;
    aBox.tDepth = r.extent.depth;
    if (!SetSide(rDevice, aBox.aSrc, aBox, r.srcArray, r.srcPos, r.srcPtr) ||
        !SetSide(rDevice, aBox.aDst, aBox, r.dstArray, r.dstPos, r.dstPtr))
        return cudaErrorInvalidValue;
    return Submit(rDevice, pStream, bBlocking, aBox, r.kind);
}

cudaError_t Fill(CDevice& rDevice, cudaStream_t pStream, Box aBox, int iValue)
{
    if (aBox.IsEmpty()) return cudaSuccess;
    if (const cudaError_t eError = Check(rDevice, aBox, aBox.aDst); eError != cudaSuccess)
        return eError;
    rDevice.Enqueue(
        rDevice.GetStream(pStream),
        [=] {
            aBox.ForRows([&](auto* puTo, const auto*) { std::memset(puTo, iValue, aBox.tWidth); });
        });
    return cudaSuccess;
}
}  // namespace

cudaError_t cudaMemsetAsync(void* devPtr, int value, std::size_t count, cudaStream_t stream)
{
    return OnDevice(__func__, OwnerOfStream(stream),
                    [&](CDevice& rDevice) {
                        return Fill(rDevice, stream, {Linear(devPtr, 0), {}, count}, value);
                    });
}

cudaError_t cudaMemset2DAsync(void* devPtr, std::size_t pitch, int value, std::size_t width,
                              std::size_t height, cudaStream_t stream)
{
    return OnDevice(
        __func__, OwnerOfStream(stream),
        [&](CDevice& rDevice) {
            return Fill(rDevice, stream, {Linear(devPtr, pitch), {}, width, height}, value);
        });
}

cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind)
{
    return OnDevice(
        __func__, Current(),
        [&](CDevice& rDevice)
        { return Submit(rDevice, nullptr, true, Rows(dst, count, src, count, count, 1), kind); });
}

cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream)
{
    return OnDevice(
        __func__, OwnerOfStream(stream),
        [&](CDevice& rDevice)
        { return Submit(rDevice, stream, false, Rows(dst, count, src, count, count, 1), kind); });
}

cudaError_t cudaMemcpy2D(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                         std::size_t width, std::size_t height, cudaMemcpyKind kind)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice) {
                        return Submit(rDevice, nullptr, true,
                                      Rows(dst, dpitch, src, spitch, width, height), kind);
                    });
}

cudaError_t cudaMemcpy2DAsync(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                              std::size_t width, std::size_t height, cudaMemcpyKind kind,
                              cudaStream_t stream)
{
    return OnDevice(__func__, OwnerOfStream(stream),
                    [&](CDevice& rDevice) {
                        return Submit(rDevice, stream, false,
                                      Rows(dst, dpitch, src, spitch, width, height), kind);
                    });
}

cudaError_t cudaMemcpy3D(const cudaMemcpy3DParms* p)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice) { return Submit3D(rDevice, nullptr, true, *p); });
}

cudaError_t cudaMemcpy3DAsync(const cudaMemcpy3DParms* p, cudaStream_t stream)
{
    return OnDevice(__func__, OwnerOfStream(stream),
                    [&](CDevice& rDevice) { return Submit3D(rDevice, stream, false, *p); });
}
