#pragma once

#include <memory>
#include <span>
#include <vector>

#include "talven/Alignment.h"

namespace talven
{

/// How an image lies beside another one: image(x + d) looks like reference(x), pixels.
struct ImageMatch
{
    double dX = 0, dY = 0;
    double dCorrelation = 0;  ///< of what the band-pass leaves of both, -1 to 1
    double dHere = 0;         ///< the same without a shift
    double dResidual = 0;     ///< mean square of the difference without a shift
    double dLevel = 0;        ///< by which the reference's mean lies above the image's
    double dSecond = 0;       ///< the correlation of the best other peak more than six pixels away
    bool bAtLimit = false;    ///< the best shift is the largest that was looked at
};

/// Finds the shift between images of one size by cross-correlation in Fourier space.
class CImageMatcher
{
public:
    /// \param dLow, dHigh  pass band, cycles per pixel, with Gaussian shoulders
    CImageMatcher(const ImageSize& rSize, double dLow, double dHigh);
    ~CImageMatcher();
    CImageMatcher(const CImageMatcher&) = delete;
    CImageMatcher& operator=(const CImageMatcher&) = delete;

    /// The best shift of up to iLimit pixels either way. Both images count with the same weights,
    /// less their weighted means; where a weight is 0 a pixel may be missing. Shapes [y][x].
    ImageMatch Find(std::span<const float> fImage, std::span<const float> fReference,
                    std::span<const float> fWeights, int iLimit);

private:
    struct Transforms;
    using Spectrum = std::vector<float>;  // pairs, [ky][kx]

    /// Fills the spectrum of a weighted image, and returns its energy.
    double mTransform(std::span<const float> fImage, std::span<const float> fWeights,
                      Spectrum& rSpectrum, double& rMean);
    double mGetEnergy(const Spectrum& rSpectrum) const;

    ImageSize m_aSize, m_aPadded;
    std::unique_ptr<Transforms> m_pTransforms;
    std::vector<float> m_vfBand;  // [ky][kx]
    std::vector<float> m_vfPadded;
    Spectrum m_aImage, m_aReference;
};

/// Multiplies weights by 0 where a pixel is missing and outside the image, rising to 1 as half a
/// cosine over dShare of the width along X, and of the height along Y.
void TaperToMissing(std::span<const float> fImage, const ImageSize& rSize, double dShare,
                    std::span<float> fWeights);

}  // namespace talven
