#include "gpulib/Device/Checks.h"

#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/Limits.h"

namespace
{
/// An image of at least iWidth x iHeight elements with the given channels and bytes per value.
bool CheckImage(const char* pcKernel, const char* pcImage, const DeviceImage& rImage, int iWidth,
                int iHeight, int iChannels = 1, int iBytes = 4)
{
    if (rImage.pvData && rImage.iWidth >= iWidth && rImage.iHeight >= iHeight &&
        rImage.iChannels == iChannels && rImage.iBytes == iBytes)
        return true;
    return DeviceFail("%s: %s is %d x %d x %d, %d x %d x %d needed", pcKernel, pcImage,
                      rImage.iWidth, rImage.iHeight, rImage.iChannels, iWidth, iHeight, iChannels);
}

bool CheckSameLanes(const char* pcKernel, const DeviceImage& rA, const DeviceImage& rB)
{
    return rA.iLanes == rB.iLanes ||
           DeviceFail("%s: images of %d rows and %d", pcKernel, rA.iLanes, rB.iLanes);
}

bool CheckSameBatch(const char* pcKernel, const DeviceImage& rA, const DeviceImage& rB)
{
    if (rA.iWidth == rB.iWidth && rA.iLanes == rB.iLanes) return true;
    return DeviceFail("%s: images of %d columns x %d rows and %d x %d", pcKernel, rA.iWidth,
                      rA.iLanes, rB.iWidth, rB.iLanes);
}

/// The images of a rule for these sums.
bool CheckRule(const char* pcKernel, const CompareRule& rRule, const DeviceImage& rSums, int iProjX)
{
    return rRule.eOperation == ECombine::eSum ||
           (CheckImage(pcKernel, "measured rows", rRule.aRaw, iProjX, rSums.iHeight) &&
            CheckImage(pcKernel, "weights", rRule.aWeight, iProjX, rSums.iHeight) &&
            (!rRule.aAfter.pvData ||
             CheckImage(pcKernel, "weights after", rRule.aAfter, iProjX, rSums.iHeight)) &&
            CheckSameBatch(pcKernel, rRule.aRaw, rSums));
}

/// A range of list positions within the index list.
bool CheckRange(const char* pcKernel, const DeviceImage& rIndex, int iFirst, int iEnd)
{
    if (rIndex.pvData && iFirst >= 0 && iFirst <= iEnd && iEnd <= rIndex.iWidth) return true;
    return DeviceFail("%s: set %d to %d of %d projections", pcKernel, iFirst, iEnd, rIndex.iWidth);
}

bool CheckExtents(const char* pcKernel, std::initializer_list<int> iExtents)
{
    for (const int iExtent : iExtents)
        if (iExtent < 1 || iExtent > g_iMaxExtent)
            return DeviceFail("%s: %d columns or rows, must be 1 to %d", pcKernel, iExtent,
                              g_iMaxExtent);
    return true;
}

/// A stack of slices of floats no larger than iMost each way.
bool CheckVolume(const char* pcImage, const DeviceImage& rImage, int iMost)
{
    if (rImage.iWidth > iMost || rImage.iHeight > iMost || rImage.iDepth > iMost)
        return DeviceFail("Smooth: %s of %d x %d x %d, at most %d each", pcImage, rImage.iWidth,
                          rImage.iHeight, rImage.iDepth, iMost);
    return (rImage.pvData && rImage.iLanes == 1 && rImage.iChannels == 1 && rImage.iBytes == 4) ||
           DeviceFail("Smooth: %s has %d rows, %d channels of %d bytes", pcImage, rImage.iLanes,
                      rImage.iChannels, rImage.iBytes);
}
}  // namespace

bool CheckParams(const ForwardParams& rP)
{
    constexpr const char* pcName = "ForwardProject";
    return CheckExtents(pcName, {rP.iVolX, rP.iVolZ, rP.iProjX}) &&
           CheckRange(pcName, rP.aProjIndex, rP.iFirst, rP.iEnd) &&
           CheckImage(pcName, "slice", rP.aVol, rP.iVolX + 2, rP.iVolZ + 2) &&
           CheckImage(pcName, "angles", rP.aCosSin, rP.aSums.iHeight, 1, 2) &&
           CheckImage(pcName, "sums", rP.aSums, rP.iProjX, 1) &&
           CheckSameLanes(pcName, rP.aSums, rP.aVol) &&
           CheckRule(pcName, rP.aRule, rP.aSums, rP.iProjX);
}

bool CheckParams(const CombineParams& rP)
{
    constexpr const char* pcName = "Combine";
    return CheckRange(pcName, rP.aProjIndex, rP.iFirst, rP.iEnd) &&
           CheckImage(pcName, "sums", rP.aSums, rP.iProjX, 1) &&
           CheckRule(pcName, rP.aRule, rP.aSums, rP.iProjX);
}

bool CheckParams(const WeightParams& rP)
{
    constexpr const char* pcName = "Weight";
    // Rows by position must exist; rows by raw number are checked against the list when it is read.
    const bool bByNumber = rP.eOperation == EWeight::eRecon || rP.eOperation == EWeight::eReproj;
    const int iRows = bByNumber ? rP.aOut.iHeight : rP.iEnd;
    if (bByNumber && !CheckRange(pcName, rP.aProjIndex, rP.iFirst, rP.iEnd)) return false;
    if (rP.iFirst < 0) return DeviceFail("%s: from row %d", pcName, rP.iFirst);
    return CheckImage(pcName, "result", rP.aOut, rP.iProjX, iRows) &&
           CheckImage(pcName, "rows", rP.aIn, rP.iProjX, iRows) &&
           CheckSameBatch(pcName, rP.aIn, rP.aOut) &&
           (rP.eOperation == EWeight::eCopy ||
            CheckImage(pcName, "weights", rP.aWeight, rP.iProjX, iRows));
}

bool CheckParams(const BackParams& rP)
{
    constexpr const char* pcName = "BackProject";
    if (rP.iRows > rP.aVol.iLanes || rP.iY < 0 || rP.iY > rP.aRangeX.iWidth - rP.iRows)
        return DeviceFail("%s: %d rows from row %d of %d, batch of %d", pcName, rP.iRows, rP.iY,
                          rP.aRangeX.iWidth, rP.aVol.iLanes);
    return CheckExtents(pcName, {rP.iVolX, rP.iVolZ, rP.iProjX}) &&
           CheckRange(pcName, rP.aProjIndex, rP.iFirst, rP.iEnd) &&
           CheckImage(pcName, "slice", rP.aVol, rP.iVolX + 2, rP.iVolZ + 2) &&
           CheckImage(pcName, "working rows", rP.aProjs, rP.iProjX, 1) &&
           CheckImage(pcName, "angles", rP.aCosSin, rP.aProjs.iHeight, 1, 2) &&
           CheckImage(pcName, "ranges", rP.aRangeX, 1, rP.aProjs.iHeight, 2) &&
           CheckSameLanes(pcName, rP.aVol, rP.aProjs);
}

bool CheckParams(const SumAbsParams& rP)
{
    constexpr const char* pcName = "SumAbs";
    if (rP.iProjX <= 0 || rP.iIter < 0 || rP.iIter >= rP.aAccum.iHeight ||
        rP.iRows > rP.aSource.iLanes)
        return DeviceFail("%s: %d columns, iteration %d of %d, %d rows of %d", pcName, rP.iProjX,
                          rP.iIter, rP.aAccum.iHeight, rP.iRows, rP.aSource.iLanes);
    return CheckRange(pcName, rP.aProjIndex, 0, rP.iProjs) &&
           CheckImage(pcName, "rows", rP.aSource, rP.iProjX, 1) &&
           CheckImage(pcName, "weights", rP.aWeight, rP.iProjX, rP.aSource.iHeight) &&
           (!rP.aMinus.pvData || CheckSameSize(pcName, rP.aSource, rP.aMinus)) &&
           CheckImage(pcName, "accumulators", rP.aAccum, rP.iProjs, 1, 1, 8);
}

bool CheckParams(const TransformParams& rP)
{
    constexpr const char* pcName = "Transform";
    const DeviceImage& rMeasured = rP.aMeasured;
    if (rP.iStartY < 0 || rP.iRows > g_iMaxExtent - rP.iStartY)
        return DeviceFail("%s: %d rows from row %d", pcName, rP.iRows, rP.iStartY);
    return CheckExtents(pcName, {rP.iProjX, rP.iRows, rMeasured.iWidth, rMeasured.iHeight}) &&
           CheckImage(pcName, "measured projection", rMeasured, 1, 1) &&
           CheckImage(pcName, "result", rP.aOut, rP.iProjX, rP.iRows) &&
           CheckImage(pcName, "mask", rP.aMiss, rP.iProjX, rP.iRows);
}

bool CheckParams(const CompareParams& rP)
{
    constexpr const char* pcName = "CompareSums";
    if (rP.iFirst < 0 || rP.iRows > rP.aSums.iWidth - rP.iFirst)
        return DeviceFail("%s: %d rows from row %d of %d", pcName, rP.iRows, rP.iFirst,
                          rP.aSums.iWidth);
    return CheckExtents(pcName, {rP.iProjX, rP.iRows}) &&
           CheckImage(pcName, "sums", rP.aSums, 1, eCompareSums) &&
           CheckImage(pcName, "projection", rP.aAligned, rP.iProjX, rP.iRows) &&
           CheckImage(pcName, "transformed rows", rP.aTransed, rP.iProjX, rP.iRows) &&
           CheckImage(pcName, "mask", rP.aMiss, rP.iProjX, rP.iRows);
}

bool CheckParams(const SmoothParams& rP)
{
    return CheckVolume("volume", rP.aVol, g_iMaxImage) &&
           CheckVolume("kernel", rP.aKernel, g_iMaxKernelExtent) &&
           CheckSameSize("Smooth", rP.aOut, rP.aVol);
}

bool CheckSizes(const char* pcKind, const DeviceImage& rImage)
{
    bool bFits = rImage.iChannels > 0 && rImage.iLanes > 0;
    for (const int iExtent : {rImage.iWidth, rImage.iHeight, rImage.iDepth})
        bFits = bFits && iExtent > 0 && iExtent <= g_iMaxImage;
    return bFits ||
           DeviceFail("create %s: %d x %d x %d, %d channels, %d rows", pcKind, rImage.iWidth,
                      rImage.iHeight, rImage.iDepth, rImage.iChannels, rImage.iLanes);
}

bool CheckRectangle(const char* pcOperation, const DeviceImage& rImage, int iX0, int iY0,
                    int iWidth, int iHeight)
{
    if (rImage.pvData && iX0 >= 0 && iY0 >= 0 && iWidth >= 0 && iHeight >= 0 &&
        iX0 <= rImage.iWidth - iWidth && iY0 <= rImage.iHeight - iHeight && rImage.iChannels == 1 &&
        rImage.iBytes == 4 && rImage.iDepth == 1)
        return true;
    return DeviceFail("%s: %d x %d at (%d, %d) of an image of %d x %d", pcOperation, iWidth,
                      iHeight, iX0, iY0, rImage.iWidth, rImage.iHeight);
}

bool CheckTable(const char* pcOperation, const DeviceImage& rImage)
{
    if (!rImage.pvData) return DeviceFail("%s: the image is empty", pcOperation);
    return rImage.iLanes == 1 || DeviceFail("%s: table of %d rows", pcOperation, rImage.iLanes);
}

bool CheckSameSize(const char* pcOperation, const DeviceImage& rDest, const DeviceImage& rSource)
{
    if (rDest.pvData && rSource.pvData && rDest.iBytes == rSource.iBytes &&
        rDest.iWidth == rSource.iWidth && rDest.iHeight == rSource.iHeight &&
        rDest.iDepth == rSource.iDepth && rDest.iChannels == rSource.iChannels &&
        rDest.iLanes == rSource.iLanes)
        return true;
    return DeviceFail("%s: image of %d x %d x %d to %d x %d x %d", pcOperation, rSource.iWidth,
                      rSource.iHeight, rSource.iDepth, rDest.iWidth, rDest.iHeight, rDest.iDepth);
}
