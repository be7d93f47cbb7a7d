#include "gpulib/Device/Backend.h"

#include <algorithm>
#include <utility>

#include "gpulib/Device/Checks.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
/// The rows that the image has lanes for.
template <class T>
HostRows<T> OfImage(HostRows<T> aRows, const DeviceImage& rImage)
{
    aRows.iLanes = std::min(aRows.iLanes, rImage.iLanes);
    return aRows;
}
}  // namespace

bool CBackend::Create(DeviceImage& rImage, const char* pcKind)
{
    return CheckSizes(pcKind, rImage) && mCreate(rImage, pcKind);
}

bool CBackend::CreateShared(DeviceImage& rImage, const DeviceImage& rArray)
{
    if (!rArray.pvData) return DeviceFail("share buffer: no image");
    rImage = rArray;
    rImage.bLent = true;
    rImage.pvRoom = nullptr;
    return true;
}

bool CBackend::CreateLent(DeviceImage& rImage, const void* pvSource)
{
    if (!pvSource || rImage.iDepth != 1 || rImage.iChannels != 1 || rImage.iLanes != 1)
        return DeviceFail("lend array: %d x %d x %d, %d channels, %d rows", rImage.iWidth,
                          rImage.iHeight, rImage.iDepth, rImage.iChannels, rImage.iLanes);
    return CheckSizes("lent array", rImage) && mCreateLent(rImage, pvSource);
}

bool CBackend::CreateLentRows(DeviceImage& rImage, const HostRows<float>& rRows)
{
    if (!rRows.pData || rRows.tStrideLane != std::size_t(rImage.iWidth))
        return DeviceFail("lend rows: %d columns, %zu apart", rImage.iWidth, rRows.tStrideLane);
    return CheckSizes("lent rows", rImage) && mCreateLentRows(rImage, OfImage(rRows, rImage));
}

void CBackend::Free(DeviceImage& rImage)
{
    if (rImage.pvData) mFree(rImage);
    rImage = DeviceImage();
}

bool CBackend::Clear(const DeviceImage& rImage)
{
    return rImage.pvData ? mClear(rImage) : DeviceFail("clear: no image");
}

bool CBackend::Upload(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0,
                      int iY0, int iWidth, int iHeight)
{
    return CheckRectangle("upload", rImage, iX0, iY0, iWidth, iHeight) &&
           (iWidth == 0 || iHeight == 0 ||
            mUpload(rImage, OfImage(rSource, rImage), iX0, iY0, iWidth, iHeight));
}

bool CBackend::MoveIn(const DeviceImage& rImage, const HostRows<float>& rSource, int iX0, int iY0,
                      int iWidth, int iHeight)
{
    return CheckRectangle("upload", rImage, iX0, iY0, iWidth, iHeight) &&
           (iWidth == 0 || iHeight == 0 ||
            mMoveIn(rImage, OfImage(rSource, rImage), iX0, iY0, iWidth, iHeight));
}

bool CBackend::Download(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                        int iWidth, int iHeight)
{
    return StartDownload(rImage, rDest, iX0, iY0, iWidth, iHeight) && FinishDownload();
}

bool CBackend::StartDownload(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                             int iY0, int iWidth, int iHeight)
{
    return CheckRectangle("download", rImage, iX0, iY0, iWidth, iHeight) &&
           (iWidth == 0 || iHeight == 0 || rDest.iLanes == 0 ||
            mStartDownload(rImage, OfImage(rDest, rImage), iX0, iY0, iWidth, iHeight));
}

bool CBackend::StartMoveOut(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                            int iY0, int iWidth, int iHeight)
{
    return CheckRectangle("download", rImage, iX0, iY0, iWidth, iHeight) &&
           (iWidth == 0 || iHeight == 0 || rDest.iLanes == 0 ||
            mStartMoveOut(rImage, OfImage(rDest, rImage), iX0, iY0, iWidth, iHeight));
}

void CBackend::Prefetch(const HostRows<const float>& rSource, int iWidth, int iHeight)
{
    if (iWidth > 0 && iHeight > 0 && rSource.iLanes > 0) mPrefetch(rSource, iWidth, iHeight);
}

bool CBackend::Copy(const DeviceImage& rDest, const DeviceImage& rSource)
{
    return CheckSameSize("copy", rDest, rSource) && mCopy(rDest, rSource);
}

bool CBackend::UploadTable(const DeviceImage& rImage, const void* pvSource)
{
    return CheckTable("upload", rImage) && mUploadTable(rImage, pvSource);
}

bool CBackend::DownloadTable(const DeviceImage& rImage, void* pvDest)
{
    return CheckTable("download", rImage) && mDownloadTable(rImage, pvDest);
}

bool CBackend::ForwardProject(const ForwardParams& rP)
{
    return rP.iEnd <= rP.iFirst || (CheckParams(rP) && mForwardProject(rP));
}

bool CBackend::Combine(const CombineParams& rP)
{
    const bool bNothing = rP.iEnd <= rP.iFirst || rP.aRule.eOperation == ECombine::eSum;
    return bNothing || (CheckParams(rP) && mCombine(rP));
}

bool CBackend::Weight(const WeightParams& rP)
{
    return rP.iEnd <= rP.iFirst || (CheckParams(rP) && mWeight(rP));
}

bool CBackend::BackProject(const BackParams& rP)
{
    return rP.iRows <= 0 || (CheckParams(rP) && mBackProject(rP));
}

bool CBackend::BackForward(const BackParams& rBack, const ForwardParams& rForward)
{
    if (rBack.iRows <= 0 || rForward.iEnd <= rForward.iFirst)
        return BackProject(rBack) && ForwardProject(rForward);
    return CheckParams(rBack) && CheckParams(rForward) && mBackForward(rBack, rForward);
}

bool CBackend::SumAbs(const SumAbsParams& rP)
{
    return rP.iProjs <= 0 || rP.iRows <= 0 || (CheckParams(rP) && mSumAbs(rP));
}

bool CBackend::Transform(const TransformParams& rP)
{
    return rP.iRows <= 0 || (CheckParams(rP) && mTransform(rP));
}

bool CBackend::CompareSums(const CompareParams& rP)
{
    return rP.iRows <= 0 || (CheckParams(rP) && mCompareSums(rP));
}

bool CBackend::Smooth(const SmoothParams& rP)
{
    return CheckParams(rP) && mSmooth(rP);
}

namespace
{
std::unique_ptr<CBackend> g_pBackend;
}

CBackend* GetBackend()
{
    return g_pBackend.get();
}

std::unique_ptr<CBackend> SetBackend(std::unique_ptr<CBackend> pBackend)
{
    return std::exchange(g_pBackend, std::move(pBackend));
}

std::unique_ptr<CBackend> MakeBackend(const std::string& strWanted, std::string& rReason,
                                      const HostCores& rCores)
{
    const bool bAuto = strWanted.empty() || strWanted == "auto";
    if (!bAuto && strWanted != "cuda" && strWanted != "host")
    {
        rReason = "unknown backend \"" + strWanted + "\", must be auto, cuda or host";
        return nullptr;
    }
    std::string strWhy = "asked for";
    std::unique_ptr<CBackend> pBackend;
    if (strWanted != "host")
    {
        std::string strNoCuda;
        pBackend = MakeCudaBackend(0, strNoCuda, rCores.uiBusy);
        if (bAuto) strWhy = pBackend ? "found" : strNoCuda;
        if (!pBackend && !bAuto)
        {
            rReason = strWanted + ": " + strNoCuda;
            return nullptr;
        }
    }
    if (!pBackend) pBackend = MakeHostBackend(rCores);
    rReason = std::string(pBackend->GetName()) + " (" + pBackend->GetDetail() + "), " + strWhy;
    return pBackend;
}
