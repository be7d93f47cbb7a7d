#include "gpulib/App/Project/BackProj.h"

void CBackProj::mSetImages(const RunImages& rImages)
{
    m_aBackProjImpl.SetImages(rImages);
    m_aWeightImpl.Configure(rImages, m_rJob.uiProjIndex);
}

bool CBackProj::mRun()
{
    const SetRange aAll = mGetFullRange();
    return mForEachBatch(
        [&](int iY, int iRows, bool)
        {
            // Measured and working rows share one image: what is loaded is what is back projected.
            m_aBackProjImpl.SetBatch(iY, iRows);
            return (!m_rJob.aBox ||
                    (m_aWeightImpl.WeightRef() && m_aWeightImpl.WeightRecon(aAll))) &&
                   m_aBackProjImpl.DoIt(aAll, 1.0f);
        });
}
