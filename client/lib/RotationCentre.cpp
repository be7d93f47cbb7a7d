#include "talven/RotationCentre.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "talven/Angles.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dPi = std::numbers::pi;
constexpr double g_dLeastCorrelation = 0.2;
constexpr std::size_t g_tMostPairs = 5;
constexpr double g_dExact = 1e-3;  // degrees that do not matter

/// Two views, and how far the second is from half a turn after the first, degrees.
struct Pair
{
    int iFirst, iSecond;
    double dBeyond;
};

/// Replaces rows by their gradients, smoothed with a binomial of standard deviation 1, which makes
/// the peak of a correlation round; 0 where a pixel is missing or beyond the end.
void TakeGradients(std::span<float> fView, int iX)
{
    constexpr std::array<float, 7> afKernel = {-1, -4, -5, 0, 5, 4, 1};  // (1 4 6 4 1) * (-1 0 1)
    constexpr int iReach = 3;
    std::vector<float> vfRow;
    for (std::size_t t = 0; t < fView.size(); t += std::size_t(iX))
    {
        const std::span<float> fRow = fView.subspan(t, std::size_t(iX));
        vfRow.assign(fRow.begin(), fRow.end());
        std::ranges::fill(fRow, 0.0f);
        for (int x = iReach; x < iX - iReach; ++x)
        {
            float fSum = 0;
            bool bAll = true;
            for (int i = -iReach; i <= iReach; ++i)
            {
                const float fPixel = vfRow[std::size_t(x + i)];
                bAll = bAll && !IsMissing(fPixel);
                fSum += afKernel[std::size_t(i + iReach)] * fPixel;
            }
            if (bAll) fRow[std::size_t(x)] = fSum;
        }
    }
}

void Mirror(std::span<float> fView, int iX)
{
    for (std::size_t t = 0; t < fView.size(); t += std::size_t(iX))
        std::ranges::reverse(fView.subspan(t, std::size_t(iX)));
}

/// Sums of the squares of all columns before each.
std::vector<double> SumSquares(std::span<const float> fView, int iX)
{
    std::vector<double> vdSums(std::size_t(iX) + 1);
    for (std::size_t t = 0; t < fView.size(); ++t)
        vdSums[t % std::size_t(iX) + 1] += double(fView[t]) * double(fView[t]);
    for (std::size_t x = 1; x < vdSums.size(); ++x) vdSums[x] += vdSums[x - 1];
    return vdSums;
}

/// The correlation of two images, -1 to 1, at the shifts from -iMost to iMost.
struct Curve
{
    explicit Curve(int iRange) : iMost(iRange), vdValues(std::size_t(2 * iRange + 1)) {}

    double At(int s) const { return std::abs(s) > iMost ? 0 : vdValues[std::size_t(s + iMost)]; }
    void Add(const Curve& rOther)
    {
        for (std::size_t i = 0; i < vdValues.size(); ++i) vdValues[i] += rOther.vdValues[i];
    }
    /// How far another curve must go to look like this one. \param iReach  of it around 0 counts
    double Place(const Curve& rOther, int iReach) const
    {
        const auto Get = [&](int iShift)
        {
            double dSum = 0;
            for (int s = -iReach; s <= iReach; ++s) dSum += At(s + iShift) * rOther.At(s);
            return dSum;
        };
        int iBest = 0;
        for (int i = -iMost; i <= iMost; ++i)
            if (Get(i) > Get(iBest)) iBest = i;
        return iBest + FitPeak(Get(iBest - 1), Get(iBest), Get(iBest + 1));
    }
    double FindMost(int iFrom, int iTo) const
    {
        double dMost = -1;
        for (int s = iFrom; s <= iTo; ++s) dMost = std::max(dMost, At(s));
        return dMost;
    }

    int iMost;
    std::vector<double> vdValues;
};

/// Correlates two images at all shifts along X that leave a third of the columns in common.
class CRowCorrelation
{
public:
    explicit CRowCorrelation(int iX)
        : m_iX(iX),
          m_iLength(2 * kiss_fft_next_fast_size(iX)),
          m_pForward(kiss_fftr_alloc(m_iLength, 0, nullptr, nullptr), mFree),
          m_pBack(kiss_fftr_alloc(m_iLength, 1, nullptr, nullptr), mFree)
    {
    }

    /// Of each shift s, with fA(x) beside fB(x - s).
    Curve Compare(std::span<const float> fA, std::span<const float> fB)
    {
        const std::vector<float> vfCross = mGetProducts(fA, fB);
        const std::vector<double> vdA = SumSquares(fA, m_iX), vdB = SumSquares(fB, m_iX);
        Curve aCurve(2 * m_iX / 3);
        for (int s = -aCurve.iMost; s <= aCurve.iMost; ++s)
        {
            const auto tFrom = std::size_t(std::max(0, s)),
                       tTo = std::size_t(m_iX + std::min(0, s));
            const double dA = vdA[tTo] - vdA[tFrom];
            const double dB = vdB[tTo - std::size_t(s)] - vdB[tFrom - std::size_t(s)];
            // Half by what is in common, half by all: little in common is soon alike.
            const double dNorm = std::sqrt(std::sqrt(dA * vdA.back()) * std::sqrt(dB * vdB.back()));
            if (dA > 1e-6 * vdA.back() && dB > 1e-6 * vdB.back())
                aCurve.vdValues[std::size_t(s + aCurve.iMost)] =
                    double(vfCross[std::size_t((s + m_iLength) % m_iLength)]) / dNorm;
        }
        return aCurve;
    }

private:
    static void mFree(kiss_fftr_cfg pConfig) { kiss_fftr_free(pConfig); }
    using Plan = std::unique_ptr<kiss_fftr_state, void (*)(kiss_fftr_cfg)>;
    using Spectrum = std::vector<kiss_fft_cpx>;

    Spectrum mTransform(std::span<const float> fRow)
    {
        std::vector<float> vfRow(fRow.begin(), fRow.end());
        vfRow.resize(std::size_t(m_iLength));
        Spectrum aSpectrum(std::size_t(m_iLength / 2 + 1));
        kiss_fftr(m_pForward.get(), vfRow.data(), aSpectrum.data());
        return aSpectrum;
    }

    /// Of every shift, those below 0 at the end.
    std::vector<float> mGetProducts(std::span<const float> fA, std::span<const float> fB)
    {
        Spectrum aSum(std::size_t(m_iLength / 2 + 1), kiss_fft_cpx{0, 0});
        for (std::size_t t = 0; t < fA.size(); t += std::size_t(m_iX))
        {
            const Spectrum aA = mTransform(fA.subspan(t, std::size_t(m_iX)));
            const Spectrum aB = mTransform(fB.subspan(t, std::size_t(m_iX)));
            for (std::size_t k = 0; k < aSum.size(); ++k)
            {
                aSum[k].r += (aA[k].r * aB[k].r + aA[k].i * aB[k].i) / float(m_iLength);
                aSum[k].i += (aA[k].i * aB[k].r - aA[k].r * aB[k].i) / float(m_iLength);
            }
        }
        std::vector<float> vfProducts(static_cast<std::size_t>(m_iLength));
        kiss_fftri(m_pBack.get(), aSum.data(), vfProducts.data());
        return vfProducts;
    }

    int m_iX, m_iLength;
    Plan m_pForward, m_pBack;
};

double GetGap(std::span<const float> fAngles, int iFrom, int iTo)
{
    return std::remainder(double(fAngles[std::size_t(iTo)]) - double(fAngles[std::size_t(iFrom)]),
                          360.0);
}

/// The view whose angle is nearest to dGap from that of this one, in either direction; it may be
/// this one.
int FindNeighbour(std::span<const float> fAngles, int iView, double dGap)
{
    int iBest = iView;
    double dLeast = 360;
    for (int i = 0; i < static_cast<int>(fAngles.size()); ++i)
    {
        const double dOff = std::fabs(std::fabs(GetGap(fAngles, iView, i)) - std::fabs(dGap));
        if (dOff < dLeast - g_dExact || (i == iView && dOff < dLeast + g_dExact)) iBest = i;
        dLeast = std::min(dLeast, dOff);
    }
    return iBest;
}

/// Degrees to the next other angle; 0: there is none.
double GetStep(std::span<const float> fAngles, int iView)
{
    double dStep = 360;
    for (int i = 0; i < static_cast<int>(fAngles.size()); ++i)
        if (const double dGap = std::fabs(GetGap(fAngles, iView, i)); dGap > g_dExact)
            dStep = std::min(dStep, dGap);
    return dStep < 360 ? dStep : 0;
}

/// The pairs that come as near to half a turn as the best one.
bool FindPairs(std::span<const float> fAngles, std::vector<Pair>& rPairs, std::string& rError)
{
    const auto iViews = static_cast<int>(fAngles.size());
    std::vector<Pair> aAll;
    double dLeast = 360;
    for (int i = 0; i < iViews; ++i)
        for (int j = i + 1; j < iViews; ++j)
        {
            const double dBeyond = std::remainder(GetGap(fAngles, i, j) - 180, 360.0);
            if (std::fabs(dBeyond) > dLeast + g_dExact) continue;
            dLeast = std::min(dLeast, std::fabs(dBeyond));
            aAll.push_back({i, j, dBeyond});
        }
    std::erase_if(aAll, [&](const Pair& r) { return std::fabs(r.dBeyond) > dLeast + g_dExact; });
    if (aAll.empty()) return Fail(rError, "one view does not tell where the axis is");
    if (dLeast > g_dExact + 1.1 * GetStep(fAngles, aAll[0].iFirst))
        return Fail(rError, Format("no two views are half a turn apart: the nearest to it, %d and "
                                   "%d, are %.4g degrees apart",
                                   aAll[0].iFirst + 1, aAll[0].iSecond + 1, 180 - dLeast));
    const std::size_t tPairs = std::min(g_tMostPairs, aAll.size());
    for (std::size_t n = 0; n < tPairs; ++n) rPairs.push_back(aAll[n * aAll.size() / tPairs]);
    return true;
}

/// Views as gradients, and what comparing them tells.
class CCentreSearch
{
public:
    CCentreSearch(const ImageSize& rSize, std::span<const float> fAngles, const ImageSource& rViews)
        : m_aSize(rSize), m_fAngles(fAngles), m_rViews(rViews), m_aRows(rSize.iX)
    {
    }

    bool Compare(const Pair& rPair, RotationCentre& rCentre, std::string& rError)
    {
        std::vector<float> vfFirst, vfSecond;
        if (!mRead(rPair.iFirst, false, vfFirst, rError) ||
            !mRead(rPair.iSecond, true, vfSecond, rError))
            return false;
        const Curve aTurned = m_aRows.Compare(vfFirst, vfSecond);
        Curve aBeside(aTurned.iMost);
        if (!mAddBeside(rPair, false, vfFirst, aBeside, rError) ||
            !mAddBeside(rPair, true, vfSecond, aBeside, rError))
            return false;
        const int iReach =
            6 + static_cast<int>(std::fabs(rPair.dBeyond) * g_dPi / 360 * m_aSize.iX);
        const double dShift = aTurned.Place(aBeside, iReach);
        rCentre.dColumn = 0.5 * (dShift + m_aSize.iX - 1);
        rCentre.dCorrelation =
            aTurned.FindMost(int(std::floor(dShift)) - iReach, int(std::ceil(dShift)) + iReach);
        rCentre.iViews[0] = rPair.iFirst;
        rCentre.iViews[1] = rPair.iSecond;
        return true;
    }

private:
    /// Compares one of the pair with the view that the rest of the turn makes of it, so that things
    /// move as they do between the pair.
    bool mAddBeside(const Pair& rPair, bool bSecond, std::span<const float> fView, Curve& rCurve,
                    std::string& rError)
    {
        const int iView = bSecond ? rPair.iSecond : rPair.iFirst;
        const int iNext = FindNeighbour(m_fAngles, iView, rPair.dBeyond);
        std::vector<float> vfNext;
        if (!mRead(iNext, bSecond, vfNext, rError)) return false;
        const bool bAlong = GetGap(m_fAngles, iView, iNext) * rPair.dBeyond > 0;
        rCurve.Add(bAlong ? m_aRows.Compare(fView, vfNext) : m_aRows.Compare(vfNext, fView));
        return true;
    }
    bool mRead(int iView, bool bMirror, std::vector<float>& rView, std::string& rError)
    {
        rView.resize(m_aSize.GetPixels());
        if (!m_rViews(iView, rView, rError)) return false;
        if (bMirror) Mirror(rView, m_aSize.iX);
        TakeGradients(rView, m_aSize.iX);
        return true;
    }

    ImageSize m_aSize;
    std::span<const float> m_fAngles;
    const ImageSource& m_rViews;
    CRowCorrelation m_aRows;
};

}  // namespace

bool FindRotationCentre(const ImageSize& rSize, std::span<const float> fAngles,
                        const ImageSource& rViews, RotationCentre& rCentre, std::string& rError)
{
    std::vector<Pair> aPairs;
    if (!CheckDegrees(fAngles, rError) || !FindPairs(fAngles, aPairs, rError)) return false;
    CCentreSearch aSearch(rSize, fAngles, rViews);
    std::vector<RotationCentre> aFound(aPairs.size());
    for (std::size_t n = 0; n < aPairs.size(); ++n)
        if (!aSearch.Compare(aPairs[n], aFound[n], rError)) return false;
    std::ranges::sort(aFound, {}, &RotationCentre::dColumn);
    rCentre = aFound[aFound.size() / 2];
    if (rCentre.dCorrelation >= g_dLeastCorrelation) return true;
    return Fail(rError,
                Format("views %d and %d, half a turn apart, do not agree (correlation %.2f)",
                       rCentre.iViews[0] + 1, rCentre.iViews[1] + 1, rCentre.dCorrelation));
}

}  // namespace talven
