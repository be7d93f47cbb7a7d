#pragma once

#include <vector>

#include "talven/ReconPlan.h"
#include "talven/ServerJob.h"

namespace talven
{

/// One reconstruction on a server that is connected, step by step.
class CReconstruction : public CServerJob
{
public:
    using CServerJob::CServerJob;

    /// Sends the plan and the images.
    /// \param rProjs    gives the plan's views, raw ones where it aligns them: image i is view
    ///                  viViews[i] of the stack
    /// \param rInitial  gives the slices of the volume to start from; null: zeros
    [[nodiscard]] bool Upload(const ReconPlan& rPlan, const ImageSource& rProjs,
                              const ImageSource& rInitial = nullptr);
    /// Makes ready for another plan on the same stack, from an empty volume or another one.
    [[nodiscard]] bool Restart(const ReconPlan& rPlan, const ImageSource& rInitial = nullptr);

    /// Called at checkpoints with the iterations done; false ends the run, rError says why.
    using Checkpoint = std::function<bool(int iIterations, std::string& rError)>;

    /// Runs the iterations and fetches their R-factors. The volume stays on the server: another run
    /// goes on from it. SART runs in pieces of a few seconds, with the same result; it may end
    /// early, at the monitor's or the plan's wish, and keeps what it has then.
    [[nodiscard]] bool Run(const Checkpoint& rCheckpoint = nullptr);
    /// Receives the slices.
    [[nodiscard]] bool Download(const ImageSink& rSlices);

    /// After every iteration of the last run, as many as were run; none for a back projection.
    const std::vector<double>& GetRfactors() const { return m_vdRfactors; }
    /// Voxels of the last download that would have fallen further in an unconstrained run.
    std::uint64_t GetCutVoxels() const { return m_aPlan.bUnconstrained ? m_ulCut : 0; }

private:
    /// Changes view i in place.
    using ViewChange = std::function<void(int i, std::span<float> fPixels)>;

    bool mSendPlan();
    bool mEmptyVolume();
    bool mUploadVolume(const ImageSource& rInitial);
    bool mRunPiece(int iFirst, int iCount);
    bool mRunPieces(const Checkpoint& rCheckpoint);
    bool mIsEnough() const;
    bool mUploadViews(const ImageSource& rViews);
    bool mSendAligned(const ImageSource& rViews);
    bool mFilterViews();
    bool mProjectOnes();
    bool mLiftViews(const ImageSource& rInitial);
    bool mChangeViews(const char* pcPhase, const ViewChange& Change);

    ReconPlan m_aPlan;
    float m_fLift = 0;                // added to projections or the volume, taken off at the end
    std::vector<float> m_vfOnes;      // projections of a row of ones, [proj][x]
    std::vector<float> m_vfMeasured;  // sum of |measured| of every projection before it was lifted
    std::uint64_t m_ulCut = 0;
    std::vector<double> m_vdRfactors;
};

/// Projections of a volume, all in one call.
class CReprojection : public CServerJob
{
public:
    using CServerJob::CServerJob;

    /// \param rSize    of the job; projections: one for each angle
    /// \param fAngles  degrees
    [[nodiscard]] bool Run(const JobSize& rSize, std::span<const float> fAngles,
                           const ImageSource& rSlices, const ImageSink& rProjs);
};

}  // namespace talven
