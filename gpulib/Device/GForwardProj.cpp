#include "gpulib/Device/GForwardProj.h"

#include "gpulib/Device/Backend.h"

bool GForwardProj::DoIt(SetRange aSet) const
{
    return GetBackend()->ForwardProject({.aSums = m_aImages.aSums,
                                         .aVol = m_aImages.aVol,
                                         .aCosSin = m_aImages.aCosSin,
                                         .aProjIndex = m_aImages.aProjIndex,
                                         .iVolX = m_aImages.iVolX,
                                         .iVolZ = m_aImages.iVolZ,
                                         .iProjX = m_aImages.iProjX,
                                         .iFirst = aSet.iFirst,
                                         .iEnd = aSet.iEnd});
}

bool GForwardProj::mCombine(ECombine eOperation, SetRange aSet) const
{
    return GetBackend()->Combine({.aOut = m_aImages.aProjs,
                                  .aRaw = m_aImages.aRawProjs,
                                  .aSums = m_aImages.aSums,
                                  .aProjIndex = m_aImages.aProjIndex,
                                  .eOperation = eOperation,
                                  .iProjX = m_aImages.iProjX,
                                  .iFirst = aSet.iFirst,
                                  .iEnd = aSet.iEnd});
}
