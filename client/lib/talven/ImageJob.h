#pragma once

#include <functional>
#include <span>
#include <vector>

#include "talven/Alignment.h"
#include "talven/ServerJob.h"
#include "talven/ShiftSearch.h"

namespace talven
{

/// Maps and compares measured images on a server, one at a time, so that it needs the memory of
/// one.
class CImageJob : public CServerJob
{
public:
    using CServerJob::CServerJob;

    [[nodiscard]] bool Open(const ImageSize& rMeasured, const ImageSize& rAligned);

    /// The measured image on the aligned grid. Where it has no data, the pixels are missing.
    [[nodiscard]] bool Transform(std::span<const float> fMeasured, const Affine& rMap,
                                 const IntensityScale& rScale, std::vector<float>& rAligned);

    /// Takes two images to compare, both less the mean of the aligned one. Missing pixels become
    /// their image's mean: then they neither help nor harm the correlation much.
    [[nodiscard]] bool Load(std::span<const float> fMeasured, std::span<const float> fAligned,
                            const IntensityScale& rScale);
    /// What Load() took off both images.
    double GetOffset() const { return m_dOffset; }

    /// The map for a shift in the measured image.
    using ShiftedMap = std::function<Affine(double dX, double dY)>;
    /// Compares them at one map, or at the best of the shifts up to iRange pixels.
    /// \param strName  of the images, for the monitor and for errors
    /// \param iRange   0: no search
    /// \return false also when no shift leaves a quarter of the image to compare.
    [[nodiscard]] bool Compare(const std::string& strName, const ShiftedMap& rMap, int iRange,
                               ShiftMatch& rMatch);

private:
    bool mCompareAt(const Affine& rMap, CompareSums& rSums);

    ImageSize m_aAligned;
    IntensityScale m_aScale;  // less the offset
    double m_dOffset = 0;
};

}  // namespace talven
