#include "gpulib/Device/Host/HostBackend.h"

#include <algorithm>
#include <cstring>

#include "Util/Util_Memory.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/Host/HostMemory.h"
#include "gpulib/Device/Host/SeparableKernel.h"
#include "gpulib/Device/Host/Transpose.h"

namespace
{
thread_local int t_iDevice = 0;

/// Lanes that kernels exist for.
int RoundUpLanes(int iRows)
{
    for (const int iLanes : {1, 4, 8, 16})
        if (iRows <= iLanes) return iLanes;
    return g_iMaxLanes;
}

/// Bytes from one row of an image to the next. A strip reads up to 32 rows of a batch at a time:
/// they lie an odd number of cache lines apart, and some fraction of a page more than whole pages,
/// or they would fight for the same few entries of the caches of lines and of page addresses.
std::size_t PitchOf(std::size_t tRowBytes, int iLanes)
{
    constexpr std::size_t tLine = 64, tPage = 4096, tLongRow = 4 * tPage;
    if (iLanes == 1) return tRowBytes;
    std::size_t tPitch = tRowBytes;
    if (tPitch >= tLongRow && tPitch % tPage > 3 * tPage / 4) tPitch += tPage - tPitch % tPage;
    if (tPitch >= tLongRow && tPitch % tPage < tPage / 4) tPitch += tPage / 4 - tPitch % tPage;
    return ((tPitch + tLine - 1) / tLine | 1) * tLine;
}

constexpr std::size_t g_tLeastRelease = 1 << 16;  // bytes: less is not worth asking the system

/// One image row of the rows of a batch.
HostRows<float> SliceOf(const HostRows<float>& rRows, int iY)
{
    return {rRows.pData + iY * rRows.tStrideY, rRows.tStrideY, rRows.tStrideLane, rRows.iLanes};
}

/// Whether rows of iWidth values lie one after the other.
bool AreWhole(const HostRows<float>& rRows, int iWidth)
{
    return rRows.tStrideLane == std::size_t(iWidth);
}

std::size_t CountBytes(const HostRows<float>& rRows)
{
    return rRows.tStrideLane * rRows.iLanes * sizeof(float);
}

/// Raw numbers at list positions [iFirst, iEnd); false when one is not below iRows.
bool ReadIndex(const char* pcKernel, const DeviceImage& rIndex, int iFirst, int iEnd, int iRows,
               std::vector<int>& rRows)
{
    const unsigned* puiIndex = static_cast<const unsigned*>(rIndex.pvData);
    rRows.clear();
    for (int p = iFirst; p < iEnd; ++p)
    {
        if (puiIndex[p] >= unsigned(iRows))
            return DeviceFail("%s: projection %u of %d", pcKernel, puiIndex[p], iRows);
        rRows.push_back(int(puiIndex[p]));
    }
    return true;
}

/// Angle and valid columns of one projection for the rows of a batch.
BackView MakeBackView(const BackParams& rP, int iProj)
{
    BackView aView;
    const float* pfCosSin = static_cast<const float*>(rP.aCosSin.pvData) + 2 * iProj;
    aView.fCos = pfCosSin[0];
    aView.fSin = pfCosSin[1];
    aView.pfRow = RowOf(rP.aProjs, iProj);
    const float* pfRanges = RowOf(rP.aRangeX, iProj) + 2 * rP.iY;
    for (int l = 0; l < g_iMaxLanes; ++l)
    {
        const int iRow = std::min(l, rP.iRows - 1);
        aView.afFirst[l] = pfRanges[2 * iRow];
        aView.afEnd[l] = pfRanges[2 * iRow + 1];
    }
    const auto [pfLeast, pfMost] = std::minmax_element(aView.afFirst, aView.afFirst + g_iMaxLanes);
    const auto [pfLeastEnd, pfMostEnd] =
        std::minmax_element(aView.afEnd, aView.afEnd + g_iMaxLanes);
    aView.fAllFirst = *pfMost;
    aView.fAllEnd = *pfLeastEnd;
    aView.fAnyFirst = *pfLeast;
    aView.fAnyEnd = *pfMostEnd;
    // Coordinates have an error of a few units in the last place of the largest extent.
    const float fReach = g_fTileReach + 1e-6f * (float(rP.iVolX) + float(rP.iVolZ) + rP.iProjX);
    aView.fAllFrom = std::max(aView.fAllFirst, 0.0f) + fReach;
    aView.fAllTo = std::min(aView.fAllEnd - 1.0f, rP.iProjX - 2.0f) - fReach;
    aView.fNoneBefore = aView.fAnyFirst - fReach;
    aView.fNoneAfter = aView.fAnyEnd - 1.0f + fReach;
    return aView;
}

bool MakeBackViews(const BackParams& rP, std::vector<BackView>& rViews)
{
    std::vector<int> viRows;
    if (!ReadIndex("BackProject", rP.aProjIndex, rP.iFirst, rP.iEnd, rP.aProjs.iHeight, viRows))
        return false;
    for (const int iProj : viRows) rViews.push_back(MakeBackView(rP, iProj));
    return true;
}

void RemoveTwins(std::vector<int>& rRows)
{
    std::ranges::sort(rRows);
    rRows.erase(std::unique(rRows.begin(), rRows.end()), rRows.end());
}

bool MakeForwardViews(const ForwardParams& rP, std::vector<ForwardView>& rViews)
{
    std::vector<int> viRows;
    if (!ReadIndex("ForwardProject", rP.aProjIndex, rP.iFirst, rP.iEnd, rP.aSums.iHeight, viRows))
        return false;
    // Strips add to the sums: a projection that stands in the set twice must not be added twice.
    RemoveTwins(viRows);
    for (const int iProj : viRows)
    {
        const float* pfCosSin = static_cast<const float*>(rP.aCosSin.pvData) + 2 * iProj;
        rViews.push_back({MakeRays(pfCosSin[0], pfCosSin[1], rP.iVolX, rP.iVolZ, rP.iProjX),
                          RowOf(rP.aSums, iProj)});
    }
    return true;
}

/// Whether the ray sums of one projection take the place of a row that is back projected.
bool ShareRows(const std::vector<BackView>& rBack, const std::vector<ForwardView>& rForward)
{
    return std::ranges::any_of(
        rForward, [&](const ForwardView& rSums)
        { return std::ranges::find(rBack, rSums.pfSums, &BackView::pfRow) != rBack.end(); });
}

bool HaveOneSteepAxis(const std::vector<ForwardView>& rViews)
{
    const auto IsAlongX = [](const ForwardView& rView) { return RunAlongX(rView.aRays); };
    return std::ranges::all_of(rViews, IsAlongX) || std::ranges::none_of(rViews, IsAlongX);
}
}  // namespace

CHostBackend::CHostBackend(const HostKernels& rKernels, const std::vector<int>& rCores,
                           int iMaxRows)
    : m_rKernels(rKernels), m_iMaxRows(iMaxRows)
{
    for (const int iCores : rCores) m_vTeams.push_back(std::make_unique<CTeam>(iCores));
}

std::size_t CHostBackend::GetDeviceMemory(int iDevice) const
{
    if (iDevice < 0 || iDevice >= GetDeviceCount()) return 0;
    return Util_Memory::GetMachine() / m_vTeams.size();
}

bool CHostBackend::SelectDevice(int iDevice)
{
    if (iDevice < 0 || iDevice >= GetDeviceCount())
        return DeviceFail("device %d of %d", iDevice, GetDeviceCount());
    t_iDevice = iDevice;
    FlushSmallNumbers();
    return true;
}

int CHostBackend::GetBatchRows(int iRows, std::size_t tBytesPerRow) const
{
    // Two registers to an element cost 1.6 times one. The batch comes on top of the stack and the
    // volume: a short band of large slices, where it would be the larger part, goes without.
    constexpr int iManyRows = 10 * g_iMaxLanes;
    const std::size_t tMemory = GetDeviceMemory(0);
    const bool bLittle = iRows >= iManyRows || tBytesPerRow <= tMemory / 16 / g_iMaxLanes;
    const int iLanes = bLittle ? g_iMaxLanes : g_iWideLanes;
    int iBatch = std::clamp(iRows, 1, m_iMaxRows > 0 ? std::min(m_iMaxRows, iLanes) : iLanes);
    while (iBatch > 1 && tBytesPerRow > tMemory / 4 / RoundUpLanes(iBatch)) iBatch /= 2;
    return iBatch;
}

int CHostBackend::GetPieceRows(int iWidth, int iRows) const
{
    constexpr int iPixels = 1 << 14;  // 64 KiB an image: three of them stay in the cache
    return std::clamp(iPixels / std::max(iWidth, 1), 1, std::max(iRows, 1));
}

bool CHostBackend::mCreate(DeviceImage& rImage, const char* pcKind)
{
    if (rImage.iLanes > g_iMaxLanes)
        return DeviceFail("create %s: %d rows, at most %d", pcKind, rImage.iLanes, g_iMaxLanes);
    rImage.iLanes = RoundUpLanes(rImage.iLanes);
    const std::size_t tElement = std::size_t(rImage.iChannels) * rImage.iLanes * rImage.iBytes;
    rImage.tPitch = PitchOf(tElement * rImage.iWidth, rImage.iLanes);
    const std::size_t tBytes = CountBytes(rImage);
    rImage.pvData = AllocateZeroed(tBytes).release();
    if (!rImage.pvData)
        return DeviceFail("create %s: no memory for %d x %d x %d, %d rows (%zu MiB)", pcKind,
                          rImage.iWidth, rImage.iHeight, rImage.iDepth, rImage.iLanes,
                          tBytes >> 20);
    return true;
}

bool CHostBackend::mCreateLent(DeviceImage& rImage, const void* pvSource)
{
    rImage.pvData = const_cast<void*>(pvSource);  // kernels only read it
    rImage.tPitch = std::size_t(rImage.iWidth) * rImage.iChannels * rImage.iBytes;
    rImage.bLent = true;
    return true;
}

/// A row of the image takes as much memory as its rows of the batch: they stay where they are, in
/// the order of the lanes.
bool CHostBackend::mCreateLentRows(DeviceImage& rImage, const HostRows<float>& rRows)
{
    if (RoundUpLanes(rImage.iLanes) != rRows.iLanes)  // a copy: there are more lanes than rows
        return mCreate(rImage, "array") &&
               mUpload(rImage, rRows.AsConst(), 0, 0, rImage.iWidth, rImage.iHeight);
    rImage.pvRoom = AllocateZeroed(CountBytes(SliceOf(rRows, 0))).release();
    if (!rImage.pvRoom) return DeviceFail("lend rows: no memory for %d columns", rImage.iWidth);
    rImage.iLanes = rRows.iLanes;
    rImage.pvData = rRows.pData;
    rImage.tPitch = rRows.tStrideY * sizeof(float);
    rImage.bLent = true;
    InterleaveInPlace(rImage, static_cast<float*>(rImage.pvRoom));
    return true;
}

void CHostBackend::mFree(DeviceImage& rImage)
{
    if (rImage.pvRoom)
    {
        const HostBlock pvRoom(rImage.pvRoom, {std::size_t(rImage.iWidth) * rImage.iLanes * 4});
        DeinterleaveInPlace(rImage, static_cast<float*>(rImage.pvRoom));
    }
    if (!rImage.bLent) HostBlock(rImage.pvData, {CountBytes(rImage)}).reset();
}

bool CHostBackend::mClear(const DeviceImage& rImage)
{
    std::memset(rImage.pvData, 0, CountBytes(rImage));
    return true;
}

bool CHostBackend::mUpload(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0,
                           int iY0, int iWidth, int iHeight)
{
    Interleave(rImage, rSource, iX0, iY0, iWidth, iHeight);
    return true;
}

bool CHostBackend::mStartDownload(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                                  int iY0, int iWidth, int iHeight)
{
    Deinterleave(rImage, rDest, iX0, iY0, iWidth, iHeight);
    return true;
}

/// A slice leaves the volume as soon as it stands in the image.
bool CHostBackend::mMoveIn(const DeviceImage& rImage, const HostRows<float>& rSource, int iX0,
                           int iY0, int iWidth, int iHeight)
{
    for (int y = 0; y < iHeight; ++y)
    {
        const HostRows<float> aSlice = SliceOf(rSource, y);
        Interleave(rImage, aSlice.AsConst(), iX0, iY0 + y, iWidth, 1);
        if (AreWhole(aSlice, iWidth))
            Util_Memory::Release(aSlice.pData, CountBytes(aSlice), g_tLeastRelease);
    }
    return true;
}

/// And the image gives back what has left it, in huge pages.
bool CHostBackend::mStartMoveOut(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0,
                                 int iY0, int iWidth, int iHeight)
{
    CHostPages aPages(rImage.pvData);
    for (int y = 0; y < iHeight; ++y)
    {
        const HostRows<float> aSlice = SliceOf(rDest, y);
        if (AreWhole(aSlice, iWidth)) Util_Memory::Populate(aSlice.pData, CountBytes(aSlice));
        Deinterleave(rImage, aSlice, iX0, iY0 + y, iWidth, 1);
        aPages.ReleaseTo(RowOf(rImage, iY0 + y + 1));
    }
    return true;
}

bool CHostBackend::mCopy(const DeviceImage& rDest, const DeviceImage& rSource)
{
    std::memcpy(rDest.pvData, rSource.pvData, CountBytes(rDest));
    return true;
}

bool CHostBackend::mUploadTable(const DeviceImage& rImage, const void* pvSource)
{
    std::memcpy(rImage.pvData, pvSource, CountBytes(rImage));
    return true;
}

bool CHostBackend::mDownloadTable(const DeviceImage& rImage, void* pvDest)
{
    std::memcpy(pvDest, rImage.pvData, CountBytes(rImage));
    return true;
}

CTeam& CHostBackend::mTeam()
{
    return *m_vTeams[t_iDevice < GetDeviceCount() ? t_iDevice : 0];
}

const HostKernels& CHostBackend::mKernels(const DeviceImage& rBatch) const
{
    const bool bNarrow = m_rKernels.pNarrow && rBatch.iLanes < g_iWideLanes;
    return bNarrow ? *m_rKernels.pNarrow : m_rKernels;
}

/// Cuts iPieces pieces of work into one share for each core of the device.
template <class F>
void CHostBackend::mSplit(int iPieces, F fShare)
{
    CTeam& rTeam = mTeam();
    const int iShares = rTeam.GetSize();
    rTeam.Run(
        [&](int i)
        {
            const auto Begin = [&](int s) { return int(std::int64_t(iPieces) * s / iShares); };
            const Share aShare = {Begin(i), Begin(i + 1)};
            if (aShare.iFirst < aShare.iEnd) fShare(aShare, i);
        });
}

bool CHostBackend::mForwardProject(const ForwardParams& rP)
{
    std::vector<ForwardView> vViews;
    if (!MakeForwardViews(rP, vViews)) return false;
    mSplit(int(vViews.size()),
           [&](Share aShare, int) { mKernels(rP.aVol).Forward(rP, vViews.data(), aShare); });
    return mApplyRule(rP);
}

bool CHostBackend::mBackProject(const BackParams& rP)
{
    std::vector<BackView> vViews;
    if (!MakeBackViews(rP, vViews)) return false;
    mSplit((rP.iVolZ + g_iBackTile - 1) / g_iBackTile, [&](Share aShare, int)
           { mKernels(rP.aVol).Back(rP, vViews.data(), int(vViews.size()), aShare); });
    return true;
}

/// One pass pays where memory is what both wait for: few views, and a core that has them to itself.
bool CHostBackend::mBackForward(const BackParams& rBack, const ForwardParams& rForward)
{
    constexpr int iFew = 4;
    std::vector<BackView> vBack;
    std::vector<ForwardView> vForward;
    const bool bSplit = mTeam().GetSize() > 1 || rForward.iEnd - rForward.iFirst > iFew;
    if (!bSplit && !(MakeBackViews(rBack, vBack) && MakeForwardViews(rForward, vForward)))
        return false;
    if (bSplit || !HaveOneSteepAxis(vForward) || ShareRows(vBack, vForward))
        return mBackProject(rBack) && mForwardProject(rForward);
    mKernels(rBack.aVol)
        .BackForward(rBack, vBack.data(), int(vBack.size()), rForward, vForward.data(),
                     {0, int(vForward.size())});
    return mApplyRule(rForward);
}

bool CHostBackend::mApplyRule(const ForwardParams& rP)
{
    return rP.aRule.eOperation == ECombine::eSum ||
           mCombine({rP.aSums, rP.aProjIndex, rP.iProjX, rP.iFirst, rP.iEnd, rP.aRule});
}

bool CHostBackend::mCombine(const CombineParams& rP)
{
    std::vector<int> viRows;
    if (!ReadIndex("Combine", rP.aProjIndex, rP.iFirst, rP.iEnd, rP.aSums.iHeight, viRows))
        return false;
    RemoveTwins(viRows);  // the result takes the place of the sums
    mSplit(int(viRows.size()),
           [&](Share aShare, int) { mKernels(rP.aSums).Combine(rP, viRows.data(), aShare); });
    return true;
}

bool CHostBackend::mWeight(const WeightParams& rP)
{
    std::vector<int> viRows;
    if (rP.eOperation == EWeight::eCopy || rP.eOperation == EWeight::eRef)
        for (int j = rP.iFirst; j < rP.iEnd; ++j) viRows.push_back(j);
    else if (!ReadIndex("Weight", rP.aProjIndex, rP.iFirst, rP.iEnd, rP.aOut.iHeight, viRows))
        return false;
    mSplit(int(viRows.size()),
           [&](Share aShare, int) { mKernels(rP.aOut).Weight(rP, viRows.data(), aShare); });
    return true;
}

bool CHostBackend::mSumAbs(const SumAbsParams& rP)
{
    std::vector<int> viRows;
    if (!ReadIndex("SumAbs", rP.aProjIndex, 0, rP.iProjs, rP.aSource.iHeight, viRows)) return false;
    const int iLanes = rP.aSource.iLanes;
    std::vector<float> vfTotals(viRows.size() * iLanes);
    mSplit(int(viRows.size()), [&](Share aShare, int)
           { mKernels(rP.aSource).SumAbs(rP, viRows.data(), aShare, vfTotals.data()); });
    double* pdAccum =
        static_cast<double*>(rP.aAccum.pvData) + std::size_t(rP.iIter) * rP.aAccum.iWidth;
    for (std::size_t p = 0; p < viRows.size(); ++p)
        for (int l = 0; l < rP.iRows; ++l) pdAccum[p] += double(vfTotals[p * iLanes + l]);
    return true;
}

bool CHostBackend::mTransform(const TransformParams& rP)
{
    mSplit(rP.iRows, [&](Share aShare, int) { m_rKernels.Transform(rP, aShare); });
    return true;
}

bool CHostBackend::mCompareSums(const CompareParams& rP)
{
    mSplit(rP.iRows, [&](Share aShare, int) { m_rKernels.CompareSums(rP, aShare); });
    return true;
}

bool CHostBackend::mSmooth(const SmoothParams& rP)
{
    const DeviceImage& rKernel = rP.aKernel;
    const std::size_t tScratch = SmoothScratch(rKernel.iWidth, rKernel.iHeight) * sizeof(float);
    std::vector<HostBlock> vScratch(mTeam().GetSize());
    for (HostBlock& rScratch : vScratch)
    {
        rScratch = AllocateZeroed(tScratch);
        if (!rScratch) return DeviceFail("Smooth: no memory for %zu bytes of a tile", tScratch);
    }
    const SeparableKernel aFactors = Separate(static_cast<const float*>(rKernel.pvData),
                                              rKernel.iWidth, rKernel.iHeight, rKernel.iDepth);
    const int iStrips = (rP.aVol.iHeight + g_iSmoothTileY - 1) / g_iSmoothTileY;
    mSplit(iStrips * rP.aVol.iDepth,
           [&](Share aShare, int iPart)
           {
               m_rKernels.Smooth(rP, aFactors.GetFactors(), aShare,
                                 static_cast<float*>(vScratch[iPart].get()));
           });
    return true;
}
