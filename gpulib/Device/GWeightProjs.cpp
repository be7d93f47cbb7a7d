#include "gpulib/Device/GWeightProjs.h"

#include "gpulib/Device/Backend.h"

bool GWeightProjs::NoWeightRef(SetRange aRows) const
{
    return mLaunch(EWeight::eCopy, aRows, m_aImages.aProjs, m_aImages.aRawProjs, {});
}

bool GWeightProjs::WeightRef(SetRange aRows) const
{
    const DeviceImage& rRaw = m_aImages.aRawProjs;
    return mLaunch(EWeight::eRef, aRows, rRaw, rRaw, m_aImages.aPreWeight);
}

bool GWeightProjs::WeightRecon(SetRange aSet) const
{
    const DeviceImage& rProjs = m_aImages.aProjs;
    return mLaunch(EWeight::eRecon, aSet, rProjs, rProjs, m_aImages.aProjWeight);
}

bool GWeightProjs::WeightProjs(SetRange aSet) const
{
    const DeviceImage& rSums = m_aImages.aSums;
    return mLaunch(EWeight::eReproj, aSet, rSums, rSums, m_aImages.aPreWeight);
}

bool GWeightProjs::mLaunch(EWeight eOperation, SetRange aRows, const DeviceImage& rOut,
                           const DeviceImage& rIn, const DeviceImage& rWeight) const
{
    return GetBackend()->Weight({.aOut = rOut,
                                 .aIn = rIn,
                                 .aWeight = rWeight,
                                 .aProjIndex = m_aImages.aProjIndex,
                                 .eOperation = eOperation,
                                 .iProjX = m_aImages.iProjX,
                                 .iFirst = aRows.iFirst,
                                 .iEnd = aRows.iEnd});
}
