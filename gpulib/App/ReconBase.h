#pragma once

#include <functional>
#include <span>

#include "gpulib/App/SetSize.h"
#include "gpulib/App/Textures.h"

class CTomoVolume;
class Util_Volume;

/// Base of the jobs that run over one band of Y rows on the device of the calling thread.
///
/// A job takes the rows in batches: those of one batch are loaded, worked on and stored together.
/// All inputs are borrowed until DoIt() has returned. A job is configured, run once and read.
class CReconBase
{
public:
    CReconBase() = default;
    virtual ~CReconBase() = default;
    CReconBase(const CReconBase&) = delete;
    CReconBase& operator=(const CReconBase&) = delete;

    /// \param pProjs   tilt series, shape [proj][y][x]
    /// \param fAngles  degrees, one per projection
    void SetProjs(Util_Volume* pProjs, std::span<const float> fAngles);
    void SetVolume(CTomoVolume* pTomoVol) { m_pTomoVol = pTomoVol; }
    /// Valid detector columns, (first, one past last), shape [proj][y][2].
    void SetRangeX(std::span<const unsigned int> uiRangeX) { m_uiRangeX = uiRangeX; }
    /// Centre (x, z) and half size (x, z) of the weight box, two floats each, or null.
    virtual void SetPreweightBox(const float* pfOrig, const float* pfDim);
    void SetIterations(unsigned int uiIterations) { m_uiIterations = uiIterations; }
    /// Sizes: see CSetSize.
    void SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize);
    /// Relaxation factors, shape [iteration][set]; empty: all 1.
    void SetRelax(std::span<const float> fRelax) { m_fRelax = fRelax; }
    /// The projections that take part, by raw number.
    void SetProjIndices(std::span<const unsigned int> uiIndices) { m_uiProjIndices = uiIndices; }

    /// Runs the job over rows iStartY, iStartY + 1, ... (iSizeY of them, may be 0).
    /// \return false with the reason noted (TakeDeviceError); the rows of the band are then partly
    ///         old, partly new
    [[nodiscard]] virtual bool DoIt(int iStartY, int iSizeY) = 0;

protected:
    /// Stores the band and checks every input against it.
    [[nodiscard]] bool mSetBand(int iStartY, int iSizeY);
    /// Sets the rows of a batch for a job that holds iProjImages images of projections.
    void mCalcBatch(int iProjImages);
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

    CTextures m_aTextures;
    CSetSize m_aSetSize;
    Util_Volume* m_pProjs = nullptr;
    std::span<const float> m_fAngles;
    CTomoVolume* m_pTomoVol = nullptr;
    std::span<const unsigned int> m_uiRangeX;
    const float* m_pfPrewOrig = nullptr;
    const float* m_pfPrewDim = nullptr;
    unsigned int m_uiNumSets = 1;
    std::span<const unsigned int> m_uiSetSize;
    unsigned int m_uiIterations = 1;
    std::span<const float> m_fRelax;
    std::span<const unsigned int> m_uiProjIndices;
    int m_iStartY = 0;
    int m_iSizeY = 0;
    int m_iBatch = 1;  // rows

private:
    [[nodiscard]] bool mCheckInputs() const;
};
