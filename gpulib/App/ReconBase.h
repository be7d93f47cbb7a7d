#pragma once

#include <functional>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/Images/Textures.h"
#include "gpulib/App/Job.h"
#include "gpulib/App/JobShape.h"
#include "gpulib/Device/RunImages.h"

/// Base of the jobs that run over one band of Y rows on the device of the calling thread.
///
/// A job takes the rows in batches: those of one batch are loaded, worked on and stored together.
/// Rows of the band are counted from its first. The description of the job is borrowed for the life
/// of this object, which is run once and read.
class CReconBase
{
public:
    virtual ~CReconBase() = default;
    CReconBase(const CReconBase&) = delete;
    CReconBase& operator=(const CReconBase&) = delete;

    /// Runs the rows of one worker.
    /// \return false with the reason noted (TakeDeviceError); the rows of the band are then partly
    ///         old, partly new, and those of the batch at work may be 0
    [[nodiscard]] bool DoIt(const JobShare& rShare);

protected:
    CReconBase(const ReconJob& rJob, EJobKind eKind) : m_rJob(rJob), m_eKind(eKind) {}

    /// Makes the images of a batch of as many rows of the band as fit; not for an empty band.
    [[nodiscard]] virtual bool mPrepare();
    [[nodiscard]] virtual bool mRun() = 0;

    virtual void mSetImages(const RunImages& rImages) = 0;
    /// Tells the images of the batch to come, which are made and loaded.
    void mTellImages();
    /// Makes the images fit a batch of iRows rows.
    [[nodiscard]] bool mFit(int iRows);
    /// Loads one batch of measured rows and slices after the other, runs fWork on it and stores the
    /// slices. While the device works on one batch, the one before goes back and the next one
    /// comes. fWork is told whether the slices are 0 everywhere.
    [[nodiscard]] bool mForEachBatch(
        const std::function<bool(int iY, int iRows, bool bZero)>& fWork);
    /// Rows of the batch that begins at row iY of the band, 0 past its end.
    int mRowsFrom(int iY) const;
    [[nodiscard]] bool mSetVolTex(int iY, int iRows);
    /// Tells the device that the batch from row iY on of the stack or the volume will be loaded
    /// next; nothing when there is none.
    void mPrefetch(const Util_Volume& rImages, int iY) const;

    /// The whole index list.
    SetRange mGetFullRange() const { return {0, static_cast<int>(m_rJob.uiProjIndex.size())}; }
    Util_Volume& mGetVolume() const { return *m_rJob.pTomoVol->GetVolume(); }

    const ReconJob& m_rJob;
    JobShare m_aShare;
    int m_iBatch = 1;  // rows

private:
    [[nodiscard]] bool mCheckInputs() const;
    [[nodiscard]] bool mCreateTables();
    [[nodiscard]] bool mCreateBatch(int iRows);
    void mFreeRows();
    [[nodiscard]] bool mCreateAnglesTex();
    [[nodiscard]] bool mCreateRangeTex();
    [[nodiscard]] bool mGenWeights();
    [[nodiscard]] bool mSetProjTex(int iY, int iRows);
    [[nodiscard]] bool mMoveVolume(int iY, int iRows, bool& rZero);
    int mGetVolX() const { return mGetVolume().GetSizeX(); }
    int mGetVolZ() const { return mGetVolume().GetSizeZ(); }
    int mGetProjX() const { return m_rJob.pProjs->GetSizeX(); }
    int mGetProjs() const { return m_rJob.pProjs->GetSizeZ(); }  // of the stack, selected or not

    const EJobKind m_eKind;
    bool m_bZero = false;  // the rows of the band are as yet memory that is not there
    CTextures m_aTextures;
    int m_iImageRows = 0;  // that the images were made for
};
