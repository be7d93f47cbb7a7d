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
    Place& rSrc = aBox.aSrc;
    if (!rSrc.bHost || Sys().aOwners.FindAround(EKind::ePinned, rSrc.pu, aBox.GetSpan(rSrc)))
        return rDevice.Enqueue(rStream, [aBox] { aBox.Copy(); });
    auto pStage = std::make_shared<std::vector<unsigned char>>();
    const auto TakeRow = [&](auto*, const auto* puFrom)
    { pStage->insert(pStage->end(), puFrom, puFrom + aBox.tWidth); };
    aBox.ForRows(TakeRow);
    rSrc.pu = pStage->data();
    rSrc.tPitch = aBox.tWidth;
    rSrc.tSlice = aBox.tWidth * aBox.tHeight;
    rDevice.Enqueue(rStream, [aBox, pStage] { aBox.Copy(); });
}

cudaError_t Submit(const CCall& rCall, cudaStream_t pStream, bool bBlocking, Box aBox,
                   cudaMemcpyKind eKind)
{
    if (rCall.IsRefused() || aBox.IsEmpty()) return rCall.End();
    if (!SetKind(*rCall, aBox, eKind)) return rCall.End(cudaErrorInvalidMemcpyDirection);
    for (const Place* pPlace : {&aBox.aDst, &aBox.aSrc})
        if (const cudaError_t eError = Check(*rCall, aBox, *pPlace); eError != cudaSuccess)
            return rCall.End(eError);
    CUstream_st& rStream = rCall->GetStream(pStream);
    const bool bWithinHost = aBox.aSrc.bHost && aBox.aDst.bHost;
    const bool bWithinDevice = !aBox.aSrc.bHost && !aBox.aDst.bHost;
    // A "blocking" copy within the device does not hold up the host: it waits in its stream.
    if (bWithinHost || (bBlocking && !bWithinDevice))
    {
        rCall->Drain(rStream);
        if (!rCall->IsBroken()) aBox.Copy();
    }
    else
        Enqueue(*rCall, rStream, aBox);
    return rCall.End();
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
bool SetSide(Place& rPlace, const Box& rBox, const cudaArray* pArray, const cudaPos& rPos,
             const cudaPitchedPtr& rPtr)
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

cudaError_t Submit3D(const CCall& rCall, cudaStream_t pStream, bool bBlocking,
                     const cudaMemcpy3DParms& r)
{
    if (rCall.IsRefused()) return rCall.End();
    for (cudaArray_t pArray : {r.srcArray, r.dstArray})
        if (pArray && OwnerOf(pArray) != &*rCall) return rCall.End(cudaErrorInvalidResourceHandle);
    if (r.srcArray && r.dstArray && r.srcArray->tElement != r.dstArray->tElement)
        return rCall.End(cudaErrorInvalidValue);
    // The width counts elements of the array where there is one, else bytes.
    const cudaArray* pArray = r.srcArray ? r.srcArray : r.dstArray;
    const std::size_t tElement = pArray ? pArray->tElement : 1;
    Box aBox{{}, {}, r.extent.width * tElement, r.extent.height, r.extent.depth};
    if (!SetSide(aBox.aSrc, aBox, r.srcArray, r.srcPos, r.srcPtr) ||
        !SetSide(aBox.aDst, aBox, r.dstArray, r.dstPos, r.dstPtr))
        return rCall.End(cudaErrorInvalidValue);
    return Submit(rCall, pStream, bBlocking, aBox, r.kind);
}

/// Fills tHeight rows of tWidth bytes.
cudaError_t Fill(const CCall& rCall, cudaStream_t pStream, const Place& rPlace, int iValue,
                 std::size_t tWidth, std::size_t tHeight)
{
    const Box aBox{rPlace, {}, tWidth, tHeight};
    if (rCall.IsRefused() || aBox.IsEmpty()) return rCall.End();
    const cudaError_t eError = Check(*rCall, aBox, aBox.aDst);
    if (eError != cudaSuccess) return rCall.End(eError);
    const auto FillRow = [=](auto* puTo, const auto*) { std::memset(puTo, iValue, tWidth); };
    rCall->Enqueue(rCall->GetStream(pStream), [=] { aBox.ForRows(FillRow); });
    return rCall.End();
}
}  // namespace

cudaError_t cudaMemsetAsync(void* devPtr, int value, std::size_t count, cudaStream_t stream)
{
    const CCall aCall(__func__, OwnerOf(stream));
    return Fill(aCall, stream, Linear(devPtr, count), value, count, 1);
}

cudaError_t cudaMemset2DAsync(void* devPtr, std::size_t pitch, int value, std::size_t width,
                              std::size_t height, cudaStream_t stream)
{
    const CCall aCall(__func__, OwnerOf(stream));
    return Fill(aCall, stream, Linear(devPtr, pitch), value, width, height);
}

cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind)
{
    const CCall aCall(__func__, Current());
    return Submit(aCall, nullptr, true, Rows(dst, count, src, count, count, 1), kind);
}

cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream)
{
    const CCall aCall(__func__, OwnerOf(stream));
    return Submit(aCall, stream, false, Rows(dst, count, src, count, count, 1), kind);
}

cudaError_t cudaMemcpy2D(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                         std::size_t width, std::size_t height, cudaMemcpyKind kind)
{
    const CCall aCall(__func__, Current());
    return Submit(aCall, nullptr, true, Rows(dst, dpitch, src, spitch, width, height), kind);
}

cudaError_t cudaMemcpy2DAsync(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                              std::size_t width, std::size_t height, cudaMemcpyKind kind,
                              cudaStream_t stream)
{
    const CCall aCall(__func__, OwnerOf(stream));
    return Submit(aCall, stream, false, Rows(dst, dpitch, src, spitch, width, height), kind);
}

cudaError_t cudaMemcpy3D(const cudaMemcpy3DParms* p)
{
    return Submit3D(CCall(__func__, Current()), nullptr, true, *p);
}

cudaError_t cudaMemcpy3DAsync(const cudaMemcpy3DParms* p, cudaStream_t stream)
{
    return Submit3D(CCall(__func__, OwnerOf(stream)), stream, false, *p);
}
