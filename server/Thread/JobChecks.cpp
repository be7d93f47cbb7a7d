#include "server/Thread/JobChecks.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

#include "Util/Util_Volume.h"
#include "gpulib/App/Align/TransformImpl.h"
#include "gpulib/App/Job.h"
#include "gpulib/App/Smooth/TomoSmooth.h"
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
constexpr int g_iMaxExtent = (1 << 23) - 1;  // columns stay exact as float coordinates
constexpr unsigned int g_uiMaxGrid = 65535;  // slices and selected projections of a launch

bool CheckSizes(const Util_Volume& rStack, const Util_Volume& rVolume, std::string& rReason)
{
    if (rStack.GetSizeY() != rVolume.GetSizeY())
        return Refuse(rReason, "the stack has %d rows, the volume %d", rStack.GetSizeY(),
                      rVolume.GetSizeY());
    if (std::max(rStack.GetSizeX(), rVolume.GetSizeX()) > g_iMaxExtent)
        return Refuse(rReason, "the stack is %d columns wide, the volume %d, at most %d",
                      rStack.GetSizeX(), rVolume.GetSizeX(), g_iMaxExtent);
    if (rVolume.GetSizeZ() > int(g_uiMaxGrid))
        return Refuse(rReason, "the volume has %d slices, at most %u", rVolume.GetSizeZ(),
                      g_uiMaxGrid);
    return true;
}

bool CheckList(unsigned int uiProjs, std::string& rReason)
{
    const auto uiList = CSetOp::GetInstance()->GetProjIndex();
    if (uiList.empty()) return Refuse(rReason, "no projection is selected");
    if (uiList.size() > g_uiMaxGrid)
        return Refuse(rReason, "%zu projections are selected, at most %u", uiList.size(),
                      g_uiMaxGrid);
    const auto pWrong = std::ranges::find_if(uiList, [&](unsigned int n) { return n >= uiProjs; });
    if (pWrong != uiList.end())
        return Refuse(rReason, "projection %u is selected, the stack has %u", *pWrong, uiProjs);
    return true;
}

bool CheckAngles(std::string& rReason)
{
    const auto fAngles = CProjData::GetInstance()->GetAngles();
    for (std::size_t n = 0; n < fAngles.size(); ++n)
        if (!std::isfinite(fAngles[n]))
            return Refuse(rReason, "the angle of projection %zu is %g", n, double(fAngles[n]));
    return true;
}

bool CheckBox(std::string& rReason)
{
    const CWeightOpt& rBox = *CWeightOpt::GetInstance();
    const float* const pfOrig = rBox.GetOrig();
    const float* const pfDim = rBox.GetDim();
    if (!pfOrig || !pfDim) return true;
    constexpr float fMost = std::numeric_limits<float>::max() / 4;
    for (const float fValue : {pfOrig[0], pfOrig[1], pfDim[0], pfDim[1]})
        if (!(std::fabs(fValue) < fMost))
            return Refuse(rReason, "the weight box is at (%g, %g) with half size (%g, %g)",
                          double(pfOrig[0]), double(pfOrig[1]), double(pfDim[0]), double(pfDim[1]));
    return true;
}

/// One of the two stacks that an alignment works on.
bool CheckAlignStack(const char* pcWhat, const Util_Volume* pStack, std::uint32_t uiProj,
                     std::string& rReason)
{
    if (!pStack || !pStack->GetData()) return Refuse(rReason, "there are no %ss", pcWhat);
    if (uiProj >= static_cast<std::uint32_t>(pStack->GetSizeZ()))
        return Refuse(rReason, "%s %u of %d", pcWhat, uiProj, pStack->GetSizeZ());
    if (std::max(pStack->GetSizeX(), pStack->GetSizeY()) > g_iMaxExtent)
        return Refuse(rReason, "a %s has %d x %d pixels, at most %d each way", pcWhat,
                      pStack->GetSizeX(), pStack->GetSizeY(), g_iMaxExtent);
    return true;
}
}  // namespace

bool CheckJobInputs(std::string& rReason)
{
    const Util_Volume* const pStack = CProjData::GetInstance()->GetProjs();
    const Util_Volume* const pVolume = CVolData::GetInstance()->GetVolume();
    if (!pStack || !pStack->GetData()) return Refuse(rReason, "there are no projections");
    if (!pVolume || !pVolume->GetData()) return Refuse(rReason, "there is no volume");
    return CheckSizes(*pStack, *pVolume, rReason) &&
           CheckList(static_cast<unsigned int>(pStack->GetSizeZ()), rReason) &&
           CheckAngles(rReason) && CheckBox(rReason);
}

bool CheckIterations(std::string& rReason)
{
    const CReconOpt& rOpt = *CReconOpt::GetInstance();
    const std::uint64_t ulProjs = CSetOp::GetInstance()->GetNumIndices();
    const std::uint64_t ulIterations = rOpt.GetIterations(), ulSets = rOpt.GetNumSets();
    if (ulIterations == 0 || ulSets == 0)
        return Refuse(rReason, "%u iterations of %u subsets", rOpt.GetIterations(),
                      rOpt.GetNumSets());
    constexpr std::uint64_t ulMost = std::numeric_limits<std::int32_t>::max();
    if (ulIterations > ulMost / (2 * ulProjs) || ulSets > ulMost / ulIterations)
        return Refuse(rReason, "%u iterations of %u subsets and %u projections are too many",
                      rOpt.GetIterations(), rOpt.GetNumSets(),
                      CSetOp::GetInstance()->GetNumIndices());
    const auto fRelax = rOpt.GetRelax();
    for (std::size_t i = 0; i < fRelax.size(); ++i)
        if (!std::isfinite(fRelax[i]))
            return Refuse(rReason, "relaxation factor %zu is %g", i, double(fRelax[i]));
    return true;
}

bool CheckJobMemory(EJobKind eKind, std::string& rReason, std::size_t tExtra)
{
    ReconJob aJob;
    aJob.pProjs = CProjData::GetInstance()->GetProjs();
    aJob.pTomoVol = CVolData::GetInstance()->GetTomoVolume();
    aJob.uiProjIndex = CSetOp::GetInstance()->GetProjIndex();
    aJob.uiIterations = CReconOpt::GetInstance()->GetIterations();
    const JobShape aShape(aJob, eKind);

    CBandSplit aBands;
    const int iWorkers = CGpuConfig::GetInstance()->GetNumDevices();
    aBands.Calculate(aJob.pProjs->GetSizeY(), iWorkers);
    std::uint64_t ulBytes = 2 * aShape.GetSums() * sizeof(double) + tExtra;  // the store
    for (int i = 0; i < iWorkers; ++i) ulBytes += aShape.GetWorkerBytes(aBands.GetSize(i));
    return CheckMemory(0, ulBytes, rReason);
}

bool CheckAlignInputs(const CAlignOp& rRequest, std::string& rReason)
{
    const Util_Volume* const pMeasured = CMProjData::GetInstance()->GetProjs();
    const Util_Volume* const pStack = CProjData::GetInstance()->GetProjs();
    if (!CheckAlignStack("measured projection", pMeasured, rRequest.GetMProj(), rReason) ||
        !CheckAlignStack("projection", pStack, rRequest.GetAProj(), rReason))
        return false;
    // Each worker: a copy of the measured image if the device needs one, a piece of three images
    // and its mask on the host, the sums.
    const int iX = pStack->GetSizeX(), iY = pStack->GetSizeY();
    const std::uint64_t ulPiece =
        std::uint64_t(iX) * std::uint64_t(CTransformImpl::GetPieceRows(iX, iY));
    const std::uint64_t ulMeasured =
        std::uint64_t(pMeasured->GetSizeX()) * std::uint64_t(pMeasured->GetSizeY());
    const std::uint64_t ulWorkers = std::uint64_t(CGpuConfig::GetInstance()->GetNumDevices());
    constexpr std::uint64_t ulSums = 2 * eCompareSums;
    return CheckMemory(0, 4 * (ulWorkers * (ulMeasured + 4 * ulPiece) + ulSums * std::uint64_t(iY)),
                       rReason);
}

namespace
{
/// The kernel that the iterations will use, null without one.
const Util_Volume* GetKernelInUse()
{
    const CSmoothOpt& rSmooth = *CSmoothOpt::GetInstance();
    return rSmooth.GetInterval() > 0 ? rSmooth.GetKernel() : nullptr;
}
}  // namespace

bool CheckSmooth(std::string& rReason)
{
    const Util_Volume* const pKernel = GetKernelInUse();
    if (!pKernel) return true;
    const std::span<const float> fKernel(pKernel->GetData(), pKernel->GetVoxels());
    for (std::size_t i = 0; i < fKernel.size(); ++i)
        if (!std::isfinite(fKernel[i]))
            return Refuse(rReason, "value %zu of the smoothing kernel is %g", i,
                          double(fKernel[i]));
    if (std::ranges::all_of(fKernel, [](float fValue) { return fValue == 0.0f; }))
        return Refuse(rReason, "all values of the smoothing kernel are 0");
    return true;
}

std::size_t GetSmoothBytes()
{
    const Util_Volume* const pKernel = GetKernelInUse();
    if (!pKernel) return 0;
    const CGpuConfig& rConfig = *CGpuConfig::GetInstance();
    return CTomoSmooth::GetBytes(CVolData::GetInstance()->GetVolume()->GetSize(),
                                 pKernel->GetSizeX(), rConfig.GetNumDevices(),
                                 rConfig.GetDeviceID(0));
}
