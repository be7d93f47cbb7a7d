#pragma once

#include <optional>
#include <span>
#include <vector>

#include "talven/ImageMatch.h"
#include "talven/ServerJob.h"
#include "talven/ViewPlace.h"

namespace talven
{

/// How views are compared with what a volume of them looks like.
struct MatchRequest
{
    ImageSize aViews;                  ///< as measured
    double dTiltAxis = 0;              ///< about, see AlignRequest
    int iThickness = 0;                ///< of the volume, voxels
    double dWidth = 2.2;               ///< of the volume, widths of the aligned views
    bool bIsolated = false;            ///< the specimen ends within the volume and the views
    int iIterations = 12;              ///< of SART
    double dRelaxation = 0.5;          ///< of SART
    double dLow = 0.001, dHigh = 0.3;  ///< what is compared, cycles per pixel
    double dTaper = 0.1;               ///< of the edges of the images, share of their extent
};

/// Compares the views of a tilt series with the reprojections of a volume that the server makes of
/// them: projection matching (Dengler, Ultramicroscopy 30, 1989; Owen & Landis, Ultramicroscopy 63,
/// 1996). What the volume shows at another place than the view is how far that view is off.
///
/// The volume is wider than the views, and pixels whose rays leave it through its sides count as
/// missing: what lies beside the field of view would otherwise be drawn into it, and pull the views
/// with it. Beside an isolated specimen there is nothing; without those pixels little is left of
/// its steep views, and they drift.
class CProjectionMatcher : public CServerJob
{
public:
    using CServerJob::CServerJob;

    /// Sends the views. \param fAngles  degrees \param fViews  [view][y][x]; no longer needed then
    [[nodiscard]] bool Open(const MatchRequest& rRequest, std::span<const float> fAngles,
                            std::span<const float> fViews);
    /// Resamples all views from the measured ones.
    /// \param dLevels  what each gets on top
    [[nodiscard]] bool Align(const ViewPlaces& rPlaces, std::span<const double> dLevels);
    /// Makes a volume of some of the aligned views, and finds how far others are off.
    /// \param iUsed     of which views the volume is made
    /// \param iMatched  which views are compared with it
    /// \param iLimits   how far each view may be off, pixels
    /// \param aMatches  of all views; receives those of iMatched, across and along the tilt axis
    [[nodiscard]] bool Match(std::span<const int> iUsed, std::span<const int> iMatched,
                             std::span<const int> iLimits, std::span<ImageMatch> aMatches);

    /// Whether only the ellipse within the views counts; its edge is soft.
    void SetRound(bool bRound);

private:
    bool mSend(int iView);
    void mCutRays(int iView);
    bool mReconstruct(std::span<const int> iUsed);
    std::span<float> mGetAligned(int iView)
    {
        const std::size_t tPixels = m_aAligned.GetPixels();
        return std::span(m_vfAligned).subspan(std::size_t(iView) * tPixels, tPixels);
    }

    MatchRequest m_aRequest;
    ImageSize m_aAligned;
    int m_iWidth = 0;  // of the volume, voxels
    std::vector<float> m_vfAngles;
    std::vector<float> m_vfAligned;  // [view][y][x]
    std::vector<float> m_vfWindow;   // what all of them count with, [y][x]
    std::optional<CImageMatcher> m_aMatcher;
};

}  // namespace talven
