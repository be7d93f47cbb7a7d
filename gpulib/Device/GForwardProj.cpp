#include "gpulib/Device/GForwardProj.h"

#include "gpulib/Device/Backend.h"

bool GForwardProj::DoIt(SetRange aSet, ECombine eOperation) const
{
    return GetBackend()->ForwardProject(mForwardParams(aSet, eOperation));
}

bool GForwardProj::Combine(SetRange aSet, ECombine eOperation) const
{
    return GetBackend()->Combine({.aSums = m_aImages.aSums,
                                  .aProjIndex = m_aImages.aProjIndex,
                                  .iProjX = m_aImages.iProjX,
                                  .iFirst = aSet.iFirst,
                                  .iEnd = aSet.iEnd,
                                  .aRule = mRule(eOperation)});
}
