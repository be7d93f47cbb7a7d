#include "server/Data/ReplyData.h"

#include <cstdio>

#include "Util/Util_Volume.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

namespace
{
/// XY slice uiSlice of a volume; empty when there is no such slice.
std::span<const float> GetSlice(const Util_Volume* pVolume, std::uint32_t uiSlice)
{
    if (pVolume == nullptr || pVolume->GetVoxels() == 0) return {};
    if (uiSlice >= static_cast<std::uint32_t>(pVolume->GetSizeZ())) return {};
    return {pVolume->GetSliceXY(static_cast<int>(uiSlice)),
            static_cast<std::size_t>(pVolume->GetSizeX()) * pVolume->GetSizeY()};
}
}  // namespace

std::span<const float> FindProj(std::uint32_t uiProj, std::string& rReason)
{
    const CProjData& rProjData = *CProjData::GetInstance();
    const std::span<const float> aSlice = GetSlice(rProjData.GetProjs(), uiProj);
    if (aSlice.empty()) Refuse(rReason, "projection %u of %u", uiProj, rProjData.GetNumProjs());
    return aSlice;
}

std::span<const float> FindSlice(std::uint32_t uiSlice, std::string& rReason)
{
    const Util_Volume* pVolume = CVolData::GetInstance()->GetVolume();
    const std::span<const float> aSlice = GetSlice(pVolume, uiSlice);
    if (aSlice.empty()) Refuse(rReason, "slice %u of %d", uiSlice, pVolume->GetSizeZ());
    return aSlice;
}

std::vector<float> FindRfactors(std::uint32_t uiIteration, std::string& rReason)
{
    CRfactor& rRfactor = *CRfactor::GetInstance();
    const auto sIteration = static_cast<short>(uiIteration);
    std::vector<float> vfSums = rRfactor.GetNthIteration(sIteration);
    if (vfSums.empty()) Refuse(rReason, "iteration %d of %u", sIteration, rRfactor.GetIterations());
    return vfSums;
}

void SetServerProp(CRemotePacket& rReply)
{
    const int iMiB = CGpuConfig::GetInstance()->GetAvailableMemory();
    const int iLow = iMiB % 4096, iHigh = iMiB / 4096;
    rReply.SetNthField(6, static_cast<std::uint32_t>(iLow) << 20);
    rReply.SetNthField(7, static_cast<std::uint32_t>(iHigh));
    std::printf("GPU Memory (MB): Low, High, Total: %d  %d  %d\n", iLow, iHigh * 4096, iMiB);
}

void SetCompareSums(CRemotePacket& rReply)
{
    const CCompareSum& rSums = *CCompareSum::GetInstance();
    rReply.SetNthField(6, rSums.GetMilliseconds());
    rReply.SetNthField(7, rSums.GetSumAligned());
    rReply.SetNthField(8, rSums.GetSumTransed());
    rReply.SetNthField(9, rSums.GetSumAlignedSqr());
    rReply.SetNthField(10, rSums.GetSumTransedSqr());
    rReply.SetNthField(11, rSums.GetSumCross());
    rReply.SetNthField(12, rSums.GetSumAlignedAbs());
    rReply.SetNthField(13, rSums.GetSumTransedAbs());
    rReply.SetNthField(14, rSums.GetSumDiff());
}
