#include "gpulib/Device/GForwardProj.h"

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DriverChecks.h"

void GForwardProj::SetVolSize(int iVolX, int iVolZ)
{
    m_aForward.iVolX = iVolX;
    m_aForward.iVolZ = iVolZ;
}

void GForwardProj::SetProjX(int iProjX)
{
    m_aForward.iProjX = iProjX;
    m_aCombine.iProjX = iProjX;
}

void GForwardProj::SetSetRange(int iStart, int iEnd)
{
    m_aForward.iFirst = m_aCombine.iFirst = iStart;
    m_aForward.iEnd = m_aCombine.iEnd = iEnd;
}

bool GForwardProj::DoIt(const DeviceImage& rSums)
{
    constexpr const char* pcName = "ForwardProject";
    ForwardParams& rP = m_aForward;
    if (rP.iEnd <= rP.iFirst) return true;
    rP.aSums = rSums;
    if (!CheckExtents(pcName, rP.iVolX, rP.iVolZ, rP.iProjX) ||
        !CheckRange(pcName, rP.aProjIndex, rP.iFirst, rP.iEnd) ||
        !CheckImage(pcName, "slice", rP.aVol, rP.iVolX + 2, rP.iVolZ + 2) ||
        !CheckImage(pcName, "angles", rP.aCosSin, rSums.iHeight, 1, 2) ||
        !CheckImage(pcName, "sums", rSums, rP.iProjX, 1) ||
        !CheckSameBatch(pcName, rSums, {.iWidth = rSums.iWidth, .iLanes = rP.aVol.iLanes}))
        return false;
    return GetBackend()->ForwardProject(rP);
}

bool GForwardProj::DoDiff(const DeviceImage& rSums, const DeviceImage& rOut)
{
    return mCombine(ECombine::eDiff, rSums, rOut);
}

bool GForwardProj::DoDiv(const DeviceImage& rSums, const DeviceImage& rOut)
{
    return mCombine(ECombine::eDiv, rSums, rOut);
}

bool GForwardProj::mCombine(ECombine eOperation, const DeviceImage& rSums, const DeviceImage& rOut)
{
    constexpr const char* pcName = "Combine";
    CombineParams& rP = m_aCombine;
    if (rP.iEnd <= rP.iFirst) return true;
    rP.eOperation = eOperation;
    rP.aSums = rSums;
    rP.aOut = rOut;
    rP.aProjIndex = m_aForward.aProjIndex;
    if (!CheckRange(pcName, rP.aProjIndex, rP.iFirst, rP.iEnd) ||
        !CheckImage(pcName, "sums", rSums, rP.iProjX, rOut.iHeight) ||
        !CheckImage(pcName, "measured rows", rP.aRaw, rP.iProjX, rOut.iHeight) ||
        !CheckImage(pcName, "result", rOut, rP.iProjX, 1) || !CheckSameBatch(pcName, rSums, rOut) ||
        !CheckSameBatch(pcName, rP.aRaw, rOut))
        return false;
    return GetBackend()->Combine(rP);
}
