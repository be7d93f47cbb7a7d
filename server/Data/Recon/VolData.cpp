#include "server/Data/Recon/VolData.h"

#include <span>

#include "Util/Util_Volume.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CVolData> CVolData::m_pInstance;

CVolData::CVolData() : m_pUtilVol(std::make_unique<Util_Volume>())
{
    mBind();
}
CVolData::~CVolData() = default;

CVolData* CVolData::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CVolData);
    return m_pInstance.get();
}

void CVolData::DeleteInstance()
{
    m_pInstance.reset();
}

void CVolData::mBind()
{
    m_aTomoVol.Set(m_pUtilVol.get(), CGpuConfig::GetInstance()->GetNumDevices());
}

std::size_t CVolData::GetBytes() const
{
    return 4 * m_pUtilVol->GetVoxels();
}

float* CVolData::GetNthSlice(short sZ)
{
    return sZ >= 0 && sZ < m_pUtilVol->GetSizeZ() ? m_pUtilVol->GetSliceXY(sZ) : nullptr;
}

std::uint32_t CVolData::GetMaxVolSet() const
{
    return ClampToUint32(std::uint64_t{4} * m_pUtilVol->GetSizeX() * m_pUtilVol->GetSizeY());
}

bool CVolData::HandleVolSize(const CRemotePacket& rPacket, std::string& rReason)
{
    const std::uint32_t uiX = rPacket.GetNthField(4), uiY = rPacket.GetNthField(5);
    const std::uint32_t uiZ = rPacket.GetNthField(6);
    if (!CheckExtents("volume", uiX, uiY, uiZ, rReason)) return false;
    const std::uint64_t ulVoxels = std::uint64_t{uiX} * uiY * uiZ;
    if (ulVoxels != m_pUtilVol->GetVoxels())
    {
        if (!CheckMemory(GetBytes(), 4 * ulVoxels, rReason)) return false;
        auto pVolume = std::make_unique<Util_Volume>();
        pVolume->SetSize(static_cast<int>(uiX), static_cast<int>(uiY), static_cast<int>(uiZ));
        m_pUtilVol = std::move(pVolume);
        mBind();
    }
    else
        m_pUtilVol->SetSize(static_cast<int>(uiX), static_cast<int>(uiY), static_cast<int>(uiZ));
    return true;
}

bool CVolData::HandleVolSet(const CRemotePacket& rPacket, std::string& rReason)
{
    const std::uint32_t uiZ = rPacket.GetNthField(4);
    if (m_pUtilVol->GetVoxels() == 0) return Refuse(rReason, "slice %u before VOLSIZE", uiZ);
    if (uiZ > m_uiMaxSlice || uiZ >= static_cast<std::uint32_t>(m_pUtilVol->GetSizeZ()))
        return Refuse(rReason, "slice %u of %d (at most %u)", uiZ, m_pUtilVol->GetSizeZ(),
                      m_uiMaxSlice + 1);
    if (rPacket.GetOptSize() > GetMaxVolSet())
        return Refuse(rReason, "%u bytes of data, a slice of %d x %d takes %u",
                      rPacket.GetOptSize(), m_pUtilVol->GetSizeX(), m_pUtilVol->GetSizeY(),
                      GetMaxVolSet());
    const std::span<float> afSlice(GetNthSlice(static_cast<short>(uiZ)),
                                   rPacket.GetDataBytes() / 4);
    return rPacket.CopyData4(0, afSlice) || Refuse(rReason, "data is missing");
}
