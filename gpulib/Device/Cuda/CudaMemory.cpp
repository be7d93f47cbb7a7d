// Images in device memory.

#include <algorithm>

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/CudaClock.h"
#include "gpulib/Device/DeviceError.h"

/// Lanes come in whole groups.
bool CCudaBackend::mCreate(DeviceImage& rImage, const char* pcKind)
{
    if (!mOpenDevice()) return false;
    if (rImage.bBatch) rImage.iLanes = CountGroups(rImage) * g_iGroupLanes;
    rImage.tPitch = std::size_t(rImage.iWidth) * rImage.iChannels * rImage.iBytes *
                    (rImage.bBatch ? g_iGroupLanes : 1);
    // Rows of one pixel are read as if they had another, which has no weight.
    constexpr std::size_t tBehind = g_iGroupLanes * sizeof(float);
    const std::size_t tBytes = CountBytes(rImage);
    Device& rDevice = *mDevice();
    if (!CudaOk(cudaMallocAsync(&rImage.pvData, std::max(tBytes, tBytes + tBehind),
                                rDevice.pStream.get()),
                "create %s: %d x %d x %d, %d rows", pcKind, rImage.iWidth, rImage.iHeight,
                rImage.iDepth, rImage.iLanes))
        return false;
    rDevice.iBatchImages += rImage.bBatch;  // Free() counts it down
    if (CudaOk(cudaMemsetAsync(rImage.pvData, 0, tBytes + tBehind, rDevice.pStream.get()), "clear"))
        return true;
    Free(rImage);
    return false;
}

bool CCudaBackend::mCreateLent(DeviceImage& rImage, const void* pvSource)
{
    if (!Create(rImage)) return false;
    if (UploadTable(rImage, pvSource)) return true;
    Free(rImage);
    return false;
}

/// In the order of the kernels. What goes wrong with them shows in the next operation.
void CCudaBackend::mFree(DeviceImage& rImage)
{
    if (rImage.bLent) return;
    Device* const pDevice = mFindDevice();
    static_cast<void>(pDevice ? cudaFreeAsync(rImage.pvData, pDevice->pStream.get())
                              : cudaFree(rImage.pvData));
    // After the last one the job is over, whether it has succeeded or not.
    if (pDevice && rImage.bBatch && --pDevice->iBatchImages == 0) pDevice->aStaging.Drop();
}

bool CCudaBackend::mClear(const DeviceImage& rImage)
{
    const Device* const pDevice = mDevice();
    return pDevice &&
           CudaOk(cudaMemsetAsync(rImage.pvData, 0, CountBytes(rImage), pDevice->pStream.get()),
                  "clear");
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

/// Copies all of an image in the order of the kernels; waits where the host has a part in it.
bool CCudaBackend::mCopyBytes(void* pvDest, const void* pvSource, const DeviceImage& rImage,
                              cudaMemcpyKind eKind, const char* pcWhat) const
{
    const Device* const pDevice = mDevice();
    if (!pDevice || !CudaOk(cudaMemcpyAsync(pvDest, pvSource, CountBytes(rImage), eKind,
                                            pDevice->pStream.get()),
                            "%s", pcWhat))
        return false;
    if (eKind == cudaMemcpyDeviceToDevice) return true;
    const CHostSpan aSpan(g_acWait);
    return CudaOk(cudaStreamSynchronize(pDevice->pStream.get()), "%s: wait for the kernels",
                  pcWhat);
}

bool CCudaBackend::mCopy(const DeviceImage& rDest, const DeviceImage& rSource)
{
    return mCopyBytes(rDest.pvData, rSource.pvData, rDest, cudaMemcpyDeviceToDevice, "copy");
}

bool CCudaBackend::mUploadTable(const DeviceImage& rImage, const void* pvSource)
{
    return mCopyBytes(rImage.pvData, pvSource, rImage, cudaMemcpyHostToDevice, "upload table");
}

bool CCudaBackend::mDownloadTable(const DeviceImage& rImage, void* pvDest)
{
    return mCopyBytes(pvDest, rImage.pvData, rImage, cudaMemcpyDeviceToHost, "download table");
}
