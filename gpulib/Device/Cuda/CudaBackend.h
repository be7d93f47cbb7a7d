#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/Staging.h"

/// GPUs behind the device seam.
///
/// Kernels and copies are queued on streams of the device; the host waits where values leave the
/// device. One thread at a time uses a device, so nothing here is locked.
class CCudaBackend : public CBackend
{
public:
    struct Properties
    {
        std::string strName;
        std::size_t tMemory = 0;  ///< bytes
        std::string strLeftOut;   ///< why it cannot be used; empty: it can
    };
    /// \param vDevices  all that the runtime counts, in its order
    /// \param iMaxRows  bounds the rows of a batch; 0: as memory allows
    CCudaBackend(std::vector<Properties> vDevices, int iMaxRows);
    ~CCudaBackend() override;

    const char* GetName() const override { return "cuda"; }
    const char* GetDetail() const override { return m_strDetail.c_str(); }
    int GetDeviceCount() const override { return static_cast<int>(m_vProperties.size()); }
    std::size_t GetDeviceMemory(int iDevice) const override;
    bool SelectDevice(int iDevice) override;
    int GetBatchRows(int iRows, std::size_t tBytesPerRow) const override;
    bool UsesHostMemory() const override { return false; }
    int GetPieceRows(int iWidth, int iRows) const override;
    bool FinishDownload() override;

private:
    bool mCreate(DeviceImage& rImage, const char* pcKind) override;
    bool mCreateLent(DeviceImage& rImage, const void* pvSource) override;
    void mFree(DeviceImage& rImage) override;
    bool mClear(const DeviceImage& rImage) override;
    bool mUpload(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0, int iY0,
                 int iWidth, int iHeight) override;
    void mPrefetch(const HostRows<const float>& rSource, int iWidth, int iHeight) override;
    bool mStartDownload(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                        int iWidth, int iHeight) override;
    bool mCopy(const DeviceImage& rDest, const DeviceImage& rSource) override;
    bool mUploadTable(const DeviceImage& rImage, const void* pvSource) override;
    bool mDownloadTable(const DeviceImage& rImage, void* pvDest) override;

    bool mForwardProject(const ForwardParams& rParams) override;
    bool mCombine(const CombineParams& rParams) override;
    bool mWeight(const WeightParams& rParams) override;
    bool mBackProject(const BackParams& rParams) override;
    bool mSumAbs(const SumAbsParams& rParams) override;
    bool mTransform(const TransformParams& rParams) override;
    bool mCompareSums(const CompareParams& rParams) override;
    bool mSmooth(const SmoothParams& rParams) override;

    /// What one device needs beside its images; made when it is selected first.
    struct Device
    {
        CudaStream pStream;  // of the kernels; ends after the staging that borrows it
        CStaging aStaging;
        int iBatchImages = 0;  // alive: a job runs
    };
    [[nodiscard]] bool mOpenDevice();
    Device* mFindDevice() const;  ///< of the calling thread; null: it could not be opened
    Device* mDevice() const;      ///< the same with the reason noted
    /// Queues a kernel; arguments as those of Launch() after the stream.
    template <class... ARGS>
    [[nodiscard]] bool mLaunch(const char* pcName, const ARGS&... rArgs) const
    {
        Device* const pDevice = mDevice();
        return pDevice && Launch(pcName, pDevice->pStream.get(), rArgs...) &&
               pDevice->aStaging.Advance();
    }
    [[nodiscard]] bool mCopyBytes(void* pvDest, const void* pvSource, const DeviceImage& rImage,
                                  cudaMemcpyKind eKind, const char* pcWhat) const;

    const std::vector<Properties> m_vProperties;
    const int m_iMaxRows;
    std::string m_strDetail;
    std::vector<std::unique_ptr<Device>> m_vpDevices;
};
