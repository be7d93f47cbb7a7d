#include "gpulib/Device/GBackProj.h"

#include "gpulib/Device/Backend.h"

bool GBackProj::mLaunch(EUpdate eUpdate, SetRange aSet, float fRelax, int iY, int iRows,
                        SetRange aNext) const
{
    return GetBackend()->BackForward(
        {.aVol = m_aImages.aVol,
         .aProjs = m_aImages.aProjs,
         .aCosSin = m_aImages.aCosSin,
         .aProjIndex = m_aImages.aProjIndex,
         .aRangeX = m_aImages.aRangeX,
         .eUpdate = eUpdate,
         .fRelax = fRelax,
         .iVolX = m_aImages.iVolX,
         .iVolZ = m_aImages.iVolZ,
         .iProjX = m_aImages.iProjX,
         .iFirst = aSet.iFirst,
         .iEnd = aSet.iEnd,
         .iY = iY,
         .iRows = iRows},
        mForwardParams(aNext, eUpdate == EUpdate::eSart ? ECombine::eDiff : ECombine::eDiv));
}
