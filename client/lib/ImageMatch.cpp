#include "talven/ImageMatch.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace talven
{
namespace
{

constexpr int g_iApart = 6;  // pixels from one peak to another

void Free(void* pConfig)
{
    kiss_fft_free(pConfig);
}

/// A fifth more at least, so that the ends of a shifted image do not meet.
ImageSize Pad(const ImageSize& rSize)
{
    return {2 * kiss_fft_next_fast_size((rSize.iX * 5 / 4 + 1) / 2),
            kiss_fft_next_fast_size(rSize.iY * 5 / 4)};
}

/// Distance to the nearest missing pixel or end along a line of iCount pixels, at most iMost.
void MeasureLine(std::span<const float> fImage, std::size_t tFirst, std::size_t tStep, int iCount,
                 int iMost, std::span<int> iDistance)
{
    for (const bool bBack : {false, true})
        for (int i = 0, iSince = 0; i < iCount; ++i)
        {
            const std::size_t p = std::size_t(bBack ? iCount - 1 - i : i);
            iSince = IsMissing(fImage[tFirst + p * tStep]) ? 0 : std::min(iSince + 1, iMost);
            iDistance[p] = bBack ? std::min(iDistance[p], iSince) : iSince;
        }
}

float Rise(int iDistance, int iWidth)
{
    return iDistance >= iWidth ? 1.0f
                               : float(0.5 - 0.5 * std::cos(std::numbers::pi * iDistance / iWidth));
}

}  // namespace

/// Of rows, and of columns one after the other.
struct CImageMatcher::Transforms
{
    explicit Transforms(const ImageSize& rPadded)
        : iX(rPadded.iX),
          iY(rPadded.iY),
          pRow(kiss_fftr_alloc(rPadded.iX, 0, nullptr, nullptr), Free),
          pRowBack(kiss_fftr_alloc(rPadded.iX, 1, nullptr, nullptr), Free),
          pColumn(kiss_fft_alloc(rPadded.iY, 0, nullptr, nullptr), Free),
          pColumnBack(kiss_fft_alloc(rPadded.iY, 1, nullptr, nullptr), Free),
          vColumn(std::size_t(iY)),
          vResult(std::size_t(iY))
    {
    }
    void Forward(const float* pfImage, kiss_fft_cpx* pSpectrum)
    {
        for (int y = 0; y < iY; ++y) kiss_fftr(pRow.get(), pfImage + y * iX, pSpectrum + y * iHalf);
        TransformColumns(pColumn.get(), pSpectrum);
    }
    void Back(kiss_fft_cpx* pSpectrum, float* pfImage)
    {
        TransformColumns(pColumnBack.get(), pSpectrum);
        for (int y = 0; y < iY; ++y)
            kiss_fftri(pRowBack.get(), pSpectrum + y * iHalf, pfImage + y * iX);
    }
    void TransformColumns(kiss_fft_state* pState, kiss_fft_cpx* pSpectrum)
    {
        for (std::ptrdiff_t x = 0; x < iHalf; ++x)
        {
            for (int y = 0; y < iY; ++y) vColumn[std::size_t(y)] = pSpectrum[x + y * iHalf];
            kiss_fft(pState, vColumn.data(), vResult.data());
            for (int y = 0; y < iY; ++y) pSpectrum[x + y * iHalf] = vResult[std::size_t(y)];
        }
    }

    std::ptrdiff_t iX, iY, iHalf = iX / 2 + 1;
    template <class T>
    using Config = std::unique_ptr<T, void (*)(void*)>;
    Config<kiss_fftr_state> pRow, pRowBack;
    Config<kiss_fft_state> pColumn, pColumnBack;
    std::vector<kiss_fft_cpx> vColumn, vResult;
};

CImageMatcher::CImageMatcher(const ImageSize& rSize, double dLow, double dHigh)
    : m_aSize(rSize),
      m_aPadded(Pad(rSize)),
      m_pTransforms(std::make_unique<Transforms>(m_aPadded)),
      m_vfPadded(m_aPadded.GetPixels())
{
    const int iHalf = m_aPadded.iX / 2 + 1;
    for (int y = 0; y < m_aPadded.iY; ++y)
        for (int x = 0; x < iHalf; ++x)
        {
            const double dX = double(x) / m_aPadded.iX;
            const double dY = double(std::min(y, m_aPadded.iY - y)) / m_aPadded.iY;
            const double dSquare = dX * dX + dY * dY;
            m_vfBand.push_back(float(std::exp(-0.5 * dSquare / (dHigh * dHigh)) *
                                     (1 - std::exp(-0.5 * dSquare / (dLow * dLow)))));
        }
    m_aImage.resize(2 * m_vfBand.size());
    m_aReference.resize(2 * m_vfBand.size());
}

CImageMatcher::~CImageMatcher() = default;

double CImageMatcher::mTransform(std::span<const float> fImage, std::span<const float> fWeights,
                                 Spectrum& rSpectrum, double& rMean)
{
    double dSum = 0, dWeight = 0;
    for (std::size_t i = 0; i < fImage.size(); ++i)
        if (fWeights[i] > 0) dSum += double(fWeights[i]) * fImage[i], dWeight += fWeights[i];
    rMean = dWeight > 0 ? dSum / dWeight : 0;
    const auto fMean = float(rMean);
    std::ranges::fill(m_vfPadded, 0.0f);
    const auto tX = std::size_t(m_aSize.iX);
    for (std::size_t i = 0; i < fImage.size(); ++i)
        if (fWeights[i] > 0)
            m_vfPadded[i / tX * std::size_t(m_aPadded.iX) + i % tX] =
                fWeights[i] * (fImage[i] - fMean);
    m_pTransforms->Forward(m_vfPadded.data(), reinterpret_cast<kiss_fft_cpx*>(rSpectrum.data()));
    for (std::size_t i = 0; i < m_vfBand.size(); ++i)
        rSpectrum[2 * i] *= m_vfBand[i], rSpectrum[2 * i + 1] *= m_vfBand[i];
    return mGetEnergy(rSpectrum);
}

/// The spectrum is half of a symmetric one: all but the first and last columns stand for two.
double CImageMatcher::mGetEnergy(const Spectrum& rSpectrum) const
{
    const auto tHalf = std::size_t(m_aPadded.iX) / 2 + 1;
    double dEnergy = 0;
    for (std::size_t i = 0; i < m_vfBand.size(); ++i)
    {
        const double dRe = rSpectrum[2 * i], dIm = rSpectrum[2 * i + 1];
        dEnergy += (i % tHalf == 0 || i % tHalf == tHalf - 1 ? 1 : 2) * (dRe * dRe + dIm * dIm);
    }
    return dEnergy;
}

ImageMatch CImageMatcher::Find(std::span<const float> fImage, std::span<const float> fReference,
                               std::span<const float> fWeights, int iLimit)
{
    double dMean = 0, dReferenceMean = 0;
    const double dImage = mTransform(fImage, fWeights, m_aImage, dMean);
    const double dReference = mTransform(fReference, fWeights, m_aReference, dReferenceMean);
    ImageMatch aMatch;
    aMatch.dLevel = dReferenceMean - dMean;
    if (!(dImage > 0) || !(dReference > 0)) return aMatch;
    for (std::size_t i = 0; i < m_vfBand.size(); ++i)
    {
        const float fA = m_aImage[2 * i], fB = m_aImage[2 * i + 1];
        const float fC = m_aReference[2 * i], fD = m_aReference[2 * i + 1];
        m_aImage[2 * i] = fA * fC + fB * fD;
        m_aImage[2 * i + 1] = fB * fC - fA * fD;
    }
    m_pTransforms->Back(reinterpret_cast<kiss_fft_cpx*>(m_aImage.data()), m_vfPadded.data());

    const int iX = m_aPadded.iX, iY = m_aPadded.iY;
    const auto At = [&](int x, int y) {
        return m_vfPadded[std::size_t((y + iY) % iY) * std::size_t(iX) +
                          std::size_t((x + iX) % iX)];
    };
    const int iReach = std::clamp(iLimit, 0, std::min(iX, iY) / 2 - 2);
    int iBestX = 0, iBestY = 0;
    for (int y = -iReach; y <= iReach; ++y)
        for (int x = -iReach; x <= iReach; ++x)
            if (At(x, y) > At(iBestX, iBestY)) iBestX = x, iBestY = y;
    const float fPeak = At(iBestX, iBestY);
    aMatch.dX = iBestX + FitPeak(At(iBestX - 1, iBestY), fPeak, At(iBestX + 1, iBestY));
    aMatch.dY = iBestY + FitPeak(At(iBestX, iBestY - 1), fPeak, At(iBestX, iBestY + 1));
    const auto IsPeak = [&](int x, int y)
    {
        for (int j = -1; j <= 1; ++j)
            for (int i = -1; i <= 1; ++i)
                if (At(x + i, y + j) > At(x, y)) return false;
        return true;
    };
    float fSecond = 0;
    for (int y = -iReach; y <= iReach; ++y)
        for (int x = -iReach; x <= iReach; ++x)
            if (At(x, y) > fSecond && std::hypot(x - iBestX, y - iBestY) > g_iApart && IsPeak(x, y))
                fSecond = At(x, y);
    const double dNorm = 1 / std::sqrt(dImage * dReference);
    aMatch.dCorrelation = dNorm * double(fPeak);
    aMatch.dSecond = dNorm * double(fSecond);
    double dWeights = 0;
    for (const float f : fWeights) dWeights += double(f) * f;
    aMatch.dResidual =
        (dImage + dReference - 2 * double(At(0, 0))) / (double(m_aPadded.GetPixels()) * dWeights);
    aMatch.dHere = dNorm * double(At(0, 0));
    aMatch.bAtLimit = std::max(std::abs(iBestX), std::abs(iBestY)) >= iReach;
    return aMatch;
}

void TaperToMissing(std::span<const float> fImage, const ImageSize& rSize, double dShare,
                    std::span<float> fWeights)
{
    const auto tX = std::size_t(rSize.iX), tY = std::size_t(rSize.iY);
    const int iWidth = std::max(2, int(dShare * rSize.iX));
    const int iHeight = std::max(2, int(dShare * rSize.iY));
    std::vector<int> viDistance(std::max(tX, tY));
    for (std::size_t y = 0; y < tY; ++y)
    {
        MeasureLine(fImage, y * tX, 1, rSize.iX, iWidth, viDistance);
        for (std::size_t x = 0; x < tX; ++x) fWeights[y * tX + x] *= Rise(viDistance[x], iWidth);
    }
    for (std::size_t x = 0; x < tX; ++x)
    {
        MeasureLine(fImage, x, tX, rSize.iY, iHeight, viDistance);
        for (std::size_t y = 0; y < tY; ++y) fWeights[y * tX + x] *= Rise(viDistance[y], iHeight);
    }
}

}  // namespace talven
