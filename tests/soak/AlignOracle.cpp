#include "tests/soak/AlignOracle.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{
/// Bilinear value at (dU, dV), which lies on the image.
double Interpolate(const Images& rImages, int n, double dU, double dV)
{
    const int iLeft = std::min(int(dU), std::max(rImages.iX - 2, 0));
    const int iTop = std::min(int(dV), std::max(rImages.iY - 2, 0));
    double dValue = 0;
    for (int y = iTop; y <= std::min(iTop + 1, rImages.iY - 1); ++y)
        for (int x = iLeft; x <= std::min(iLeft + 1, rImages.iX - 1); ++x)
            dValue += (1 - std::fabs(dU - x)) * (1 - std::fabs(dV - y)) *
                      double(rImages.Nth(n)[std::size_t(y) * rImages.iX + x]);
    return dValue;
}

double Rescale(double dValue, const AlignJob& rJob)
{
    const auto& s = rJob.afScale;
    double dResult = s[0] * dValue + s[1];
    if (rJob.bLog) dResult = s[4] * std::log(s[5] / std::max(double(s[3]), dResult));
    return std::min(double(s[2]), dResult);
}
}  // namespace

std::vector<double> TransformImage(const AlignJob& rJob, const Images& rMeasured, int iMProj,
                                   int iX, int iY)
{
    const auto& m = rJob.afMatrix;
    const float fLastU = float(rMeasured.iX - 1), fLastV = float(rMeasured.iY - 1);
    std::vector<double> vd;
    for (int y = 0; y < iY; ++y)
        for (int x = 0; x < iX; ++x)
        {
            const float fX = float(x), fY = float(y);
            const float fU = m[4] + (fX * m[0] + m[1] * fY), fV = (fX * m[2] + fY * m[3]) + m[5];
            const bool bOn = fU >= 0 && fU <= fLastU && fV >= 0 && fV <= fLastV;
            const double dU = double(m[0]) * x + double(m[1]) * y + double(m[4]);
            const double dV = double(m[2]) * x + double(m[3]) * y + double(m[5]);
            vd.push_back(
                bOn ? Rescale(Interpolate(rMeasured, iMProj, std::clamp(dU, 0.0, double(fLastU)),
                                          std::clamp(dV, 0.0, double(fLastV))),
                              rJob)
                    : std::numeric_limits<double>::quiet_NaN());
        }
    return vd;
}

AlignSums SumImages(std::span<const float> fAligned, const std::vector<double>& rTransed)
{
    AlignSums aSums;
    for (std::size_t i = 0; i < rTransed.size(); ++i)
    {
        const double dA = fAligned[i], dT = rTransed[i];
        if (std::isnan(dT)) continue;
        const double adTerms[] = {dA,           dT,           dA * dA,           dT * dT, dA * dT,
                                  std::abs(dA), std::abs(dT), std::abs(dA - dT), 1};
        for (std::size_t k = 0; k < aSums.ad.size(); ++k)
        {
            aSums.ad[k] += adTerms[k];
            aSums.adSize[k] += std::abs(adTerms[k]);
        }
    }
    return aSums;
}
