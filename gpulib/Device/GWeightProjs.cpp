#include "gpulib/Device/GWeightProjs.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DriverChecks.h"

void GWeightProjs::SetProjSize(int iProjX)
{
    m_iProjX = iProjX;
}

void GWeightProjs::SetSetRange(int iStart, int iEnd)
{
    m_iFirst = iStart;
    m_iEnd = iEnd;
}

bool GWeightProjs::NoWeightRef(const DeviceImage& rOut)
{
    return mLaunch(EWeight::eCopy, rOut, m_aRawProjs, DeviceImage());
}

bool GWeightProjs::WeightRef(const DeviceImage& rOut)
{
    return mLaunch(EWeight::eRef, rOut, m_aRawProjs, m_aPreWeight);
}

bool GWeightProjs::WeightRecon(const DeviceImage& rOut)
{
    return mLaunch(EWeight::eRecon, rOut, m_aProjs, m_aProjWeight);
}

bool GWeightProjs::WeightProjs(const DeviceImage& rOut)
{
    return mLaunch(EWeight::eReproj, rOut, m_aProjs, m_aPreWeight);
}

bool GWeightProjs::mLaunch(EWeight eOperation, const DeviceImage& rOut, const DeviceImage& rIn,
                           const DeviceImage& rWeight)
{
    constexpr const char* pcName = "Weight";
    if (m_iEnd <= m_iFirst) return true;
    WeightParams aP;
    aP.aOut = rOut;
    aP.aIn = rIn;
    aP.aWeight = rWeight;
    aP.aProjIndex = m_aIndex;
    aP.eOperation = eOperation;
    aP.iProjX = m_iProjX;
    aP.iFirst = m_iFirst;
    aP.iEnd = m_iEnd;

    // Rows by position must exist; rows by raw number are checked against the list when it is read.
    const bool bByNumber = eOperation == EWeight::eRecon || eOperation == EWeight::eReproj;
    const int iRows = bByNumber ? rOut.iHeight : m_iEnd;
    if (m_iFirst < 0 || (bByNumber && !CheckRange(pcName, m_aIndex, m_iFirst, m_iEnd)) ||
        !CheckImage(pcName, "result", rOut, m_iProjX, iRows) ||
        !CheckImage(pcName, "rows", rIn, m_iProjX, iRows) || !CheckSameBatch(pcName, rIn, rOut) ||
        (eOperation != EWeight::eCopy && !CheckImage(pcName, "weights", rWeight, m_iProjX, iRows)))
        return false;
    return GetBackend()->Weight(aP);
}
