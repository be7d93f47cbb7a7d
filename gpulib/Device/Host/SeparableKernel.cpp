#include "gpulib/Device/Host/SeparableKernel.h"

#include <cmath>

namespace
{
constexpr double g_dTolerance = 5e-7;  // leaves the other half of 1e-6 to the float sums

/// Scales values so that their absolute sum is 1. \return the former sum
double Normalise(std::vector<double>& rValues)
{
    double dSum = 0;
    for (const double dValue : rValues) dSum += std::fabs(dValue);
    for (double& rdValue : rValues) rdValue /= dSum;
    return dSum;
}

std::vector<float> ToFloat(const std::vector<double>& rValues, double dScale = 1)
{
    std::vector<float> vfValues;
    for (const double dValue : rValues) vfValues.push_back(static_cast<float>(dValue * dScale));
    return vfValues;
}
}  // namespace

SeparableKernel Separate(const float* pfKernel, int iX, int iY, int iZ)
{
    const auto At = [=](int x, int y, int z) -> double
    { return pfKernel[(std::size_t(z) * iY + y) * iX + x]; };
    int iPeakX = 0, iPeakY = 0, iPeakZ = 0;
    double dPeak = 0, dTotal = 0;
    for (int z = 0; z < iZ; ++z)
        for (int y = 0; y < iY; ++y)
            for (int x = 0; x < iX; ++x)
            {
                const double dValue = std::fabs(At(x, y, z));
                dTotal += dValue;
                if (!(dValue > dPeak)) continue;
                dPeak = dValue;
                iPeakX = x, iPeakY = y, iPeakZ = z;
            }
    if (!(dPeak > 0) || !std::isfinite(dTotal)) return {};

    // The three lines through the largest value are the factors, when there are any.
    const double dAt = At(iPeakX, iPeakY, iPeakZ);
    std::vector<double> vdX, vdY, vdZ;
    for (int x = 0; x < iX; ++x) vdX.push_back(At(x, iPeakY, iPeakZ) / dAt);
    for (int y = 0; y < iY; ++y) vdY.push_back(At(iPeakX, y, iPeakZ) / dAt);
    for (int z = 0; z < iZ; ++z) vdZ.push_back(At(iPeakX, iPeakY, z));
    const double dScale = Normalise(vdX) * Normalise(vdY);
    const SeparableKernel aFactors = {ToFloat(vdX), ToFloat(vdY), ToFloat(vdZ, dScale)};

    double dError = 0;
    for (int z = 0; z < iZ; ++z)
        for (int y = 0; y < iY; ++y)
            for (int x = 0; x < iX; ++x)
                dError += std::fabs(double(aFactors.vfX[x]) * aFactors.vfY[y] * aFactors.vfZ[z] -
                                    At(x, y, z));
    return dError <= g_dTolerance * dTotal ? aFactors : SeparableKernel();
}
