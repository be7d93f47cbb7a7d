#include "server/Data/Recon/MProjData.h"

#include <cstdio>

#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/RemotePacket.h"

CRequestPlan CMProjData::HandleMProjSize(const CRemotePacket& rPacket)
{
    const Extents aSize(rPacket);
    std::string strReason;
    if (!mCheckSize(aSize, strReason)) return CRequestPlan::Refuse("%s", strReason.c_str());
    return CRequestPlan(
        [this, aSize](const CRemotePacket&, std::string&)
        {
            m_pProjs = aSize.MakeVolume();
            std::printf("MProjSize: %u  %u  %u\n", aSize.uiX, aSize.uiY, aSize.uiZ);
            return true;
        });
}

CRequestPlan CMProjData::HandleMProjSet(const CRemotePacket& rPacket)
{
    const std::uint32_t uiProj = rPacket.GetNthField(4);
    if (m_pProjs) return PlanSlice(*m_pProjs, uiProj, rPacket);
    return CRequestPlan::Refuse("projection %u before MPROJSIZE", uiProj);
}
