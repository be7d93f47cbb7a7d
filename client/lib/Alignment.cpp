#include "talven/Alignment.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>

#include "talven/AtomicFile.h"

namespace talven
{
namespace
{

constexpr double g_dNone = std::numeric_limits<double>::quiet_NaN();

/// Six finite numbers and nothing else.
bool ParseMatrix(std::string_view strText, Affine& rMatrix)
{
    constexpr std::string_view strBetween = " \t\r\v\f,";
    for (float& rValue : rMatrix)
    {
        strText.remove_prefix(std::min(strText.find_first_not_of(strBetween), strText.size()));
        if (strText.starts_with('+')) strText.remove_prefix(1);
        const auto [pcStop, eError] =
            std::from_chars(strText.data(), strText.data() + strText.size(), rValue);
        if (eError != std::errc() || !std::isfinite(rValue)) return false;
        strText.remove_prefix(static_cast<std::size_t>(pcStop - strText.data()));
        if (!strText.empty() && strBetween.find(strText.front()) == std::string_view::npos)
            return false;
    }
    return strText.find_first_not_of(strBetween) == std::string_view::npos;
}

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

bool ReadMatrices(const std::string& strPath, std::vector<Affine>& rMatrices, std::string& rError)
{
    std::ifstream aFile(strPath, std::ios::binary);
    if (!aFile)
    {
        rError = strPath + ": cannot read: " + std::strerror(errno);
        return false;
    }
    std::vector<Affine> aMatrices;
    std::string strLine;
    for (int iLine = 1; std::getline(aFile, strLine); ++iLine)
    {
        strLine.resize(std::min(strLine.find('#'), strLine.size()));
        if (strLine.find_first_not_of(" \t\r\v\f") == std::string::npos) continue;
        Affine aMatrix;
        if (!ParseMatrix(strLine, aMatrix))
        {
            rError = strPath + ", line " + std::to_string(iLine) + ": expected six numbers";
            return false;
        }
        aMatrices.push_back(aMatrix);
    }
    if (aFile.bad() || aMatrices.empty())
    {
        rError = strPath + (aFile.bad() ? ": cannot read" : ": no matrices in this file");
        return false;
    }
    rMatrices = std::move(aMatrices);
    return true;
}

bool WriteMatrices(const std::string& strPath, std::span<const Affine> aMatrices,
                   std::string& rError)
{
    std::string strText;
    for (const Affine& rMatrix : aMatrices)
        for (std::size_t i = 0; i < rMatrix.size(); ++i)
        {
            char acNumber[32];
            std::snprintf(acNumber, sizeof(acNumber), "%.9g", double(rMatrix[i]));
            strText.append(acNumber).append(i + 1 < rMatrix.size() ? " " : "\n");
        }
    return WriteTextFile(strPath, strText, rError);
}

GaussianKernel MakeGaussianKernel(double dSigma)
{
    const int iHalf = static_cast<int>(std::ceil(3 * dSigma));
    GaussianKernel aKernel;
    aKernel.iSize = 2 * iHalf + 1;
    std::vector<double> vdLine;  // the kernel is the product of three of these
    double dSum = 0;
    for (int i = -iHalf; i <= iHalf; ++i)
    {
        vdLine.push_back(std::exp(-0.5 * i * i / (dSigma * dSigma)));
        dSum += vdLine.back();
    }
    for (double& rValue : vdLine) rValue /= dSum;
    aKernel.vfValues.reserve(vdLine.size() * vdLine.size() * vdLine.size());
    for (const double dZ : vdLine)
        for (const double dY : vdLine)
            for (const double dX : vdLine)
                aKernel.vfValues.push_back(static_cast<float>(dZ * dY * dX));
    return aKernel;
}

}  // namespace talven
