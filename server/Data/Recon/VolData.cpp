#include "server/Data/Recon/VolData.h"

#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/RemotePacket.h"

CVolData::CVolData() : m_pUtilVol(std::make_unique<Util_Volume>())
{
    mBind();
}

void CVolData::mBind()
{
    m_aTomoVol.Set(m_pUtilVol.get(), CGpuConfig::GetInstance()->GetNumDevices());
}

float* CVolData::GetNthSlice(short sZ)
{
    return sZ >= 0 && sZ < m_pUtilVol->GetSizeZ() ? m_pUtilVol->GetSliceXY(sZ) : nullptr;
}

CRequestPlan CVolData::HandleVolSize(const CRemotePacket& rPacket)
{
    const Extents aSize(rPacket);
    const bool bNew = aSize.GetVoxels() != m_pUtilVol->GetVoxels();
    std::string strReason;
    if (!aSize.Check("volume", strReason) ||
        (bNew && !CheckMemory(GetBytes(), 4 * aSize.GetVoxels(), strReason)))
        return CRequestPlan::Refuse("%s", strReason.c_str());
    return CRequestPlan(
        [this, aSize, bNew](const CRemotePacket&, std::string&)
        {
            if (bNew) m_pUtilVol = aSize.MakeVolume();
            m_bZero = m_bZero || bNew;
            m_pUtilVol->SetSize(int(aSize.uiX), int(aSize.uiY), int(aSize.uiZ));
            mBind();
            return true;
        });
}

CRequestPlan CVolData::HandleVolSet(const CRemotePacket& rPacket)
{
    constexpr std::uint32_t uiMost = 32767;
    const std::uint32_t uiZ = rPacket.GetNthField(4);
    if (m_pUtilVol->GetVoxels() == 0) return CRequestPlan::Refuse("slice %u before VOLSIZE", uiZ);
    if (uiZ > uiMost)
        return CRequestPlan::Refuse("slice %u, no more than %u can be set", uiZ, uiMost);
    NoteWritten();
    return PlanSlice(*m_pUtilVol, uiZ, rPacket);
}
