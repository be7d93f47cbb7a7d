#include <algorithm>
#include <cmath>
#include <vector>

#include "bench/CompareJob.h"
#include "bench/LiteralFetch.h"

void LiteralCompare(const CompareScene& rScene, CompareTotals& rTotals)
{
    const std::array<float, 6>&m = rScene.afMatrix, &s = rScene.afScale;
    const float* const pfMeasured = rScene.aMeasured.GetData();
    std::vector<float> vfTransed(rScene.aAligned.GetVoxels()), vfMiss(vfTransed.size());
    for (int y = 0; y < rScene.iY; ++y)
        for (int x = 0; x < rScene.iX; ++x)
        {
            const float fU = m[4] + (x * m[0] + m[1] * y), fV = (x * m[2] + y * m[3]) + m[5];
            const bool bMissing = fU < 0 || fU > rScene.iX - 1 || fV < 0 || fV > rScene.iY - 1;
            const std::size_t i = std::size_t(y) * rScene.iX + x;
            vfMiss[i] = bMissing ? 1.0f : 0.0f;
            vfTransed[i] =
                std::min(s[2],
                         s[0] * LiteralFetch(pfMeasured, rScene.iX, rScene.iY, fU, fV) + s[1]) +
                vfMiss[i] * -1.0e30f;
        }
    rTotals = {};
    for (int y = 0; y < rScene.iY; ++y)
    {
        CompareTotals aRow = {};  // floats: one sum over all pixels would lose digits
        for (int x = 0; x < rScene.iX; ++x)
        {
            const std::size_t i = std::size_t(y) * rScene.iX + x;
            const float fWeight = 1.0f - vfMiss[i], fA = rScene.aAligned.GetData()[i],
                        fB = vfTransed[i];
            const float fWA = fWeight * fA, fWB = fWeight * fB;
            aRow[eCompareDiff] += fWeight * std::abs(fA - fB);
            aRow[eCompareCross] += fB * fWA;
            aRow[eCompareCount] += fWeight;
            aRow[eCompareAligned] += fWA;
            aRow[eCompareAlignedAbs] += std::abs(fWA);
            aRow[eCompareAlignedSqr] += fWA * fWA;
            aRow[eCompareTransed] += fWB;
            aRow[eCompareTransedAbs] += std::abs(fWB);
            aRow[eCompareTransedSqr] += fWB * fWB;
        }
        for (int q = 0; q < eCompareSums; ++q) rTotals[q] += aRow[q];
    }
}
