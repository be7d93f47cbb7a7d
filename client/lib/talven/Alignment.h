#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace talven
{

/// An affine map a, b, c, d, e, f from a pixel (x, y) of the aligned grid to where it is read in
/// the measured image: u = a x + b y + e, v = c x + d y + f. Pixels count from 0 in a corner.
using Affine = std::array<float, 6>;
constexpr Affine g_aIdentity = {1, 0, 0, 1, 0, 0};

struct ImageSize
{
    int iX = 0, iY = 0;
    std::size_t GetPixels() const { return std::size_t(iX) * std::size_t(iY); }
};

/// The map followed by a shift in the measured image, pixels.
Affine Shift(Affine aMap, double dX, double dY);
/// The same map for pixels that count from the corners, given one that counts from the centres of
/// both images, (n - 1) / 2.
Affine CountFromCorners(const Affine& rMap, const ImageSize& rAligned, const ImageSize& rMeasured);

constexpr float g_fMissing = -1e30f;  ///< a pixel that holds no data
/// Whether a pixel holds no data.
inline bool IsMissing(float fPixel)
{
    return fPixel < -1e15f;
}

/// What becomes of a measured value p.
/// Linear: min(most, gain p + offset). Logarithmic:
/// min(most, factor ln(beam / max(least, gain p + offset))).
struct IntensityScale
{
    float fGain = 1, fOffset = 0;
    float fMost = std::numeric_limits<float>::max();
    bool bLog = false;
    float fLeast = 1;  ///< of the rescaled value, above 0
    float fFactor = 1;
    float fBeam = 1;  ///< intensity without a specimen, above 0

    /// The six numbers in the order of the protocol; a linear scale uses the first three.
    std::array<float, 6> GetValues() const
    {
        return {fGain, fOffset, fMost, fLeast, fFactor, fBeam};
    }
};

/// Sums over the pixels that the map finds in the measured image; a: aligned, t: transformed
/// measured value.
struct CompareSums
{
    float fCount = 0;    ///< pixels
    float fDiff = 0;     ///< |a - t|
    float fCross = 0;    ///< a t
    float fAligned = 0;  ///< a, and so on
    float fAlignedAbs = 0;
    float fAlignedSqr = 0;
    float fTransed = 0;  ///< t, and so on
    float fTransedAbs = 0;
    float fTransedSqr = 0;
    std::uint32_t uiMilliseconds = 0;  ///< that the server took
};

/// Normalised cross-correlation of a and t, both less their means, -1 to 1; NaN when no pixel was
/// compared or one of them is constant.
double CalcCorrelation(const CompareSums& rSums);
/// Mean of |a - t|; NaN when no pixel was compared.
double CalcMeanDifference(const CompareSums& rSums);

/// Offset of the extremum of the parabola through three values at -1, 0 and 1, within -0.5 to 0.5;
/// 0 unless the middle one is the largest.
double FitPeak(double dBefore, double dMiddle, double dAfter);

/// Whether a file may hold matrices of ours, by its name: .xf files hold the inverse maps.
/// \return false for those; rError tells the user.
[[nodiscard]] bool CheckMatrixFile(const std::string& strPath, std::string& rError);
/// Reads matrices from a text file, six numbers a line with blanks or commas between them. Blank
/// lines and everything from a '#' on are skipped.
/// \return false when the file cannot be read, has no matrix, or has a line that is not six finite
///         numbers, which rError names, or for an .xf file; rMatrices stays as it was then.
[[nodiscard]] bool ReadMatrices(const std::string& strPath, std::vector<Affine>& rMatrices,
                                std::string& rError);
/// Writes them so that ReadMatrices() gives the same bits.
[[nodiscard]] bool WriteMatrices(const std::string& strPath, std::span<const Affine> aMatrices,
                                 std::string& rError);

}  // namespace talven
