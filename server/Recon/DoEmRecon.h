#pragma once

#include <memory>
#include <span>
#include <vector>

#include "gpulib/App/Iteration/TomoEm.h"
#include "server/Recon/DoReconBase.h"

/// Reconstruction by EM; base of the one by SART, which differs in the library object alone.
class CDoEmRecon : public CDoReconBase
{
public:
    void SetIterations(unsigned int uiIterations) { m_uiIterations = uiIterations; }
    /// \param uiSetSize  sizes of the subsets; empty: one subset
    void SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize);
    /// Relaxation factors, shape [iteration][subset]; empty: all 1.
    void SetRelax(std::span<const float> fRelax) { m_fRelax = fRelax; }
    /// Smooths the volume after every uiInterval iterations (0: never), see CTomoRecon.
    /// \param pKernel      borrowed until DoIt() has returned; null: the workers only meet
    /// \param iNumDevices  workers of the job; this one is iThreadID, on device iDeviceID
    void SetSmooth(const Util_Volume* pKernel, unsigned int uiInterval, int iNumDevices,
                   int iDeviceID, int iThreadID);

    [[nodiscard]] bool DoIt(int iStartY, int iSizeY) override;
    /// Hands over the R-factor sums of the band, shape [iteration][list position][2].
    std::vector<double> GetRfactor() { return m_pTomoRecon->GetRfactor(); }

private:
    virtual std::unique_ptr<CTomoRecon> mMakeTomoRecon() const
    {
        return std::make_unique<CTomoEm>(m_aJob);
    }
    void mValidateSets();

    std::unique_ptr<CTomoRecon> m_pTomoRecon;
    JobShare m_aShare;
    const Util_Volume* m_pKernel = nullptr;
    unsigned int m_uiIterations = 1;
    unsigned int m_uiSets = 0;
    std::span<const unsigned int> m_uiSetSize;
    std::span<const float> m_fRelax;
    unsigned int m_uiInterval = 0;
    unsigned int m_uiOneSet = 0;
};
