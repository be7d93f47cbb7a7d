#include "talven/DoseFilter.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace talven
{
namespace
{

constexpr int g_iMargin = 64;    // pixels beyond the edges, at least; no detail reaches further
constexpr int g_iColumns = 8;    // transformed together: a cache line of the spectrum
constexpr double g_dRest = 511;  // energy of an electron at rest, keV

/// (v / c)^2 of electrons.
double GetSquareOfSpeed(double dKilovolts)
{
    const double dGamma = 1 + dKilovolts / g_dRest;
    return 1 - 1 / (dGamma * dGamma);
}

/// Line between the neighbours of missing pixels, the nearest pixel at the ends.
/// \return false when all are missing
bool FillRow(std::span<float> fRow)
{
    std::size_t tLast = fRow.size();  // given one before; the size: none
    for (std::size_t i = 0; i < fRow.size(); ++i)
    {
        if (IsMissing(fRow[i])) continue;
        const bool bFirst = tLast == fRow.size();
        const float fFrom = bFirst ? fRow[i] : fRow[tLast];
        const std::size_t tFrom = bFirst ? 0 : tLast + 1;
        const float fStep = bFirst ? 0 : (fRow[i] - fFrom) / float(i - tLast);
        for (std::size_t k = tFrom; k < i; ++k) fRow[k] = fFrom + float(k + 1 - tFrom) * fStep;
        tLast = i;
    }
    if (tLast == fRow.size()) return false;
    std::fill(fRow.begin() + std::ptrdiff_t(tLast), fRow.end(), fRow[tLast]);
    return true;
}

/// The place of a padded line that is seen after its iLength pixels: a mirror image of each end,
/// one going over into the other.
struct Mirror
{
    Mirror(int iAfter, int iLength, int iPadded)
    {
        const int iGap = iPadded - iLength;
        iOfEnd = std::max(0, iLength - 1 - iAfter);
        iOfStart = std::min(iLength - 1, iGap - 1 - iAfter);
        fStart = float(0.5 - 0.5 * std::cos(std::numbers::pi * (iAfter + 0.5) / iGap));
    }
    float Mix(float fEnd, float fBegin) const { return fEnd + fStart * (fBegin - fEnd); }

    int iOfEnd, iOfStart;
    float fStart;  ///< share of the start
};

}  // namespace

/// Both directions along rows and columns, and what they work on.
struct CDoseFilter::Transforms
{
    explicit Transforms(const ImageSize& rPadded)
        : pRow(kiss_fftr_alloc(rPadded.iX, 0, nullptr, nullptr), Free),
          pRowBack(kiss_fftr_alloc(rPadded.iX, 1, nullptr, nullptr), Free),
          pColumn(kiss_fft_alloc(rPadded.iY, 0, nullptr, nullptr), Free),
          pColumnBack(kiss_fft_alloc(rPadded.iY, 1, nullptr, nullptr), Free),
          vfImage(rPadded.GetPixels()),
          vSpectrum(std::size_t(rPadded.iX / 2 + 1) * std::size_t(rPadded.iY)),
          vColumns(std::size_t(g_iColumns) * std::size_t(rPadded.iY)),
          vColumn(std::size_t(rPadded.iY))
    {
    }
    static void Free(void* pConfig) { kiss_fft_free(pConfig); }
    template <class T>
    using Config = std::unique_ptr<T, void (*)(void*)>;

    Config<kiss_fftr_state> pRow, pRowBack;
    Config<kiss_fft_state> pColumn, pColumnBack;
    std::vector<float> vfImage;                   // padded, [y][x]
    std::vector<kiss_fft_cpx> vSpectrum;          // [y][kx]
    std::vector<kiss_fft_cpx> vColumns, vColumn;  // [column][y]
};

CDoseFilter::CDoseFilter(const ImageSize& rSize, double dPixel, double dKilovolts)
    : m_aSize(rSize),
      m_aPadded{2 * kiss_fft_next_fast_size((rSize.iX + g_iMargin + 1) / 2),
                kiss_fft_next_fast_size(rSize.iY + g_iMargin)},
      m_pTransforms(std::make_unique<Transforms>(m_aPadded))
{
    for (int y = 0; y <= m_aPadded.iY / 2; ++y)
        for (int x = 0; x <= m_aPadded.iX / 2; ++x)
        {
            const double dK =
                std::hypot(double(x) / m_aPadded.iX, double(y) / m_aPadded.iY) / dPixel;
            m_vfRates.push_back(dK > 0 ? float(0.5 / GetCriticalDose(dK, dKilovolts)) : 0);
        }
}

CDoseFilter::~CDoseFilter() = default;

double CDoseFilter::GetCriticalDose(double dFrequency, double dKilovolts)
{
    double dScale = GetSquareOfSpeed(dKilovolts) / GetSquareOfSpeed(300);
    if (dKilovolts == 200) dScale = 0.8;  // as published; the speeds give 0.802
    return dScale * (0.24499 * std::pow(dFrequency, -1.6649) + 2.8141);
}

void CDoseFilter::Run(std::span<float> fPixels, const ViewDose& rDose)
{
    Transforms& r = *m_pTransforms;
    const auto tX = std::size_t(m_aPadded.iX), tFrequencies = tX / 2 + 1;
    mFillMissing(fPixels);
    mPad();
    for (std::size_t y = 0; y < std::size_t(m_aPadded.iY); ++y)
        kiss_fftr(r.pRow.get(), &r.vfImage[y * tX], &r.vSpectrum[y * tFrequencies]);
    mWeighColumns(rDose.dPrior + 0.5 * rDose.dExposure);
    for (std::size_t y = 0; y < std::size_t(m_aSize.iY); ++y)
    {
        kiss_fftri(r.pRowBack.get(), &r.vSpectrum[y * tFrequencies], &r.vfImage[y * tX]);
        for (std::size_t x = 0; x < std::size_t(m_aSize.iX); ++x)
        {
            float& rPixel = fPixels[y * std::size_t(m_aSize.iX) + x];
            if (!IsMissing(rPixel)) rPixel = r.vfImage[y * tX + x];
        }
    }
}

/// Copies the view. Rows without any pixel get those of the row below, or of the first that has
/// some.
void CDoseFilter::mFillMissing(std::span<const float> fPixels)
{
    const auto Row = [this](int y)
    {
        return std::span(m_pTransforms->vfImage)
            .subspan(std::size_t(y) * std::size_t(m_aPadded.iX), std::size_t(m_aSize.iX));
    };
    int iGiven = -1;
    for (int y = 0; y < m_aSize.iY; ++y)
    {
        std::ranges::copy(fPixels.subspan(std::size_t(y) * Row(0).size(), Row(0).size()),
                          Row(y).begin());
        if (FillRow(Row(y)))
        {
            for (int k = 0; iGiven < 0 && k < y; ++k) std::ranges::copy(Row(y), Row(k).begin());
            iGiven = y;
        }
        else if (iGiven >= 0)
            std::ranges::copy(Row(iGiven), Row(y).begin());
    }
    if (iGiven < 0) std::ranges::fill(m_pTransforms->vfImage, 0.0f);
}

void CDoseFilter::mPad()
{
    std::vector<float>& rImage = m_pTransforms->vfImage;
    const auto Pixel = [&](int x, int y) -> float&
    { return rImage[std::size_t(y) * std::size_t(m_aPadded.iX) + std::size_t(x)]; };
    for (int x = m_aSize.iX; x < m_aPadded.iX; ++x)
    {
        const Mirror aMirror(x - m_aSize.iX, m_aSize.iX, m_aPadded.iX);
        for (int y = 0; y < m_aSize.iY; ++y)
            Pixel(x, y) = aMirror.Mix(Pixel(aMirror.iOfEnd, y), Pixel(aMirror.iOfStart, y));
    }
    for (int y = m_aSize.iY; y < m_aPadded.iY; ++y)
    {
        const Mirror aMirror(y - m_aSize.iY, m_aSize.iY, m_aPadded.iY);
        for (int x = 0; x < m_aPadded.iX; ++x)
            Pixel(x, y) = aMirror.Mix(Pixel(x, aMirror.iOfEnd), Pixel(x, aMirror.iOfStart));
    }
}

/// Transforms columns of the spectrum, some at a time, weighs them, and transforms them back.
void CDoseFilter::mWeighColumns(double dDose)
{
    Transforms& r = *m_pTransforms;
    const auto tY = std::size_t(m_aPadded.iY), tFrequencies = std::size_t(m_aPadded.iX / 2 + 1);
    const float fScale = 1 / float(m_aPadded.GetPixels()), fDose = float(dDose);
    for (std::size_t x = 0; x < tFrequencies; x += g_iColumns)
    {
        const std::size_t tColumns = std::min(std::size_t(g_iColumns), tFrequencies - x);
        for (std::size_t y = 0; y < tY; ++y)
            for (std::size_t i = 0; i < tColumns; ++i)
                r.vColumns[i * tY + y] = r.vSpectrum[y * tFrequencies + x + i];
        for (std::size_t i = 0; i < tColumns; ++i)
        {
            kiss_fft(r.pColumn.get(), &r.vColumns[i * tY], r.vColumn.data());
            for (std::size_t y = 0; y < tY; ++y)
            {
                const float fRate = m_vfRates[std::min(y, tY - y) * tFrequencies + x + i];
                const float fWeight = fScale * std::exp(-fDose * fRate);
                r.vColumn[y].r *= fWeight;
                r.vColumn[y].i *= fWeight;
            }
            kiss_fft(r.pColumnBack.get(), r.vColumn.data(), &r.vColumns[i * tY]);
        }
        for (std::size_t y = 0; y < tY; ++y)
            for (std::size_t i = 0; i < tColumns; ++i)
                r.vSpectrum[y * tFrequencies + x + i] = r.vColumns[i * tY + y];
    }
}

ImageSource WeighByDose(const ImageSource& rViews, const ImageSize& rSize, double dPixel,
                        double dKilovolts, std::span<const ViewDose> aDoses)
{
    const auto pFilter = std::make_shared<CDoseFilter>(rSize, dPixel, dKilovolts);
    return [rViews, pFilter, vDoses = std::vector(aDoses.begin(), aDoses.end())](
               int iIndex, std::span<float> fPixels, std::string& rError)
    {
        if (!rViews(iIndex, fPixels, rError)) return false;
        pFilter->Run(fPixels, vDoses[std::size_t(iIndex)]);
        return true;
    };
}

}  // namespace talven
