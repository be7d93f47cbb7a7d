#pragma once

#include <memory>
#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/Host/HostKernels.h"
#include "gpulib/Device/Host/HostMemory.h"
#include "gpulib/Device/Host/Team.h"

/// The processor as a set of devices, one per core or per group of cores.
///
/// Each worker thread drives one device; a device runs its kernels on the thread that calls it and
/// on the helpers of its team.
class CHostBackend final : public CBackend
{
public:
    /// \param rCores    of each device
    /// \param iMaxRows  most rows of a batch, 0: as many as there are lanes
    CHostBackend(const HostKernels& rKernels, const std::vector<int>& rCores, int iMaxRows);

    const char* GetName() const override { return "host"; }
    const char* GetDetail() const override { return m_rKernels.pcName; }
    int GetDeviceCount() const override { return static_cast<int>(m_vTeams.size()); }
    std::size_t GetDeviceMemory(int iDevice) const override;
    bool SelectDevice(int iDevice) override;
    int GetBatchRows(int iRows, std::size_t tBytesPerRow) const override;
    int GetPieceRows(int iWidth, int iRows) const override;
    bool UsesHostMemory() const override { return true; }

private:
    bool mCreate(DeviceImage& rImage, const char* pcKind) override;
    bool mCreateLent(DeviceImage& rImage, const void* pvSource) override;
    bool mCreateLentRows(DeviceImage& rImage, const HostRows<float>& rRows) override;
    void mFree(DeviceImage& rImage) override;
    bool mClear(const DeviceImage& rImage) override;
    bool mUpload(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0, int iY0,
                 int iWidth, int iHeight) override;
    bool mStartDownload(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                        int iWidth, int iHeight) override;
    bool mMoveIn(const DeviceImage& rImage, const HostRows<float>& rSource, int iX0, int iY0,
                 int iWidth, int iHeight) override;
    bool mStartMoveOut(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                       int iWidth, int iHeight) override;
    bool mCopy(const DeviceImage& rDest, const DeviceImage& rSource) override;
    bool mUploadTable(const DeviceImage& rImage, const void* pvSource) override;
    bool mDownloadTable(const DeviceImage& rImage, void* pvDest) override;

    bool mForwardProject(const ForwardParams& rParams) override;
    bool mBackForward(const BackParams& rBack, const ForwardParams& rForward) override;
    bool mCombine(const CombineParams& rParams) override;
    bool mWeight(const WeightParams& rParams) override;
    bool mBackProject(const BackParams& rParams) override;
    bool mSumAbs(const SumAbsParams& rParams) override;
    bool mTransform(const TransformParams& rParams) override;
    bool mCompareSums(const CompareParams& rParams) override;
    bool mSmooth(const SmoothParams& rParams) override;

    bool mApplyRule(const ForwardParams& rParams);
    CTeam& mTeam();  // of the device of the calling thread
    const HostKernels& mKernels(const DeviceImage& rBatch) const;
    template <class F>
    void mSplit(int iPieces, F fShare);

    const HostKernels& m_rKernels;
    const int m_iMaxRows;
    std::vector<std::unique_ptr<CTeam>> m_vTeams;  // one for each device
};
