#include "gpulib/Device/GBackProj.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/DriverChecks.h"

void GBackProj::SetVolSize(int iVolX, int iVolZ)
{
    m_aParams.iVolX = iVolX;
    m_aParams.iVolZ = iVolZ;
}

void GBackProj::SetProjSize(int iProjX)
{
    m_aParams.iProjX = iProjX;
}

void GBackProj::SetSetRange(int iStart, int iEnd)
{
    m_aParams.iFirst = iStart;
    m_aParams.iEnd = iEnd;
}

void GBackProj::SetRelax(float fRelax)
{
    m_aParams.fRelax = fRelax;
}

bool GBackProj::DoIt(int iY, int iRows)
{
    return mLaunch(EUpdate::eSart, iY, iRows);
}

bool GBackProj::DoItEm(int iY, int iRows)
{
    return mLaunch(EUpdate::eEm, iY, iRows);
}

bool GBackProj::mLaunch(EUpdate eUpdate, int iY, int iRows)
{
    constexpr const char* pcName = "BackProject";
    BackParams& rP = m_aParams;
    rP.eUpdate = eUpdate;
    rP.iY = iY;
    rP.iRows = iRows;
    if (iRows <= 0) return true;
    if (rP.iEnd < rP.iFirst) rP.iEnd = rP.iFirst;
    if (!CheckExtents(pcName, rP.iVolX, rP.iVolZ, rP.iProjX) ||
        !CheckRange(pcName, rP.aProjIndex, rP.iFirst, rP.iEnd) ||
        !CheckImage(pcName, "slice", rP.aVol, rP.iVolX + 2, rP.iVolZ + 2) ||
        !CheckImage(pcName, "working rows", rP.aProjs, rP.iProjX, 1) ||
        !CheckImage(pcName, "angles", rP.aCosSin, rP.aProjs.iHeight, 1, 2) ||
        !CheckImage(pcName, "ranges", rP.aRangeX, 1, rP.aProjs.iHeight, 2))
        return false;
    if (rP.aVol.iLanes != rP.aProjs.iLanes)
        return DeviceFail("%s: slices of %d rows, projections of %d", pcName, rP.aVol.iLanes,
                          rP.aProjs.iLanes);
    if (iRows > rP.aVol.iLanes || iY < 0 || iY > rP.aRangeX.iWidth - iRows)
        return DeviceFail("%s: rows %d to %d of %d, batch of %d", pcName, iY, iY + iRows - 1,
                          rP.aRangeX.iWidth, rP.aVol.iLanes);
    return GetBackend()->BackProject(rP);
}
