#include "server/Thread/JobChecks.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <span>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/Align/TransformImpl.h"
#include "gpulib/App/Job.h"
#include "gpulib/App/Smooth/TomoSmooth.h"
#include "gpulib/Device/Limits.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/AlignOp.h"
#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/Recon/MProjData.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Data/Refuse.h"
#include "server/Thread/BandSplit.h"

namespace
{
bool CheckSizes(const Util_Volume& rStack, const Util_Volume& rVolume, std::string& rReason)
{
    if (rStack.GetSizeY() != rVolume.GetSizeY())
        return Refuse(rReason, "the stack has %d rows, the volume %d", rStack.GetSizeY(),
                      rVolume.GetSizeY());
    if (std::max(rStack.GetSizeX(), rVolume.GetSizeX()) > g_iMaxExtent)
        return Refuse(rReason, "the stack is %d columns wide, the volume %d, at most %d",
                      rStack.GetSizeX(), rVolume.GetSizeX(), g_iMaxExtent);
    if (rVolume.GetSizeZ() > g_iMaxGrid)
        return Refuse(rReason, "the volume has %d slices, at most %d", rVolume.GetSizeZ(),
                      g_iMaxGrid);
    return true;
}

bool CheckList(std::span<const unsigned int> uiList, unsigned int uiProjs, std::string& rReason)
{
    if (uiList.empty()) return Refuse(rReason, "no projection is selected");
    if (std::ssize(uiList) > g_iMaxGrid)
        return Refuse(rReason, "%zu projections are selected, at most %d", uiList.size(),
                      g_iMaxGrid);
    const auto pWrong = std::ranges::find_if(uiList, [&](unsigned int n) { return n >= uiProjs; });
    if (pWrong != uiList.end())
        return Refuse(rReason, "projection %u is selected, the stack has %u", *pWrong, uiProjs);
    return true;
}

bool CheckAngles(std::span<const float> fAngles, std::string& rReason)
{
    for (std::size_t n = 0; n < fAngles.size(); ++n)
        if (!std::isfinite(fAngles[n]))
            return Refuse(rReason, "the angle of projection %zu is %g", n, double(fAngles[n]));
    return true;
}

bool CheckBox(const std::optional<WeightBox>& rBox, std::string& rReason)
{
    if (!rBox) return true;
    constexpr float fMost = std::numeric_limits<float>::max() / 4;
    const auto [afOrig, afDim] = *rBox;
    for (const float fValue : {afOrig[0], afOrig[1], afDim[0], afDim[1]})
        if (!(std::fabs(fValue) < fMost))
            return Refuse(rReason, "the weight box is at (%g, %g) with half size (%g, %g)",
                          double(afOrig[0]), double(afOrig[1]), double(afDim[0]), double(afDim[1]));
    return true;
}

bool CheckCounts(const ReconJob& rJob, std::string& rReason)
{
    const std::uint64_t ulProjs = rJob.uiProjIndex.size();
    const std::uint64_t ulIterations = rJob.uiIterations, ulSets = rJob.uiNumSets;
    if (ulIterations == 0 || ulSets == 0)
        return Refuse(rReason, "%u iterations of %u subsets", rJob.uiIterations, rJob.uiNumSets);
    constexpr std::uint64_t ulMost = std::numeric_limits<std::int32_t>::max();
    if (ulIterations > ulMost / (2 * ulProjs) || ulSets > ulMost / ulIterations)
        return Refuse(rReason, "%u iterations of %u subsets and %zu projections are too many",
                      rJob.uiIterations, rJob.uiNumSets, rJob.uiProjIndex.size());
    const std::uint64_t ulSum =
        std::accumulate(rJob.uiSetSize.begin(), rJob.uiSetSize.end(), std::uint64_t{0});
    if (ulSum > std::numeric_limits<std::uint32_t>::max())
        return Refuse(rReason, "the %zu subsets have %llu projections together, at most %u",
                      rJob.uiSetSize.size(), static_cast<unsigned long long>(ulSum),
                      std::numeric_limits<std::uint32_t>::max());
    return true;
}

bool CheckFactors(const ReconJob& rJob, std::string& rReason)
{
    for (std::size_t i = 0; i < rJob.fRelax.size(); ++i)
        if (!std::isfinite(rJob.fRelax[i]))
            return Refuse(rReason, "relaxation factor %zu is %g", i, double(rJob.fRelax[i]));
    for (std::size_t i = 0; rJob.pKernel && i < rJob.pKernel->GetVoxels(); ++i)
        if (!std::isfinite(rJob.pKernel->GetData()[i]))
            return Refuse(rReason, "value %zu of the smoothing kernel is %g", i,
                          double(rJob.pKernel->GetData()[i]));
    return true;
}

/// One of the two stacks that an alignment works on.
bool CheckAlignStack(const char* pcWhat, const Util_Volume* pStack, std::uint32_t uiProj,
                     std::string& rReason)
{
    if (!pStack) return Refuse(rReason, "there are no %ss", pcWhat);
    if (uiProj >= static_cast<std::uint32_t>(pStack->GetSizeZ()))
        return Refuse(rReason, "%s %u of %d", pcWhat, uiProj, pStack->GetSizeZ());
    if (std::max(pStack->GetSizeX(), pStack->GetSizeY()) > g_iMaxExtent)
        return Refuse(rReason, "a %s has %d x %d pixels, at most %d each way", pcWhat,
                      pStack->GetSizeX(), pStack->GetSizeY(), g_iMaxExtent);
    return true;
}

std::uint64_t GetSmoothBytes(const ReconJob& rJob)
{
    const CGpuConfig& rConfig = *CGpuConfig::GetInstance();
    return CTomoSmooth::GetBytes(rJob.pTomoVol->GetSize(), rJob.pKernel->GetSizeX(),
                                 rConfig.GetNumDevices(), rConfig.GetDeviceID(0));
}
}  // namespace

bool DescribeJob(ReconJob& rJob, std::string& rReason)
{
    const CProjData& rProjData = *CProjData::GetInstance();
    rJob.pProjs = rProjData.GetProjs();
    rJob.pTomoVol = CVolData::GetInstance()->GetTomoVolume();
    rJob.bZero = CVolData::GetInstance()->IsZero();
    if (!rJob.pProjs) return Refuse(rReason, "there are no projections");
    if (!rJob.pTomoVol->GetVolume()->GetData()) return Refuse(rReason, "there is no volume");
    rJob.fAngles = rProjData.GetAngles();
    rJob.uiRangeX = rProjData.GetRangeX();
    rJob.uiProjIndex = CSetOp::GetInstance()->GetProjIndex();
    const CWeightOpt& rWeightOpt = *CWeightOpt::GetInstance();
    if (rWeightOpt.HasBox()) rJob.aBox = {rWeightOpt.GetOrig(), rWeightOpt.GetDim()};
    return CheckSizes(*rJob.pProjs, *rJob.pTomoVol->GetVolume(), rReason) &&
           CheckList(rJob.uiProjIndex, rProjData.GetNumProjs(), rReason) &&
           CheckAngles(rJob.fAngles, rReason) && CheckBox(rJob.aBox, rReason);
}

bool DescribeIterations(ReconJob& rJob, std::string& rReason)
{
    const CReconOpt& rOpt = *CReconOpt::GetInstance();
    const CSmoothOpt& rSmoothOpt = *CSmoothOpt::GetInstance();
    const Util_Volume* const pKernel = rSmoothOpt.GetKernel();
    rJob.uiIterations = rOpt.GetIterations();
    rJob.uiNumSets = rOpt.GetNumSets();
    rJob.uiSetSize = rOpt.GetSetSizes();
    rJob.fRelax = rOpt.GetRelax();
    rJob.uiSmoothInt = rSmoothOpt.GetInterval();
    if (rJob.uiSmoothInt > 0 && pKernel && pKernel->GetData()) rJob.pKernel = pKernel;
    return CheckCounts(rJob, rReason) && CheckFactors(rJob, rReason);
}

bool CheckJobMemory(const ReconJob& rJob, EJobKind eKind, std::string& rReason)
{
    const CJobShape aShape(rJob, eKind);
    CBandSplit aBands;
    const int iWorkers = CGpuConfig::GetInstance()->GetNumDevices();
    aBands.Calculate(rJob.pProjs->GetSizeY(), iWorkers);
    std::uint64_t ulBytes = 2 * aShape.GetSums() * sizeof(double);  // the store
    if (rJob.pKernel) ulBytes += GetSmoothBytes(rJob);
    for (int i = 0; i < iWorkers; ++i) ulBytes += aShape.GetWorkerBytes(aBands.GetSize(i));
    return CheckMemory(0, ulBytes, rReason);
}

bool DescribeAlign(const CAlignOp& rRequest, AlignJob& rJob, std::string& rReason)
{
    CProjData& rProjData = *CProjData::GetInstance();
    rJob.pMProjs = CMProjData::GetInstance()->GetProjs();
    rJob.pProjs = rProjData.GetProjs();
    if (!CheckAlignStack("measured projection", rJob.pMProjs, rRequest.GetMProj(), rReason) ||
        !CheckAlignStack("projection", rJob.pProjs, rRequest.GetAProj(), rReason))
        return false;
    rJob.iMProj = static_cast<int>(rRequest.GetMProj());
    rJob.iAProj = static_cast<int>(rRequest.GetAProj());
    rJob.uiRangeX = rProjData.GetRangeX(rRequest.GetAProj());
    rJob.afMatrix = rRequest.GetMatrix();
    rJob.afScale = rRequest.GetScale();
    // Each worker: a copy of the measured image if the device needs one, a piece of three images
    // and its mask on the host, the sums.
    const int iX = rJob.pProjs->GetSizeX(), iY = rJob.pProjs->GetSizeY();
    const std::uint64_t ulPiece =
        std::uint64_t(iX) * std::uint64_t(CTransformImpl::GetPieceRows(iX, iY));
    const std::uint64_t ulMeasured =
        std::uint64_t(rJob.pMProjs->GetSizeX()) * std::uint64_t(rJob.pMProjs->GetSizeY());
    const std::uint64_t ulWorkers = std::uint64_t(CGpuConfig::GetInstance()->GetNumDevices());
    constexpr std::uint64_t ulSums = 2 * eCompareSums;
    return CheckMemory(0, 4 * (ulWorkers * (ulMeasured + 4 * ulPiece) + ulSums * std::uint64_t(iY)),
                       rReason);
}
