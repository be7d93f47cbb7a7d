#include "server/Data/DataReply.h"

#include <cstdio>

#include "Util/Util_Volume.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Refuse.h"

std::unique_ptr<CDataReply> CDataReply::m_pInstance;

namespace
{
/// XY slice iSlice of a volume; empty when there is no such slice.
std::span<const float> GetSlice(const Util_Volume* pVolume, std::uint32_t uiSlice)
{
    if (pVolume == nullptr || pVolume->GetVoxels() == 0) return {};
    if (uiSlice >= static_cast<std::uint32_t>(pVolume->GetSizeZ())) return {};
    return {pVolume->GetSliceXY(static_cast<int>(uiSlice)),
            static_cast<std::size_t>(pVolume->GetSizeX()) * pVolume->GetSizeY()};
}
}  // namespace

CDataReply* CDataReply::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CDataReply);
    return m_pInstance.get();
}

void CDataReply::mSetHeader(const CRemotePacket& rRequest)
{
    m_aRemotePacket.SetMsgType(CMsgConst::DATAREPLY);
    m_aRemotePacket.SetParentSerial(rRequest.GetSerial());
    m_aRemotePacket.SetNthField(5, 0);
    m_aRemotePacket.ClearData();
}

bool CDataReply::GiveNothing(const CRemotePacket& rRequest)
{
    mSetHeader(rRequest);
    m_aRemotePacket.SetNthField(5, 1);
    return false;
}

bool CDataReply::mLend(const CRemotePacket& rRequest, std::span<const float> aData,
                       std::string& rReason)
{
    mSetHeader(rRequest);
    if (m_aRemotePacket.LendData4(aData)) return true;
    Refuse(rReason, "no memory for %zu bytes", aData.size_bytes());
    return GiveNothing(rRequest);
}

bool CDataReply::ProjGet(const CRemotePacket& rRequest, std::string& rReason)
{
    const std::uint32_t uiProj = rRequest.GetNthField(4);
    const CProjData& rProjData = *CProjData::GetInstance();
    const std::span<const float> aSlice = GetSlice(rProjData.GetProjs(), uiProj);
    if (!aSlice.empty()) return mLend(rRequest, aSlice, rReason);
    Refuse(rReason, "projection %u of %u", uiProj, rProjData.GetNumProjs());
    return GiveNothing(rRequest);
}

bool CDataReply::VolGet(const CRemotePacket& rRequest, std::string& rReason)
{
    const std::uint32_t uiSlice = rRequest.GetNthField(4);
    const Util_Volume* pVolume = CVolData::GetInstance()->GetVolume();
    const std::span<const float> aSlice = GetSlice(pVolume, uiSlice);
    if (!aSlice.empty()) return mLend(rRequest, aSlice, rReason);
    Refuse(rReason, "slice %u of %d", uiSlice, pVolume->GetSizeZ());
    return GiveNothing(rRequest);
}

bool CDataReply::ReconStatGet(const CRemotePacket& rRequest, std::string& rReason)
{
    const auto sIteration = static_cast<short>(rRequest.GetNthField(4));
    const std::vector<float> vfSums = CRfactor::GetInstance()->GetNthIteration(sIteration);
    const auto uiBytes = static_cast<std::uint32_t>(vfSums.size() * sizeof(float));
    mSetHeader(rRequest);
    if (!vfSums.empty() && m_aRemotePacket.SetOptSize(uiBytes))
        return m_aRemotePacket.SetData4(0, vfSums.data(), uiBytes);
    Refuse(rReason, "iteration %d of %u", sIteration, CRfactor::GetInstance()->GetIterations());
    return GiveNothing(rRequest);
}

void CDataReply::ServerProp(const CRemotePacket& rRequest)
{
    mSetHeader(rRequest);
    const int iMiB = CGpuConfig::GetInstance()->GetAvailableMemory();
    const int iLow = iMiB % 4096, iHigh = iMiB / 4096;
    m_aRemotePacket.SetNthField(6, static_cast<std::uint32_t>(iLow) << 20);
    m_aRemotePacket.SetNthField(7, static_cast<std::uint32_t>(iHigh));
    std::printf("GPU Memory (MB): Low, High, Total: %d  %d  %d\n", iLow, iHigh * 4096, iMiB);
}

void CDataReply::CompReply(const CRemotePacket& rRequest)
{
    mSetHeader(rRequest);
    for (int i = 6; i <= 14; ++i) m_aRemotePacket.SetNthField(i, 0);
}
