#pragma once

#include <array>
#include <optional>
#include <span>
#include <vector>

#include "gpulib/App/Job.h"

/// Base of the job drivers: completes the inputs of one worker and drives a library object with
/// them. Inputs are borrowed until DoIt() has returned, the weight box is copied.
class CDoReconBase
{
public:
    virtual ~CDoReconBase() = default;
    CDoReconBase(const CDoReconBase&) = delete;
    CDoReconBase& operator=(const CDoReconBase&) = delete;

    /// \param pProjs   tilt series, shape [proj][y][x]
    /// \param fAngles  degrees, one per projection
    void SetProjs(Util_Volume* pProjs, std::span<const float> fAngles);
    /// The projections to use; empty: all.
    void SetProjIndices(std::span<const unsigned int> uiIndices) { m_uiProjIndex = uiIndices; }
    /// Valid columns, shape [proj][y][2].
    void SetRangeX(std::span<const unsigned int> uiRangeX) { m_uiRangeX = uiRangeX; }
    void SetVolume(CTomoVolume* pTomoVol) { m_pTomoVol = pTomoVol; }
    /// Centre and half size of the weight box, two floats each (X, Z); null: none.
    void SetWeightBox(const float* pfOrig, const float* pfDim);

    /// Runs the job over the band of iSizeY rows from iStartY.
    /// \return false with the reason noted (TakeDeviceError)
    [[nodiscard]] virtual bool DoIt(int iStartY, int iSizeY) = 0;

protected:
    CDoReconBase() = default;
    void mValidateProjIndices();
    void mValidateWeightBox();
    void mConfigure();  ///< describes the inputs that all jobs have in m_aJob

    ReconJob m_aJob;
    Util_Volume* m_pProjs = nullptr;
    std::span<const float> m_fAngles;
    CTomoVolume* m_pTomoVol = nullptr;
    std::span<const unsigned int> m_uiRangeX;
    std::span<const unsigned int> m_uiProjIndex;
    std::optional<std::array<float, 2>> m_afOrig;
    std::optional<std::array<float, 2>> m_afDim;

private:
    std::vector<unsigned int> m_vuiAllProjs;
};
