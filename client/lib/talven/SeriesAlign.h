#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "talven/Anderson.h"
#include "talven/AxisCurve.h"
#include "talven/ProjectionMatch.h"
#include "talven/ServerJob.h"
#include "talven/ViewPlace.h"

namespace talven
{

/// What is known of the tilt axis before.
enum class EAxis
{
    eAbout,   ///< within some degrees
    eGiven,   ///< as it is given
    eUnknown  ///< nothing; half a turn makes no difference that views could tell
};

/// How a raw tilt series is aligned; the members have their defaults.
struct SeriesAlignRequest
{
    EAxis eAxis = EAxis::eAbout;
    double dTiltAxis = 0;          ///< see AlignRequest
    int iThickness = 0;            ///< of the specimen, about, raw pixels
    std::vector<int> viBins = {};  ///< see ChooseBins(), which is asked when this is empty
    double dLimit = 80;            ///< farthest that a view may have moved, raw pixels
    bool bIsolated = false;        ///< all views hold the whole specimen across the axis
    bool bDark = false;            ///< the specimen is darker than what is around it
};

/// Raw pixels along each edge of the blocks that are compared, one after the other: 4 and 2, or 2
/// and 1, or 1 for small views.
std::vector<int> ChooseBins(const ImageSize& rRaw);
/// What is wrong with a request for views of this size and angles.
[[nodiscard]] bool CheckSeriesAlign(const SeriesAlignRequest& rRequest, const ImageSize& rRaw,
                                    std::span<const float> fAngles, std::string& rError);

/// What is known of an aligned view.
struct AlignedView
{
    bool bLeftOut = false;   ///< it does not look like the volume of the others
    ImageMatch aMatch = {};  ///< with a volume made without it, at its place
};

/// What one round of matching all views did.
struct AlignRound
{
    int iBin;
    double dMoved;        ///< root mean square, raw pixels
    double dCorrelation;  ///< mean
    bool bTrial = false;  ///< of a tilt axis; the views went back to where they were
};

struct SeriesAlignment
{
    ViewPlaces aPlaces;               ///< in the raw views
    std::vector<AlignedView> aViews;  ///< of all views
    AxisCurve aAxis;                  ///< of what was tried; empty: nothing was
    std::vector<AlignRound> aRounds;
    double dCorrelation = 0;  ///< median of the views with volumes made without them
    double dWanted = 0;       ///< root mean square of what those would still move, raw pixels
    std::vector<std::string> astrWarnings;

    /// Views from 0, ascending.
    std::vector<int> ListLeftOut() const;
};

/// Aligns a raw tilt series without markers, on a server that is connected: coarsely by neighbours,
/// then in rounds of projection matching with ever smaller pixels. Joint alignment and
/// reconstruction so converges slowly by itself (Yang, Ng & Penczek, J. Struct. Biol. 149, 2005);
/// CAnderson speeds it up. The tilt axis is the one with which views and volume differ least. Last,
/// each view is compared with volumes made without it: only that tells a specimen from noise.
class CSeriesAligner : public CServerJob
{
public:
    using CServerJob::CServerJob;

    /// \param rRequest  must have passed CheckSeriesAlign()
    /// \param rRaw      size of the raw views
    /// \param fAngles   of all views, degrees
    /// \param rViews    gives the raw views, several times
    /// \return false also when the series cannot be aligned: GetError() says why, and rAlignment
    /// has
    ///         what was found
    [[nodiscard]] bool Run(const SeriesAlignRequest& rRequest, const ImageSize& rRaw,
                           std::span<const float> fAngles, const ImageSource& rViews,
                           SeriesAlignment& rAlignment);

private:
    /// How rounds go on.
    struct Rounds
    {
        int iCount;
        int iPlain;    ///< of them without acceleration, and with iLimit
        int iLimit;    ///< pixels of the bin
        double dStop;  ///< raw pixels moved that end them
    };

    ImageSize mGetBinned() const { return {m_aRaw.iX / m_iBin, m_aRaw.iY / m_iBin}; }
    bool mAlignAt(int iBin, bool bFirst);
    bool mReadViews(std::vector<float>& rViews);
    bool mStart(std::span<const float> fViews);
    bool mAlignCoarsely(std::span<const float> fViews, double& rScore);
    bool mSearchAxis(std::span<const float> fViews);
    void mCentreMasses(std::span<const float> fViews);
    bool mOpenMatcher(std::span<const float> fViews);

    bool mRunRounds(const Rounds& rRounds, CPhase* pPhase = nullptr);
    bool mMatchAll(int iLimit);
    bool mMatchFolds(int iFolds, std::span<const int> iLimits);
    void mAccelerate(CAnderson& rAcross, CAnderson& rAlong);
    void mTakeBack();
    bool mFindAxis();
    bool mTryAxis(double dAngle);

    bool mHoldOut();
    bool mStandsOut(int iView) const;
    bool mLeaveOut();
    bool mJudge();
    void mWarn();

    SeriesAlignRequest m_aRequest;
    ImageSize m_aRaw;
    std::span<const float> m_fAngles;
    std::vector<int> m_viByAngle;  // all views
    const ImageSource* m_pViews = nullptr;
    SeriesAlignment* m_pAlignment = nullptr;

    int m_iBin = 1;
    ViewPlaces m_aPlaces;  // in views of this bin
    std::unique_ptr<CProjectionMatcher> m_pMatcher;
    std::vector<int> m_viUsed;                  // views of which volumes are made, ascending
    std::vector<ImageMatch> m_aMatches;         // of all views, at their last places
    std::vector<double> m_vdAcross, m_vdAlong;  // by which all views shall move, pixels
    std::vector<double> m_vdLevels;             // what all views get on top
    bool m_bBeyond = false;                     // the specimen reaches beyond the views
    bool m_bAxisDone = false;
};

}  // namespace talven
