#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "gpulib/Device/DeviceImage.h"
#include "gpulib/Device/KernelParams.h"

/// The device seam: everything that differs between kinds of devices.
///
/// One backend is chosen at start-up. All operations but the platform queries work on the device
/// that the calling thread selected. An operation that returns false has noted its reason with
/// DeviceFail() and changed nothing that the caller may rely on.
///
/// The public operations check their parameters, for all backends alike: nothing that they let
/// through reads or writes beside an image.
class CBackend
{
public:
    virtual ~CBackend() = default;

    // Platform. Devices are numbered as the platform does (for GPUs: the CUDA runtime), with those
    // that cannot be used among them: their memory is 0, GetDetail() says why, and selecting them
    // fails. After a device could not be selected the operations below fail on that thread.
    virtual const char* GetName() const = 0;                     ///< "host" or "cuda"
    virtual const char* GetDetail() const = 0;                   ///< for example "avx512"
    virtual int GetDeviceCount() const = 0;                      ///< 0: no device
    virtual std::size_t GetDeviceMemory(int iDevice) const = 0;  ///< bytes, 0: no such or left out
    [[nodiscard]] virtual bool SelectDevice(int iDevice) = 0;    ///< for the calling thread

    /// Rows that one batch should hold when a band has iRows rows and each takes tBytesPerRow of
    /// device memory; at least 1, at most iRows. Images of the batch are created with this many
    /// lanes, which the backend may round up (DeviceImage::iLanes tells).
    virtual int GetBatchRows(int iRows, std::size_t tBytesPerRow) const = 0;
    /// Rows of iWidth pixels that a transform or comparison should work on at once; 1 to iRows.
    virtual int GetPieceRows(int iWidth, int iRows) const = 0;
    /// Whether images of devices take memory of the host.
    virtual bool UsesHostMemory() const = 0;

    // Memory.
    /// Makes an image; rImage holds sizes, channels and lanes wanted and receives the rest. The
    /// content is zero. pcKind: what a failure calls it
    [[nodiscard]] bool Create(DeviceImage& rImage, const char* pcKind = "array");
    /// A buffer of the same sizes for kernels that write what those of the array read, in the
    /// array's memory: a row holds what came last, from either.
    [[nodiscard]] bool CreateShared(DeviceImage& rImage, const DeviceImage& rArray);
    /// A one-lane array with the values at pvSource, tightly packed, for kernels that read it. The
    /// source must stay as it is until Free(): the backend may copy it or work on it in place.
    [[nodiscard]] bool CreateLent(DeviceImage& rImage, const void* pvSource);
    /// As Create() and Upload() of the whole image, but the rows, which lie one after the
    /// other, are lent until Free(): meanwhile they hold anything, afterwards what they held. A
    /// backend that works on the host's memory need not hold them twice.
    [[nodiscard]] bool CreateLentRows(DeviceImage& rImage, const HostRows<float>& rRows);
    void Free(DeviceImage& rImage);  ///< also of an empty image
    [[nodiscard]] bool Clear(const DeviceImage& rImage);
    /// Fills the rectangle that begins at element (iX0, iY0) with iWidth x iHeight elements.
    [[nodiscard]] bool Upload(const DeviceImage& rImage, const HostRows<const float>& rSource,
                              int iX0, int iY0, int iWidth, int iHeight);
    /// The reverse; only rDest.iLanes rows are written.
    [[nodiscard]] bool Download(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                                int iY0, int iWidth, int iHeight);
    /// Tells what an Upload() of iWidth x iHeight elements will soon read, so that it can begin.
    /// The values must not change before that Upload(), or the end of all images of the device.
    void Prefetch(const HostRows<const float>& rSource, int iWidth, int iHeight);
    /// As Download(), but rDest may be filled as late as in FinishDownload(). One at a time;
    /// dropped when no image of the device is left.
    [[nodiscard]] bool StartDownload(const DeviceImage& rImage, const HostRows<float>& rDest,
                                     int iX0, int iY0, int iWidth, int iHeight);
    [[nodiscard]] virtual bool FinishDownload() { return true; }
    /// As Upload(), but the source holds anything afterwards: what is large need not stand in
    /// memory twice.
    [[nodiscard]] bool MoveIn(const DeviceImage& rImage, const HostRows<float>& rSource, int iX0,
                              int iY0, int iWidth, int iHeight);
    /// As StartDownload(), but the rectangle holds anything finite afterwards.
    [[nodiscard]] bool StartMoveOut(const DeviceImage& rImage, const HostRows<float>& rDest,
                                    int iX0, int iY0, int iWidth, int iHeight);
    /// Copies a whole image into another of the same sizes.
    [[nodiscard]] bool Copy(const DeviceImage& rDest, const DeviceImage& rSource);
    /// Raw values of a one-lane image of any element size, tightly packed.
    [[nodiscard]] bool UploadTable(const DeviceImage& rImage, const void* pvSource);
    [[nodiscard]] bool DownloadTable(const DeviceImage& rImage, void* pvDest);

    // Kernels, one call each. Nothing happens where there is nothing to do: no projection, no row.
    [[nodiscard]] bool ForwardProject(const ForwardParams& rParams);
    [[nodiscard]] bool Combine(const CombineParams& rParams);
    [[nodiscard]] bool Weight(const WeightParams& rParams);
    [[nodiscard]] bool BackProject(const BackParams& rParams);
    /// BackProject(), then ForwardProject() of the slices that it leaves, perhaps in one pass.
    [[nodiscard]] bool BackForward(const BackParams& rBack, const ForwardParams& rForward);
    [[nodiscard]] bool SumAbs(const SumAbsParams& rParams);
    [[nodiscard]] bool Transform(const TransformParams& rParams);
    [[nodiscard]] bool CompareSums(const CompareParams& rParams);
    [[nodiscard]] bool Smooth(const SmoothParams& rParams);

private:
    // What a kind of device does: the operations above after their checks, never with an empty
    // rectangle or more lanes than the image has.
    virtual bool mCreate(DeviceImage& rImage, const char* pcKind) = 0;
    virtual bool mCreateLent(DeviceImage& rImage, const void* pvSource) = 0;
    virtual bool mCreateLentRows(DeviceImage& rImage, const HostRows<float>& rRows)
    {
        return mCreate(rImage, "array") &&
               mUpload(rImage, rRows.AsConst(), 0, 0, rImage.iWidth, rImage.iHeight);
    }
    virtual void mFree(DeviceImage& rImage) = 0;
    virtual bool mClear(const DeviceImage& rImage) = 0;
    virtual bool mUpload(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0,
                         int iY0, int iWidth, int iHeight) = 0;
    virtual bool mStartDownload(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                                int iY0, int iWidth, int iHeight) = 0;
    virtual bool mMoveIn(const DeviceImage& rImage, const HostRows<float>& rSource, int iX0,
                         int iY0, int iWidth, int iHeight)
    {
        return mUpload(rImage, rSource.AsConst(), iX0, iY0, iWidth, iHeight);
    }
    virtual bool mStartMoveOut(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                               int iY0, int iWidth, int iHeight)
    {
        return mStartDownload(rImage, rDest, iX0, iY0, iWidth, iHeight);
    }
    virtual void mPrefetch(const HostRows<const float>& /*rSource*/, int /*iWidth*/,
                           int /*iHeight*/)
    {
    }
    virtual bool mCopy(const DeviceImage& rDest, const DeviceImage& rSource) = 0;
    virtual bool mUploadTable(const DeviceImage& rImage, const void* pvSource) = 0;
    virtual bool mDownloadTable(const DeviceImage& rImage, void* pvDest) = 0;
    virtual bool mForwardProject(const ForwardParams& rParams) = 0;
    virtual bool mCombine(const CombineParams& rParams) = 0;
    virtual bool mWeight(const WeightParams& rParams) = 0;
    virtual bool mBackProject(const BackParams& rParams) = 0;
    virtual bool mBackForward(const BackParams& rBack, const ForwardParams& rForward)
    {
        return mBackProject(rBack) && mForwardProject(rForward);
    }
    virtual bool mSumAbs(const SumAbsParams& rParams) = 0;
    virtual bool mTransform(const TransformParams& rParams) = 0;
    virtual bool mCompareSums(const CompareParams& rParams) = 0;
    virtual bool mSmooth(const SmoothParams& rParams) = 0;
};

/// What is wanted of the host backend.
struct HostCores
{
    int iCores = 0;       ///< for all devices together; 0: all that this process may use
    unsigned uiBusy = 0;  ///< devices that will not be used, a bit each: with iCores given the
                          ///< others share all of them, otherwise the cores of these stay idle
};

/// How a backend is asked for: configuration key "Backend", environment TALVEN_BACKEND.
/// \param strWanted "auto" (or empty): cuda where there is a device, else host; "cuda"; "host"
/// \param rReason   receives the sentence for the start-up line, for example
///                  "host (avx512), no CUDA driver", or the reason of a refusal
/// \param rCores    for the host backend
/// \return null when the name is unknown or the wanted backend is not there
std::unique_ptr<CBackend> MakeBackend(const std::string& strWanted, std::string& rReason,
                                      const HostCores& rCores = {});

/// Every backend and instruction set that this build has and this machine can run, for tests and
/// benchmarks: names for MakeHostBackend() and so on.
std::vector<std::string>
GetHostInstructionSets();  ///< best first, for example avx512 avx2 baseline

/// The host backend with the best instruction set. It pins no core: the system places its threads.
std::unique_ptr<CBackend> MakeHostBackend(const HostCores& rCores);

/// A host backend of iDevices devices of one core each (0: of all cores, see CountHostDevices())
/// forced to one instruction set (empty: the best); null when this machine cannot run it. iMaxRows
/// bounds the rows of a batch (0: as the backend likes).
std::unique_ptr<CBackend> MakeHostBackend(const std::string& strInstructionSet, int iDevices,
                                          int iMaxRows = 0);

/// The CUDA backend over all devices that the driver reports; null with the reason, for example "no
/// CUDA driver", where there is none. iMaxRows as above; uiBusy: devices that will not be used, a
/// bit each, whose memory stays untouched.
std::unique_ptr<CBackend> MakeCudaBackend(int iMaxRows, std::string& rReason, unsigned uiBusy = 0);

/// The backend in use, null before SetBackend(). Device memory owners and kernel drivers call it.
CBackend* GetBackend();

/// Makes a backend the one in use and returns the former one. Not while a worker runs.
std::unique_ptr<CBackend> SetBackend(std::unique_ptr<CBackend> pBackend);
