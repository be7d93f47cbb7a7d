#include "gpulib/Device/GForwardProj.h"

#include "gpulib/Device/Backend.h"

bool GForwardProj::DoIt(SetRange aSet) const
{
    return GetBackend()->ForwardProject(mForwardParams(aSet));
}

bool GForwardProj::mCombine(ECombine eOperation, SetRange aSet) const
{
    return GetBackend()->Combine({.aOut = m_aImages.aProjs,
                                  .aRaw = m_aImages.aRawProjs,
                                  .aWeight = m_aImages.aPreWeight,
                                  .aSums = m_aImages.aSums,
                                  .aProjIndex = m_aImages.aProjIndex,
                                  .eOperation = eOperation,
                                  .iProjX = m_aImages.iProjX,
                                  .iFirst = aSet.iFirst,
                                  .iEnd = aSet.iEnd});
}
