#pragma once

#include <span>
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
    /// \param rProjs    image i is view viViews[i] of the stack: its rows aSent, or the whole raw
    /// view
    ///                  where the plan aligns it
    /// \param rInitial  gives the rows aSent of the slices to start from; null: zeros
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
    /// Receives the rows aRows of the slices.
    [[nodiscard]] bool Download(const ImageSink& rSlices);

    /// After every iteration of the last run, as many as were run; none for a back projection.
    const std::vector<double>& GetRfactors() const { return m_vdRfactors; }
    /// The sums behind them, [iteration][view of the plan], over the rows aSent.
    const std::vector<std::vector<RfactorSums>>& GetSums() const { return m_aSums; }
    /// R-factor of every view of the plan after the last iteration of the last run, in the order of
    /// the plan's viViews: sum of |measured - reprojected| over sum of |measured|; NaN for a view
    /// of zeros. None for a back projection.
    const std::vector<double>& GetViewResiduals() const { return m_vdViewResiduals; }
    /// Voxels of the last download that would have fallen further in an unconstrained run.
    std::uint64_t GetCutVoxels() const { return m_aPlan.bUnconstrained ? m_ulCut : 0; }

private:
    /// Changes view i in place.
    using ViewChange = std::function<void(int i, std::span<float> fPixels)>;

    bool mSendPlan();
    bool mEmptyVolume();
    bool mUploadVolume(const ImageSource& rInitial);
    bool mRunPiece(int iFirst, int iCount);
    void mNoteSums(std::span<const RfactorSums> aSums);
    bool mRunPieces(const Checkpoint& rCheckpoint);
    bool mIsEnough() const;
    bool mUploadViews(const ImageSource& rViews);
    bool mSendAligned(const ImageSource& rViews);
    bool mAlignRows(const ImageSource& rViews);
    int mCountRawRows(const Affine& rMap) const;
    bool mFilterViews();
    bool mProjectOnes();
    bool mLiftViews(const ImageSource& rInitial);
    bool mChangeViews(const char* pcPhase, const ViewChange& Change);

    ReconPlan m_aPlan;
    float m_fLift = 0;                // added to projections or the volume, taken off at the end
    std::vector<float> m_vfOnes;      // projections of a row of ones, [proj][x]
    std::vector<float> m_vfMeasured;  // sum of |measured| of every projection before it was lifted
    std::uint64_t m_ulCut = 0;
    std::vector<float> m_vfAligned;  // rows aSent of the aligned views, [proj][y][x]
    std::vector<std::vector<RfactorSums>> m_aSums;
    std::vector<double> m_vdRfactors, m_vdViewResiduals;
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
