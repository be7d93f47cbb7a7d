#pragma once

#include <span>
#include <vector>

#include "gpulib/App/Iteration/RfactorImpl.h"
#include "gpulib/App/Project/BackProjImpl.h"

class CDiffProjImpl;
class CSetSize;
class Util_Volume;
struct CTextures;

/// Base of the workers that run the sets and iterations of a method on one batch of rows.
class CReconImpl
{
public:
    virtual ~CReconImpl() = default;

    /// \param iProjX     detector columns
    /// \param iProjs     projections of the stack
    /// \param uiIndices  the list that is on the device too
    void SetProjs(int iProjX, int iProjs, std::span<const unsigned int> uiIndices);
    void SetVolSize(int iVolX, int iVolZ);
    void SetIterations(unsigned int uiIterations) { m_uiIters = uiIterations; }
    void SetRelax(std::span<const float> fRelax) { m_fRelax = fRelax; }
    void SetTextures(CTextures* pTextures) { m_pTextures = pTextures; }
    void SetSetSize(CSetSize* pSetSize) { m_pSetSize = pSetSize; }

    /// Passes all of the above on and allocates what a batch of iLanes rows needs.
    [[nodiscard]] bool Configure(int iLanes);
    /// Tells that a batch was loaded.
    /// \param iY     first row of the batch within the band
    /// \param bZero  its slices are 0 everywhere
    [[nodiscard]] bool SetBatch(int iY, int iRows, bool bZero);
    /// Runs iterations [uiFirst, uiEnd) on the batch.
    [[nodiscard]] bool DoIt(unsigned int uiFirst, unsigned int uiEnd);
    /// Stores the batch in the volume, see CBackProjImpl; iStartY is the first row of the band.
    [[nodiscard]] bool StartToHost(int iStartY, Util_Volume& rVolume) const;
    /// See CRfactorImpl.
    [[nodiscard]] bool GetRfactor(std::vector<double>& rRfactor) const;
    void FreeMemory();

protected:
    virtual CDiffProjImpl& mGetDifProj() = 0;
    [[nodiscard]] virtual bool mDoIteration(unsigned int uiIter) = 0;

    [[nodiscard]] bool mDoSartRecon(unsigned int uiIter);
    [[nodiscard]] bool mCalcRfactor(unsigned int uiIter);
    float mCalcRelax(unsigned int uiIter, unsigned int uiSet) const;

    CBackProjImpl m_aBackProjImpl;
    CSetSize* m_pSetSize = nullptr;
    int m_iY = 0;  // the batch at work
    int m_iRows = 0;

private:
    CRfactorImpl m_aRfactorImpl;
    CTextures* m_pTextures = nullptr;
    unsigned int m_uiIters = 0;
    int m_iProjX = 0;
    int m_iProjs = 0;
    int m_iVolX = 0;
    int m_iVolZ = 0;
    std::span<const unsigned int> m_uiIndices;
    std::span<const float> m_fRelax;
};
