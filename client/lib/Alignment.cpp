#include "talven/Alignment.h"

#include <algorithm>
#include <cmath>

#include "talven/AtomicFile.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dNone = std::numeric_limits<double>::quiet_NaN();

}  // namespace

double CalcCorrelation(const CompareSums& rSums)
{
    const double dCount = rSums.fCount;
    const double dA = rSums.fAligned;
    const double dT = rSums.fTransed;
    if (!(dCount > 0)) return g_dNone;
    const double dVarianceA = rSums.fAlignedSqr - dA * dA / dCount;
    const double dVarianceT = rSums.fTransedSqr - dT * dT / dCount;
    // The sums are floats: a constant leaves a remainder of their rounding.
    if (!(dVarianceA > 1e-6 * rSums.fAlignedSqr) || !(dVarianceT > 1e-6 * rSums.fTransedSqr))
        return g_dNone;
    const double dCorrelation =
        (rSums.fCross - dA * dT / dCount) / std::sqrt(dVarianceA * dVarianceT);
    return std::clamp(dCorrelation, -1.0, 1.0);
}

double CalcMeanDifference(const CompareSums& rSums)
{
    return rSums.fCount > 0 ? double(rSums.fDiff) / double(rSums.fCount) : g_dNone;
}

double FitPeak(double dBefore, double dMiddle, double dAfter)
{
    const double dCurve = dBefore - 2 * dMiddle + dAfter;
    if (!(dMiddle >= dBefore) || !(dMiddle >= dAfter) || !(dCurve < 0)) return 0;
    return std::clamp((dBefore - dAfter) / (2 * dCurve), -0.5, 0.5);
}

Affine Shift(Affine aMap, double dX, double dY)
{
    aMap[4] = static_cast<float>(aMap[4] + dX);
    aMap[5] = static_cast<float>(aMap[5] + dY);
    return aMap;
}

Affine CountFromCorners(const Affine& rMap, const ImageSize& rAligned, const ImageSize& rMeasured)
{
    const auto& [fA, fB, fC, fD, fE, fF] = rMap;
    const auto Centre = [](int iExtent) { return 0.5 * (iExtent - 1); };
    const double dX = Centre(rAligned.iX);
    const double dY = Centre(rAligned.iY);
    return {fA,
            fB,
            fC,
            fD,
            static_cast<float>(fE + Centre(rMeasured.iX) - fA * dX - fB * dY),
            static_cast<float>(fF + Centre(rMeasured.iY) - fC * dX - fD * dY)};
}

bool CheckMatrixFile(const std::string& strPath, std::string& rError)
{
    std::string strEnd = strPath.substr(strPath.size() - std::min<std::size_t>(3, strPath.size()));
    for (char& rChar : strEnd) rChar = static_cast<char>(rChar | 0x20);
    if (strEnd != ".xf") return true;
    return Fail(rError, strPath +
                            ": an .xf file tells where measured pixels go, matrices here "
                            "tell where aligned pixels come from: give it to --xf");
}

bool ReadMatrices(const std::string& strPath, std::vector<Affine>& rMatrices, std::string& rError)
{
    std::vector<Affine> aMatrices;
    const auto Take = [&aMatrices](std::string_view strLine, std::string& rReason)
    {
        aMatrices.emplace_back();
        rReason = "expected six numbers";
        return ParseNumbers(strLine, " \t\r\v\f,", aMatrices.back());
    };
    if (!CheckMatrixFile(strPath, rError) || !ReadLines(strPath, "matrices", Take, rError))
        return false;
    rMatrices = std::move(aMatrices);
    return true;
}

bool WriteMatrices(const std::string& strPath, std::span<const Affine> aMatrices,
                   std::string& rError)
{
    std::string strText;
    for (const Affine& rMatrix : aMatrices)
        for (std::size_t i = 0; i < rMatrix.size(); ++i)
            strText += Format("%.9g", double(rMatrix[i])) + (i + 1 < rMatrix.size() ? " " : "\n");
    return WriteTextFile(strPath, strText, rError);
}

}  // namespace talven
