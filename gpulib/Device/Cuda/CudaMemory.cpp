// Images in device memory.

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/CudaClock.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
std::size_t RowBytes(const DeviceImage& rImage)
{
    return std::size_t(rImage.iWidth) * rImage.iChannels * rImage.iBytes;
}

std::size_t CountRows(const DeviceImage& rImage)
{
    return std::size_t(rImage.iHeight) * rImage.iDepth * rImage.iLanes;
}

/// Host memory with all values of a one-lane image, tightly packed.
template <class T>
HostRows<T> PackedRows(const DeviceImage& rImage, T* pValues)
{
    const std::size_t tWidth = rImage.iWidth;
    return {pValues, tWidth, tWidth * rImage.iHeight, 1};
}
}  // namespace

cudaError_t CCudaBackend::mWait() const
{
    const CHostSpan aSpan(g_acWait);
    return cudaStreamSynchronize(mStream());
}

bool CCudaBackend::mCreateArray(DeviceImage& rImage)
{
    if (!mOpenDevice()) return false;
    if (!rImage.bSampled) return mCreateLinear(rImage, "array");
    if (rImage.iChannels != 1 || rImage.iBytes != 4 || rImage.iDepth != 1)
        return DeviceFail("create sampled array: %d channels of %d bytes, %d slices",
                          rImage.iChannels, rImage.iBytes, rImage.iDepth);
    return mCreateLayered(rImage);
}

bool CCudaBackend::mCreatePitched(DeviceImage& rImage)
{
    return mOpenDevice() && mCreateLinear(rImage, "buffer");
}

bool CCudaBackend::mCreateLinear(DeviceImage& rImage, const char* pcKind)
{
    void* pvData = nullptr;
    std::size_t tPitch = 0;
    if (!CudaOk(cudaMallocPitch(&pvData, &tPitch, RowBytes(rImage), CountRows(rImage)),
                "create %s: %d x %d x %d, %d rows", pcKind, rImage.iWidth, rImage.iHeight,
                rImage.iDepth, rImage.iLanes))
        return false;
    rImage.pvData = pvData;
    rImage.tPitch = tPitch;
    rImage.bSampled = false;
    if (Clear(rImage)) return true;
    Free(rImage);
    return false;
}

bool CCudaBackend::mCreateLayered(DeviceImage& rImage)
{
    int& riImages = mDevice()->iSampledImages;
    ++riImages;  // Free() counts it down
    const cudaChannelFormatDesc aFormat = cudaCreateChannelDesc<float>();
    const cudaExtent aExtent = {std::size_t(rImage.iWidth), std::size_t(rImage.iHeight),
                                std::size_t(rImage.iLanes)};
    cudaArray_t pArray = nullptr;
    if (!CudaOk(cudaMalloc3DArray(&pArray, &aFormat, aExtent,
                                  cudaArrayLayered | cudaArraySurfaceLoadStore),
                "create array: %d x %d, %d rows", rImage.iWidth, rImage.iHeight, rImage.iLanes))
    {
        --riImages;
        return false;
    }
    rImage.pvData = pArray;
    cudaResourceDesc aResource = {};
    aResource.resType = cudaResourceTypeArray;
    aResource.res.array.array = pArray;
    cudaTextureDesc aTexture = {};
    aTexture.addressMode[0] = aTexture.addressMode[1] = cudaAddressModeClamp;
    aTexture.filterMode = m_bExact ? cudaFilterModePoint : cudaFilterModeLinear;
    aTexture.readMode = cudaReadModeElementType;
    cudaTextureObject_t uiTexture = 0;
    cudaSurfaceObject_t uiSurface = 0;
    bool bDone = CudaOk(cudaCreateTextureObject(&uiTexture, &aResource, &aTexture, nullptr),
                        "create texture");
    rImage.uiTexture = uiTexture;
    bDone = bDone && CudaOk(cudaCreateSurfaceObject(&uiSurface, &aResource), "create surface");
    rImage.uiSurface = uiSurface;
    if (bDone && Clear(rImage)) return true;
    Free(rImage);
    return false;
}

bool CCudaBackend::mCreateLent(DeviceImage& rImage, const void* pvSource)
{
    rImage.bSampled = true;
    if (!CreateArray(rImage)) return false;
    if (UploadTable(rImage, pvSource)) return true;
    Free(rImage);
    return false;
}

void CCudaBackend::mFree(DeviceImage& rImage)
{
    // Kernels that use it may be queued. What goes wrong with them shows in the next operation.
    Device* const pDevice = mFindDevice();
    if (pDevice) static_cast<void>(mWait());
    if (rImage.bSampled)
    {
        if (rImage.uiTexture != 0) static_cast<void>(cudaDestroyTextureObject(rImage.uiTexture));
        if (rImage.uiSurface != 0) static_cast<void>(cudaDestroySurfaceObject(rImage.uiSurface));
        static_cast<void>(cudaFreeArray(static_cast<cudaArray_t>(rImage.pvData)));
        // The job is over, whether it has succeeded or not.
        if (pDevice && --pDevice->iSampledImages == 0) pDevice->aStaging.Drop();
    }
    else
        static_cast<void>(cudaFree(rImage.pvData));
}

bool CCudaBackend::mClear(const DeviceImage& rImage)
{
    const cudaStream_t pStream = mStream();
    if (!rImage.bSampled)
        return pStream && CudaOk(cudaMemset2DAsync(rImage.pvData, rImage.tPitch, 0,
                                                   RowBytes(rImage), CountRows(rImage), pStream),
                                 "clear");
    ImageRegion aAll;
    aAll.aImage = rImage;
    aAll.iWidth = rImage.iWidth;
    aAll.iHeight = rImage.iHeight;  // and no rows: all become zero
    return Scatter(aAll, nullptr, pStream);
}

bool CCudaBackend::mUpload(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0,
                           int iY0, int iWidth, int iHeight)
{
    Device* const pDevice = mDevice();
    return pDevice &&
           pDevice->aStaging.Upload({rImage, iX0, iY0, iWidth, iHeight, rSource.iLanes}, rSource);
}

void CCudaBackend::mPrefetch(const HostRows<const float>& rSource, int iWidth, int iHeight)
{
    Device* const pDevice = mFindDevice();
    if (pDevice) pDevice->aStaging.Prefetch(rSource, iWidth, iHeight);
}

bool CCudaBackend::mStartDownload(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                                  int iY0, int iWidth, int iHeight)
{
    Device* const pDevice = mDevice();
    return pDevice && pDevice->aStaging.StartDownload(
                          {rImage, iX0, iY0, iWidth, iHeight, rDest.iLanes}, rDest);
}

bool CCudaBackend::FinishDownload()
{
    Device* const pDevice = mFindDevice();
    return !pDevice || pDevice->aStaging.FinishDownload();  // none: nothing was started
}

bool CCudaBackend::mCopy(const DeviceImage& rDest, const DeviceImage& rSource)
{
    if (rDest.bSampled || rSource.bSampled) return CopyTexels(rDest, rSource, mStream());
    const cudaStream_t pStream = mStream();
    return pStream && CudaOk(cudaMemcpy2DAsync(rDest.pvData, rDest.tPitch, rSource.pvData,
                                               rSource.tPitch, RowBytes(rDest), CountRows(rDest),
                                               cudaMemcpyDeviceToDevice, pStream),
                             "copy");
}

bool CCudaBackend::mUploadTable(const DeviceImage& rImage, const void* pvSource)
{
    if (rImage.bSampled)
        return Upload(rImage, PackedRows(rImage, static_cast<const float*>(pvSource)), 0, 0,
                      rImage.iWidth, rImage.iHeight);
    const cudaStream_t pStream = mStream();
    return pStream &&
           CudaOk(cudaMemcpy2DAsync(rImage.pvData, rImage.tPitch, pvSource, RowBytes(rImage),
                                    RowBytes(rImage), CountRows(rImage), cudaMemcpyHostToDevice,
                                    pStream),
                  "upload table") &&
           CudaOk(mWait(), "upload table");
}

bool CCudaBackend::mDownloadTable(const DeviceImage& rImage, void* pvDest)
{
    if (rImage.bSampled)
        return Download(rImage, PackedRows(rImage, static_cast<float*>(pvDest)), 0, 0,
                        rImage.iWidth, rImage.iHeight);
    const cudaStream_t pStream = mStream();
    return pStream &&
           CudaOk(cudaMemcpy2DAsync(pvDest, RowBytes(rImage), rImage.pvData, rImage.tPitch,
                                    RowBytes(rImage), CountRows(rImage), cudaMemcpyDeviceToHost,
                                    pStream),
                  "download table") &&
           CudaOk(mWait(), "download table: wait for the kernels");
}
