#include "gpulib/App/Project/BackProj.h"

bool CBackProj::mRun()
{
    m_aBackProjImpl.SetImages(mGetImages());
    m_aWeightImpl.Configure(mGetImages(), m_rJob.uiProjIndex);
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
