#pragma once

#include <memory>
#include <span>
#include <vector>

namespace talven
{

/// What the ramp of a filtered back projection is multiplied with, up to the Nyquist frequency.
enum class EWindow
{
    eRamp,  ///< nothing
    eSheppLogan,
    eCosine,
    eHamming,
    eHann
};

/// The filter of a weighted back projection.
struct FilterRequest
{
    EWindow eWindow = EWindow::eRamp;
    double dCutoff = 0.5;  ///< cycles per pixel from where the filter falls off
    double dFalloff = 0;   ///< standard deviation of the Gaussian fall, cycles per pixel; 0: a step
    int iSirtLike = 0;     ///< 0: none; else weights as after so many iterations of SIRT
};

/// Filters rows of projections for a weighted back projection.
///
/// The ramp is the transform of the band-limited kernel 1/4, 0, -1/(pi n)^2, so that it is exact at
/// the lowest frequencies, too (Kak & Slaney, Principles of Computerized Tomographic Imaging,
/// 1988, section 3.3). After N iterations of SIRT in a slab T thick a frequency f has reached
/// 1 - (1 - 1/(T f))^N of itself (Zeng, Physics in Medicine and Biology 57, 2012).
class CRowFilter
{
public:
    /// \param iColumns    of a row
    /// \param iThickness  of the volume, voxels
    CRowFilter(const FilterRequest& rRequest, int iColumns, int iThickness);
    ~CRowFilter();
    CRowFilter(const CRowFilter&) = delete;
    CRowFilter& operator=(const CRowFilter&) = delete;

    /// In place; missing pixels stay missing. Between the ends of a row the filter sees a line from
    /// the value at one end to that at the other, and so beside and between missing pixels.
    void Run(std::span<float> fRow);

    /// The filter at frequency k / GetLength(), cycles per pixel.
    const std::vector<float>& GetResponse() const { return m_vfResponse; }
    int GetLength() const { return m_iLength; }

private:
    struct Transforms;

    int m_iColumns, m_iLength;
    std::vector<float> m_vfResponse;
    std::unique_ptr<Transforms> m_pTransforms;
};

/// The share of the half circle of directions that each view stands for, radians: half the gaps to
/// its neighbours in angle. Where the gap across the ends is more than twice the largest of the
/// others, as with a missing wedge, the views at the ends stand for their one gap.
/// \param fAngles  degrees, in any order
std::vector<double> MakeViewWeights(std::span<const float> fAngles);

}  // namespace talven
