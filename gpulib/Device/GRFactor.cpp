#include "gpulib/Device/GRFactor.h"

#include "gpulib/Device/Backend.h"

bool GRFactor::mLaunch(const DeviceImage& rMinus, const DeviceImage& rAccum, int iIter,
                       int iRows) const
{
    return GetBackend()->SumAbs({.aSource = m_aImages.aRawProjs,
                                 .aWeight = m_aImages.aPreWeight,
                                 .aMinus = rMinus,
                                 .aAccum = rAccum,
                                 .aProjIndex = m_aImages.aProjIndex,
                                 .iProjX = m_aImages.iProjX,
                                 .iProjs = m_aImages.aProjIndex.iWidth,
                                 .iIter = iIter,
                                 .iRows = iRows});
}
