#include "gpulib/Device/GRFactor.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/DriverChecks.h"

void GRFactor::SetProjSize(int iProjX, int iProjs)
{
    m_iProjX = iProjX;
    m_iProjs = iProjs;
}

bool GRFactor::DoRaw(const DeviceImage& rAccum, int iRows)
{
    return mLaunch(m_aRawProjs, rAccum, 0, iRows);
}

bool GRFactor::DoDif(const DeviceImage& rAccum, int iIter, int iRows)
{
    return mLaunch(m_aProjs, rAccum, iIter, iRows);
}

bool GRFactor::mLaunch(const DeviceImage& rSource, const DeviceImage& rAccum, int iIter, int iRows)
{
    constexpr const char* pcName = "SumAbs";
    if (m_iProjs <= 0 || iRows <= 0) return true;
    SumAbsParams aP;
    aP.aSource = rSource;
    aP.aAccum = rAccum;
    aP.aProjIndex = m_aIndex;
    aP.iProjX = m_iProjX;
    aP.iProjs = m_iProjs;
    aP.iIter = iIter;
    aP.iRows = iRows;
    if (m_iProjX <= 0 || iIter < 0 || iRows > rSource.iLanes)
        return DeviceFail("%s: %d columns, iteration %d, %d rows of %d", pcName, m_iProjX, iIter,
                          iRows, rSource.iLanes);
    if (!CheckRange(pcName, m_aIndex, 0, m_iProjs) ||
        !CheckImage(pcName, "rows", rSource, m_iProjX, 1) ||
        !CheckImage(pcName, "accumulators", rAccum, m_iProjs, iIter + 1, 1, 8))
        return false;
    return GetBackend()->SumAbs(aP);
}
