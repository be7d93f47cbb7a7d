#pragma once

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "talven/Alignment.h"

namespace talven::test
{

/// Shape [iY][iX].
struct Image
{
    int iX, iY;
    std::vector<float> vfPixels;

    double At(int x, int y) const
    {
        return vfPixels[std::size_t(std::clamp(y, 0, iY - 1)) * std::size_t(iX) +
                        std::size_t(std::clamp(x, 0, iX - 1))];
    }
};

/// Blobs of several sizes at fixed places, displaced by (dX, dY).
inline Image MakeBlobs(int iX, int iY, double dX, double dY)
{
    Image aImage = {iX, iY, {}};
    for (int y = 0; y < iY; ++y)
        for (int x = 0; x < iX; ++x)
        {
            double dSum = 100;
            for (int i = 0; i < 9; ++i)
            {
                const double dU = x - dX - iX * (0.1 + 0.1 * i);
                const double dV = y - dY - iY * (0.15 + 0.09 * (i * 5 % 9));
                const double dWidth = 1.5 + 0.4 * (i % 4);
                dSum += (5 + i) * std::exp(-(dU * dU + dV * dV) / (2 * dWidth * dWidth));
            }
            aImage.vfPixels.push_back(static_cast<float>(dSum));
        }
    return aImage;
}

/// The image on a grid of iX x iY; the numbers are the matrix and a scale of three or six.
inline Image MapImage(const Image& rMeasured, int iX, int iY, std::span<const float> fNumbers)
{
    const auto At = [&](std::size_t i) { return double(fNumbers[i]); };
    Image aResult = {iX, iY, {}};
    for (int y = 0; y < iY; ++y)
        for (int x = 0; x < iX; ++x)
        {
            const double dU = At(0) * x + At(1) * y + At(4);
            const double dV = At(2) * x + At(3) * y + At(5);
            if (!(dU >= 0 && dV >= 0 && dU <= rMeasured.iX - 1 && dV <= rMeasured.iY - 1))
            {
                aResult.vfPixels.push_back(-1e30f);
                continue;
            }
            const int iU = static_cast<int>(dU);
            const int iV = static_cast<int>(dV);
            const double dFractionU = dU - iU;
            const double dFractionV = dV - iV;
            const auto Row = [&](int iRow) {
                return rMeasured.At(iU, iRow) * (1 - dFractionU) +
                       rMeasured.At(iU + 1, iRow) * dFractionU;
            };
            double dValue = At(6) * (Row(iV) * (1 - dFractionV) + Row(iV + 1) * dFractionV) + At(7);
            if (fNumbers.size() == 12)
                dValue = At(10) * (std::log(At(11)) - std::log(std::max(At(9), dValue)));
            aResult.vfPixels.push_back(static_cast<float>(std::min(dValue, At(8))));
        }
    return aResult;
}

inline CompareSums SumImages(std::span<const float> fAligned, std::span<const float> fTransed)
{
    double adSums[9] = {};
    for (std::size_t i = 0; i < fAligned.size(); ++i)
    {
        const double dA = fAligned[i];
        const double dT = fTransed[i];
        if (dT < -1e15) continue;
        const double adMore[9] = {1,  std::fabs(dA - dT), dA * dT, dA, std::fabs(dA), dA * dA,
                                  dT, std::fabs(dT),      dT * dT};
        for (int s = 0; s < 9; ++s) adSums[s] += adMore[s];
    }
    const auto Sum = [&adSums](int i) { return static_cast<float>(adSums[i]); };
    return {Sum(0), Sum(1), Sum(2), Sum(3), Sum(4), Sum(5), Sum(6), Sum(7), Sum(8), 0};
}

}  // namespace talven::test
