#include "talven/RotationCentre.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dLeastCorrelation = 0.2;
constexpr std::size_t g_tMostPairs = 5;

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

/// Correlates two images at all shifts along X.
class CRowCorrelation
{
public:
    explicit CRowCorrelation(int iX)
        : m_iX(iX),
          m_iLength(2 * kiss_fft_next_fast_size(iX)),
          m_pForward(kiss_fftr_alloc(m_iLength, 0, nullptr, nullptr), Free),
          m_pBack(kiss_fftr_alloc(m_iLength, 1, nullptr, nullptr), Free)
    {
    }

    /// The shift s with fA(x) like fB(x - s), and the normalised correlation there.
    double FindShift(std::span<const float> fA, std::span<const float> fB, double& rCorrelation)
    {
        const std::vector<float> vfCross = mGetProducts(fA, fB);
        const std::vector<double> vdA = SumSquares(fA, m_iX), vdB = SumSquares(fB, m_iX);
        const auto Get = [&](int s)
        {
            const auto tFrom = std::size_t(std::max(0, s)),
                       tTo = std::size_t(m_iX + std::min(0, s));
            const double dA = vdA[tTo] - vdA[tFrom];
            const double dB = vdB[tTo - std::size_t(s)] - vdB[tFrom - std::size_t(s)];
            if (dA < 1e-6 * vdA.back() || dB < 1e-6 * vdB.back() || !(dA * dB > 0)) return 0.0;
            return vfCross[std::size_t((s + m_iLength) % m_iLength)] / std::sqrt(dA * dB);
        };
        const int iMost = 2 * m_iX / 3;
        int iBest = 0;
        for (int s = -iMost; s <= iMost; ++s)
            if (Get(s) > Get(iBest)) iBest = s;
        rCorrelation = Get(iBest);
        return iBest + FitPeak(Get(iBest - 1), Get(iBest), Get(iBest + 1));
    }

private:
    static void Free(kiss_fftr_cfg pConfig) { kiss_fftr_free(pConfig); }
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

/// The view nearest to this one in angle, but at another angle; -1: there is none.
int FindNeighbour(std::span<const float> fAngles, int iView)
{
    int iBest = -1;
    for (int i = 0; i < static_cast<int>(fAngles.size()); ++i)
    {
        const double dGap = std::fabs(GetGap(fAngles, iView, i));
        if (dGap > 1e-3 && (iBest < 0 || dGap < std::fabs(GetGap(fAngles, iView, iBest))))
            iBest = i;
    }
    return iBest;
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
            if (std::fabs(dBeyond) > dLeast + 1e-3) continue;
            dLeast = std::min(dLeast, std::fabs(dBeyond));
            aAll.push_back({i, j, dBeyond});
        }
    std::erase_if(aAll, [&](const Pair& r) { return std::fabs(r.dBeyond) > dLeast + 1e-3; });
    if (aAll.empty()) return Fail(rError, "one view does not tell where the axis is");
    const int iNext = FindNeighbour(fAngles, aAll[0].iFirst);
    const double dStep = iNext < 0 ? 0 : std::fabs(GetGap(fAngles, aAll[0].iFirst, iNext));
    if (dLeast > 1e-3 + 1.1 * dStep)
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
        double dShift = m_aRows.FindShift(vfFirst, vfSecond, rCentre.dCorrelation);
        if (const int iNext = FindNeighbour(m_fAngles, rPair.iFirst);
            std::fabs(rPair.dBeyond) > 1e-3 && iNext >= 0)
        {
            double dIgnored = 0;
            if (!mRead(iNext, false, vfSecond, rError)) return false;
            dShift += rPair.dBeyond / GetGap(m_fAngles, rPair.iFirst, iNext) *
                      m_aRows.FindShift(vfSecond, vfFirst, dIgnored);
        }
        rCentre.dColumn = 0.5 * (dShift + m_aSize.iX - 1);
        rCentre.iViews[0] = rPair.iFirst;
        rCentre.iViews[1] = rPair.iSecond;
        return true;
    }

private:
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
    if (!FindPairs(fAngles, aPairs, rError)) return false;
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
