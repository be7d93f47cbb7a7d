#pragma once

#include "gpulib/Device/DeviceImage.h"

// One struct per kernel: plain data, passed by value. "List position" counts within the projection
// index list, "raw number" within the tilt series. Batch images have the lanes of the batch; rows
// of projection images are addressed by raw number unless said otherwise.

enum class ECombine
{
    eSum,   ///< sum
    eDiff,  ///< measured - sum (SART, R-factor)
    eDiv    ///< measured / sum where measured >= 0 and sum != 0, else 1 (EM)
};

/// What becomes of ray sums: they are compared with weighted measured rows, and weighted.
struct CompareRule
{
    ECombine eOperation = ECombine::eSum;
    DeviceImage aRaw;     ///< measured projections, batch; not read by eSum, as those below
    DeviceImage aWeight;  ///< that they are multiplied by, projX x projections, one lane
    DeviceImage aAfter;   ///< that the result is multiplied by, likewise; empty: 1
};

/// Ray sums of one set: row n (raw number) of aSums receives what becomes of those of projection n.
struct ForwardParams
{
    DeviceImage aSums;         ///< out, projX x projections, batch
    DeviceImage aVol;          ///< (volX + 2) x (volZ + 2) with a frame of zeros, batch
    DeviceImage aCosSin;       ///< projections x 1, two channels: (cos, sin)
    DeviceImage aProjIndex;    ///< list length x 1, unsigned
    int iVolX = 0, iVolZ = 0;  ///< voxels, without the frame
    int iProjX = 0;            ///< detector columns
    int iFirst = 0, iEnd = 0;  ///< list positions [first, end)
    CompareRule aRule;
};

/// The rule on ray sums of one set that stand already; no projection stands in the set twice.
struct CombineParams
{
    DeviceImage aSums;  ///< in and out
    DeviceImage aProjIndex;
    int iProjX = 0;
    int iFirst = 0, iEnd = 0;  ///< list positions
    CompareRule aRule;
};

enum class EWeight
{
    eCopy,   ///< out[j] = in[j], rows by position
    eRef,    ///< out[j] = in[j] * weight[j], rows by position
    eRecon,  ///< out[n] = in[n] * weight[n], n = index list at the position
    eReproj  ///< out[n] = in[n] / weight[n]
};

/// Box weights on projection rows; in and out may be the same image.
struct WeightParams
{
    DeviceImage aOut, aIn;
    DeviceImage aWeight;     ///< projX x projections, one lane; not read by eCopy
    DeviceImage aProjIndex;  ///< read by eRecon and eReproj only
    EWeight eOperation = EWeight::eCopy;
    int iProjX = 0;
    int iFirst = 0, iEnd = 0;
};

enum class EUpdate
{
    eSart,  ///< old + relax * sum / (hits + 1e-6)
    eEm     ///< old * (1 + relax * (sum - hits) / N)
};

/// Back projection of one set into the slice, in place; the result is clamped at 0.
struct BackParams
{
    DeviceImage aVol;    ///< in and out, (volX + 2) x (volZ + 2), batch
    DeviceImage aProjs;  ///< working projections, batch
    DeviceImage aCosSin;
    DeviceImage aProjIndex;
    DeviceImage aRangeX;  ///< band rows x projections, two channels: first valid, one past last
    EUpdate eUpdate = EUpdate::eSart;
    float fRelax = 1.0f;
    int iVolX = 0, iVolZ = 0;
    int iProjX = 0;
    int iFirst = 0, iEnd = 0;  ///< list positions
    int iY = 0;     ///< first row of the batch within the band: column iY + lane of aRangeX
    int iRows = 0;  ///< rows in use; the remaining lanes may hold anything finite
};

/// Sums of |weighted value| over the columns of each selected projection row, rows with values at
/// or below -1e15 left out; added to the accumulators row by row of the batch.
struct SumAbsParams
{
    DeviceImage aSource;  ///< measured projections, batch
    DeviceImage aWeight;  ///< that they are multiplied by, projX x projections, one lane
    DeviceImage aMinus;   ///< ray sums that are taken off them first; empty: none
    DeviceImage aAccum;   ///< in and out, list length x iterations, doubles
    DeviceImage aProjIndex;
    int iProjX = 0;
    int iProjs = 0;  ///< list length
    int iIter = 0;   ///< row of aAccum
    int iRows = 0;   ///< rows of the batch in use
};

/// Rows of a measured projection, resampled onto the grid of the stack.
///
/// Pixel (x, y) of the grid is read at u = m4 + (m0 x + m1 y), v = (m2 x + m3 y) + m5 of the
/// measured image, bilinearly, and rescaled. Outside the measured image the value of its nearest
/// edge counts, plus -1e30.
struct TransformParams
{
    DeviceImage aOut;       ///< out, projX x rows, one lane
    DeviceImage aMiss;      ///< out, the same size: 1 outside the measured image, else 0
    DeviceImage aMeasured;  ///< one lane; its whole size is sampled
    float afMatrix[6] = {1, 0, 0, 1, 0, 0};
    float afScale[6] = {1, 0, 0, 0, 0, 0};  ///< linear: min(s2, s0 p + s1)
    bool bLog = false;                      ///< min(s2, s4 ln(s5 / max(s3, s0 p + s1)))
    int iProjX = 0;
    int iStartY = 0;  ///< row of the grid that image row 0 stands for
    int iRows = 0;
};

/// The sums of a comparison, over the pixels that are not missing; a: stack, b: measured.
enum ECompareSum
{
    eCompareDiff,   ///< |a - b|
    eCompareCross,  ///< a b
    eCompareCount,
    eCompareAligned,  ///< a
    eCompareAlignedAbs,
    eCompareAlignedSqr,
    eCompareTransed,  ///< b
    eCompareTransedAbs,
    eCompareTransedSqr,
    eCompareSums  ///< how many
};

/// One set of sums for each row: element (first + j, quantity) of aSums from row j of the images.
/// A row is summed as g_iPartialSums partial sums, and then by halves.
struct CompareParams
{
    DeviceImage aSums;     ///< out, band rows x eCompareSums, one lane
    DeviceImage aAligned;  ///< projX x rows, one lane
    DeviceImage aTransed, aMiss;
    int iProjX = 0;
    int iFirst = 0;  ///< column of aSums
    int iRows = 0;
};

/// The volume weighted with a small kernel around each voxel; past the faces the edge voxels
/// repeat. Voxel (i, j, k) receives, with h half a kernel size rounded down,
///     sum over c, b, a of kernel(a, b, c) * volume(i + a - hx, j + b - hy, k + c - hz).
/// A backend may use the factors of a kernel that is a product of three, within 1e-6 of the whole.
struct SmoothParams
{
    DeviceImage aOut;     ///< out, pitched, the sizes of the volume
    DeviceImage aVol;     ///< 3-D, one lane
    DeviceImage aKernel;  ///< 3-D, one lane; finite
};
