#include "talven/DoseFilter.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "Gaps.h"
#include "Share.h"

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

void Free(void* pConfig)
{
    kiss_fft_free(pConfig);
}

}  // namespace

/// Of a padded view, [y][kx].
struct CDoseFilter::Spectrum
{
    explicit Spectrum(const ImageSize& rPadded)
        : tX(std::size_t(rPadded.iX / 2 + 1)), vValues(tX * std::size_t(rPadded.iY))
    {
    }
    std::size_t tX;
    std::vector<kiss_fft_cpx> vValues;
};

/// Transforms of rows and columns, and what they work on.
class CDoseFilter::CWorker
{
public:
    explicit CWorker(const ImageSize& rPadded)
        : m_pRow(kiss_fftr_alloc(rPadded.iX, 0, nullptr, nullptr), Free),
          m_pRowBack(kiss_fftr_alloc(rPadded.iX, 1, nullptr, nullptr), Free),
          m_pColumn(kiss_fft_alloc(rPadded.iY, 0, nullptr, nullptr), Free),
          m_pColumnBack(kiss_fft_alloc(rPadded.iY, 1, nullptr, nullptr), Free),
          m_vColumns(std::size_t(g_iColumns) * std::size_t(rPadded.iY)),
          m_vColumn(std::size_t(rPadded.iY)),
          m_fScale(1 / float(rPadded.GetPixels()))
    {
    }
    void TransformRow(const float* pfRow, kiss_fft_cpx* pSpectrum)
    {
        kiss_fftr(m_pRow.get(), pfRow, pSpectrum);
    }
    void TransformRowBack(const kiss_fft_cpx* pSpectrum, float* pfRow)
    {
        kiss_fftri(m_pRowBack.get(), pSpectrum, pfRow);
    }
    /// Transforms some columns, weighs them, and transforms them back.
    void WeighColumns(Spectrum& rSpectrum, std::size_t tX, std::span<const float> fRates,
                      float fDose);

private:
    template <class T>
    using Config = std::unique_ptr<T, void (*)(void*)>;

    Config<kiss_fftr_state> m_pRow, m_pRowBack;
    Config<kiss_fft_state> m_pColumn, m_pColumnBack;
    std::vector<kiss_fft_cpx> m_vColumns, m_vColumn;  // [column][y]
    float m_fScale;
};

void CDoseFilter::CWorker::WeighColumns(Spectrum& rSpectrum, std::size_t tX,
                                        std::span<const float> fRates, float fDose)
{
    const std::size_t tY = m_vColumn.size();
    const std::size_t tColumns = std::min(std::size_t(g_iColumns), rSpectrum.tX - tX);
    for (std::size_t y = 0; y < tY; ++y)
        for (std::size_t i = 0; i < tColumns; ++i)
            m_vColumns[i * tY + y] = rSpectrum.vValues[y * rSpectrum.tX + tX + i];
    for (std::size_t i = 0; i < tColumns; ++i)
    {
        kiss_fft(m_pColumn.get(), &m_vColumns[i * tY], m_vColumn.data());
        for (std::size_t y = 0; y < tY; ++y)
        {
            const float fRate = fRates[std::min(y, tY - y) * rSpectrum.tX + tX + i];
            const float fWeight = m_fScale * std::exp(-fDose * fRate);
            m_vColumn[y].r *= fWeight;
            m_vColumn[y].i *= fWeight;
        }
        kiss_fft(m_pColumnBack.get(), m_vColumn.data(), &m_vColumns[i * tY]);
    }
    for (std::size_t y = 0; y < tY; ++y)
        for (std::size_t i = 0; i < tColumns; ++i)
            rSpectrum.vValues[y * rSpectrum.tX + tX + i] = m_vColumns[i * tY + y];
}

CDoseFilter::CDoseFilter(const ImageSize& rSize, double dPixel, double dKilovolts)
    : m_aSize(rSize),
      m_aPadded{2 * kiss_fft_next_fast_size((rSize.iX + g_iMargin + 1) / 2),
                kiss_fft_next_fast_size(rSize.iY + g_iMargin)},
      m_vfImage(m_aPadded.GetPixels()),
      m_pSpectrum(std::make_unique<Spectrum>(m_aPadded))
{
    for (int i = CountThreads(); i > 0; --i)
        m_vpWorkers.push_back(std::make_unique<CWorker>(m_aPadded));
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

/// Work(rWorker, i) for every i, in as many threads as there are workers.
template <class F>
void CDoseFilter::mShare(int iCount, const F& Work)
{
    Share(static_cast<int>(m_vpWorkers.size()), iCount,
          [&](int iThread, int i) { Work(*m_vpWorkers[std::size_t(iThread)], i); });
}

void CDoseFilter::Run(std::span<float> fPixels, const ViewDose& rDose)
{
    const auto fDose = static_cast<float>(rDose.dPrior + 0.5 * rDose.dExposure);
    const auto Image = [this](int y)
    { return &m_vfImage[std::size_t(y) * std::size_t(m_aPadded.iX)]; };
    const auto Row = [this](int y)
    { return &m_pSpectrum->vValues[std::size_t(y) * m_pSpectrum->tX]; };
    mFillMissing(fPixels);
    mPad();
    mShare(m_aPadded.iY, [&](CWorker& rWorker, int y) { rWorker.TransformRow(Image(y), Row(y)); });
    mShare((m_aPadded.iX / 2 + g_iColumns) / g_iColumns, [&](CWorker& rWorker, int i)
           { rWorker.WeighColumns(*m_pSpectrum, std::size_t(i) * g_iColumns, m_vfRates, fDose); });
    mShare(m_aSize.iY,
           [&](CWorker& rWorker, int y)
           {
               rWorker.TransformRowBack(Row(y), Image(y));
               float* const pfRow = &fPixels[std::size_t(y) * std::size_t(m_aSize.iX)];
               for (int x = 0; x < m_aSize.iX; ++x)
                   if (!IsMissing(pfRow[x])) pfRow[x] = Image(y)[x];
           });
}

/// Copies the view. Rows without any pixel get those of the row below, or of the first that has
/// some.
void CDoseFilter::mFillMissing(std::span<const float> fPixels)
{
    const auto Row = [this](int y)
    {
        return std::span(m_vfImage).subspan(std::size_t(y) * std::size_t(m_aPadded.iX),
                                            std::size_t(m_aSize.iX));
    };
    int iGiven = -1;
    for (int y = 0; y < m_aSize.iY; ++y)
    {
        std::ranges::copy(fPixels.subspan(std::size_t(y) * Row(0).size(), Row(0).size()),
                          Row(y).begin());
        if (FillGaps(Row(y)))
        {
            for (int k = 0; iGiven < 0 && k < y; ++k) std::ranges::copy(Row(y), Row(k).begin());
            iGiven = y;
        }
        else if (iGiven >= 0)
            std::ranges::copy(Row(iGiven), Row(y).begin());
    }
    if (iGiven < 0) std::ranges::fill(m_vfImage, 0.0f);
}

void CDoseFilter::mPad()
{
    const auto Pixel = [&](int x, int y) -> float&
    { return m_vfImage[std::size_t(y) * std::size_t(m_aPadded.iX) + std::size_t(x)]; };
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
