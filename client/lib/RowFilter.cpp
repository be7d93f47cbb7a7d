#include "talven/RowFilter.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <numeric>

#include "talven/Alignment.h"

namespace talven
{
namespace
{

constexpr double g_dPi = std::numbers::pi;

double GetWindow(EWindow eWindow, double dFrequency)
{
    const double dHalf = g_dPi * dFrequency;  // pi / 2 at the Nyquist frequency
    switch (eWindow)
    {
    case EWindow::eSheppLogan:
        return dHalf > 0 ? std::sin(dHalf) / dHalf : 1;
    case EWindow::eCosine:
        return std::cos(dHalf);
    case EWindow::eHamming:
        return 0.54 + 0.46 * std::cos(2 * dHalf);
    case EWindow::eHann:
        return 0.5 + 0.5 * std::cos(2 * dHalf);
    default:
        return 1;
    }
}

double GetWeight(const FilterRequest& rRequest, double dFrequency, int iThickness)
{
    double dWeight = GetWindow(rRequest.eWindow, dFrequency);
    const double dBeyond = dFrequency - rRequest.dCutoff;
    if (dBeyond > 0)
        dWeight *=
            rRequest.dFalloff > 0 ? std::exp(-0.5 * std::pow(dBeyond / rRequest.dFalloff, 2)) : 0;
    if (rRequest.iSirtLike > 0 && dFrequency * iThickness > 1)
        dWeight *= 1 - std::pow(1 - 1 / (dFrequency * iThickness), rRequest.iSirtLike);
    return dWeight;
}

/// Replaces missing values and what comes after the row by lines between their neighbours, around
/// the end. \return false when there is nothing but missing ones
bool FillGaps(std::span<const float> fRow, std::span<float> fFilled)
{
    std::vector<std::size_t> vtGiven;
    for (std::size_t i = 0; i < fRow.size(); ++i)
        if (!IsMissing(fRow[i])) vtGiven.push_back(i);
    if (vtGiven.empty()) return false;
    for (std::size_t n = 0; n < vtGiven.size(); ++n)
    {
        const std::size_t tFrom = vtGiven[n], tNext = vtGiven[(n + 1) % vtGiven.size()];
        const std::size_t tGap =
            n + 1 < vtGiven.size() ? tNext - tFrom : tNext + fFilled.size() - tFrom;
        for (std::size_t k = 0; k < tGap; ++k)
        {
            const float fPart = float(k) / float(tGap);
            fFilled[(tFrom + k) % fFilled.size()] = (1 - fPart) * fRow[tFrom] + fPart * fRow[tNext];
        }
    }
    return true;
}

}  // namespace

/// Both directions, and what they work on.
struct CRowFilter::Transforms
{
    explicit Transforms(int iLength)
        : pForward(kiss_fftr_alloc(iLength, 0, nullptr, nullptr), Free),
          pBack(kiss_fftr_alloc(iLength, 1, nullptr, nullptr), Free),
          vfRow(std::size_t(iLength)),
          vSpectrum(std::size_t(iLength / 2 + 1))
    {
    }
    static void Free(kiss_fftr_cfg pConfig) { kiss_fftr_free(pConfig); }

    std::unique_ptr<kiss_fftr_state, void (*)(kiss_fftr_cfg)> pForward, pBack;
    std::vector<float> vfRow;
    std::vector<kiss_fft_cpx> vSpectrum;
};

CRowFilter::CRowFilter(const FilterRequest& rRequest, int iColumns, int iThickness)
    : m_iColumns(iColumns),
      m_iLength(2 * kiss_fft_next_fast_size(iColumns)),  // no end reaches the other
      m_pTransforms(std::make_unique<Transforms>(m_iLength))
{
    const std::int64_t lLength = m_iLength, lHalf = lLength / 2;
    std::vector<double> vdCos;
    for (int n = 0; n < m_iLength; ++n) vdCos.push_back(std::cos(2 * g_dPi * n / m_iLength));
    for (std::int64_t k = 0; k <= lHalf; ++k)
    {
        double dRamp = 0.25;
        for (std::int64_t n = 1; n <= lHalf; n += 2)
            dRamp -= (n < lHalf ? 2 : 1) * vdCos[std::size_t(n * k % lLength)] /
                     (g_dPi * g_dPi * double(n * n));
        m_vfResponse.push_back(
            float(dRamp * GetWeight(rRequest, double(k) / double(lLength), iThickness)));
    }
}

CRowFilter::~CRowFilter() = default;

void CRowFilter::Run(std::span<float> fRow)
{
    Transforms& r = *m_pTransforms;
    if (!FillGaps(fRow, r.vfRow)) return;
    kiss_fftr(r.pForward.get(), r.vfRow.data(), r.vSpectrum.data());
    for (std::size_t k = 0; k < m_vfResponse.size(); ++k)
    {
        r.vSpectrum[k].r *= m_vfResponse[k] / float(m_iLength);
        r.vSpectrum[k].i *= m_vfResponse[k] / float(m_iLength);
    }
    kiss_fftri(r.pBack.get(), r.vSpectrum.data(), r.vfRow.data());
    for (std::size_t i = 0; i < fRow.size(); ++i)
        if (!IsMissing(fRow[i])) fRow[i] = r.vfRow[i];
}

std::vector<double> MakeViewWeights(std::span<const float> fAngles)
{
    std::vector<std::size_t> vtOrder(fAngles.size());
    std::iota(vtOrder.begin(), vtOrder.end(), std::size_t(0));
    std::vector<double> vdAngles;  // directions: those of opposite views are the same
    for (const float fAngle : fAngles)
        vdAngles.push_back(fAngle - 180 * std::floor(fAngle / 180 + 0.5));
    const auto IsLower = [&](std::size_t a, std::size_t b) { return vdAngles[a] < vdAngles[b]; };
    std::sort(vtOrder.begin(), vtOrder.end(), IsLower);
    const std::size_t tViews = fAngles.size();
    std::vector<double> vdGaps(tViews),
        vdWeights(tViews, g_dPi);  // [i]: before view i of the order
    if (tViews < 2) return vdWeights;
    for (std::size_t i = 0; i < tViews; ++i)
        vdGaps[i] = vdAngles[vtOrder[i]] - vdAngles[vtOrder[(i + tViews - 1) % tViews]] +
                    (i == 0 ? 180 : 0);
    const auto pLargest = std::max_element(vdGaps.begin(), vdGaps.end());
    double dOthers = 0;
    for (auto pGap = vdGaps.begin(); pGap != vdGaps.end(); ++pGap)
        if (pGap != pLargest) dOthers = std::max(dOthers, *pGap);
    const bool bWedge = *pLargest > 2 * dOthers && dOthers > 0;
    for (std::size_t i = 0; i < tViews; ++i)
    {
        double dBefore = vdGaps[i], dAfter = vdGaps[(i + 1) % tViews];
        if (bWedge && vdGaps.begin() + std::ptrdiff_t(i) == pLargest) dBefore = dAfter;
        if (bWedge && vdGaps.begin() + std::ptrdiff_t((i + 1) % tViews) == pLargest)
            dAfter = dBefore;
        vdWeights[vtOrder[i]] = 0.5 * (dBefore + dAfter) * g_dPi / 180;
    }
    return vdWeights;
}

}  // namespace talven
