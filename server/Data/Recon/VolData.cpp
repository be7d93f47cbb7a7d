#include "server/Data/Recon/VolData.h"

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

std::optional<UploadTarget> CVolData::HandleVolSet(const CRemotePacket& rPacket,
                                                   std::string& rReason)
{
    const std::uint32_t uiZ = rPacket.GetNthField(4);
    if (m_pUtilVol->GetVoxels() == 0)
        Refuse(rReason, "slice %u before VOLSIZE", uiZ);
    else if (uiZ > m_uiMaxSlice)
        Refuse(rReason, "slice %u, no more than %u can be set", uiZ, m_uiMaxSlice);
    else
        return GetSliceTarget(*m_pUtilVol, uiZ, rPacket.GetOptSize(), rReason);
    return {};
}
