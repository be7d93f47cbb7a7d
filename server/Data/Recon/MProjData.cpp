#include "server/Data/Recon/MProjData.h"

#include <cstdio>

#include "Util/Util_Volume.h"
#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/Refuse.h"
#include "server/Data/RemotePacket.h"

std::unique_ptr<CMProjData> CMProjData::m_pInstance;

CMProjData::CMProjData() = default;
CMProjData::~CMProjData() = default;

CMProjData* CMProjData::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CMProjData);
    return m_pInstance.get();
}

void CMProjData::DeleteInstance()
{
    m_pInstance.reset();
}

std::size_t CMProjData::GetBytes() const
{
    return m_pProjs ? 4 * m_pProjs->GetVoxels() : 0;
}

bool CMProjData::HandleMProjSize(const CRemotePacket& rPacket, std::string& rReason)
{
    const std::uint32_t uiX = rPacket.GetNthField(4), uiY = rPacket.GetNthField(5);
    const std::uint32_t uiN = rPacket.GetNthField(6);
    if (!CheckExtents("stack", uiX, uiY, uiN, rReason) ||
        !CheckMemory(GetBytes(), std::uint64_t{4} * uiX * uiY * uiN, rReason))
        return false;
    auto pProjs = std::make_unique<Util_Volume>();
    pProjs->SetSize(static_cast<int>(uiX), static_cast<int>(uiY), static_cast<int>(uiN));
    m_pProjs = std::move(pProjs);
    std::printf("MProjSize: %u  %u  %u\n", uiX, uiY, uiN);
    return true;
}

std::optional<UploadTarget> CMProjData::HandleMProjSet(const CRemotePacket& rPacket,
                                                       std::string& rReason)
{
    const std::uint32_t uiProj = rPacket.GetNthField(4);
    if (m_pProjs) return GetSliceTarget(*m_pProjs, uiProj, rPacket.GetOptSize(), rReason);
    Refuse(rReason, "projection %u before MPROJSIZE", uiProj);
    return {};
}
