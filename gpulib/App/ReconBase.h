#pragma once

#include <functional>

#include "gpulib/App/Images/Textures.h"
#include "gpulib/App/Iteration/SetSize.h"
#include "gpulib/App/JobShape.h"

class Util_Volume;
struct JobShare;
struct ReconJob;

/// Base of the jobs that run over one band of Y rows on the device of the calling thread.
///
/// A job takes the rows in batches: those of one batch are loaded, worked on and stored together.
/// The description of the job is borrowed for the life of this object; it is run once and read.
class CReconBase
{
public:
    explicit CReconBase(const ReconJob& rJob) : m_rJob(rJob) {}
    virtual ~CReconBase() = default;
    CReconBase(const CReconBase&) = delete;
    CReconBase& operator=(const CReconBase&) = delete;

    /// Runs the rows of one worker.
    /// \return false with the reason noted (TakeDeviceError); the rows of the band are then partly
    ///         old, partly new
    [[nodiscard]] virtual bool DoIt(const JobShare& rShare) = 0;

protected:
    /// Stores the band and checks every input against it.
    [[nodiscard]] bool mSetBand(const JobShare& rShare);
    void mCalcBatch(EJobKind eKind);  ///< sets the rows of a batch
    /// Runs fCreate, which makes the images of a batch; when it fails, again for a batch of half as
    /// many rows, down to one: other programs may hold memory of the device.
    [[nodiscard]] bool mFitBatch(const std::function<bool()>& fCreate);
    [[nodiscard]] bool mCreateProjsTex(bool bOneImage);
    [[nodiscard]] bool mCreateAnglesTex();
    [[nodiscard]] bool mCreateVolumeTex();
    [[nodiscard]] bool mCreateRangeTex();
    [[nodiscard]] bool mCreateProjIndexTex();
    void mCalcSetSize();
    const int* mGetSetRange(int iSet) { return m_aSetSize.GetSetRange(iSet); }
    [[nodiscard]] bool mGenWeights(bool bSart);
    /// Makes the memory of the band's slices present before they are read.
    ///
    /// Samples that nobody has written share one page of zeros. A worker that reads them first and
    /// writes them later makes the system interrupt all other workers once per page.
    void mPopulateBand();
    /// Loads a batch of measured rows; iY counts from the first row of the stack.
    [[nodiscard]] bool mSetProjTex(int iY, int iRows);
    /// Loads a batch of slices likewise.
    [[nodiscard]] bool mSetVolTex(int iY, int iRows);
    /// Tells the device that the batch from row iY of the band on will be loaded next; nothing when
    /// there is none.
    void mPrefetchProjs(int iY) const;
    void mPrefetchVolume(int iY) const;
    Util_Volume& mGetVolume() const;
    int mGetVolX() const;
    int mGetVolZ() const;
    int mGetProjX() const;
    int mGetProjs() const;  // of the stack, selected or not

    const ReconJob& m_rJob;
    CTextures m_aTextures;
    CSetSize m_aSetSize;
    int m_iStartY = 0;
    int m_iSizeY = 0;
    int m_iBatch = 1;  // rows

private:
    [[nodiscard]] bool mCheckInputs() const;
};
